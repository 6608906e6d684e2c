#include "pcm_packet_queue.h"

#include "pcm_module.h"
#include "pcm_owned.hh"
#include "pcm_samples_stdc.h"

struct PCM_PACKET_QUEUE {
    KIT_OBJ header;
    int64_t channels;
    KIT_VECTOR *packetsVector; // packets from which nothing has been gathered, oldest first
    PCM_PACKET *currentPacket; // removed from the vector and partly consumed, or null
    int64_t currentPacketUsed; // its consumed frames: some but not all between calls, 0 if there is none
    int64_t frames;
};

static void pcm___PacketQueueFreeFunc( KIT_OBJ *obj );

KIT_OBJECT_DEFINE( pcm, PCM_PACKET_QUEUE, pcmPacketQueue, pcm___PacketQueueFreeFunc );

static void pcm___PacketQueueFreeFunc( KIT_OBJ *obj )
{
    auto *queue = reinterpret_cast<PCM_PACKET_QUEUE *>( obj );
    KIT_CHECK( queue );
    KIT_CHECK_SORT( pcm, PCM_PACKET_QUEUE );
    kit::releaseAndPoison( queue->packetsVector );
    kit::releaseAndPoison( queue->currentPacket );
}

static PCM_PACKET *takeFirst( PCM_PACKET_QUEUE *queue )
{
    return pcmPacketFrom( kitVectorUnshift( &queue->packetsVector ) );
}

// Makes the front packet the current one.
static PCM_PACKET *front( PCM_PACKET_QUEUE **queue )
{
    if ( !( *queue )->currentPacket ) {
        KIT_CHECK( !(*queue)->currentPacketUsed );
        ( *queue )->currentPacket = takeFirst( *queue );
    }
    return ( *queue )->currentPacket;
}

// Removes the current packet and returns it without the frames that were consumed.
static PCM_PACKET *takeCurrent( PCM_PACKET_QUEUE *queue )
{
    pcmPacketDelLeading( &queue->currentPacket, queue->currentPacketUsed );
    queue->currentPacketUsed = 0;
    return std::exchange( queue->currentPacket, nullptr );
}

template <void kernel( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples )>
static void gather( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames )
{
    KIT_CHECK( queue );
    KIT_CHECK( *queue );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( frames == 0 || dest );
    KIT_CHECK( (*queue)->frames >= frames );
    kit::makePrivate( queue, pcmPacketQueueCreateFrom );
    int64_t channels = ( *queue )->channels;
    for ( int64_t done = 0, n; done < frames; done += n ) {
        PCM_PACKET *pkt = front( queue );
        int64_t &used = ( *queue )->currentPacketUsed;
        int64_t total = pcmPacketFrames( pkt );
        n = kitIntMin( total - used, frames - done );
        kernel( dest + done * channels, pcmPacketBacking( pkt ) + used * channels, n * channels );
        used += n;
        if ( used == total ) {
            kit::replace<PCM_PACKET>( &( *queue )->currentPacket, nullptr );
            used = 0;
        }
    }
    ( *queue )->frames -= frames;
}

PCM_PACKET_QUEUE *pcmPacketQueueCreate( int64_t channels )
{
    KIT_CHECK( channels > 0 );
    kit::Owned queue( kit::create<PCM_PACKET_QUEUE>( &pcm___sort_PCM_PACKET_QUEUE ) );
    queue->channels = channels;
    queue->packetsVector = kitVectorCreate();
    return queue.take();
}

PCM_PACKET_QUEUE *pcmPacketQueueCreateFrom( PCM_PACKET_QUEUE *source )
{
    KIT_CHECK( source );
    auto *queue = kit::create<PCM_PACKET_QUEUE>( &pcm___sort_PCM_PACKET_QUEUE );
    queue->channels = source->channels;
    queue->packetsVector = kit::retain( source->packetsVector );
    queue->currentPacket = kit::retain( source->currentPacket );
    queue->currentPacketUsed = source->currentPacketUsed;
    queue->frames = source->frames;
    return queue;
}

