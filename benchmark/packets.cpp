// Packets and packet queues.

#include "jobs.h"
#include "limit_packet.h"
#include "registry.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>

static constexpr int64_t packetFrames = 160;

struct LibraryQueue {
    Handle<PCM_PACKET> pkt = inputPacket( 1, packetFrames );
    Handle<PCM_PACKET_QUEUE> queue{ pcmPacketQueueCreate( 1 ) };

    void write() { pcmPacketQueueWrite( &queue.obj, pkt.obj ); }
    int64_t frames() { return pcmPacketQueueFrames( queue.obj ); }
    void gather( float *dest, int64_t frames ) { pcmPacketQueueGatherSamples( &queue.obj, dest, frames ); }
    void gatherPacket( int64_t frames ) { pcmPacketRelease( pcmPacketQueueGather( &queue.obj, frames ) ); }
};

// The read loop of the other queues, which differ in how they store their packets.
template <class Derived> struct QueueBase {
    int64_t queuedFrames = 0;
    int64_t frontOffset = 0; // the frames of the first packet that were read before

    int64_t frames() { return queuedFrames; }
    void gather( float *dest, int64_t frames )
    {
        auto *queue = static_cast<Derived *>( this );
        queuedFrames -= frames;
        while ( frames > 0 ) {
            int64_t n = std::min( frames, packetFrames - frontOffset );
            std::memcpy( dest, queue->front() + frontOffset, size_t( n ) * sizeof( float ) );
            dest += n;
            frames -= n;
            frontOffset += n;
            if ( frontOffset == packetFrames ) {
                queue->pop();
                frontOffset = 0;
            }
        }
    }
};

struct NaiveQueue : QueueBase<NaiveQueue> {
    using Packet = std::shared_ptr<std::vector<float>>;
    Packet pkt = std::make_shared<std::vector<float>>( buffers.samples, buffers.samples + packetFrames );
    std::deque<Packet> packets;

    void write()
    {
        packets.push_back( pkt );
        queuedFrames += packetFrames;
    }
    const float *front() { return packets.front()->data(); }
    void pop() { packets.pop_front(); }
    void gatherPacket( int64_t frames )
    {
        auto gathered = std::make_shared<std::vector<float>>( frames );
        gather( gathered->data(), frames );
        useValue( gathered->data() );
    }
};

struct LimitQueue : QueueBase<LimitQueue> {
    LimitPacket *pkt = LimitPacket::create( packetFrames );
    LimitPacket *ring[8];
    unsigned writeIndex = 0, readIndex = 0;

    void write()
    {
        ++pkt->refCount;
        ring[writeIndex++ % 8] = pkt;
        queuedFrames += packetFrames;
    }
    const float *front() { return ring[readIndex % 8]->samples; }
    void pop() { ring[readIndex++ % 8]->release(); }
    void gatherPacket( int64_t frames )
    {
        auto *gathered = LimitPacket::create( frames );
        gather( gathered->samples, frames );
        useValue( gathered );
        gathered->release();
    }
};

// Each item is one operation: a packet is written, or a chunk is read.
template <class Queue> static void addQueue( const char *implementation )
{
    for ( bool asPackets : { false, true } )
        for ( int64_t chunk : { 480, 137 } ) {
            std::string job = "queue " + std::to_string( chunk ) + ( asPackets ? " packets" : " samples" );
            addJob( job, packetFrames, implementation, [=] {
                return [=, queue = Queue()]() mutable {
                    int64_t operations = 1;
                    for ( queue.write(); queue.frames() >= chunk; ++operations )
                        asPackets ? queue.gatherPacket( chunk ) : queue.gather( buffers.outputSamples(), chunk );
                    return operations;
                };
            } );
        }
}

template <class Run> static void addPacket( const char *implementation, Run run )
{
    addJob( "packet", packetFrames, implementation, [=] {
        return [=] {
            run();
            return int64_t{ 1 };
        };
    } );
}

void addPackets()
{
    addQueue<LibraryQueue>( "ours" );
    addQueue<NaiveQueue>( "naive" );
    addQueue<LimitQueue>( "limit" );

    addPacket(
        "ours", [] { pcmPacketRelease( pcmPacketCreateFromSamplesCopy( buffers.samples, 1, packetFrames ) ); } );
    addPacket( "naive", [] {
        auto pkt = std::make_shared<std::vector<float>>( buffers.samples, buffers.samples + packetFrames );
        useValue( pkt->data() );
    } );
    addPacket( "limit", [] {
        auto *pkt = LimitPacket::create( packetFrames );
        std::memcpy( pkt->samples, buffers.samples, packetFrames * sizeof( float ) );
        useValue( pkt );
        pkt->release();
    } );
}
