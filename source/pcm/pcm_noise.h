#ifndef PCM_NOISE_H
#define PCM_NOISE_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * White noise from -1.0 to 1.0.
 *
 * The start-up of the module fills a table with 8192 random samples. Each call begins at a random position in the
 * table and wraps around at its end. Call `kitModuleStartup( pcmModule() )` first. Any number of threads may call
 * these functions at the same time. A negative count and a null block with samples to write end the process.
 */

/** Creates a packet of one channel with @p samples samples of noise. The caller owns it. */
PCM_API PCM_PACKET *pcmNoiseGather( int64_t samples );

/** Writes @p samples samples of noise to @p dest. */
PCM_API void pcmNoiseGatherSamples( PCM_SAMPLE *dest, int64_t samples );

/** Adds @p samples samples of noise to those in @p dest. */
PCM_API void pcmNoiseGatherSamplesAdd( PCM_SAMPLE *dest, int64_t samples );

/** Creates the table. Called by the start-up of the module. */
PCM_API void pcm___NoiseStartup( void );

/** Frees the table. Called by the shut-down of the module. */
PCM_API void pcm___NoiseShutdown( void );

KIT_C_END

#endif
