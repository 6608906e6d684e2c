#include "pcm_silence.h"

#include "pcm_samples_stdc.h"

PCM_PACKET *pcmSilenceGather( int64_t samples )
{
    PCM_PACKET *pkt = pcmPacketCreate( 1 );
    pcmPacketAppendZero( &pkt, samples );
    return pkt;
}

void pcmSilenceGatherSamples( PCM_SAMPLE *dest, int64_t samples ) { pcm___SamplesZero( dest, samples ); }
