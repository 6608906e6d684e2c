#include "resampler.h"

namespace host {

// At least two frames: given a single frame, the linear converter of libsamplerate reads the frame before it.
int64_t packetFrames( int64_t rate, int64_t otherRate, int64_t channels )
{
    int64_t expansion = std::max( otherRate / rate, int64_t( 1 ) ), limit = ( 1 << 20 ) / channels / expansion;
    return std::max( std::min( ( rate + 25 ) / 50, limit ), int64_t( 2 ) );
}

pcm::SrcType parseQuality( const std::string &quality )
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
    fail( "unknown quality \"" + quality + "\"; use one of best, medium, fast, hold, linear" );
}

static std::optional<pcm::Src> createSrc( pcm::SrcType type, int64_t inRate, int64_t outRate, int64_t channels )
{
    if ( inRate == outRate ) return std::nullopt;
    if ( !pcm::Src::isCompatible( outRate, inRate ) )
        fail( "libsamplerate cannot convert " + std::to_string( inRate ) + " Hz to " + std::to_string( outRate ) +
              " Hz: the ratio is out of range; convert in two steps" );
    auto src = pcm::Src::tryCreate( type, outRate, inRate, channels );
    if ( !src )
        fail( "libsamplerate cannot convert " + std::to_string( channels ) +
              " channels with this quality; use --quality hold or linear" );
    return src;
}

Resampler::Resampler( pcm::SrcType type, int64_t inRate, int64_t outRate, int64_t channels )
    : inRate( inRate ), outRate( outRate ), inPacketFrames( packetFrames( inRate, outRate, channels ) ),
      queue( channels ), src( createSrc( type, inRate, outRate, channels ) )
{
}

// The number of input frames times the ratio of the rates, rounded. Splitting the product avoids overflow.
int64_t Resampler::expectedFrames() const
{
    return inFrames / inRate * outRate + ( inFrames % inRate * outRate * 2 + inRate ) / ( 2 * inRate );
}

void Resampler::write( const pcm::Packet &pkt )
{
    inFrames += pkt.frames();
    queue.write( pkt );
    while ( src && queue.frames() >= inPacketFrames ) convert( inPacketFrames );
}

void Resampler::convert( int64_t frames )
{
    pcm::Packet pkt = queue.gather( frames );
    if ( frames < inPacketFrames ) pkt.setFrames( inPacketFrames );
    src->write( pkt );
}

// The converter delays its output. Append silence to the input until it has returned all expected frames.
void Resampler::flush( int64_t frames )
{
    while ( buffered() < frames ) convert( queue.frames() );
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
