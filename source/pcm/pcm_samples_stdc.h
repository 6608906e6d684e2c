#ifndef PCM_SAMPLES_STDC_H
#define PCM_SAMPLES_STDC_H

/** @file
 * Plain work on raw blocks of samples.
 *
 * The flat functions take a number of consecutive samples. The channel functions walk one channel of an interleaved
 * block: `frames` items, item f at index f x channels + channel of the block; both sides may be one block. Blocks may
 * be null where the count is 0; that the counts stay within the blocks is the caller's promise.
 *
 * Each sum and product is rounded to a 32-bit float. The result is that of the ascending loop over single samples,
 * also where `dest` and `source` overlap (but for pcm___SamplesCopy). A scale is narrowed to a 32-bit float once.
 * Of two NaNs that meet, either may come out.
 *
 * A negative count, a missing block and a channel that is none of the block's end the process. The functions have no
 * state and may run on any number of threads, on blocks that are theirs.
 */

#include "pcm_api.h"

KIT_C_BEGIN

/** dest[i] = 0 */
PCM_API void pcm___SamplesZero( PCM_SAMPLE *dest, int64_t samples );

/** dest[i] = source[i], in blocks that do not overlap */
PCM_API void pcm___SamplesCopy( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/** dest[i] = source[i], in blocks that may overlap */
PCM_API void pcm___SamplesMove( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/** dest[i] += source[i] */
PCM_API void pcm___SamplesAdd( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/** dest[i] *= source[i] */
PCM_API void pcm___SamplesMul( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/** dest[i] *= scale */
PCM_API void pcm___SamplesScale( PCM_SAMPLE *dest, int64_t samples, double scale );

/** One channel becomes 0; the others stay. */
PCM_API void pcm___SamplesChannelZero( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, int64_t frames );

/** One channel becomes a channel of another block, bit for bit. */
PCM_API void pcm___SamplesChannelCopy( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels,
    const PCM_SAMPLE *source, int64_t sourceChannel, int64_t sourceChannels, int64_t frames );

/** A channel is added to another. */
PCM_API void pcm___SamplesChannelAdd( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels,
    const PCM_SAMPLE *source, int64_t sourceChannel, int64_t sourceChannels, int64_t frames );

/** One channel is multiplied by another. */
PCM_API void pcm___SamplesChannelMul( PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels,
    const PCM_SAMPLE *source, int64_t sourceChannel, int64_t sourceChannels, int64_t frames );

/** One channel is multiplied by a factor. */
PCM_API void pcm___SamplesChannelScale(
    PCM_SAMPLE *dest, int64_t destChannel, int64_t destChannels, int64_t frames, double scale );

KIT_C_END

#endif
