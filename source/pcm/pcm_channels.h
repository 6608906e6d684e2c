#ifndef PCM_CHANNELS_H
#define PCM_CHANNELS_H

#include "pcm_packet.h"

KIT_C_BEGIN

/** @file
 * Changing the channel count with a downmix.
 *
 * The downmix is the mean of all channels of a packet, with equal weights. The channels are summed in ascending order
 * and multiplied by 1 / channels, as 32-bit floats. Nothing is clamped. The frame count does not change.
 *
 * The result is a new packet, stored in the handle, so other holders of the old packet see no change. Use a handle
 * variable from only one thread at a time. Null and channel counts below 1 end the process.
 */

/**
 * Sets the channel count and stores the downmix in all @p channels channels. The downmix of a single channel is a
 * copy of it. Always creates a new packet.
 */
PCM_API void pcmChannelsAdjustReplaceWithDownmix( PCM_PACKET **pkt, int64_t channels );

/**
 * Raises the channel count to @p channels: keeps the existing channels and stores the downmix in the added ones. If
 * the packet has more channels, does the same as pcmChannelsAdjustReplaceWithDownmix(). If it has the same number,
 * does nothing.
 */
PCM_API void pcmChannelsAdjustExpandWithDownmix( PCM_PACKET **pkt, int64_t channels );

KIT_C_END

#endif
