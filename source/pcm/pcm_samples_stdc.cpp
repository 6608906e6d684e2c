#include "pcm_samples_stdc.h"

#include "pcm_lanes.hh"

#include "kit/kit_check.hh"

#include <cstring> // std::memcpy

// Sets each sample of dest to `op( dest sample, source sample )`: four vectors in each round, because compilers
// unroll a plain loop less, then single vectors and samples.
template <class Op> static void eachVector( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples, Op op )
{
    using namespace pcm;
    int64_t done = 0;
    auto result = [&]( int r ) {
        return op( loadAs<Samples>( dest + done + r * lanes ), loadAs<Samples>( source + done + r * lanes ) );
    };
    for ( ; samples - done >= 4 * lanes; done += 4 * lanes ) {
#ifdef __AARCH64EL__
        // Load everything before the first store, so that instructions can load and store two vectors. The order
        // makes no difference to blocks that overlap, because dest does not begin inside the source block.
        Samples results[4];
        unrolled<4>( [&]( int r ) { results[r] = result( r ); } );
        unrolled<4>( [&]( int r ) { storeAs( dest + done + r * lanes, results[r] ); } );
#else
        unrolled<4>( [&]( int r ) { storeAs( dest + done + r * lanes, result( r ) ); } );
#endif
    }
    for ( ; samples - done >= lanes; done += lanes ) storeAs( dest + done, result( 0 ) );
    for ( ; done < samples; ++done ) dest[done] = op( dest[done], source[done] );
}

template <class Op> static void each( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples, Op op )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( dest || !samples );
    KIT_CHECK( source || !samples );
    // If dest begins inside the source block, each result is also the input of a later step.
    if ( dest <= source || dest >= source + samples ) return eachVector( dest, source, samples, op );
    for ( int64_t i = 0; i < samples; ++i ) dest[i] = op( dest[i], source[i] );
}

template <class Op>
static void eachFrame( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, int64_t frames, Op op )
{
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( dest || !frames );
    KIT_CHECK( destChannel >= 0 );
    KIT_CHECK( destChannels >= 0 );
    KIT_CHECK( destChannel < destChannels );
    for ( int64_t f = 0; f < frames; ++f ) op( dest[f * destChannels + destChannel] );
}

template <class Op>
static void eachFrame( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, const PCM_SAMPLE *source,
    int64_t sourceChannel, int64_t sourceChannels, int64_t frames, Op op )
{
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( dest || !frames );
    KIT_CHECK( source || !frames );
    KIT_CHECK( destChannel >= 0 );
    KIT_CHECK( destChannels >= 0 );
    KIT_CHECK( destChannel < destChannels );
    KIT_CHECK( sourceChannel >= 0 );
    KIT_CHECK( sourceChannels >= 0 );
    KIT_CHECK( sourceChannel < sourceChannels );
    for ( int64_t f = 0; f < frames; ++f )
        op( dest[f * destChannels + destChannel], source[f * sourceChannels + sourceChannel] );
}

static constexpr auto sum = []( auto d, auto s ) { return d + s; };
static constexpr auto product = []( auto d, auto s ) { return d * s; };
static constexpr auto add = []( PCM_SAMPLE &d, const PCM_SAMPLE &s ) { d += s; };
static constexpr auto mul = []( PCM_SAMPLE &d, const PCM_SAMPLE &s ) { d *= s; };
static constexpr auto copy = []( PCM_SAMPLE &d, const PCM_SAMPLE &s ) { std::memcpy( &d, &s, sizeof d ); };

void pcm___SamplesZero( PCM_SAMPLE *dest, int64_t samples )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( dest || !samples );
    if ( samples ) std::memset( dest, 0, size_t( samples ) * sizeof *dest );
}

void pcm___SamplesCopy( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples )
{
    kitMemCopyN( dest, source, samples, KIT_SIZEOF( PCM_SAMPLE ) );
}

void pcm___SamplesMove( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples )
{
    kitMemMoveN( dest, source, samples, KIT_SIZEOF( PCM_SAMPLE ) );
}

void pcm___SamplesAdd( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples )
{
    each( dest, source, samples, sum );
}

void pcm___SamplesMul( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples )
{
    each( dest, source, samples, product );
}

void pcm___SamplesScale( PCM_SAMPLE *dest, int64_t samples, double scale )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( dest || !samples );
    auto factor = PCM_SAMPLE( scale );
    eachVector( dest, dest, samples, [factor]( auto d, auto ) { return d * factor; } );
}

void pcm___SamplesChannelZero( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, int64_t frames )
{
    eachFrame( dest, destChannel, destChannels, frames, []( PCM_SAMPLE &d ) { d = 0; } );
}

void pcm___SamplesChannelCopy( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, const PCM_SAMPLE *source,
    int64_t sourceChannel, int64_t sourceChannels, int64_t frames )
{
    eachFrame( dest, destChannel, destChannels, source, sourceChannel, sourceChannels, frames, copy );
}

void pcm___SamplesChannelAdd( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, const PCM_SAMPLE *source,
    int64_t sourceChannel, int64_t sourceChannels, int64_t frames )
{
    eachFrame( dest, destChannel, destChannels, source, sourceChannel, sourceChannels, frames, add );
}

void pcm___SamplesChannelMul( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, const PCM_SAMPLE *source,
    int64_t sourceChannel, int64_t sourceChannels, int64_t frames )
{
    eachFrame( dest, destChannel, destChannels, source, sourceChannel, sourceChannels, frames, mul );
}

void pcm___SamplesChannelScale(
    PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, int64_t frames, double scale )
{
    auto factor = PCM_SAMPLE( scale );
    eachFrame( dest, destChannel, destChannels, frames, [factor]( PCM_SAMPLE &d ) { d *= factor; } );
}
