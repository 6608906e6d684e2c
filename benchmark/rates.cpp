// Prints the table of rate conversion methods in docs/rates.md: script/rates.

#include "../example/resampler.h"

#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <numbers>
#include <vector>

using namespace host;

/// Converts a tone of a second, in packets of 20 ms.
static std::vector<PCM_SAMPLE> convertTone( Quality quality, int64_t hertz, int64_t inRate, int64_t outRate )
{
    Resampler resampler( quality, inRate, outRate, 1 );
    pcm::Tone tone = pcm::Tone::tryCreate( inRate, hertz ).value();
    for ( int i = 0; i < 50; ++i ) resampler.write( tone.gather( inRate / 50 ) );
    std::vector<PCM_SAMPLE> samples( size_t( resampler.available() ) );
    resampler.gatherAdd( samples, resampler.available() );
    return samples;
}

/// Returns the level of a frequency relative to the input in dB, at most -200. Measures half a second, which is a
/// whole number of periods.
static double levelAt( const std::vector<PCM_SAMPLE> &samples, int64_t hertz, int64_t rate )
{
    std::complex<double> sum = 0;
    for ( int64_t i = 0; i < rate / 2; ++i )
        sum += double( samples[size_t( i + rate / 4 )] ) *
               std::polar( 1.0, -2 * std::numbers::pi * double( hertz * i % rate ) / double( rate ) );
    const double level = std::max( pcm::decibelFromGain( 4 * std::abs( sum ) / double( rate ) ), -200.0 );
    return std::round( 10 * level ) / 10 + 0.0; // not -0
}

/// Returns the frequency up to which no tone loses more than 1 dB from 8 to 16 kHz, in steps of 50 Hz.
static int64_t passband( Quality quality )
{
    int64_t hertz = 50;
    while ( levelAt( convertTone( quality, hertz, 8000, 16000 ), hertz, 16000 ) > -1 ) hertz += 50;
    return hertz - 50;
}

/// Returns how much later the output is available than the input, in milliseconds.
static double delayOf( Quality quality )
{
    return 1000 - double( convertTone( quality, 1000, 8000, 16000 ).size() ) / 16;
}

/// Returns the time to convert 20 ms, in microseconds.
static double costOf( Quality quality, int64_t inRate, int64_t outRate )
{
    using Clock = std::chrono::steady_clock;
    Resampler resampler( quality, inRate, outRate, 1 );
    const pcm::Packet pkt = pcm::Tone::tryCreate( inRate, 1000 )->gather( inRate / 50 );
    double best = HUGE_VAL;
    for ( int round = 0; round < 50; ++round ) {
        constexpr int packets = 100;
        const auto start = Clock::now();
        for ( int i = 0; i < packets; ++i ) {
            resampler.write( pkt );
            (void)resampler.gather( resampler.available() );
        }
        best = std::min( best, std::chrono::duration<double, std::micro>( Clock::now() - start ).count() / packets );
    }
    return best;
}

int main()
{
    const pcm::Module module;
    const Quality reference = parseQuality( "telephone" );
    std::printf( "| quality   | -1 dB at | 3.0 kHz | 3.4 kHz | 3.7 kHz | image at 4.6 kHz | image at 5.2 kHz | alias "
                 "of 4.6 kHz | "
                 "alias of 5.2 kHz | delay   | cost, 8 to 16 kHz | cost, 48 to 8 kHz |\n"
                 "| ---       | ---      | ---     | ---     | ---     | ---              | ---              | ---   "
                 "           | "
                 "---              | ---     | ---               | ---               |\n" );
    for ( const char *name : { "best", "medium", "fast", "telephone", "linear", "hold" } ) {
        Quality quality = parseQuality( name );
        std::printf( "| %-9s | %5lld Hz |", name, static_cast<long long>( passband( quality ) ) );
        for ( int64_t hertz : { 3000, 3400, 3700 } )
            std::printf( " %7.1f |", levelAt( convertTone( quality, hertz, 8000, 16000 ), hertz, 16000 ) );
        for ( int64_t image : { 4600, 5200 } )
            std::printf( " %16.1f |", levelAt( convertTone( quality, 8000 - image, 8000, 16000 ), image, 16000 ) );
        for ( int64_t hertz : { 4600, 5200 } )
            std::printf( " %16.1f |", levelAt( convertTone( quality, hertz, 16000, 8000 ), 8000 - hertz, 8000 ) );
        std::printf( " %4.2f ms | %17.1f | %17.1f |\n", delayOf( quality ),
            costOf( quality, 8000, 16000 ) / costOf( reference, 8000, 16000 ),
            costOf( quality, 48000, 8000 ) / costOf( reference, 48000, 8000 ) );
    }
}
