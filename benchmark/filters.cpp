// FIR filters.

#include "jobs.h"
#include "limit_packet.h"
#include "registry.h"

#include <cstring>
#if defined __SSE2__
    #include <emmintrin.h>
#elif defined __aarch64__
    #include <arm_neon.h>
#endif

// Computes the outputs from `first` to the end of the block. `input` holds the history, followed by the block.
using Fir = void ( * )( float *dest, const float *input, const std::vector<float> &coefficients, int channels,
    int64_t first, int64_t samples );

static float clamp( float sum ) { return -1.0f > sum ? -1.0f : 1.0f < sum ? 1.0f : sum; }

static void firNaive( float *dest, const float *input, const std::vector<float> &coefficients, int channels,
    int64_t first, int64_t samples )
{
    for ( int64_t i = first; i < samples; ++i ) {
        float sum = 0.0f;
        for ( size_t k = 0; k < coefficients.size(); ++k )
            sum += input[i + int64_t( k ) * channels] * coefficients[coefficients.size() - 1 - k];
        dest[i] = clamp( sum );
    }
}

#if defined __SSE2__
using Vector = __m128;
static Vector load( const float *at ) { return _mm_loadu_ps( at ); }
static void store( float *at, Vector v ) { _mm_storeu_ps( at, v ); }
static Vector splat( float x ) { return _mm_set1_ps( x ); }
static Vector addProduct( Vector sum, Vector a, Vector b ) { return _mm_add_ps( sum, _mm_mul_ps( a, b ) ); }
static Vector clamp( Vector v ) { return _mm_max_ps( splat( -1.0f ), _mm_min_ps( splat( 1.0f ), v ) ); }
#elif defined __aarch64__
using Vector = float32x4_t;
static Vector load( const float *at ) { return vld1q_f32( at ); }
static void store( float *at, Vector v ) { vst1q_f32( at, v ); }
static Vector splat( float x ) { return vdupq_n_f32( x ); }
static Vector addProduct( Vector sum, Vector a, Vector b ) { return vaddq_f32( sum, vmulq_f32( a, b ) ); }
static Vector clamp( Vector v ) { return vmaxq_f32( splat( -1.0f ), vminq_f32( splat( 1.0f ), v ) ); }
#endif

#if defined __SSE2__ || defined __aarch64__
static void firLimit( float *dest, const float *input, const std::vector<float> &coefficients, int channels,
    int64_t first, int64_t samples )
{
    constexpr int vectors = 8;
    int64_t i = first;
    for ( ; i + 4 * vectors <= samples; i += 4 * vectors ) {
        Vector sums[vectors] = {};
        const float *source = input + i;
        for ( size_t k = coefficients.size(); k-- > 0; source += channels ) {
            const Vector coefficient = splat( coefficients[k] );
            for ( int v = 0; v < vectors; ++v ) sums[v] = addProduct( sums[v], load( source + 4 * v ), coefficient );
        }
        for ( int v = 0; v < vectors; ++v ) store( dest + i + 4 * v, clamp( sums[v] ) );
    }
    firNaive( dest, input, coefficients, channels, i, samples );
}
#endif

static Handle<PCM_FILTER> createFilter( int taps, int channels )
{
    Handle coefficients( pcmFilterCoefficientsCreateFromSamplesCopy( firTaps( taps ).data(), taps ) );
    return Handle( pcmFilterCreate( coefficients.obj, channels ) );
}

static void addFir( const char *implementation, int taps, int channels, int64_t samples, Fir fir )
{
    std::string job = firJob( taps, channels );
    addJob( job, samples, implementation, [=] {
        int64_t history = int64_t( taps - 1 ) * channels;
        std::vector<float> input( size_t( history + samples ), 0.0f );
        auto filter = [=, coefficients = firTaps( taps )]( float *dest ) mutable {
            std::memcpy( &input[size_t( history )], buffers.samples, size_t( samples ) * sizeof( float ) );
            fir( dest, input.data(), coefficients, channels, 0, samples );
            std::memmove( input.data(), &input[size_t( samples )], size_t( history ) * sizeof( float ) );
        };
        filter( buffers.outputSamples() );
        Handle ours = createFilter( taps, channels );
        Handle pkt = inputPacket( channels, samples );
        pcmFilterWrite( &ours.obj, pkt.obj );
        Handle expected( pcmFilterRead( &ours.obj ) );
        checkOutput( job, implementation, pcmPacketBacking( expected.obj ), samples );
        return [=]() mutable {
            // As in the library, a packet is written to the filter, and another one is read from a queue.
            auto *output = LimitPacket::create( samples );
            filter( output->samples );
            ++output->refCount;
            output->release();
            output->release();
            return samples;
        };
    } );
}

void addFilters()
{
    for ( int taps : firLengths )
        for ( int channels : { 1, 2 } )
            for ( int64_t samples : blockSizes ) {
                addJob( firJob( taps, channels ), samples, "ours", [=] {
                    return [=, pkt = inputPacket( channels, samples ),
                               filter = createFilter( taps, channels )]() mutable {
                        pcmFilterWrite( &filter.obj, pkt.obj );
                        pcmPacketRelease( pcmFilterRead( &filter.obj ) );
                        return samples;
                    };
                } );
                addFir( "naive", taps, channels, samples, firNaive );
#if defined __SSE2__ || defined __aarch64__
                addFir( "limit", taps, channels, samples, firLimit );
#endif
            }
}
