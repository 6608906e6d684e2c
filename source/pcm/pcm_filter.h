#ifndef PCM_FILTER_H
#define PCM_FILTER_H

/** @file
 * Streaming FIR filters.
 *
 * Each write of N frames outputs N filtered frames, and successive packets form one signal. If h are the taps and x
 * is the input of a channel, y[n] is the sum of h[k] x[n - k]. The terms are added from the oldest frame to the
 * newest. Each product is rounded to a 32-bit float before it is added to the 32-bit sum. The output is clamped to
 * -1.0 to 1.0; NaN is not changed. A symmetric set of L taps delays the signal by (L - 1) / 2 frames. There is no
 * flush function: to get the end of the signal, write silence.
 *
 * Filters are copy-on-write, like packets. Threads may share a filter if each holds its own reference. Use a handle
 * variable from only one thread at a time. Null and packets with another channel count end the process.
 */

#include "pcm_filter_coefficients.h"
#include "pcm_packet.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_FILTER, pcmFilter );

/**
 * Creates a filter whose history is silence. The caller owns it. The filter holds a reference to @p coefficients as
 * long as it exists. Requires "channels > 0".
 */
PCM_API PCM_FILTER *pcmFilterCreate( PCM_FILTER_COEFFICIENTS *coefficients, int64_t channels );

/** Creates a copy of a filter in the same state. The caller owns it. */
PCM_API PCM_FILTER *pcmFilterCreateFrom( PCM_FILTER *source );

/**
 * Filters a packet and adds a packet of the same length to the output. @p pkt must have the channel count of the
 * filter and is only read.
 */
PCM_API void pcmFilterWrite( PCM_FILTER **filter, PCM_PACKET *pkt );

/** @name Filtered frames
 * These functions have the same contract as those of PCM_PACKET_QUEUE.
 * @{ */

/**
 * Removes the next packet and returns it without the frames that have been gathered from it. The caller owns the
 * packet. Ends the process if there is no packet.
 */
PCM_API PCM_PACKET *pcmFilterRead( PCM_FILTER **filter );

/**
 * Removes @p frames frames and returns them as a packet, which the caller owns. Ends the process if there are fewer.
 */
PCM_API PCM_PACKET *pcmFilterGather( PCM_FILTER **filter, int64_t frames );

/**
 * Removes @p frames frames and writes them to @p dest, a block of frames x channels samples. Ends the process if
 * there are fewer.
 */
PCM_API void pcmFilterGatherSamples( PCM_FILTER **filter, PCM_SAMPLE *dest, int64_t frames );

/** Like pcmFilterGatherSamples(), but adds the samples to those in @p dest. */
PCM_API void pcmFilterGatherSamplesAdd( PCM_FILTER **filter, PCM_SAMPLE *dest, int64_t frames );

/** Returns the number of frames that can be gathered. */
PCM_API int64_t pcmFilterFrames( PCM_FILTER *filter );

/** Returns the number of packets that can be read. A partly gathered packet counts as one. */
PCM_API int64_t pcmFilterPackets( PCM_FILTER *filter );
/** @} */

/** Clears the history and drops all output. */
PCM_API void pcmFilterReset( PCM_FILTER **filter );

/** Returns the channel count of the input and output packets. */
PCM_API int64_t pcmFilterChannels( PCM_FILTER *filter );

/** Returns the coefficient set with an additional reference, which the caller owns. */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficients( PCM_FILTER *filter );

KIT_C_END

#endif
