#ifndef PCM_CHANNELS_H
#define PCM_CHANNELS_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * Other channel counts by way of a downmix: the mean of a packet's channels, all alike, summed in their order and
 * scaled by 1 / channels as 32-bit floats. Nothing is clamped. The frame count stays; the handle gets a new packet,
 * and other holders of the old one see no change. One handle variable serves one thread at a
 * time. Null and channel counts below 1 end the process.
 */

/** All @p channels channels become the downmix; of one channel, its samples. Always a new packet. */
PCM_API void pcmChannelsAdjustReplaceWithDownmix( PCM_PACKET **pkt, int64_t channels );

/** Keeps the channels and adds the downmix as further ones; with fewer channels than there are, replaces them all. */
PCM_API void pcmChannelsAdjustExpandWithDownmix( PCM_PACKET **pkt, int64_t channels );

KIT_C_END

#endif
