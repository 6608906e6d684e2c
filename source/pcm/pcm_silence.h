#ifndef PCM_SILENCE_H
#define PCM_SILENCE_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * Silence, in the form of the generators. Any number of threads may call at once. A negative count and, where there
 * is something to write, a null block end the process.
 */

/** @p samples samples of value 0 as a packet of one channel that the caller owns. */
PCM_API PCM_PACKET *pcmSilenceGather( int64_t samples );

/** Silence into the caller's block. */
PCM_API void pcmSilenceGatherSamples( PCM_SAMPLE *dest, int64_t samples );

KIT_C_END

#endif
