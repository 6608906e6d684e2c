#ifndef PCM_TONE_H
#define PCM_TONE_H

/** @file
 * Sine tones: generators of one channel with peak 1.0.
 *
 * A tone begins at phase 0, and each call continues at the phase where the previous call stopped. The phase is
 * `2 pi / period x position`. The position counts frames, and whole periods are subtracted from it at the end of each
 * call. A sample is the sine of the phase, rounded to a double and then to a 32-bit float. Its bits are the same on
 * every processor unless a single call generates more than 160,000 periods: phases above 2^20 use the platform's
 * `sin`.
 *
 * A tone is not copy-on-write: it changes in place for all holders. Use it from only one thread at a time. Null, a
 * period, rate or frequency that is not above 0, a negative count and a null block with samples to write end the
 * process.
 */

#include "pcm_packet.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_TONE, pcmTone );

/**
 * Creates a tone. The caller owns it.
 *
 * @param period the number of frames in a cycle, above 0, not necessarily an integer
 */
PCM_API PCM_TONE *pcmToneCreate( double period );

/**
 * Creates a tone of @p hertz at @p frameRate frames per second, both above 0. The caller owns it. Returns null if the
 * period is not above 0.
 */
PCM_API PCM_TONE *pcmToneTryCreateWithFrequency( int64_t frameRate, int64_t hertz );

/** Creates a packet of one channel with the next @p samples samples. The caller owns it. */
PCM_API PCM_PACKET *pcmToneGather( PCM_TONE *tone, int64_t samples );

/** Writes the next @p samples samples to @p dest. */
PCM_API void pcmToneGatherSamples( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples );

/** Adds the next @p samples samples to those in @p dest. */
PCM_API void pcmToneGatherSamplesAdd( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples );

KIT_C_END

#endif
