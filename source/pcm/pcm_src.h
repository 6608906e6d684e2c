#ifndef PCM_SRC_H
#define PCM_SRC_H

/** @file
 * Sample rate conversion of streams, by libsamplerate.
 *
 * Packets are written at one frame rate and read at another, both in hertz. All conversion takes place in
 * pcmSrcWrite(). Each write adds one packet, which may be empty, to a queue of converted packets. A converter is not
 * copy-on-write: it changes in place for all holders. Use it from only one thread at a time. Null and packets with
 * another channel count end the process.
 *
 * A converter holds frames back and has no flush function. At the end of a stream, write silence until the frames
 * that are due are available.
 *
 * Known fault of libsamplerate (seen in 0.2.2): if its linear converter receives a single frame, it reads one frame
 * before the start of the input. Write packets of two frames or more to PCM_SRC_TYPE_LINEAR.
 */

#include "pcm_packet.h"
#include "pcm_src_type.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_SRC, pcmSrc );

/**
 * Creates a converter.
 *
 * @param type one of PCM_SRC_TYPE_...
 * @param readFrameRate the frame rate of the output in hertz, above 0
 * @param writeFrameRate the frame rate of the input in hertz, above 0
 * @param channels the channel count of all packets, above 0 and below 2^31
 * @return a converter, which the caller owns; null if libsamplerate does not support the ratio of the rates or the
 * number of channels for this type, or if it runs out of memory
 */
PCM_API PCM_SRC *pcmSrcTryCreate( int64_t type, int64_t readFrameRate, int64_t writeFrameRate, int64_t channels );

/** Returns 1 if libsamplerate supports the ratio of two rates in hertz, otherwise 0. Both rates must be above 0. */
PCM_API int32_t pcmSrcFrameRateCheckCompatibility( int64_t readFrameRate, int64_t writeFrameRate );

/**
 * Converts a packet and adds the result to the output. @p pkt is only read. Neither the packet nor its result may
 * have 2^31 frames or more.
 */
PCM_API void pcmSrcWrite( PCM_SRC *src, PCM_PACKET *pkt );

/** @name Converted frames
 * These functions have the same contract as those of PCM_PACKET_QUEUE.
 * @{ */

/**
 * Removes the next packet and returns it without the frames that have been gathered from it. The caller owns the
 * packet. Ends the process if there is no packet.
 */
PCM_API PCM_PACKET *pcmSrcRead( PCM_SRC *src );

/**
 * Removes @p frames frames and returns them as a packet, which the caller owns. Ends the process if there are fewer.
 */
PCM_API PCM_PACKET *pcmSrcGather( PCM_SRC *src, int64_t frames );

/**
 * Removes @p frames frames and writes them to @p dest, a block of frames x channels samples. Ends the process if
 * there are fewer.
 */
PCM_API void pcmSrcGatherSamples( PCM_SRC *src, PCM_SAMPLE *dest, int64_t frames );

/** Like pcmSrcGatherSamples(), but adds the samples to those in @p dest. */
PCM_API void pcmSrcGatherSamplesAdd( PCM_SRC *src, PCM_SAMPLE *dest, int64_t frames );

/** Returns the number of frames that can be gathered. */
PCM_API int64_t pcmSrcFrames( PCM_SRC *src );

/** Returns the number of packets that can be read. A packet that has been gathered in part counts as one. */
PCM_API int64_t pcmSrcPackets( PCM_SRC *src );
/** @} */

/** Drops all output and clears the state of the converter, so that a new stream can begin. */
PCM_API void pcmSrcReset( PCM_SRC *src );

/** Returns the channel count of the input and output packets. */
PCM_API int64_t pcmSrcChannels( PCM_SRC *src );

/** Returns the type, one of PCM_SRC_TYPE_... */
PCM_API int64_t pcmSrcType( PCM_SRC *src );

/** Returns the frame rate of the output in hertz. */
PCM_API int64_t pcmSrcReadFrameRate( PCM_SRC *src );

/** Returns the frame rate of the input in hertz. */
PCM_API int64_t pcmSrcWriteFrameRate( PCM_SRC *src );

KIT_C_END

#endif
