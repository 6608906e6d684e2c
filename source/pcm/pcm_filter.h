#ifndef PCM_FILTER_H
#define PCM_FILTER_H

/** @file
 * FIR filtering of a stream.
 *
 * Packets go in, as many filtered frames come out at once, and successive packets form one signal. With h the taps
 * and x the input of a channel, y[n] is the sum of h[k] x[n - k], added from the oldest frame to the newest, each
 * product rounded to a 32-bit float before it is added to the 32-bit sum. The output is limited to -1.0 to 1.0; a NaN
 * stays. A symmetric set of L taps delays by (L - 1) / 2 frames. Nothing is flushed: write silence to hear the end.
 *
 * A filter is copy-on-write like a packet. It may be shared between threads through references of their own.
 * Null and packets of another channel count end the process.
 */

#include "pcm_filter_coefficients.h"
#include "pcm_packet.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_FILTER, pcmFilter );

/** A filter without history, owned by the caller; it holds the set for its whole life. Requires "channels > 0". */
PCM_API PCM_FILTER *pcmFilterCreate( PCM_FILTER_COEFFICIENTS *coefficients, int64_t channels );

/** A filter in the same state, owned by the caller. */
PCM_API PCM_FILTER *pcmFilterCreateFrom( PCM_FILTER *source );

/** Filters a packet of the filter's channel count, which is only read, and adds one packet to the output. */
PCM_API void pcmFilterWrite( PCM_FILTER **filter, PCM_PACKET *pkt );

/** @name Taking filtered frames, as from a PCM_PACKET_QUEUE and under its contract
 * @{ */

/**
 * Takes the next packet, less the frames that were gathered from it; the caller owns the reference. Ends the
 * process if there is none.
 */
PCM_API PCM_PACKET *pcmFilterRead( PCM_FILTER **filter );

/** Takes exactly @p frames frames as a packet that the caller owns. Ends the process if there are fewer. */
PCM_API PCM_PACKET *pcmFilterGather( PCM_FILTER **filter, int64_t frames );

/**
 * Takes exactly @p frames frames into the caller's block of frames x channels samples. Ends the process if there
 * are fewer.
 */
PCM_API void pcmFilterGatherSamples( PCM_FILTER **filter, PCM_SAMPLE *dest, int64_t frames );

/** The same, added onto what the block holds. */
PCM_API void pcmFilterGatherSamplesAdd( PCM_FILTER **filter, PCM_SAMPLE *dest, int64_t frames );

/** The frames that can be taken. */
PCM_API int64_t pcmFilterFrames( PCM_FILTER *filter );

/** The packets that can be read; one that a gather has started counts as one. */
PCM_API int64_t pcmFilterPackets( PCM_FILTER *filter );
/** @} */

/** Forgets the signal and drops the output. */
PCM_API void pcmFilterReset( PCM_FILTER **filter );

/** The channels of all its packets. */
PCM_API int64_t pcmFilterChannels( PCM_FILTER *filter );

/** The set; the caller owns one more reference. */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficients( PCM_FILTER *filter );

KIT_C_END

#endif
