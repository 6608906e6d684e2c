#ifndef PCM_SILENCE_H
#define PCM_SILENCE_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * A generator of silence, called like the generators of tones and noise.
 *
 * Any number of threads may call these functions at the same time. A negative count and a null block with samples to
 * write end the process.
 */

/** Creates a packet of one channel with @p samples samples of value 0. The caller owns it. */
PCM_API PCM_PACKET *pcmSilenceGather( int64_t samples );

/** Writes @p samples samples of value 0 to @p dest. */
PCM_API void pcmSilenceGatherSamples( PCM_SAMPLE *dest, int64_t samples );

KIT_C_END

#endif
