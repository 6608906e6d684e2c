#include "resampler.h"

namespace host {

// At least two frames: given a single frame, the linear converter of libsamplerate reads the frame before it.
int64_t packetFrames( int64_t rate, int64_t otherRate, int64_t channels )
{
    int64_t expansion = std::max( otherRate / rate, int64_t( 1 ) ), limit = ( 1 << 20 ) / channels / expansion;
    return std::max( std::min( ( rate + 25 ) / 50, limit ), int64_t( 2 ) );
}

// Printed by script/rates, which measures conversions from 8 to 16 kHz.
const char qualityTable[] = "Qualities of rate conversion, from 8 to 16 kHz for example:\n"
                            "\n"
                            "  quality    loses 1 dB at   images     delay    cost\n"
                            "  best          3800 Hz     -142 dB   18.0 ms     280\n"
                            "  medium        3550 Hz     -113 dB    5.9 ms      95\n"
                            "  fast          3050 Hz     -105 dB    2.5 ms      45\n"
                            "  telephone     3600 Hz      -14 dB    0.4 ms       1\n"
                            "  linear        1650 Hz       -8 dB      0 ms       5\n"
                            "  hold          2300 Hz       -4 dB      0 ms       4\n"
                            "\n"
                            "telephone converts in integer ratios between 8, 12, 16, 24 and 48 kHz.\n"
                            "\n";

Quality parseQuality( const std::string &quality )
{
    static const std::pair<const char *, Quality> qualities[] = {
        { "best", pcm::SrcType::sincBestQuality },
        { "medium", pcm::SrcType::sincMediumQuality },
        { "fast", pcm::SrcType::sincFastest },
        { "hold", pcm::SrcType::zeroOrderHold },
        { "linear", pcm::SrcType::linear },
        { "telephone", std::nullopt },
    };
    for ( const auto &[name, type] : qualities )
        if ( quality == name ) return type;
    fail( "unknown quality \"" + quality + "\"; use one of best, medium, fast, hold, linear, telephone" );
}

// A filter runs at the higher rate and passes what the lower rate can represent.
struct TelephoneFilter {
    int64_t lowRate, highRate;
    pcm::FilterType type;
};
static constexpr TelephoneFilter telephoneFilters[] = {
    { 8000, 16000, pcm::FilterType::lowpass4000At16000 },
    { 8000, 24000, pcm::FilterType::lowpass4000At24000 },
    { 8000, 48000, pcm::FilterType::lowpass4000At48000 },
    { 12000, 24000, pcm::FilterType::lowpass6000At24000 },
    { 12000, 48000, pcm::FilterType::lowpass6000At48000 },
    { 16000, 48000, pcm::FilterType::lowpass8000At48000 },
    { 24000, 48000, pcm::FilterType::lowpass12000At48000 },
};

static const TelephoneFilter *findTelephoneFilter( int64_t inRate, int64_t outRate )
{
    for ( const TelephoneFilter &filter : telephoneFilters )
        if ( filter.lowRate == std::min( inRate, outRate ) && filter.highRate == std::max( inRate, outRate ) )
            return &filter;
    return nullptr;
}

static pcm::Coefficients telephoneCoefficients( int64_t inRate, int64_t outRate )
{
    const TelephoneFilter *filter = findTelephoneFilter( inRate, outRate );
    if ( !filter )
        fail( "--quality telephone cannot convert " + std::to_string( inRate ) + " Hz to " +
              std::to_string( outRate ) +
              " Hz: it converts in integer ratios between 8000, 12000, 16000, 24000 and 48000 Hz; use another "
              "quality" );
    return pcm::Coefficients( filter->type );
}

bool TelephoneConverter::supports( int64_t inRate, int64_t outRate )
{
    return findTelephoneFilter( inRate, outRate );
}

TelephoneConverter::TelephoneConverter( int64_t inRate, int64_t outRate, int64_t channels )
    : extendFactor( std::max( outRate / inRate, int64_t( 1 ) ) ),
      reduceFactor( std::max( inRate / outRate, int64_t( 1 ) ) ),
      filter( telephoneCoefficients( inRate, outRate ), channels ), queue( channels )
{
}

void TelephoneConverter::write( pcm::Packet pkt )
{
    if ( extendFactor > 1 ) pkt.framesExtend( extendFactor );
    filter.write( pkt );
    if ( filter.frames() < framesToDrop ) return;
    if ( framesToDrop ) (void)filter.gather( std::exchange( framesToDrop, 0 ) );
    pkt = filter.gather( filter.frames() / reduceFactor * reduceFactor );
    // The inserted zeros lower the level. Restoring it before the filter would clip, because filters limit their
    // output to full scale.
    if ( extendFactor > 1 ) pkt.levelAdjustLinearGain( double( extendFactor ) );
    if ( reduceFactor > 1 ) pkt.framesReduce( reduceFactor );
    queue.write( pkt );
}

Resampler::Converter Resampler::createConverter( Quality quality, int64_t inRate, int64_t outRate, int64_t channels )
{
    if ( inRate == outRate ) return pcm::Queue( channels );
    if ( !quality ) {
        TelephoneConverter converter( inRate, outRate, channels );
        converter.align();
        return converter;
    }
    if ( !pcm::Src::isCompatible( outRate, inRate ) )
        fail( "libsamplerate cannot convert " + std::to_string( inRate ) + " Hz to " + std::to_string( outRate ) +
              " Hz: the ratio is out of range; convert in two steps" );
    auto src = pcm::Src::tryCreate( *quality, outRate, inRate, channels );
    if ( !src )
        fail( "libsamplerate cannot convert " + std::to_string( channels ) +
              " channels with this quality; use --quality hold or linear" );
    return *src;
}

Resampler::Resampler( Quality quality, int64_t inRate, int64_t outRate, int64_t channels )
    : inRate( inRate ), outRate( outRate ), inPacketFrames( packetFrames( inRate, outRate, channels ) ),
      queue( channels ), converter( createConverter( quality, inRate, outRate, channels ) )
{
}

void Resampler::startLive()
{
    if ( std::holds_alternative<TelephoneConverter>( converter ) )
        converter = TelephoneConverter( inRate, outRate, queue.channels() );
    if ( !std::holds_alternative<pcm::Src>( converter ) ) return;
    // A converter of libsamplerate holds back less than 20 ms.
    pcm::Packet silence( queue.channels() );
    silence.setFrames( inPacketFrames );
    write( silence );
}

int64_t Resampler::buffered() const
{
    return std::visit( []( const auto &active ) { return active.frames(); }, converter );
}

// The number of input frames times the ratio of the rates, rounded. Splitting the product avoids overflow.
int64_t Resampler::expectedFrames() const
{
    return inFrames / inRate * outRate + ( inFrames % inRate * outRate * 2 + inRate ) / ( 2 * inRate );
}

void Resampler::write( const pcm::Packet &pkt )
{
    inFrames += pkt.frames();
    if ( auto *output = std::get_if<pcm::Queue>( &converter ) ) {
        output->write( pkt );
        return;
    }
    queue.write( pkt );
    while ( queue.frames() >= inPacketFrames ) convert( inPacketFrames );
}

void Resampler::convert( int64_t frames )
{
    pcm::Packet pkt = queue.gather( frames );
    if ( frames < inPacketFrames ) pkt.setFrames( inPacketFrames );
    std::visit( [&]( auto &active ) { active.write( pkt ); }, converter );
}

// The converter delays its output. Append silence to the input until it has returned all expected frames.
void Resampler::flush( int64_t frames )
{
    while ( buffered() < frames ) convert( queue.frames() );
}

pcm::Packet Resampler::gather( int64_t frames )
{
    outFrames += frames;
    return std::visit( [=]( auto &active ) { return active.gather( frames ); }, converter );
}

void Resampler::gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames )
{
    outFrames += frames;
    std::visit( [=]( auto &active ) { active.gatherAdd( dest, frames ); }, converter );
}

} // namespace host
