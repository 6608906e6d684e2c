#include "pcm_frames.h"

#include "pcm_frame_kernels.hh"
#include "pcm_owned.hh"

// Replaces the packet by a new one and returns its block, which the caller fills. The old packet remains valid,
// because the caller holds it.
static PCM_SAMPLE *replaceBlock( PCM_PACKET **pkt, int64_t channels, int64_t frames )
{
    auto block = kit::allocate<PCM_SAMPLE>( frames * channels );
    PCM_SAMPLE *dest = block.get();
    kit::replace( pkt, pcm::packetOf( std::move( block ), channels, frames ) );
    return dest;
}

void pcmFramesExtend( PCM_PACKET **pkt, int64_t mult )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( mult > 1 );
    kit::Hold old( *pkt );
    const PCM_SAMPLE *source = pcmPacketBacking( *pkt );
    int64_t sourceFrames = pcmPacketFrames( *pkt ), sourceChannels = pcmPacketChannels( *pkt );
    if ( !sourceFrames ) return;
    KIT_CHECK( KIT_INT_MUL_OK( sourceFrames, mult ) );
    int64_t destFrames = sourceFrames * mult;
    KIT_CHECK( KIT_INT_MUL_OK( destFrames, sourceChannels ) );
    PCM_SAMPLE *dest = replaceBlock( pkt, sourceChannels, destFrames );
    pcm::resizeFrames( dest, mult * sourceChannels, source, sourceChannels, sourceFrames );
}

void pcmFramesReduce( PCM_PACKET **pkt, int64_t div )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( div > 1 );
    kit::Hold old( *pkt );
    const PCM_SAMPLE *source = pcmPacketBacking( *pkt );
    int64_t sourceFrames = pcmPacketFrames( *pkt ), sourceChannels = pcmPacketChannels( *pkt );
    if ( !sourceFrames ) return;
    KIT_CHECK( sourceChannels > 0 );
    KIT_CHECK( sourceFrames % div == 0 );
    int64_t destFrames = sourceFrames / div;
    KIT_CHECK( KIT_INT_MUL_OK( destFrames, sourceChannels ) );
    PCM_SAMPLE *dest = replaceBlock( pkt, sourceChannels, destFrames );
    pcm::resizeFrames( dest, sourceChannels, source, div * sourceChannels, destFrames );
}
