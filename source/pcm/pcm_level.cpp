#include "pcm_level.h"

#include "pcm_decibel.h"
#include "pcm_samples_stdc.h"

#include "kit/kit_check.hh"

// The writable samples of a packet and their number.
struct Block {
    PCM_SAMPLE *dest;
    int64_t samples;
};

static Block blockOf( PCM_PACKET **pkt )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    PCM_SAMPLE *dest = pcmPacketMutableBacking( pkt );
    return { dest, pcmPacketFrames( *pkt ) * pcmPacketChannels( *pkt ) };
}

void pcmLevelAdjust( PCM_PACKET **pkt, double decibel )
{
    Block block = blockOf( pkt );
    pcmLevelAdjustSamples( block.dest, block.samples, decibel );
}

void pcmLevelAdjustLinearGain( PCM_PACKET **pkt, double gain )
{
    Block block = blockOf( pkt );
    pcmLevelAdjustLinearGainSamples( block.dest, block.samples, gain );
}

void pcmLevelAdjustSamples( PCM_SAMPLE *dest, int64_t samples, double decibel )
{
    if ( !kitRealEquals( decibel, 0.0 ) ) pcm___SamplesScale( dest, samples, pcmDecibelToGain( decibel ) );
}

void pcmLevelAdjustLinearGainSamples( PCM_SAMPLE *dest, int64_t samples, double gain )
{
    if ( !kitRealEquals( gain, 1.0 ) ) pcm___SamplesScale( dest, samples, gain );
}
