#include "pcm_modulated_tone.h"

#include "pcm_generate.hh"
#include "pcm_samples_stdc.h"

#include "kit/kit_check.hh"

static void check( PCM_TONE *toneA, PCM_TONE *toneB, int64_t samples )
{
    KIT_CHECK( toneA );
    KIT_CHECK( toneB );
    KIT_CHECK( samples >= 0 );
}

PCM_PACKET *pcmModulatedToneGather( PCM_TONE *toneA, PCM_TONE *toneB, int64_t samples )
{
    check( toneA, toneB, samples );
    return pcm::generatePacket(
        samples, [=]( PCM_SAMPLE *block, int64_t n ) { pcmModulatedToneGatherSamples( toneA, toneB, block, n ); } );
}

void pcmModulatedToneGatherSamples( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples )
{
    check( toneA, toneB, samples );
    KIT_CHECK( samples == 0 || dest );
    pcmToneGatherSamples( toneA, dest, samples );
    pcm::generateInto( dest, samples, pcm___SamplesMul,
        [=]( PCM_SAMPLE *block, int64_t n ) { pcmToneGatherSamples( toneB, block, n ); } );
}

void pcmModulatedToneGatherSamplesAdd( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples )
{
    check( toneA, toneB, samples );
    KIT_CHECK( samples == 0 || dest );
    pcm::generateInto( dest, samples, pcm___SamplesAdd,
        [=]( PCM_SAMPLE *block, int64_t n ) { pcmModulatedToneGatherSamples( toneA, toneB, block, n ); } );
}
