#include "resampler.h"

namespace host {

// Two frames at least: given a single one, libsamplerate's linear converter reads the one before.
int64_t packetFrames( int64_t rate, int64_t otherRate, int64_t channels )
{
    int64_t growth = std::max( otherRate / rate, int64_t( 1 ) ), most = ( 1 << 20 ) / channels / growth;
    return std::max( std::min( ( rate + 25 ) / 50, most ), int64_t( 2 ) );
}

int64_t converterType( const std::string &quality )
{
    static const std::pair<const char *, int64_t> types[] = {
        { "best", PCM_SRC_TYPE_SINC_BEST_QUALITY },
        { "medium", PCM_SRC_TYPE_SINC_MEDIUM_QUALITY },
        { "fast", PCM_SRC_TYPE_SINC_FASTEST },
        { "hold", PCM_SRC_TYPE_ZERO_ORDER_HOLD },
        { "linear", PCM_SRC_TYPE_LINEAR },
    };
    for ( const auto &[name, type] : types )
        if ( quality == name ) return type;
    fail( "unknown quality \"" + quality + "\"; known are best, medium, fast, hold, linear" );
}

static Src converter( int64_t type, int64_t inRate, int64_t outRate, int64_t channels )
{
    if ( inRate == outRate ) return nullptr;
    if ( !pcmSrcFrameRateCheckCompatibility( outRate, inRate ) )
        fail( "libsamplerate cannot convert " + std::to_string( inRate ) + " Hz to " + std::to_string( outRate ) +
              " Hz: the ratio is too far from 1" );
    Src src = pcmSrcTryCreate( type, outRate, inRate, channels );
    if ( !src )
        fail( "libsamplerate cannot convert " + std::to_string( channels ) +
              " channels with this quality; hold and linear take more" );
    return src;
}

Resampler::Resampler( int64_t type, int64_t inRate, int64_t outRate, int64_t channels )
    : inRate( inRate ), outRate( outRate ), inPacket( packetFrames( inRate, outRate, channels ) ),
      queue( pcmPacketQueueCreate( channels ) ), src( converter( type, inRate, outRate, channels ) )
{
}

// Input frames times the ratio of the rates, rounded, without a product that could be too large.
int64_t Resampler::due() const
{
    return inFrames / inRate * outRate + ( inFrames % inRate * outRate * 2 + inRate ) / ( 2 * inRate );
}

void Resampler::write( PCM_PACKET *pkt )
{
    inFrames += pcmPacketFrames( pkt );
    pcmPacketQueueWrite( &queue, pkt );
    while ( src && pcmPacketQueueFrames( queue ) >= inPacket ) convert( inPacket );
}

void Resampler::convert( int64_t frames )
{
    Packet pkt = pcmPacketQueueGather( &queue, frames );
    if ( frames < inPacket ) pcmPacketSetFrames( &pkt, inPacket );
    pcmSrcWrite( src, pkt );
}

// The converter holds frames back: silence behind the input makes it give what is still due.
void Resampler::finish( int64_t frames )
{
    while ( held() < frames ) convert( pcmPacketQueueFrames( queue ) );
}

Packet Resampler::gather( int64_t frames )
{
    outFrames += frames;
    return src ? pcmSrcGather( src, frames ) : pcmPacketQueueGather( &queue, frames );
}

void Resampler::gatherAdd( PCM_SAMPLE *dest, int64_t frames )
{
    outFrames += frames;
    if ( src )
        pcmSrcGatherSamplesAdd( src, dest, frames );
    else
        pcmPacketQueueGatherSamplesAdd( &queue, dest, frames );
}

} // namespace host
