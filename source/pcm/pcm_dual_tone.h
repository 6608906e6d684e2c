#ifndef PCM_DUAL_TONE_H
#define PCM_DUAL_TONE_H

#include "pcm_tone.h"

KIT_C_BEGIN

/** @file
 * Dual tones, as used for signalling in telephony: the mean of two tones, with peak 1.0.
 *
 * Each call advances both tones by `samples` samples. If both arguments are the same tone, it advances by twice as
 * many. Use a tone from only one thread at a time. A null tone, a negative count and a null block with samples to
 * write end the process.
 */

/** Creates a packet of one channel with the next @p samples samples. The caller owns it. */
PCM_API PCM_PACKET *pcmDualToneGather( PCM_TONE *toneA, PCM_TONE *toneB, int64_t samples );

/** Writes the next @p samples samples to @p dest. */
PCM_API void pcmDualToneGatherSamples( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples );

/** Adds the next @p samples samples to those in @p dest. */
PCM_API void pcmDualToneGatherSamplesAdd( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples );

KIT_C_END

#endif
