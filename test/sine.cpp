// Compares tones with the platform's sin, rounded to float: script/sine.

#include <pcm/pcm.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

static int64_t samples, different;

/// Compares blocks of 20 ms at 48 kHz, each of which starts at the wrapped position.
static void compare( double period, int blocks )
{
    const double radians = 6.283185307179586 / period;
    pcm::Tone tone( period );
    double position = 0;
    for ( int block = 0; block < blocks; ++block ) {
        float made[960];
        tone.gather( made );
        for ( float x : made ) {
            different += x != float( std::sin( radians * position ) );
            position += 1.0;
        }
        samples += std::size( made );
        while ( position > period ) position -= period;
    }
}

int main( int argc, char **argv )
{
    const double wanted = argc > 1 ? std::atof( argv[1] ) : 1e9;
    const pcm::Module module;
    std::mt19937_64 random( 1 );
    std::uniform_real_distribution<double> exponent( 1, 20 );
    for ( int round = 0; double( samples ) < wanted; ++round ) {
        for ( int rate : { 8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000 } )
            for ( int hertz = 1; hertz <= rate / 2; ++hertz ) compare( double( rate ) / hertz, 1 + round );
        for ( int i = 0; i < 100000; ++i ) compare( std::exp2( exponent( random ) ), 1 + round );
    }
    std::printf( "%lld samples, %lld different\n", (long long)samples, (long long)different );
    return different != 0;
}
