#include "plot.h"

#include "gnuplot.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace host {

using Complex = std::complex<double>;

// In place, for powers of two.
static void fourier( std::vector<Complex> &values )
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
            Complex turn = std::polar( 1.0, -2 * std::numbers::pi * double( k ) / double( length ) );
            for ( size_t i = k; i < size; i += length ) {
                Complex even = values[i], odd = values[i + length / 2] * turn;
                values[i] = even + odd;
                values[i + length / 2] = even - odd;
            }
        }
}

// Below what 24 bits can tell, a curve would only show rounding.
static std::string decibelOf( double power ) { return fixed( std::max( 10 * std::log10( power ), -150.0 ), 3 ); }

void Meter::add( const pcm::Packet &pkt )
{
    const PCM_SAMPLE *samples = pkt.backing();
    int64_t channels = pkt.channels();
    for ( int64_t frame = 0; frame < pkt.frames(); ++frame ) {
        double power = 0, mean = 0;
        for ( int64_t channel = 0; channel < channels; ++channel ) {
            double sample = samples[frame * channels + channel];
            if ( !std::isfinite( sample ) ) sample = 0; // files of floats may hold anything
            power += sample * sample;
            mean += sample;
        }
        addFrame( power / double( channels ), mean / double( channels ) );
    }
}

void Meter::addFrame( double power, double mean )
{
    partPower += power;
    if ( ++framesInPart == partFrames ) {
        parts.push_back( partPower / double( partFrames ) );
        partPower = 0;
        framesInPart = 0;
        if ( parts.size() == mostParts ) {
            for ( size_t i = 0; i < mostParts / 2; ++i ) parts[i] = ( parts[2 * i] + parts[2 * i + 1] ) / 2;
            parts.resize( mostParts / 2 );
            partFrames *= 2;
        }
    }
    recent.push_back( mean );
    if ( recent.size() == window ) transform();
}

// Hann windows that overlap by half. The tops of a sine at full scale become 1.
void Meter::transform()
{
    std::vector<Complex> values( window );
    for ( size_t i = 0; i < window; ++i )
        values[i] = recent[i] * ( 1 - std::cos( 2 * std::numbers::pi * double( i ) / double( window ) ) ) * 2.0 /
                    double( window );
    fourier( values );
    for ( size_t i = 0; i < powers.size(); ++i ) powers[i] += std::norm( values[i] );
    ++transforms;
    recent.erase( recent.begin(), recent.begin() + window / 2 );
}

std::string Meter::levels() const
{
    std::string text;
    for ( size_t i = 0; i < parts.size(); ++i )
        text += fixed( ( double( i ) + 0.5 ) * double( partFrames ) / double( rate ), 6 ) + " " +
                decibelOf( 2 * parts[i] ) + "\n";
    return text.empty() ? "0 -150\n" : text;
}

std::string Meter::spectrum() const
{
    std::string text;
    for ( size_t i = 0; i < powers.size(); ++i )
        text += fixed( double( i ) * double( rate ) / double( window ), 3 ) + " " +
                decibelOf( transforms ? powers[i] / double( transforms ) : 0 ) + "\n";
    return text;
}

// Nothing that the user typed comes into what gnuplot reads.
void Plot::draw()
{
    std::string script = "set terminal svg background 'white' noenhanced size 1100,700 font 'sans,12'\n"
                         "set multiplot layout 2,2 title 'Level and spectrum, 0 dB: a sine at full scale'\n"
                         "set grid lt 1 lw 0.7 lc rgb '#d8d8d8'\nunset key\nset format x '%g'\n";
    struct Side {
        const char *name;
        const Meter &meter;
    } sides[] = { { "input", in }, { "output", out } };
    for ( auto [name, meter] : sides )
        script += std::string( "$" ) + name + "_level << END\n" + meter.levels() + "END\n$" + name +
                  "_spectrum << END\n" + meter.spectrum() + "END\n";
    script += "set ylabel 'dB'\nset xlabel 'seconds'\nset yrange [-100:6]\n";
    for ( auto [name, meter] : sides )
        script += std::string( "set title '" ) + name + ", " + std::to_string( meter.rate ) + " Hz'\nplot $" + name +
                  "_level using 1:2 with lines lw 1.5 lc rgb '#2060a0'\n";
    script += "unset title\nset xlabel 'hertz'\nset yrange [-150:6]\nset xrange [0:" +
              fixed( double( std::max( in.rate, out.rate ) ) / 2, 1 ) + "]\n";
    for ( auto [name, meter] : sides )
        script += std::string( "plot $" ) + name + "_spectrum using 1:2 with lines lw 1.5 lc rgb '#2060a0'\n";
    runGnuplot( script + "unset multiplot\n", output );
}

} // namespace host
