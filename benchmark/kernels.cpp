// Arithmetic on blocks of samples.

#include "jobs.h"
#include "registry.h"

#if defined __SSE2__
    #include <emmintrin.h>
#elif defined __aarch64__
    #include <arm_neon.h>
#endif

using Kernel = void ( * )( float *dest, const float *source, int64_t samples );

static void addKernel(
    const char *job, const float *source, int64_t bytesPerSample, Kernel ours, Kernel naive, Kernel limit )
{
    auto addImplementation = [=]( const char *implementation, Kernel kernel ) {
        for ( int64_t samples : blockSizes )
            addJob( job, samples, implementation, [=] {
                float *output = buffers.outputSamples();
                buffers.resetOutput();
                ours( output, source, samples );
                std::vector<float> expected( output, output + samples );
                buffers.resetOutput();
                kernel( output, source, samples );
                checkOutput( job, implementation, expected.data(), samples );
                return [=] {
                    kernel( buffers.outputSamples(), source, samples );
                    return samples;
                };
            } );
    };
    addImplementation( "ours", ours );
    addImplementation( "naive", naive );
    if ( limit ) addImplementation( "limit", limit );
    addCopy( job, bytesPerSample );
}

#if defined __SSE2__
using Vector = __m128;
static Vector load( const float *at ) { return _mm_loadu_ps( at ); }
static void store( float *at, Vector v ) { _mm_storeu_ps( at, v ); }
static Vector add( Vector a, Vector b ) { return _mm_add_ps( a, b ); }
static Vector multiply( Vector a, Vector b ) { return _mm_mul_ps( a, b ); }
static Vector fromSample( float sample ) { return _mm_set1_ps( sample ); }
static float toSample( Vector v ) { return _mm_cvtss_f32( v ); }
#elif defined __aarch64__
using Vector = float32x4_t;
static Vector load( const float *at ) { return vld1q_f32( at ); }
static void store( float *at, Vector v ) { vst1q_f32( at, v ); }
static Vector add( Vector a, Vector b ) { return vaddq_f32( a, b ); }
static Vector multiply( Vector a, Vector b ) { return vmulq_f32( a, b ); }
static Vector fromSample( float sample ) { return vdupq_n_f32( sample ); }
static float toSample( Vector v ) { return vgetq_lane_f32( v, 0 ); }
#endif

#if defined __SSE2__ || defined __aarch64__
template <class Op> static void applyVectorized( float *dest, const float *source, int64_t samples, Op op )
{
    int64_t i = 0;
    for ( ; i + 16 <= samples; i += 16 ) {
        Vector results[4];
        for ( int r = 0; r < 4; ++r ) results[r] = op( load( dest + i + 4 * r ), load( source + i + 4 * r ) );
        for ( int r = 0; r < 4; ++r ) store( dest + i + 4 * r, results[r] );
    }
    for ( ; i < samples; ++i ) dest[i] = toSample( op( fromSample( dest[i] ), fromSample( source[i] ) ) );
}

static constexpr Kernel addLimit = []( float *dest, const float *source, int64_t samples ) {
    applyVectorized( dest, source, samples, []( Vector a, Vector b ) { return add( a, b ); } );
};
static constexpr Kernel mulLimit = []( float *dest, const float *source, int64_t samples ) {
    applyVectorized( dest, source, samples, []( Vector a, Vector b ) { return multiply( a, b ); } );
};
static constexpr Kernel scaleLimit = []( float *dest, const float *source, int64_t samples ) {
    const Vector factor = fromSample( *source );
    applyVectorized( dest, dest, samples, [=]( Vector a, Vector ) { return multiply( a, factor ); } );
};
#else
static constexpr Kernel addLimit = nullptr, mulLimit = nullptr, scaleLimit = nullptr;
#endif

void addKernels()
{
    addKernel(
        "add", buffers.signs, 12, pcm___SamplesAdd,
        []( float *dest, const float *source, int64_t samples ) {
            for ( int64_t i = 0; i < samples; ++i ) dest[i] += source[i];
        },
        addLimit );
    addKernel(
        "mul", buffers.signs, 12, pcm___SamplesMul,
        []( float *dest, const float *source, int64_t samples ) {
            for ( int64_t i = 0; i < samples; ++i ) dest[i] *= source[i];
        },
        mulLimit );
    static const float factor = -1.0f; // repeated scaling does not change the magnitude
    addKernel(
        "scale", &factor, 8,
        []( float *dest, const float *source, int64_t samples ) { pcm___SamplesScale( dest, samples, *source ); },
        []( float *dest, const float *source, int64_t samples ) {
            float scale = *source;
            for ( int64_t i = 0; i < samples; ++i ) dest[i] *= scale;
        },
        scaleLimit );
}
