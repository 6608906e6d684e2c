#include "pcm_noise.h"

#include "pcm_generate.hh"
#include "pcm_module.hh"
#include "pcm_samples_stdc.h"

#include "kit/kit_check.hh"

static constexpr int64_t tableLength = 8192;

static PCM_SAMPLE *pcm___NoiseTable;

static void gather( PCM_SAMPLE *dest, int64_t samples, pcm::Kernel kernel )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( samples == 0 || dest );
    KIT_CHECK( pcm::moduleIsStarted() );
    int64_t index = kitRandomNonNegativeIntRange( 0, tableLength );
    for ( int64_t done = 0, n; done < samples; done += n ) {
        n = kitIntMin( tableLength - index, samples - done );
        kernel( dest + done, pcm___NoiseTable + index, n );
        index = ( index + n ) % tableLength;
    }
}

PCM_PACKET *pcmNoiseGather( int64_t samples )
{
    KIT_CHECK( samples >= 0 );
    return pcm::generatePacket( samples, pcmNoiseGatherSamples );
}

void pcmNoiseGatherSamples( PCM_SAMPLE *dest, int64_t samples ) { gather( dest, samples, pcm___SamplesCopy ); }

void pcmNoiseGatherSamplesAdd( PCM_SAMPLE *dest, int64_t samples ) { gather( dest, samples, pcm___SamplesAdd ); }

void pcm___NoiseStartup( void )
{
    pcm___NoiseTable = static_cast<PCM_SAMPLE *>( kitMemAllocN( tableLength, KIT_SIZEOF( PCM_SAMPLE ) ) );
    for ( int64_t i = 0; i < tableLength; ++i ) pcm___NoiseTable[i] = PCM_SAMPLE( kitRandomInt() ) * -0x1p-63f;
}

void pcm___NoiseShutdown( void ) { kitMemFree( pcm___NoiseTable ); }
