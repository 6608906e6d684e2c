#ifndef PCM_PACKET_QUEUE_H
#define PCM_PACKET_QUEUE_H

/** @file
 * Queues: first-in, first-out streams of packets with the same channel count.
 *
 * Packets are written whole. They are read whole, or gathered as an exact number of frames across packet boundaries.
 * A queue holds references to its packets, so writing copies no samples. Removing frames does not change the packets,
 * so other holders see no change. Queues are copy-on-write, like packets, and a copy shares the packets.
 *
 * A request for more than the queue holds ends the process: check pcmPacketQueueFrames() or pcmPacketQueuePackets()
 * first. Null, a negative count ("frames >= 0"), a null block with frames to write and a packet with another channel
 * count also end the process. Threads may share a queue if each holds its own reference. Use a handle variable from
 * only one thread at a time.
 */

#include "pcm_packet.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_PACKET_QUEUE, pcmPacketQueue );

/** Creates an empty queue. The caller owns it. Requires "channels > 0". */
PCM_API PCM_PACKET_QUEUE *pcmPacketQueueCreate( int64_t channels );

/** Creates a queue in the same state, which shares the packets. The caller owns it. */
PCM_API PCM_PACKET_QUEUE *pcmPacketQueueCreateFrom( PCM_PACKET_QUEUE *source );

/** Appends a packet with the channel count of the queue. The queue adds a reference, and the caller keeps its own. */
PCM_API void pcmPacketQueueWrite( PCM_PACKET_QUEUE **queue, PCM_PACKET *pkt );

/**
 * Removes the next packet and returns it without the frames that have been gathered from it. The caller owns the
 * packet.
 */
PCM_API PCM_PACKET *pcmPacketQueueRead( PCM_PACKET_QUEUE **queue );

/**
 * Removes @p frames frames and returns them as a packet, which the caller owns. If the next packet has exactly that
 * length and nothing has been gathered from it, returns that packet without copying it.
 */
PCM_API PCM_PACKET *pcmPacketQueueGather( PCM_PACKET_QUEUE **queue, int64_t frames );

/** Removes @p frames frames and writes them to @p dest, a block of frames x channels samples. */
PCM_API void pcmPacketQueueGatherSamples( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames );

/** Like pcmPacketQueueGatherSamples(), but adds the samples to those in @p dest. */
PCM_API void pcmPacketQueueGatherSamplesAdd( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames );

/** Removes all packets. */
PCM_API void pcmPacketQueueClear( PCM_PACKET_QUEUE **queue );

/** Returns the number of frames that can be gathered. */
PCM_API int64_t pcmPacketQueueFrames( PCM_PACKET_QUEUE *queue );

/** Returns the number of packets that can be read. A packet that has been gathered in part counts as one. */
PCM_API int64_t pcmPacketQueuePackets( PCM_PACKET_QUEUE *queue );

/** Returns the channel count of all packets. */
PCM_API int64_t pcmPacketQueueChannels( PCM_PACKET_QUEUE *queue );

KIT_C_END

#endif
