#include "pcm_tone.h"

#include "pcm_generate.hh"
#include "pcm_module.h"
#include "pcm_sine.hh"

#include "kit/kit_ref.hh"

#include <cmath>

struct PCM_TONE {
    KIT_OBJ header;
    double period;
    double position; // in frames since the start of a period
    double radiansPerFrame;
};

KIT_OBJECT_DEFINE( pcm, PCM_TONE, pcmTone, nullptr );

static PCM_TONE *create( double period )
{
    auto *tone = kit::create<PCM_TONE>( &pcm___sort_PCM_TONE );
    tone->position = 0.0;
    tone->period = period;
    tone->radiansPerFrame = 6.283185307179586 / period;
    return tone;
}

// Subtracts one period at a time, because the rounding of each subtraction is part of the defined result. For a
// period far below one frame this could take forever, because a subtraction may not even change the position. Such
// periods use fmod.
static void wrap( PCM_TONE *tone )
{
    constexpr double shortest = 0x1p-10;
    if ( tone->period < shortest ) tone->position = std::fmod( tone->position, tone->period );
    while ( tone->position > tone->period ) tone->position -= tone->period;
}

template <class Op> static void generate( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples, Op op )
{
    KIT_CHECK( tone );
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( samples == 0 || dest );
    double position = tone->position;
    for ( int64_t done = 0; done < samples; done += pcm::sineTile ) {
        PCM_SAMPLE sines[pcm::sineTile];
        const int64_t n = kitIntMin( samples - done, pcm::sineTile );
        position = pcm::makeSines( sines, tone->radiansPerFrame, position, n );
        for ( int64_t i = 0; i < n; ++i ) op( dest[done + i], sines[i] );
    }
    tone->position = position;
    if ( samples ) wrap( tone );
}

PCM_TONE *pcmToneCreate( double period )
{
    KIT_CHECK( period > 0 );
    return create( period );
}

PCM_TONE *pcmToneTryCreateWithFrequency( int64_t frameRate, int64_t hertz )
{
    KIT_CHECK( frameRate > 0 );
    KIT_CHECK( hertz > 0 );
    double period = double( frameRate ) / double( hertz );
    return period > 0.0 ? create( period ) : nullptr;
}

PCM_PACKET *pcmToneGather( PCM_TONE *tone, int64_t samples )
{
    KIT_CHECK( tone );
    KIT_CHECK( samples >= 0 );
    return pcm::generatePacket(
        samples, [=]( PCM_SAMPLE *block, int64_t n ) { pcmToneGatherSamples( tone, block, n ); } );
}

void pcmToneGatherSamples( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples )
{
    generate( tone, dest, samples, []( PCM_SAMPLE &d, PCM_SAMPLE s ) { d = s; } );
}

void pcmToneGatherSamplesAdd( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples )
{
    generate( tone, dest, samples, []( PCM_SAMPLE &d, PCM_SAMPLE s ) { d += s; } );
}
