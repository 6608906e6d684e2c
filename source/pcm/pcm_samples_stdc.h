#ifndef PCM_SAMPLES_STDC_H
#define PCM_SAMPLES_STDC_H

/** @file
 * Basic operations on blocks of samples.
 *
 * The functions without a channel process consecutive samples. The channel functions process one channel of an
 * interleaved block: item f of `frames` items has the index f x channels + channel. Source and destination may be the
 * same block. Blocks may be null if the count is 0. The caller must make sure that the counts do not exceed the
 * blocks.
 *
 * Each sum and product is rounded to a 32-bit float. A scale is converted to a 32-bit float once. The result is that
 * of an ascending loop over single samples, even if `dest` and `source` overlap; pcm___SamplesCopy() and
 * pcm___SamplesMove() differ in this, as described below. If both operands are NaN, the result may be either of them.
 *
 * A negative count, a null block with a count above 0 and a channel number that the block does not have end the
 * process. The functions have no state. Any number of threads may call them at the same time, each with its own
 * blocks.
 */

#include "pcm_api.h"

KIT_C_BEGIN

/** Sets samples to 0: dest[i] = 0. */
PCM_API void pcm___SamplesZero( PCM_SAMPLE *dest, int64_t samples );

/** Copies samples between blocks that do not overlap: dest[i] = source[i]. */
PCM_API void pcm___SamplesCopy( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/** Copies samples between blocks that may overlap: dest[i] = source[i]. */
PCM_API void pcm___SamplesMove( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/** Adds samples: dest[i] += source[i]. */
PCM_API void pcm___SamplesAdd( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/** Multiplies samples: dest[i] *= source[i]. */
PCM_API void pcm___SamplesMul( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/** Scales samples: dest[i] *= scale. */
PCM_API void pcm___SamplesScale( PCM_SAMPLE *dest, int64_t samples, double scale );

/** Sets one channel to 0. Does not change the other channels. */
PCM_API void pcm___SamplesChannelZero( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, int64_t frames );

/** Copies one channel of @p source to one channel of @p dest, bit for bit. */
PCM_API void pcm___SamplesChannelCopy( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels,
    const PCM_SAMPLE *source, int64_t sourceChannel, int64_t sourceChannels, int64_t frames );

/** Adds one channel of @p source to one channel of @p dest. */
PCM_API void pcm___SamplesChannelAdd( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels,
    const PCM_SAMPLE *source, int64_t sourceChannel, int64_t sourceChannels, int64_t frames );

/** Multiplies one channel of @p dest by one channel of @p source. */
PCM_API void pcm___SamplesChannelMul( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels,
    const PCM_SAMPLE *source, int64_t sourceChannel, int64_t sourceChannels, int64_t frames );

/** Multiplies one channel by @p scale. */
PCM_API void pcm___SamplesChannelScale(
    PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, int64_t frames, double scale );

KIT_C_END

#endif
