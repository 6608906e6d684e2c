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
                            "  linear        1700 Hz       -8 dB      0 ms       5\n"
                            "  hold          2350 Hz       -4 dB      0 ms       4\n"
                            "\n"
                            "telephone converts in integer ratios between 8, 12, 16, 24 and 48 kHz.\n"
                            "\n";

static constexpr Quality qualities[] = {
    { "best", pcm::SrcType::sincBestQuality },
    { "medium", pcm::SrcType::sincMediumQuality },
    { "fast", pcm::SrcType::sincFastest },
    { "telephone", std::nullopt },
    { "linear", pcm::SrcType::linear },
    { "hold", pcm::SrcType::zeroOrderHold },
};

const Quality &parseQuality( const std::string &name )
{
    std::string names;
    for ( const Quality &quality : qualities ) {
        if ( name == quality.name ) return quality;
        names += ( names.empty() ? "" : ", " ) + std::string( quality.name );
    }
    fail( "unknown quality \"" + name + "\"; use one of " + names );
}

static std::string rateText( int64_t inRate, int64_t outRate )
{
    return std::to_string( inRate ) + " Hz to " + std::to_string( outRate ) + " Hz";
}

// Converts with libsamplerate.
class SrcConverter : public RateConverter {
public:
    SrcConverter( pcm::SrcType type, int64_t inRate, int64_t outRate, int64_t channels )
    {
        if ( !pcm::Src::isCompatible( outRate, inRate ) )
            fail( "libsamplerate cannot convert " + rateText( inRate, outRate ) +
                  ": the ratio is out of range; convert in two steps" );
        auto created = pcm::Src::tryCreate( type, outRate, inRate, channels );
        if ( !created )
            fail( "libsamplerate cannot convert " + std::to_string( channels ) +
                  " channels with this quality; use --quality hold or linear" );
        src = *created;
    }
    void write( const pcm::Packet &pkt ) override { src.write( pkt ); }
    int64_t frames() const override { return src.frames(); }
    pcm::Packet gather( int64_t frames ) override { return src.gather( frames ); }
    void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames ) override { src.gatherAdd( dest, frames ); }

private:
    pcm::Src src;
};

// Converts between rates of telephony with the built-in filters. To raise the rate, inserts silence and removes the
// images; to lower it, removes what would alias and drops frames.
class TelephoneConverter : public RateConverter {
public:
    TelephoneConverter( int64_t inRate, int64_t outRate, int64_t channels )
        : extension( std::max( outRate / inRate, int64_t( 1 ) ) ),
          reduction( std::max( inRate / outRate, int64_t( 1 ) ) ), filtered( channels ), output( channels )
    {
        const pcm::Coefficients coefficients( filterType( inRate, outRate ) );
        filter = pcm::Filter( coefficients, channels );
        delay = ( coefficients.length() - 1 ) / 2;
    }

    void write( const pcm::Packet &in ) override
    {
        pcm::Packet pkt = in;
        if ( extension > 1 ) pkt.extendFrames( extension );
        filter.write( pkt );
        pkt = filter.read();
        if ( extension > 1 ) pkt.adjustGain( double( extension ) ); // the inserted silence lowers the level
        const int64_t early = std::min( delay, pkt.frames() );
        pkt.delLeading( early );
        delay -= early;
        filtered.write( pkt );
        pkt = filtered.gather( filtered.frames() / reduction * reduction );
        if ( reduction > 1 ) pkt.reduceFrames( reduction );
        output.write( pkt );
    }
    int64_t frames() const override { return output.frames(); }
    pcm::Packet gather( int64_t frames ) override { return output.gather( frames ); }
    void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames ) override { output.gatherAdd( dest, frames ); }

private:
    // The cut-off frequency of a filter is half of the lower rate.
    static pcm::FilterType filterType( int64_t inRate, int64_t outRate )
    {
        const int64_t cutoff = std::min( inRate, outRate ) / 2, rate = std::max( inRate, outRate );
        const auto type = rate % ( 2 * cutoff )
                              ? std::nullopt
                              : pcm::filterTypeFromString( "PCM_FILTER_TYPE_LOWPASS_" + std::to_string( cutoff ) +
                                                           "_AT_" + std::to_string( rate ) );
        if ( !type )
            fail( "--quality telephone cannot convert " + rateText( inRate, outRate ) +
                  ": it supports integer ratios between 8, 12, 16, 24 and 48 kHz; use --quality medium" );
        return *type;
    }

    int64_t extension, reduction;
    pcm::Filter filter;
    int64_t delay; // the first frames that the filter returns and that are not dropped yet
    pcm::Queue filtered, output;
};

std::unique_ptr<RateConverter> createRateConverter(
    const Quality &quality, int64_t inRate, int64_t outRate, int64_t channels )
{
    if ( !quality.type ) return std::make_unique<TelephoneConverter>( inRate, outRate, channels );
    return std::make_unique<SrcConverter>( *quality.type, inRate, outRate, channels );
}

Resampler::Resampler( const Quality &quality, int64_t inRate, int64_t outRate, int64_t channels )
    : inRate( inRate ), outRate( outRate ), inPacketFrames( packetFrames( inRate, outRate, channels ) ),
      queue( channels ),
      converter( inRate == outRate ? nullptr : createRateConverter( quality, inRate, outRate, channels ) )
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
    while ( converter && queue.frames() >= inPacketFrames ) convert( inPacketFrames );
}

void Resampler::convert( int64_t frames )
{
    pcm::Packet pkt = queue.gather( frames );
    if ( frames < inPacketFrames ) pkt.setFrames( inPacketFrames );
    converter->write( pkt );
}

// The converter delays its output. Append silence to the input until it has returned all expected frames.
void Resampler::flush( int64_t frames )
{
    while ( buffered() < frames ) convert( queue.frames() );
}

pcm::Packet Resampler::gather( int64_t frames )
{
    outFrames += frames;
    return converter ? converter->gather( frames ) : queue.gather( frames );
}

void Resampler::gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames )
{
    outFrames += frames;
    if ( converter )
        converter->gatherAdd( dest, frames );
    else
        queue.gatherAdd( dest, frames );
}

} // namespace host
