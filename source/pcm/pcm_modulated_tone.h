#ifndef PCM_MODULATED_TONE_H
#define PCM_MODULATED_TONE_H

#include "pcm_tone.h"

KIT_C_BEGIN

/** @file
 * The product of two tones: ring modulation. Both tones move on by `samples`; one tone given twice moves on by twice
 * as many. A tone serves one thread at a time. Null tones, a negative count and, where there is something to write, a
 * null block end the process.
 */

/** The next @p samples samples as a packet that the caller owns. */
PCM_API PCM_PACKET *pcmModulatedToneGather( PCM_TONE *toneA, PCM_TONE *toneB, int64_t samples );

/** The next samples into the caller's block. */
PCM_API void pcmModulatedToneGatherSamples( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples );

/** The next samples, added onto what the block holds. */
PCM_API void pcmModulatedToneGatherSamplesAdd( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples );

KIT_C_END

#endif
