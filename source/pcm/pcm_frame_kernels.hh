#ifndef PCM_FRAME_KERNELS_HH
#define PCM_FRAME_KERNELS_HH

// Private to the library: loops over the frames of interleaved blocks. The common channel counts are compile-time
// constants, so that compilers can vectorize the loops. The blocks must not overlap.

#include "pcm_api.h"

#include <stdint.h>

namespace pcm {

/// Copies the first `destChannels` samples of each source frame, bit for bit. If a source frame has fewer, sets the
/// rest of the frame to 0.
///
/// A block of frames x channels samples is also a block of frames / n frames with n x channels channels. This
/// function can therefore change the number of frames as well.
void resizeFrames(
    PCM_SAMPLE *dest, int64_t destChannels, const PCM_SAMPLE *source, int64_t sourceChannels, int64_t frames );

/// Copies `count` channels of each source frame to the same channels of a wider block. The other channels of dest
/// remain.
void copyChannels( PCM_SAMPLE *dest, int64_t destChannels, const PCM_SAMPLE *source, int64_t sourceChannels,
    int64_t count, int64_t frames );

/// Copies the channels of each source frame whose bits are set in the mask, in ascending order. Sets the rest of the
/// frame to 0. Bits from `sourceChannels` on must be clear.
void selectChannels( PCM_SAMPLE *dest, int64_t destChannels, const PCM_SAMPLE *source, int64_t sourceChannels,
    uint64_t channelMask, int64_t frames );

/// Sets all channels of each frame to the sum of the source frame, multiplied by `factor`. If `keepsChannels` is set,
/// copies the source to the first `sourceChannels` channels instead. The sum starts at 0, and channels are added from
/// the first to the last.
void mixFrames( PCM_SAMPLE *dest, int64_t destChannels, const PCM_SAMPLE *source, int64_t sourceChannels,
    bool keepsChannels, PCM_SAMPLE factor, int64_t frames );

} // namespace pcm

#endif
