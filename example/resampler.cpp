#include "resampler.h"

namespace host {

// Two frames at least: given a single one, libsamplerate's linear converter reads the one before.
int64_t packetFrames( int64_t rate, int64_t otherRate, int64_t channels )
{
    int64_t growth = std::max( otherRate / rate, int64_t( 1 ) ), most = ( 1 << 20 ) / channels / growth;
    return std::max( std::min( ( rate + 25 ) / 50, most ), int64_t( 2 ) );
}

pcm::SrcType converterType( const std::string &quality )
{
    static const std::pair<const char *, pcm::SrcType> types[] = {
        { "best", pcm::SrcType::sincBestQuality },
        { "medium", pcm::SrcType::sincMediumQuality },
        { "fast", pcm::SrcType::sincFastest },
        { "hold", pcm::SrcType::zeroOrderHold },
        { "linear", pcm::SrcType::linear },
    };
    for ( const auto &[name, type] : types )
        if ( quality == name ) return type;
    fail( "unknown quality \"" + quality + "\"; known are best, medium, fast, hold, linear" );
}

static std::optional<pcm::Src> converter( pcm::SrcType type, int64_t inRate, int64_t outRate, int64_t channels )
{
    if ( inRate == outRate ) return std::nullopt;
    if ( !pcm::Src::isCompatible( outRate, inRate ) )
        fail( "libsamplerate cannot convert " + std::to_string( inRate ) + " Hz to " + std::to_string( outRate ) +
              " Hz: the ratio is too far from 1" );
    auto src = pcm::Src::tryCreate( type, outRate, inRate, channels );
    if ( !src )
        fail( "libsamplerate cannot convert " + std::to_string( channels ) +
              " channels with this quality; hold and linear take more" );
    return src;
}

Resampler::Resampler( pcm::SrcType type, int64_t inRate, int64_t outRate, int64_t channels )
    : inRate( inRate ), outRate( outRate ), inPacket( packetFrames( inRate, outRate, channels ) ), queue( channels ),
      src( converter( type, inRate, outRate, channels ) )
{
}

// Input frames times the ratio of the rates, rounded, without a product that could be too large.
int64_t Resampler::due() const
{
    return inFrames / inRate * outRate + ( inFrames % inRate * outRate * 2 + inRate ) / ( 2 * inRate );
}

void Resampler::write( const pcm::Packet &pkt )
{
    inFrames += pkt.frames();
    queue.write( pkt );
    while ( src && queue.frames() >= inPacket ) convert( inPacket );
}

void Resampler::convert( int64_t frames )
{
    pcm::Packet pkt = queue.gather( frames );
    if ( frames < inPacket ) pkt.setFrames( inPacket );
    src->write( pkt );
}

// The converter holds frames back: silence behind the input makes it give what is still due.
void Resampler::finish( int64_t frames )
{
    while ( held() < frames ) convert( queue.frames() );
}

pcm::Packet Resampler::gather( int64_t frames )
{
    outFrames += frames;
    return src ? src->gather( frames ) : queue.gather( frames );
}

void Resampler::gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames )
{
    outFrames += frames;
    if ( src )
        src->gatherAdd( dest, frames );
    else
        queue.gatherAdd( dest, frames );
}

} // namespace host
