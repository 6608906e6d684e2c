#ifndef PCM_PACKET_H
#define PCM_PACKET_H

/** @file
 * Packets: copy-on-write objects that hold audio as interleaved frames of samples.
 *
 * A packet owns one block that holds frames x channels samples. Sample c of frame f has the index f x channels + c. A
 * packet without frames has no block.
 *
 * Functions that only read a packet take a handle. Functions that change a packet take the address of a handle. If
 * the packet is shared, they change a private copy and store it in the handle, so other holders see no change. The
 * caller owns each packet that a function returns and must release it with pcmPacketRelease().
 *
 * Threads may share a packet if each holds its own reference. Use a handle variable from only one thread at a time.
 *
 * Counts and positions are in frames. Positions and channel numbers start at 0. If a call breaks the contract, for
 * example with a null handle ("pkt"), the library reports the condition and ends the process. Ranges are never
 * truncated or extended to fit.
 */

#include "pcm_encoding.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_PACKET, pcmPacket );

/** @name Creation
 * The caller owns each returned packet.
 * @{ */

/** Creates a packet without frames. Requires "channels > 0". */
PCM_API PCM_PACKET *pcmPacketCreate( int64_t channels );

/** Creates a packet with the same channel count as @p source and a copy of its samples. */
PCM_API PCM_PACKET *pcmPacketCreateFrom( PCM_PACKET *source );

/**
 * Creates a packet with a copy of a block of frames x channels samples. If @p frames is 0, the block is not read and
 * may be null. Requires "channels > 0" and "frames >= 0".
 */
PCM_API PCM_PACKET *pcmPacketCreateFromSamplesCopy( const PCM_SAMPLE *source, int64_t channels, int64_t frames );

/**
 * Creates a packet from a block of at least frames x channels samples without copying it.
 *
 * The block must come from kitMemAlloc(), kitMemAllocN() or kitMemReallocN(). The packet owns the block from then on.
 * If @p frames is 0, the block is freed at once and may be null. The caller may continue to write to the block until
 * the packet is modified, released or shared. Requires "channels > 0" and "frames >= 0".
 */
PCM_API PCM_PACKET *pcmPacketCreateFromSamplesUse( PCM_SAMPLE *source, int64_t channels, int64_t frames );

/** @} */

/** @name Queries
 * @{ */

/** Returns the number of channels, 1 or more. */
PCM_API int64_t pcmPacketChannels( PCM_PACKET *pkt );

/** Returns the number of frames, 0 or more. */
PCM_API int64_t pcmPacketFrames( PCM_PACKET *pkt );

/**
 * Returns the samples for reading, or null if there are no frames. The pointer is valid until the packet changes or
 * the caller releases its reference.
 */
PCM_API const PCM_SAMPLE *pcmPacketBacking( PCM_PACKET *pkt );

/** @} */

/** @name Changes to the whole packet
 * @{ */

/**
 * Returns the samples for writing, or null if there are no frames. Copies a shared packet first. The caller may write
 * through the pointer until the packet changes or another reference to it is added.
 */
PCM_API PCM_SAMPLE *pcmPacketMutableBacking( PCM_PACKET **pkt );

/** Removes all frames and keeps the channel count. */
PCM_API void pcmPacketClear( PCM_PACKET **pkt );

/**
 * Sets the channel count. Each frame keeps its lowest channels, and added channels are 0. Nothing is mixed. Requires
 * "channels > 0".
 */
PCM_API void pcmPacketSetChannels( PCM_PACKET **pkt, int64_t channels );

/** Sets the frame count. Removes frames at the end or appends silence. Requires "frames >= 0". */
PCM_API void pcmPacketSetFrames( PCM_PACKET **pkt, int64_t frames );

/** @} */

