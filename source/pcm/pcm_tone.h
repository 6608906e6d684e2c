#ifndef PCM_TONE_H
#define PCM_TONE_H

/** @file
 * Sine tones: generators of one channel with peak 1.0 that begin at phase 0 and go on where the last call stopped.
 *
 * The phase is 2 pi / period x position; the position counts frames, and is taken back by whole periods at the end of
 * each call. Sines are the platform's `sin` in double precision, narrowed to 32-bit floats. A tone changes in place,
 * whoever holds it, and serves one thread at a time.
 * Periods, rates and frequencies that are not above 0, null, a negative count and, where there is something to write,
 * a null block end the process.
 */

#include "pcm_packet.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_TONE, pcmTone );

/** A tone, owned by the caller. @param period frames in a cycle, above 0, not necessarily whole */
PCM_API PCM_TONE *pcmToneCreate( double period );

/** A tone of @p hertz at @p frameRate frames per second, both above 0; owned by the caller. May give null. */
PCM_API PCM_TONE *pcmToneTryCreateWithFrequency( int64_t frameRate, int64_t hertz );

/** The next @p samples samples as a packet that the caller owns. */
PCM_API PCM_PACKET *pcmToneGather( PCM_TONE *tone, int64_t samples );

/** The next samples into the caller's block. */
PCM_API void pcmToneGatherSamples( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples );

/** The next samples, added onto what the block holds. */
PCM_API void pcmToneGatherSamplesAdd( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples );

KIT_C_END

#endif
