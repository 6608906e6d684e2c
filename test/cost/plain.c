/* Typical calls of a host, by hand. What wrapped.cpp says with pcm.hpp must become the same code. */
#include <pcm/pcm.h>

#include <stddef.h>

KIT_C_BEGIN

int64_t queries( PCM_PACKET **pkt ) { return pcmPacketFrames( *pkt ) * pcmPacketChannels( *pkt ); }

void edits( PCM_PACKET **pkt, PCM_PACKET **source )
{
    pcmPacketAppend( pkt, *source );
    pcmPacketWriteInner( pkt, 1, *source, 2, 3 );
    pcmPacketDelLeading( pkt, 5 );
}

float ends( PCM_PACKET **pkt )
{
    const PCM_SAMPLE *all = pcmPacketBacking( *pkt );
    size_t count = (size_t)( pcmPacketFrames( *pkt ) * pcmPacketChannels( *pkt ) );
    return all[0] + all[count - 1];
}

void overwrites( PCM_PACKET **pkt ) { pcmPacketMutableBacking( pkt )[7] = 1; }

void passes( PCM_PACKET_QUEUE **from, PCM_PACKET_QUEUE **to )
{
    PCM_PACKET *pkt = pcmPacketQueueRead( from );
    pcmPacketQueueWrite( to, pkt );
    pcmPacketRelease( pkt );
}

void filters( PCM_FILTER **filter, PCM_PACKET **pkt, PCM_SAMPLE *dest )
{
    pcmFilterWrite( filter, *pkt );
    pcmFilterGatherSamples( filter, dest, 160 );
}

void resamples( PCM_SRC **src, PCM_PACKET **pkt, PCM_SAMPLE *dest )
{
    pcmSrcWrite( *src, *pkt );
    int64_t frames = pcmSrcFrames( *src );
    pcmSrcGatherSamplesAdd( *src, dest, frames );
}

void sounds( PCM_TONE *tones[2], PCM_SAMPLE *dest )
{
    pcmToneGatherSamples( tones[0], dest, 160 );
    pcmDualToneGatherSamplesAdd( tones[0], tones[1], dest, 160 );
    pcmNoiseGatherSamplesAdd( dest, 160 );
}

int64_t widths( PCM_ENCODING encoding )
{
    return pcmEncodingSizeofFrame( encoding | PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32, 2 );
}

int64_t encodes( PCM_PACKET **pkt )
{
    KIT_BUFFER *bytes = pcmPacketEncode( *pkt, PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN );
    int64_t length = kitBufferLength( bytes );
    kitObjRelease( (KIT_OBJ *)bytes );
    return length;
}

int64_t decodes( KIT_BUFFER **bytes )
{
    PCM_PACKET *pkt = pcmPacketTryDecode( *bytes, PCM_ENCODING_G711_ALAW, 1 );
    if ( !pkt ) return -1;
    int64_t frames = pcmPacketFrames( pkt );
    pcmPacketRelease( pkt );
    return frames;
}

void kernels( PCM_SAMPLE *dest, const PCM_SAMPLE *source )
{
    pcm___SamplesScale( dest, 160, 0.5 );
    pcm___SamplesAdd( dest, source, 160 );
    pcm___SamplesChannelCopy( dest, 0, 2, source, 1, 2, 80 );
}

int64_t rests( PCM_PACKET_QUEUE **queue )
{
    PCM_PACKET *pkt = pcmPacketQueueGather( queue, 160 );
    int64_t frames = pcmPacketQueueFrames( *queue );
    pcmPacketRelease( pkt );
    return frames;
}

KIT_C_END
