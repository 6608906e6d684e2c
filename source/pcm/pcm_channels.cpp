#include "pcm_channels.h"

#include "pcm_frame_kernels.hh"
#include "pcm_owned.hh"

static PCM_SAMPLE meanFactor( int64_t channels ) { return PCM_SAMPLE( 1.0 / double( channels ) ); }

// Replaces the packet by a new one. `keepsChannels` is as for mixFrames().
static void mixToNewPacket( PCM_PACKET **pkt, int64_t channels, bool keepsChannels )
{
    int64_t frames = pcmPacketFrames( *pkt ), sourceChannels = pcmPacketChannels( *pkt );
    auto block = kit::allocate<PCM_SAMPLE>( frames, kit::saturatedMul( channels, KIT_SIZEOF( PCM_SAMPLE ) ) );
    pcm::mixFrames( block.get(), channels, pcmPacketBacking( *pkt ), sourceChannels, keepsChannels,
        meanFactor( sourceChannels ), frames );
    kit::replace( pkt, pcm::packetOf( std::move( block ), channels, frames ) );
}

void pcmChannelsAdjustReplaceWithDownmix( PCM_PACKET **pkt, int64_t channels )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( channels > 0 );
    mixToNewPacket( pkt, channels, false );
}

void pcmChannelsAdjustExpandWithDownmix( PCM_PACKET **pkt, int64_t channels )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( channels > 0 );
    int64_t sourceChannels = pcmPacketChannels( *pkt );
    if ( sourceChannels > channels ) return pcmChannelsAdjustReplaceWithDownmix( pkt, channels );
    if ( sourceChannels == channels ) return;
    // A count that is too large ends in the check of pcmPacketSetChannels().
    if ( !KIT_INT_MUL_OK( channels, KIT_SIZEOF( PCM_SAMPLE ) ) ) pcmPacketSetChannels( pkt, channels );
    mixToNewPacket( pkt, channels, true );
}