void pcmPacketQueueWrite( PCM_PACKET_QUEUE **queue, PCM_PACKET *pkt )
{
    KIT_CHECK( queue );
    KIT_CHECK( *queue );
    KIT_CHECK( KIT_INT_ADD_OK( kitVectorLength( (*queue)->packetsVector ) + !!(*queue)->currentPacket, 1 ) );
    KIT_CHECK( pkt );
    KIT_CHECK( pcmPacketChannels( pkt ) == (*queue)->channels );
    KIT_CHECK( ((*queue)) );
    kit::makePrivate( queue, pcmPacketQueueCreateFrom );
    int64_t length = pcmPacketFrames( pkt );
    KIT_CHECK( KIT_INT_ADD_OK( (*queue)->frames, length ) );
    kitVectorAppendObj( &( *queue )->packetsVector, pcmPacketObj( pkt ) );
    ( *queue )->frames += length;
}

PCM_PACKET *pcmPacketQueueRead( PCM_PACKET_QUEUE **queue )
{
    KIT_CHECK( queue );
    KIT_CHECK( *queue );
    kit::makePrivate( queue, pcmPacketQueueCreateFrom );
    PCM_PACKET *pkt = ( *queue )->currentPacket ? takeCurrent( *queue ) : takeFirst( *queue );
    ( *queue )->frames -= pcmPacketFrames( pkt );
    return pkt;
}

PCM_PACKET *pcmPacketQueueGather( PCM_PACKET_QUEUE **queue, int64_t frames )
{
    KIT_CHECK( queue );
    KIT_CHECK( *queue );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( frames <= (*queue)->frames );
    int64_t channels = ( *queue )->channels;
    if ( !frames ) return pcmPacketCreate( channels );
    kit::makePrivate( queue, pcmPacketQueueCreateFrom );
    if ( frames == pcmPacketFrames( front( queue ) ) - ( *queue )->currentPacketUsed ) {
        PCM_PACKET *pkt = takeCurrent( *queue );
        ( *queue )->frames -= frames;
        return pkt;
    }
    auto block = kit::allocate<PCM_SAMPLE>( frames, kit::saturatedMul( channels, KIT_SIZEOF( PCM_SAMPLE ) ) );
    PCM_SAMPLE *dest = block.get();
    kit::Owned pkt( pcm::packetOf( std::move( block ), channels, frames ) );
    pcmPacketQueueGatherSamples( queue, dest, frames );
    return pkt.take();
}

void pcmPacketQueueGatherSamples( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames )
{
    gather<pcm___SamplesCopy>( queue, dest, frames );
}

void pcmPacketQueueGatherSamplesAdd( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames )
{
    gather<pcm___SamplesAdd>( queue, dest, frames );
}

void pcmPacketQueueClear( PCM_PACKET_QUEUE **queue )
{
    KIT_CHECK( queue );
    KIT_CHECK( *queue );
    kit::makePrivate( queue, pcmPacketQueueCreateFrom );
    kitVectorClear( &( *queue )->packetsVector );
    kit::replace<PCM_PACKET>( &( *queue )->currentPacket, nullptr );
    ( *queue )->currentPacketUsed = 0;
    ( *queue )->frames = 0;
}

int64_t pcmPacketQueueFrames( PCM_PACKET_QUEUE *queue )
{
    KIT_CHECK( queue );
    return queue->frames;
}

int64_t pcmPacketQueuePackets( PCM_PACKET_QUEUE *queue )
{
    KIT_CHECK( queue );
    return kitVectorLength( queue->packetsVector ) + !!queue->currentPacket;
}

int64_t pcmPacketQueueChannels( PCM_PACKET_QUEUE *queue )
{
    KIT_CHECK( queue );
    return queue->channels;
}