/** @name Frame editing
 * The name of a function consists of an operation and a selection of frames. The operations are:
 *
 * - `Write` overwrites frames of the packet, starting at `idx`. The range must be inside the packet.
 * - `Insert` inserts frames at `idx`, which ranges from 0 to the frame count. The frames from `idx` on move up.
 * - `Append` inserts frames at the end, `Prepend` at the start.
 * - `Del` removes frames and closes the gap.
 *
 * All operations except `Del` take their frames from `source`, a packet with the same channel count. The source is
 * not changed. It may be the packet itself, whose original frames are then used. The selection specifies the frames
 * of the source, or the frames that `Del` removes:
 *
 * - no suffix: all frames
 * - `Inner`: `frames` frames, starting at `offset` (`idx` for `Del`)
 * - `Outer`: all frames except those, the two ends joined
 * - `Leading`, `Trailing`: the first or last `frames` frames
 * - `Zero`: `frames` frames of silence, without a source
 *
 * Each insertion or deletion reallocates the packet once, to its exact size. To build a long packet from many, write
 * them to a PCM_PACKET_QUEUE and gather all frames at once.
 *
 * All functions take the address of a handle. The process ends if a range extends past the end of its packet or if
 * the channel counts differ. The caller keeps its reference to the source.
 *
 * @{ */

/** Overwrites frames starting at @p idx with all frames of @p source. */
PCM_API void pcmPacketWrite( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source );

/** Overwrites frames starting at @p idx with @p frames frames of @p source, starting at @p offset. */
PCM_API void pcmPacketWriteInner( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );

/**
 * Overwrites frames starting at @p idx with all frames of @p source except @p frames frames starting at @p offset.
 */
