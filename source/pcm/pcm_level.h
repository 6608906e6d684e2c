#ifndef PCM_LEVEL_H
#define PCM_LEVEL_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * Level adjustment: multiplies samples by a gain or by the gain of a level in dB.
 *
 * A gain may have any value. A negative gain inverts the signal, and NaN and infinity propagate to the samples. A
 * level of 0 dB and a gain of 1 leave the samples unchanged. Samples are not clamped. Levels below -200 dB count as
 * -200 dB and levels above 200 dB as 200 dB. A null handle and a level that is NaN or infinite end the process. Use a
 * handle variable or block from only one thread at a time.
 */

/** Adjusts the samples of a packet in place by a level. Copies a shared packet first, even for 0 dB. */
PCM_API void pcmLevelAdjust( PCM_PACKET **pkt, double decibel );

/** Adjusts the samples of a packet in place by a gain. Copies a shared packet first, even for a gain of 1. */
PCM_API void pcmLevelAdjustLinearGain( PCM_PACKET **pkt, double gain );

/** Adjusts the first @p samples samples of @p dest by a level. */
PCM_API void pcmLevelAdjustSamples( PCM_SAMPLE *dest, int64_t samples, double decibel );

/** Adjusts the first @p samples samples of @p dest by a gain. */
PCM_API void pcmLevelAdjustLinearGainSamples( PCM_SAMPLE *dest, int64_t samples, double gain );

KIT_C_END

#endif
