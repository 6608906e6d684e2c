#include "pcm_noise.h"

#include "pcm_samples_stdc.h"

#include "kit/kit_check.h"

static constexpr int64_t tableLength = 8192;

static PCM_SAMPLE *pcm___NoiseTable;

using Kernel = void ( * )( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

static void gather( PCM_SAMPLE *dest, int64_t samples, Kernel kernel )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( samples == 0 || dest );
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
    PCM_SAMPLE *block = nullptr;
    if ( samples ) {
        block = static_cast<PCM_SAMPLE *>( kitMemAllocN( samples, KIT_SIZEOF( PCM_SAMPLE ) ) );
        pcmNoiseGatherSamples( block, samples );
    }
    return pcmPacketCreateFromSamplesUse( block, 1, samples );
}

void pcmNoiseGatherSamples( PCM_SAMPLE *dest, int64_t samples ) { gather( dest, samples, pcm___SamplesCopy ); }

void pcmNoiseGatherSamplesAdd( PCM_SAMPLE *dest, int64_t samples ) { gather( dest, samples, pcm___SamplesAdd ); }

void pcm___NoiseStartup( void )
{
    pcm___NoiseTable = static_cast<PCM_SAMPLE *>( kitMemAllocN( tableLength, KIT_SIZEOF( PCM_SAMPLE ) ) );
    for ( int64_t i = 0; i < tableLength; ++i ) pcm___NoiseTable[i] = PCM_SAMPLE( kitRandomInt() ) * -0x1p-63f;
}

void pcm___NoiseShutdown( void ) { kitMemFree( pcm___NoiseTable ); }
