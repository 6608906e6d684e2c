#include "pcm_samples_stdc.h"

#include "pcm_lanes.hh"

#include "kit/kit_check.hh"

#include <cstring> // std::memcpy

template <class Op> static void each( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples, Op op )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( dest || !samples );
    KIT_CHECK( source || !samples );
    for ( int64_t i = 0; i < samples; ++i ) op( dest[i], source[i] );
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
    each( dest, source, samples, add );
}

void pcm___SamplesMul( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples )
{
    each( dest, source, samples, mul );
}

void pcm___SamplesScale( PCM_SAMPLE *dest, int64_t samples, double scale )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( dest || !samples );
    auto factor = PCM_SAMPLE( scale );
    constexpr int64_t tile = 4 * pcm::lanes; // four vectors at a time; compilers unroll a plain loop less
    int64_t done = 0;
    for ( ; samples - done >= tile; done += tile ) {
        PCM_SAMPLE *at = dest + done;
        pcm::Samples scaled[4];
        pcm::unrolled<4>( [&]( int r ) { scaled[r] = pcm::loadAs<pcm::Samples>( at + r * pcm::lanes ) * factor; } );
        pcm::unrolled<4>( [&]( int r ) { pcm::storeAs( at + r * pcm::lanes, scaled[r] ); } );
    }
    for ( ; done < samples; ++done ) dest[done] *= factor;
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