PCM_API void pcmPacketWriteOuter( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Overwrites frames starting at @p idx with the first @p frames frames of @p source. */
PCM_API void pcmPacketWriteLeading( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );

/** Overwrites frames starting at @p idx with the last @p frames frames of @p source. */
PCM_API void pcmPacketWriteTrailing( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );

/** Overwrites frames starting at @p idx with @p frames frames of silence. */
PCM_API void pcmPacketWriteZero( PCM_PACKET **pkt, int64_t idx, int64_t frames );

/** Inserts all frames of @p source before frame @p idx. */
PCM_API void pcmPacketInsert( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source );

/** Inserts @p frames frames of @p source, starting at @p offset, before frame @p idx. */
PCM_API void pcmPacketInsertInner(
    PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Inserts all frames of @p source except @p frames frames starting at @p offset, before frame @p idx. */
PCM_API void pcmPacketInsertOuter(
    PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Inserts the first @p frames frames of @p source before frame @p idx. */
PCM_API void pcmPacketInsertLeading( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );

/** Inserts the last @p frames frames of @p source before frame @p idx. */
PCM_API void pcmPacketInsertTrailing( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );

/** Inserts @p frames frames of silence before frame @p idx. */
PCM_API void pcmPacketInsertZero( PCM_PACKET **pkt, int64_t idx, int64_t frames );

/** Appends all frames of @p source. */
PCM_API void pcmPacketAppend( PCM_PACKET **pkt, PCM_PACKET *source );

/** Appends @p frames frames of @p source, starting at @p offset. */
PCM_API void pcmPacketAppendInner( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Appends all frames of @p source except @p frames frames starting at @p offset. */
PCM_API void pcmPacketAppendOuter( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Appends the first @p frames frames of @p source. */
PCM_API void pcmPacketAppendLeading( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );

/** Appends the last @p frames frames of @p source. */
PCM_API void pcmPacketAppendTrailing( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );

/** Appends @p frames frames of silence. */
PCM_API void pcmPacketAppendZero( PCM_PACKET **pkt, int64_t frames );

/** Prepends all frames of @p source. */
PCM_API void pcmPacketPrepend( PCM_PACKET **pkt, PCM_PACKET *source );

/** Prepends @p frames frames of @p source, starting at @p offset. */
PCM_API void pcmPacketPrependInner( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Prepends all frames of @p source except @p frames frames starting at @p offset. */
PCM_API void pcmPacketPrependOuter( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Prepends the first @p frames frames of @p source. */
PCM_API void pcmPacketPrependLeading( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );

/** Prepends the last @p frames frames of @p source. */
PCM_API void pcmPacketPrependTrailing( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );

/** Prepends @p frames frames of silence. */
PCM_API void pcmPacketPrependZero( PCM_PACKET **pkt, int64_t frames );

/** Removes @p frames frames starting at @p idx. */
PCM_API void pcmPacketDelInner( PCM_PACKET **pkt, int64_t idx, int64_t frames );

/** Removes all frames except @p frames frames starting at @p idx. */
PCM_API void pcmPacketDelOuter( PCM_PACKET **pkt, int64_t idx, int64_t frames );

/** Removes the first @p frames frames. */
PCM_API void pcmPacketDelLeading( PCM_PACKET **pkt, int64_t frames );

/** Removes the last @p frames frames. */
PCM_API void pcmPacketDelTrailing( PCM_PACKET **pkt, int64_t frames );

/** @} */

/** @name Channels
 * @{ */

/**
 * Overwrites a rectangle of @p channels x @p frames samples with samples of @p source, which may be the packet
 * itself. The rectangle must be inside both packets. Their channel counts may differ.
 */
PCM_API void pcmPacketWriteChannels( PCM_PACKET **pkt, int64_t destChannelOffset, int64_t destFrameOffset,
    PCM_PACKET *source, int64_t sourceChannelOffset, int64_t sourceFrameOffset, int64_t channels, int64_t frames );

/**
 * Like pcmPacketWriteChannels(), but reads a block with @p sourceChannelCount channels and at least
 * `sourceFrameOffset + frames` frames.
 */
PCM_API void pcmPacketWriteChannelsSamples( PCM_PACKET **pkt, int64_t destChannelOffset, int64_t destFrameOffset,
    const PCM_SAMPLE *source, int64_t sourceChannelOffset, int64_t sourceChannelCount, int64_t sourceFrameOffset,
    int64_t channels, int64_t frames );

/**
 * Returns a packet with @p channels channels, each of which holds the sum of all channels of @p source. If @p source
 * already has that many channels, returns @p source itself with an additional reference. The caller owns the returned
 * packet. Requires "channels > 0".
 */
PCM_API PCM_PACKET *pcmPacketCreateFromWithChannels( PCM_PACKET *source, int64_t channels );

/**
 * Returns a packet with the channels of @p source that are selected by @p channelMask, in ascending order. Bit n
 * selects channel n; channels 64 and above cannot be selected. For each set bit without a channel in @p source, a
 * silent channel is appended. If the number of set bits equals the number of channels of @p source, returns @p source
 * itself with an additional reference, whichever bits are set. The caller owns the returned packet. Requires
 * "channelMask", that is, at least one bit.
 */
PCM_API PCM_PACKET *pcmPacketCreateFromWithChannelMask( PCM_PACKET *source, uint64_t channelMask );

/** @} */

/** @name Encoded bytes
 * @{ */

/**
 * Encodes the frames. Returns a new buffer, which the caller owns and releases with kitObjRelease(). It is never
 * null, and it is empty if the packet has no frames. Word 0 encodes PCM_SAMPLE values, which are little endian in
 * buffers.
 */
PCM_API KIT_BUFFER *pcmPacketEncode( PCM_PACKET *pkt, PCM_ENCODING encoding );

/**
 * Decodes a buffer, which is only read. Requires "channels > 0".
 *
 * @return a new packet, which the caller owns; null if the buffer does not contain a whole number of frames. An empty
 * buffer results in a packet without frames.
 */
PCM_API PCM_PACKET *pcmPacketTryDecode( KIT_BUFFER *source, PCM_ENCODING encoding, int64_t channels );

/** @} */

KIT_C_END

#endif
