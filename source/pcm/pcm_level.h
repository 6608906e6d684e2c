#ifndef PCM_LEVEL_H
#define PCM_LEVEL_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * Scaling of samples by a level in dB or by a gain, which is a plain factor: any value; a negative one inverts, and
 * NaN and infinity go into the samples. The neutral 0 dB or gain 1 leaves the samples as they are. Nothing is
 * clamped. Levels beyond -200 and 200 dB count as these; one that is NaN or infinite ends the process. One handle
 * variable and one block serve one thread at a time.
 */

/** A packet's samples, in place; a shared packet is copied first, also for a neutral level. */
PCM_API void pcmLevelAdjust( PCM_PACKET **pkt, double decibel );

/** The same by a gain. */
PCM_API void pcmLevelAdjustLinearGain( PCM_PACKET **pkt, double gain );

/** @p samples samples of the caller's block. */
PCM_API void pcmLevelAdjustSamples( PCM_SAMPLE *dest, int64_t samples, double decibel );

/** The same by a gain. */
PCM_API void pcmLevelAdjustLinearGainSamples( PCM_SAMPLE *dest, int64_t samples, double gain );

KIT_C_END

#endif
