#ifndef PCM_NOISE_H
#define PCM_NOISE_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * White noise between -1.0 and 1.0: a table of 8192 random samples, made when the module starts. Each call begins at
 * a random place of it and goes round in circles. Any number of threads may call at once.
 * Needs the module to be started. A negative count and, where there is something to write, a null block end the
 * process.
 */

/** @p samples samples as a packet of one channel that the caller owns. */
PCM_API PCM_PACKET *pcmNoiseGather( int64_t samples );

/** Noise into the caller's block. */
PCM_API void pcmNoiseGatherSamples( PCM_SAMPLE *dest, int64_t samples );

/** Noise added onto what the block holds. */
PCM_API void pcmNoiseGatherSamplesAdd( PCM_SAMPLE *dest, int64_t samples );

/** Makes the table; part of the module's start-up and shut-down. */
PCM_API void pcm___NoiseStartup( void );

/** Drops the table. */
PCM_API void pcm___NoiseShutdown( void );

KIT_C_END

#endif
