#include "plot.h"

#include "gnuplot.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace host {

using Complex = std::complex<double>;

// In-place radix-2 FFT. The size must be a power of two.
static void fft( std::vector<Complex> &values )
{
    size_t size = values.size();
    for ( size_t i = 1, j = 0; i < size; ++i ) {
        size_t bit = size >> 1;
        for ( ; j & bit; bit >>= 1 ) j ^= bit;
        j ^= bit;
        if ( i < j ) std::swap( values[i], values[j] );
    }
    for ( size_t length = 2; length <= size; length *= 2 )
        for ( size_t k = 0; k < length / 2; ++k ) {
            Complex twiddle = std::polar( 1.0, -2 * std::numbers::pi * double( k ) / double( length ) );
            for ( size_t i = k; i < size; i += length ) {
                Complex even = values[i], odd = values[i + length / 2] * twiddle;
                values[i] = even + odd;
                values[i + length / 2] = even - odd;
            }
        }
}

// Limited to -150 dB: below the resolution of 24 bits, the curve would only show rounding errors.
static std::string formatPower( double power )
{
    return formatFixed( std::max( 10 * std::log10( power ), -150.0 ), 3 );
}

void Meter::add( const pcm::Packet &pkt )
{
    const PCM_SAMPLE *samples = pkt.backing();
    int64_t channels = pkt.channels();
    for ( int64_t frame = 0; frame < pkt.frames(); ++frame ) {
        double power = 0, mean = 0;
        for ( int64_t channel = 0; channel < channels; ++channel ) {
            double sample = samples[frame * channels + channel];
            if ( !std::isfinite( sample ) ) sample = 0; // files of floats may contain any value
            power += sample * sample;
            mean += sample;
        }
        addFrame( power / double( channels ), mean / double( channels ) );
    }
}

void Meter::addFrame( double power, double mean )
{
    ++frames;
    powerSum += power;
    if ( ++framesInBlock == blockFrames ) {
        blockPowers.push_back( powerSum / double( blockFrames ) );
        powerSum = 0;
        framesInBlock = 0;
        if ( blockPowers.size() == maxBlocks ) {
            for ( size_t i = 0; i < maxBlocks / 2; ++i )
                blockPowers[i] = ( blockPowers[2 * i] + blockPowers[2 * i + 1] ) / 2;
            blockPowers.resize( maxBlocks / 2 );
            blockFrames *= 2;
        }
    }
    window.push_back( mean );
    if ( window.size() == windowSize ) addSpectrum();
}

// Hann windows with 50 % overlap, scaled so that the peak of a full-scale sine is 1.
void Meter::addSpectrum()
{
    std::vector<Complex> values( windowSize );
    for ( size_t i = 0; i < windowSize; ++i )
        values[i] = window[i] * ( 1 - std::cos( 2 * std::numbers::pi * double( i ) / double( windowSize ) ) ) * 2.0 /
                    double( windowSize );
    fft( values );
    for ( size_t i = 0; i < binPowers.size(); ++i ) binPowers[i] += std::norm( values[i] );
    ++spectrumCount;
    window.erase( window.begin(), window.begin() + windowSize / 2 );
}

double Meter::seconds() const { return frames ? double( frames ) / double( rate ) : 1; }

std::string Meter::levels() const
{
    std::string text;
    for ( size_t i = 0; i < blockPowers.size(); ++i )
        text += formatFixed( ( double( i ) + 0.5 ) * double( blockFrames ) / double( rate ), 6 ) + " " +
                formatPower( 2 * blockPowers[i] ) + "\n";
    return text.empty() ? "0 -150\n" : text;
}

std::string Meter::spectrum() const
{
    std::string text;
    for ( size_t i = 0; i < binPowers.size(); ++i )
        text += formatFixed( double( i ) * double( rate ) / double( windowSize ), 3 ) + " " +
                formatPower( spectrumCount ? binPowers[i] / double( spectrumCount ) : 0 ) + "\n";
    return text;
}

// The script must not contain any text from the user, because gnuplot scripts can run commands.
void Plot::draw()
{
    std::string script = "set terminal svg background 'white' noenhanced size 1100,700 font 'sans,12'\n"
                         "set multiplot layout 2,2 title 'Level and spectrum (0 dB: full-scale sine)'\n"
                         "set grid lt 1 lw 0.7 lc rgb '#d8d8d8'\nunset key\nset format x '%g'\n";
    struct Side {
        const char *name;
        const Meter &meter;
    } sides[] = { { "input", input }, { "output", output } };
    for ( auto [name, meter] : sides )
        script += std::string( "$" ) + name + "_level << END\n" + meter.levels() + "END\n$" + name +
                  "_spectrum << END\n" + meter.spectrum() + "END\n";
    script += "set ylabel 'dB'\nset xlabel 'seconds'\nset yrange [-100:6]\n";
    for ( auto [name, meter] : sides )
        script += std::string( "set title '" ) + name + ", " + std::to_string( meter.rate ) +
                  " Hz'\nset xrange [0:" + formatFixed( meter.seconds(), 6 ) + "]\nplot $" + name +
                  "_level using 1:2 with lines lw 1.5 lc rgb '#2060a0'\n";
    script += "unset title\nset xlabel 'hertz'\nset yrange [-150:6]\nset xrange [0:" +
              formatFixed( double( std::max( input.rate, output.rate ) ) / 2, 1 ) + "]\n";
    for ( auto [name, meter] : sides )
        script += std::string( "plot $" ) + name + "_spectrum using 1:2 with lines lw 1.5 lc rgb '#2060a0'\n";
    runGnuplot( script + "unset multiplot\n", image );
}

} // namespace host
