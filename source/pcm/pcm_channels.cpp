#include "pcm_channels.h"

#include "pcm_samples_stdc.h"

#include "kit/kit_ref.hh"

// Fills the channels of dest from `first` on with the mean of the lowest `count` channels of source.
static void downmix( PCM_SAMPLE *dest, int64_t first, int64_t channels, const PCM_SAMPLE *source,
    int64_t sourceChannels, int64_t count, int64_t frames )
{
    if ( !frames ) return; // skip the loop over the channels, of which there may be very many
    for ( int64_t i = 0; i < count; ++i )
        pcm___SamplesChannelAdd( dest, first, channels, source, i, sourceChannels, frames );
    if ( count > 1 ) pcm___SamplesChannelScale( dest, first, channels, frames, 1.0 / double( count ) );
    for ( int64_t c = first + 1; c < channels; ++c )
        pcm___SamplesChannelCopy( dest, c, channels, dest, first, channels, frames );
}

void pcmChannelsAdjustReplaceWithDownmix( PCM_PACKET **pkt, int64_t channels )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( channels > 0 );
    int64_t frames = pcmPacketFrames( *pkt ), sourceChannels = pcmPacketChannels( *pkt );
    PCM_PACKET *fresh = pcmPacketCreate( channels );
    pcmPacketSetFrames( &fresh, frames );
    PCM_SAMPLE *block = pcmPacketMutableBacking( &fresh );
    downmix( block, 0, channels, pcmPacketBacking( *pkt ), sourceChannels, sourceChannels, frames );
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
    PCM_SAMPLE *block = pcmPacketMutableBacking( &fresh );
    downmix( block, sourceChannels, channels, block, channels, sourceChannels, frames );
    kit::replace( pkt, fresh );
}
