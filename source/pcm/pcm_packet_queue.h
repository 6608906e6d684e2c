#ifndef PCM_PACKET_QUEUE_H
#define PCM_PACKET_QUEUE_H

/** @file
 * Queues: streams of packets of one channel count, first in, first out.
 *
 * Packets go in whole and come out whole, or as an exact number of frames that may cut across packets. A queue holds
 * references and copies no sample on writing; taking frames from the front of a packet leaves the packet untouched,
 * so its writer sees no change. A queue is copy-on-write like a packet, and a copy shares the packets.
 *
 * Asking for more than the queue holds ends the process: test pcmPacketQueueFrames or pcmPacketQueuePackets first. So
 * do null, a negative count ("frames >= 0"), a missing block and a packet of another channel count. One handle
 * variable serves one thread at a time; threads may hold references of their own to one queue.
 */

#include "pcm_packet.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_PACKET_QUEUE, pcmPacketQueue );

/** An empty queue, owned by the caller. Requires "channels > 0". */
PCM_API PCM_PACKET_QUEUE *pcmPacketQueueCreate( int64_t channels );

/** A queue in the same state, owned by the caller; the packets are shared. */
PCM_API PCM_PACKET_QUEUE *pcmPacketQueueCreateFrom( PCM_PACKET_QUEUE *source );

/** Adds a packet of the queue's channel count at the end. The queue takes a reference, the caller keeps its own. */
PCM_API void pcmPacketQueueWrite( PCM_PACKET_QUEUE **queue, PCM_PACKET *pkt );

/** Takes the next packet, less the frames that were gathered from it; the caller owns the reference. */
PCM_API PCM_PACKET *pcmPacketQueueRead( PCM_PACKET_QUEUE **queue );

/** Takes exactly @p frames frames as a packet that the caller owns: an unstarted packet of that length as it is. */
PCM_API PCM_PACKET *pcmPacketQueueGather( PCM_PACKET_QUEUE **queue, int64_t frames );

/** Takes exactly @p frames frames into the caller's block of frames x channels samples. */
PCM_API void pcmPacketQueueGatherSamples( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames );

/** The same, added onto what the block holds. */
PCM_API void pcmPacketQueueGatherSamplesAdd( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames );

/** Drops all packets. */
PCM_API void pcmPacketQueueClear( PCM_PACKET_QUEUE **queue );

/** The frames that can be taken. */
PCM_API int64_t pcmPacketQueueFrames( PCM_PACKET_QUEUE *queue );

/** The packets that can be read; one that a gather has started counts as one. */
PCM_API int64_t pcmPacketQueuePackets( PCM_PACKET_QUEUE *queue );

/** The channels of all its packets. */
PCM_API int64_t pcmPacketQueueChannels( PCM_PACKET_QUEUE *queue );

KIT_C_END

#endif
