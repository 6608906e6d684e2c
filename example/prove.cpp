// Checks that a converted recording matches its source: prove SOURCE RESULT
//
// Resamples SOURCE to the rate of RESULT with direct calls to libsamplerate and compares the first channels. The
// lengths must be equal, and the correlation must be above 0.99.

#include <samplerate.h>
#include <sndfile.hh>

#include <cmath>
#include <cstdio>
#include <vector>

struct Recording {
    std::vector<float> samples; // of the first channel
    int rate;
};

static bool readFirstChannel( const char *path, Recording &recording )
{
    SndfileHandle file( path );
    if ( file.error() ) {
        std::fprintf( stderr, "prove: cannot read %s: %s\n", path, file.strError() );
        return false;
    }
    std::vector<float> frame( size_t( file.channels() ) );
    while ( file.readf( frame.data(), 1 ) == 1 ) recording.samples.push_back( frame[0] );
    recording.rate = file.samplerate();
    return true;
}

static std::vector<float> resample( const Recording &source, int rate )
{
    double ratio = double( rate ) / source.rate;
    std::vector<float> out( size_t( std::llround( double( source.samples.size() ) * ratio ) ) );
    SRC_DATA data = {};
    data.data_in = source.samples.data();
    data.input_frames = long( source.samples.size() );
    data.data_out = out.data();
    data.output_frames = long( out.size() );
    data.src_ratio = ratio;
    if ( src_simple( &data, SRC_SINC_BEST_QUALITY, 1 ) ) out.clear();
    return out;
}

static double correlation( const std::vector<float> &a, const std::vector<float> &b )
{
    double ab = 0, aa = 0, bb = 0;
    for ( size_t i = 0; i < a.size() && i < b.size(); ++i ) {
        ab += double( a[i] ) * b[i];
        aa += double( a[i] ) * a[i];
        bb += double( b[i] ) * b[i];
    }
    return aa > 0 && bb > 0 ? ab / std::sqrt( aa * bb ) : 0;
}

int main( int argc, char **argv )
{
    Recording source, result;
    if ( argc != 3 ) {
        std::fprintf( stderr, "usage: prove SOURCE RESULT\n" );
        return 1;
    }
    if ( !readFirstChannel( argv[1], source ) || !readFirstChannel( argv[2], result ) ) return 1;
    std::vector<float> expected = resample( source, result.rate );
    double similarity = correlation( expected, result.samples );
    bool lengthMatches = expected.size() == result.samples.size(), contentMatches = similarity > 0.99;
    std::printf( "length       %zu frames, expected %zu: %s\n", result.samples.size(), expected.size(),
        lengthMatches ? "ok" : "FAILED" );
    std::printf(
        "correlation  %.6f with the directly resampled source: %s\n", similarity, contentMatches ? "ok" : "FAILED" );
    return lengthMatches && contentMatches ? 0 : 1;
}
