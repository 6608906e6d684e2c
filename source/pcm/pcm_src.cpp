#include "pcm_src.h"

#include "pcm_module.h"
#include "pcm_owned.hh"
#include "pcm_packet_queue.h"

#include <samplerate.h>

struct PCM_SRC {
    KIT_OBJ header;
    int64_t fixType;
    int64_t fixReadFrameRate;
    int64_t fixWriteFrameRate;
    int64_t fixChannels;
    PCM_PACKET_QUEUE *intPacketQueue;
    double fixRatio; // output frames per input frame
    SRC_STATE *intSrcState;
};

static void pcm___SrcFreeFunc( KIT_OBJ *obj );

KIT_OBJECT_DEFINE( pcm, PCM_SRC, pcmSrc, pcm___SrcFreeFunc );

static void pcm___SrcFreeFunc( KIT_OBJ *obj )
{
    auto *src = reinterpret_cast<PCM_SRC *>( obj );
    KIT_CHECK( src );
    KIT_CHECK_SORT( pcm, PCM_SRC );
    kit::releaseAndPoison( src->intPacketQueue );
    if ( src->intSrcState ) src_delete( src->intSrcState );
}

static PCM_PACKET_QUEUE **output( PCM_SRC *src )
{
    KIT_CHECK( src );
    return &src->intPacketQueue;
}

static double ratio( int64_t readFrameRate, int64_t writeFrameRate )
{
    return double( readFrameRate ) / double( writeFrameRate );
}

PCM_SRC *pcmSrcTryCreate( int64_t type, int64_t readFrameRate, int64_t writeFrameRate, int64_t channels )
{
    KIT_CHECK( PCM_SRC_TYPE_OK( type ) );
    KIT_CHECK( readFrameRate > 0 );
    KIT_CHECK( writeFrameRate > 0 );
    KIT_CHECK( channels > 0 );
    KIT_CHECK( KIT_INT_TO_SIGNED_INT_CONV_OK( channels ) );
    kit::Owned src( kit::create<PCM_SRC>( &pcm___sort_PCM_SRC ) );
    src->fixType = type;
    src->fixReadFrameRate = readFrameRate;
    src->fixWriteFrameRate = writeFrameRate;
    src->fixChannels = channels;
    src->intPacketQueue = pcmPacketQueueCreate( channels );
    src->fixRatio = ratio( readFrameRate, writeFrameRate );
    int error;
    if ( src_is_valid_ratio( src->fixRatio ) )
        src->intSrcState = src_new( pcm___SrcTypeToSamplerateConverterType( type ), int( channels ), &error );
    return src->intSrcState ? src.take() : nullptr;
}

int32_t pcmSrcFrameRateCheckCompatibility( int64_t readFrameRate, int64_t writeFrameRate )
{
    KIT_CHECK( readFrameRate > 0 );
    KIT_CHECK( writeFrameRate > 0 );
    return src_is_valid_ratio( ratio( readFrameRate, writeFrameRate ) );
}

void pcmSrcWrite( PCM_SRC *src, PCM_PACKET *pkt )
{
    KIT_CHECK( src );
    KIT_CHECK( pkt );
    KIT_CHECK( pcmPacketChannels( pkt ) == src->fixChannels );
    const PCM_SAMPLE *backing = pcmPacketBacking( pkt );
    int64_t pktFrames = pcmPacketFrames( pkt );
    KIT_CHECK( KIT_INT_TO_SIGNED_LONG_CONV_OK( pktFrames ) );
    int64_t channels = src->fixChannels, pktIndex = 0, outIndex = 0, outFrames = 0;
    kit::Block<PCM_SAMPLE> block;
    while ( pktIndex < pktFrames ) {
        // A pass may produce output without consuming input, so the block grows by a full estimate in every pass.
        int64_t frames = kitIntMax( int64_t( double( pktFrames - pktIndex ) * src->fixRatio ), 1 );
        KIT_CHECK( KIT_INT_ADD_OK( outFrames, frames ) );
        outFrames += frames;
        KIT_CHECK( KIT_INT_TO_SIGNED_LONG_CONV_OK( outFrames ) );
        KIT_CHECK( KIT_INT_MUL_OK( outFrames, src->fixChannels ) );
        void *grown = kitMemReallocN( block.get(), outFrames * channels, KIT_SIZEOF( PCM_SAMPLE ) );
        (void)block.release();
        block.reset( static_cast<PCM_SAMPLE *>( grown ) );
        SRC_DATA sd = {};
        sd.data_in = backing + pktIndex * channels;
        sd.data_out = block.get() + outIndex * channels;
        sd.input_frames = long( pktFrames - pktIndex );
        sd.output_frames = long( outFrames - outIndex );
        sd.src_ratio = src->fixRatio;
        KIT_CHECK( !src_process( src->intSrcState, &sd ) );
        KIT_CHECK( sd.input_frames_used || sd.output_frames_gen );
        KIT_CHECK( sd.input_frames_used >= 0 );
        KIT_CHECK( sd.input_frames_used <= (long)(pktFrames - pktIndex) );
        pktIndex += sd.input_frames_used;
        KIT_CHECK( sd.output_frames_gen >= 0 );
        KIT_CHECK( sd.output_frames_gen <= (long)(outFrames - outIndex) );
        outIndex += sd.output_frames_gen;
    }
    kit::Owned out( pcm::packetOf( std::move( block ), channels, outIndex ) );
    pcmPacketQueueWrite( &src->intPacketQueue, out.get() );
}

PCM_PACKET *pcmSrcRead( PCM_SRC *src ) { return pcmPacketQueueRead( output( src ) ); }

PCM_PACKET *pcmSrcGather( PCM_SRC *src, int64_t frames ) { return pcmPacketQueueGather( output( src ), frames ); }

void pcmSrcGatherSamples( PCM_SRC *src, PCM_SAMPLE *dest, int64_t frames )
{
    pcmPacketQueueGatherSamples( output( src ), dest, frames );
}

void pcmSrcGatherSamplesAdd( PCM_SRC *src, PCM_SAMPLE *dest, int64_t frames )
{
    pcmPacketQueueGatherSamplesAdd( output( src ), dest, frames );
}

int64_t pcmSrcFrames( PCM_SRC *src ) { return pcmPacketQueueFrames( *output( src ) ); }

int64_t pcmSrcPackets( PCM_SRC *src ) { return pcmPacketQueuePackets( *output( src ) ); }

void pcmSrcReset( PCM_SRC *src )
{
    pcmPacketQueueClear( output( src ) );
    src_reset( src->intSrcState );
}

int64_t pcmSrcChannels( PCM_SRC *src )
{
    KIT_CHECK( src );
    return src->fixChannels;
}

int64_t pcmSrcType( PCM_SRC *src )
{
    KIT_CHECK( src );
    return src->fixType;
}

int64_t pcmSrcReadFrameRate( PCM_SRC *src )
{
    KIT_CHECK( src );
    return src->fixReadFrameRate;
}

int64_t pcmSrcWriteFrameRate( PCM_SRC *src )
{
    KIT_CHECK( src );
    return src->fixWriteFrameRate;
}
