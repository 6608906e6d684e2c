#ifndef PCM_SRC_H
#define PCM_SRC_H

/** @file
 * Sample rate conversion of a stream, by libsamplerate.
 *
 * Packets are written at one frame rate (hertz); what the converter gives for them waits in a queue and is read at
 * the other. All conversion happens in pcmSrcWrite, and each write adds one packet to the queue, which may be empty.
 * A converter changes in place, whoever holds it, and serves one thread at a time.
 *
 * A converter holds frames back. Nothing flushes it: at the end of a stream, write silence until the frames that are
 * still due have come out.
 *
 * Known fault of libsamplerate (seen in 0.2.2): given a single frame, its linear converter reads one frame before it.
 * Write packets of two frames or more to PCM_SRC_TYPE_LINEAR.
 */

#include "pcm_packet.h"
#include "pcm_src_type.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_SRC, pcmSrc );

/**
 * A converter, owned by the caller.
 *
 * @param type one of PCM_SRC_TYPE_...
 * @param readFrameRate the rate of what is read, in hertz, above 0
 * @param writeFrameRate the rate of what is written, in hertz, above 0
 * @param channels of all packets, above 0 and within 32 bits
 * @return null if libsamplerate does not support the ratio of the rates or the number of channels for this type, or
 * if it runs out of memory
 */
PCM_API PCM_SRC *pcmSrcTryCreate( int64_t type, int64_t readFrameRate, int64_t writeFrameRate, int64_t channels );

/** Whether libsamplerate takes the ratio of two rates above 0 (in hertz). */
PCM_API int32_t pcmSrcFrameRateCheckCompatibility( int64_t readFrameRate, int64_t writeFrameRate );

/**
 * Converts a packet, which is only read, and adds the result to the queue. Neither the packet nor what comes out for
 * it may reach 2^31 frames.
 */
PCM_API void pcmSrcWrite( PCM_SRC *src, PCM_PACKET *pkt );

/** @name Taking converted frames, as from a PCM_PACKET_QUEUE and under its contract
 * @{ */

/**
 * Takes the next packet, less the frames that were gathered from it; the caller owns the reference. Ends the
 * process if there is none.
 */
PCM_API PCM_PACKET *pcmSrcRead( PCM_SRC *src );

/** Takes exactly @p frames frames as a packet that the caller owns. Ends the process if there are fewer. */
PCM_API PCM_PACKET *pcmSrcGather( PCM_SRC *src, int64_t frames );

/**
 * Takes exactly @p frames frames into the caller's block of frames x channels samples. Ends the process if there
 * are fewer.
 */
PCM_API void pcmSrcGatherSamples( PCM_SRC *src, PCM_SAMPLE *dest, int64_t frames );

/** The same, added onto what the block holds. */
PCM_API void pcmSrcGatherSamplesAdd( PCM_SRC *src, PCM_SAMPLE *dest, int64_t frames );

/** The frames that can be taken. */
PCM_API int64_t pcmSrcFrames( PCM_SRC *src );

/** The packets that can be read; one that a gather has started counts as one. */
PCM_API int64_t pcmSrcPackets( PCM_SRC *src );
/** @} */

/** Drops what is queued and what the converter holds: a new stream may begin. */
PCM_API void pcmSrcReset( PCM_SRC *src );

/** The channels of all its packets. */
PCM_API int64_t pcmSrcChannels( PCM_SRC *src );

/** One of PCM_SRC_TYPE_... */
PCM_API int64_t pcmSrcType( PCM_SRC *src );

/** The rate of what is read, in hertz. */
PCM_API int64_t pcmSrcReadFrameRate( PCM_SRC *src );

/** The rate of what is written, in hertz. */
PCM_API int64_t pcmSrcWriteFrameRate( PCM_SRC *src );

KIT_C_END

#endif
