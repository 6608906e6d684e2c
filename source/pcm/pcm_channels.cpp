#include "pcm_channels.h"

#include "pcm_frame_kernels.hh"

#include "kit/kit_ref.hh"

static PCM_SAMPLE meanFactor( int64_t channels ) { return PCM_SAMPLE( 1.0 / double( channels ) ); }

void pcmChannelsAdjustReplaceWithDownmix( PCM_PACKET **pkt, int64_t channels )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( channels > 0 );
    int64_t frames = pcmPacketFrames( *pkt ), sourceChannels = pcmPacketChannels( *pkt );
    void *block = kitMemAllocN( frames, kit::saturatedMul( channels, KIT_SIZEOF( PCM_SAMPLE ) ) );
    PCM_PACKET *fresh = pcmPacketCreateFromSamplesUse( static_cast<PCM_SAMPLE *>( block ), channels, frames );
    pcm::mixFrames( static_cast<PCM_SAMPLE *>( block ), channels, pcmPacketBacking( *pkt ), sourceChannels, false,
        meanFactor( sourceChannels ), frames );
    kit::replace( pkt, fresh );
}

void pcmChannelsAdjustExpandWithDownmix( PCM_PACKET **pkt, int64_t channels )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( channels > 0 );
    int64_t frames = pcmPacketFrames( *pkt ), sourceChannels = pcmPacketChannels( *pkt );
    if ( sourceChannels > channels ) return pcmChannelsAdjustReplaceWithDownmix( pkt, channels );
    if ( sourceChannels == channels ) return;
    PCM_PACKET *fresh = kit::retain( *pkt ); // now shared, so pcmPacketSetChannels creates a new packet
    pcmPacketSetChannels( &fresh, channels );
    pcm::mixFrames( pcmPacketMutableBacking( &fresh ), channels, pcmPacketBacking( *pkt ), sourceChannels, true,
        meanFactor( sourceChannels ), frames );
    kit::replace( pkt, fresh );
}
