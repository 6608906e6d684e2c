// Arithmetic on blocks of samples.

#include "jobs.h"
#include "registry.h"

#ifdef __SSE2__
    #include <emmintrin.h>
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

#ifdef __SSE2__
template <class Op> static void applyVectorized( float *dest, const float *source, int64_t samples, Op op )
{
    int64_t i = 0;
    for ( ; i + 16 <= samples; i += 16 ) {
        __m128 results[4];
        for ( int r = 0; r < 4; ++r )
            results[r] = op( _mm_loadu_ps( dest + i + 4 * r ), _mm_loadu_ps( source + i + 4 * r ) );
        for ( int r = 0; r < 4; ++r ) _mm_storeu_ps( dest + i + 4 * r, results[r] );
    }
    for ( ; i < samples; ++i ) dest[i] = _mm_cvtss_f32( op( _mm_set_ss( dest[i] ), _mm_set_ss( source[i] ) ) );
}

static constexpr Kernel addLimit = []( float *dest, const float *source, int64_t samples ) {
    applyVectorized( dest, source, samples, []( __m128 a, __m128 b ) { return _mm_add_ps( a, b ); } );
};
static constexpr Kernel mulLimit = []( float *dest, const float *source, int64_t samples ) {
    applyVectorized( dest, source, samples, []( __m128 a, __m128 b ) { return _mm_mul_ps( a, b ); } );
};
static constexpr Kernel scaleLimit = []( float *dest, const float *source, int64_t samples ) {
    __m128 factor = _mm_set1_ps( *source );
    applyVectorized( dest, dest, samples, [=]( __m128 a, __m128 ) { return _mm_mul_ps( a, factor ); } );
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
