#ifndef PCM_FRAMES_H
#define PCM_FRAMES_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * Changing the frame count by an integer factor.
 *
 * The functions move samples and do not filter them. Use a PCM_FILTER before pcmFramesReduce() to prevent aliasing
 * and after pcmFramesExtend() to remove images. The result is a new packet, stored in the handle, so other holders of
 * the old packet see no change. A packet without frames is not changed. Use a handle variable from only one thread at
 * a time. Null and invalid arguments end the process.
 */

/** Inserts @p mult - 1 frames of silence after each frame. Requires "mult > 1". */
PCM_API void pcmFramesExtend( PCM_PACKET **pkt, int64_t mult );

/**
 * Keeps the first of every @p div frames and removes the others. Requires "div > 1" and a frame count that is a
 * multiple of @p div.
 */
PCM_API void pcmFramesReduce( PCM_PACKET **pkt, int64_t div );

KIT_C_END

#endif
