#include "pcm_dual_tone.h"

#include "pcm_samples_stdc.h"

#include "kit/kit_check.h"
#include "kit/kit_loop.h"

PCM_PACKET *pcmDualToneGather( PCM_TONE *toneA, PCM_TONE *toneB, int64_t samples )
{
    KIT_CHECK( toneA );
    KIT_CHECK( toneB );
    KIT_CHECK( samples >= 0 );
    PCM_SAMPLE *block = nullptr;
    if ( samples ) {
        block = static_cast<PCM_SAMPLE *>( kitMemAllocN( samples, KIT_SIZEOF( PCM_SAMPLE ) ) );
        pcmDualToneGatherSamples( toneA, toneB, block, samples );
    }
    return pcmPacketCreateFromSamplesUse( block, 1, samples );
}

void pcmDualToneGatherSamples( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples )
{
    KIT_CHECK( toneA );
    KIT_CHECK( toneB );
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( samples == 0 || dest );
    pcmToneGatherSamples( toneA, dest, samples );
    pcmToneGatherSamplesAdd( toneB, dest, samples );
    pcm___SamplesScale( dest, samples, 0.5 );
}

void pcmDualToneGatherSamplesAdd( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples )
{
    KIT_CHECK( toneA );
    KIT_CHECK( toneB );
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( samples == 0 || dest );
    PCM_SAMPLE block[128];
    kit::forChunks( samples, 128, [&]( int64_t done, int64_t n ) {
        pcmDualToneGatherSamples( toneA, toneB, block, n );
        pcm___SamplesAdd( dest + done, block, n );
    } );
}
