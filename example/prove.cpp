// Whether a converted recording is still the recording: prove SOURCE RESULT
//
// Resamples SOURCE by libsamplerate alone, called directly, to the rate of RESULT, and compares the first channels:
// the length has to be right to the frame, and the correlation above 0.99.

#include <samplerate.h>
#include <sndfile.hh>

#include <cmath>
#include <cstdio>
#include <vector>

struct Recording {
    std::vector<float> samples; // of the first channel
    int rate;
};

static bool read( const char *path, Recording &recording )
{
    SndfileHandle file( path );
    if ( file.error() ) {
        std::fprintf( stderr, "prove: %s: %s\n", path, file.strError() );
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
    if ( !read( argv[1], source ) || !read( argv[2], result ) ) return 1;
    std::vector<float> expected = resample( source, result.rate );
    double alike = correlation( expected, result.samples );
    bool length = expected.size() == result.samples.size();
    std::printf( "length       %zu frames, expected %zu: %s\n", result.samples.size(), expected.size(),
        length ? "right" : "wrong" );
    std::printf( "correlation  %.6f with the source resampled directly: %s\n", alike,
        alike > 0.99 ? "the speech is there" : "not the same" );
    return length && alike > 0.99 ? 0 : 1;
}
