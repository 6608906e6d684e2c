#ifndef PCM_FRAMES_H
#define PCM_FRAMES_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * Whole factors of the frame count. Samples are moved and nothing else: what that does to the spectrum is the
 * caller's, who has PCM_FILTER for it. The handle gets a new packet, and other holders of the old one see no change;
 * a packet without frames stays as it is. One handle variable serves one thread at a time. Null, and what a function
 * requires and does not get, end the process.
 */

/** Puts @p mult - 1 frames of silence behind each frame. Requires "mult > 1". */
PCM_API void pcmFramesExtend( PCM_PACKET **pkt, int64_t mult );

/** Keeps the first of every @p div frames. Requires "div > 1" and a whole multiple of @p div frames. */
PCM_API void pcmFramesReduce( PCM_PACKET **pkt, int64_t div );

KIT_C_END

#endif
