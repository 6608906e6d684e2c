#ifndef PCM_PACKET_H
#define PCM_PACKET_H

/** @file
 * Packets: copy-on-write objects that hold audio as frames of samples, interleaved by channel.
 *
 * A packet owns one block of exactly frames x channels samples; sample c of frame f stands at index
 * f x channels + c. Without frames there is no block. Functions that read take the handle; functions that change a
 * packet take its address, and if the packet is shared they put a packet of the caller's own there, so that every
 * other holder goes on seeing the old frames. A handle that is returned carries one reference, which the caller owns.
 *
 * Packets may be shared between threads through references of their own; one handle variable serves one thread at a
 * time. All counts and positions are in frames, all channel numbers and positions start at 0. A broken contract ends
 * the process with the condition's text: nothing is clipped or extended to fit.
 */

#include "pcm_encoding.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_PACKET, pcmPacket );

/** @name Creation
 * Each packet returned is new, with one reference that the caller owns.
 * @{ */

/** A packet without frames. Requires "channels > 0". */
PCM_API PCM_PACKET *pcmPacketCreate( int64_t channels );

/** A packet with a copy of the samples of @p source. */
PCM_API PCM_PACKET *pcmPacketCreateFrom( PCM_PACKET *source );

/** A packet with a copy of a block of frames x channels samples; with 0 frames the block isn't read. */
PCM_API PCM_PACKET *pcmPacketCreateFromSamplesCopy( const PCM_SAMPLE *source, int64_t channels, int64_t frames );

/**
 * A packet that takes over a block of kitMemAlloc (or its relatives) with at least frames x channels samples. The
 * block is the packet's from then on, in every case: with 0 frames it is freed at once. As long as the caller holds
 * the only reference, it may go on filling the block through its own pointer.
 */
PCM_API PCM_PACKET *pcmPacketCreateFromSamplesUse( PCM_SAMPLE *source, int64_t channels, int64_t frames );

/** @} */

/** @name Queries
 * @{ */

/** The samples in a frame, above 0. */
PCM_API int64_t pcmPacketChannels( PCM_PACKET *pkt );

/** The frames it holds, 0 or more. */
PCM_API int64_t pcmPacketFrames( PCM_PACKET *pkt );

/** The samples for reading, null without frames; valid until the packet changes or the reference ends. */
PCM_API const PCM_SAMPLE *pcmPacketBacking( PCM_PACKET *pkt );

/** @} */

/** @name Changes to the whole packet
 * @{ */

/** The samples for writing. A shared packet is copied first. Good until anyone else takes a reference. */
PCM_API PCM_SAMPLE *pcmPacketMutableBacking( PCM_PACKET **pkt );

/** Removes all frames and keeps the channel count. */
PCM_API void pcmPacketClear( PCM_PACKET **pkt );

/** Sets the channel count: each frame keeps its lowest channels, added channels are 0, nothing is mixed. */
PCM_API void pcmPacketSetChannels( PCM_PACKET **pkt, int64_t channels );

/** Sets the frame count: drops frames at the end, or adds frames of silence there. */
PCM_API void pcmPacketSetFrames( PCM_PACKET **pkt, int64_t frames );

/** @} */

/** @name Frame editing: five verbs, and words for the part that they work on
 *
 * - `Write` overwrites frames of the packet from `idx` on; all of them must lie in it.
 * - `Insert` puts frames in at `idx`, from 0 to the frame count; what stands there moves up.
 * - `Append` inserts at the end, `Prepend` at the start.
 * - `Del` removes frames and closes the packet up.
 *
 * The first four take frames from `source`, a packet with the same channel count, which may be the packet itself and
 * is not changed. The words name a part of the source, and for `Del` the part of the packet that goes:
 *
 * - no word: all frames;
 * - `Inner`: `frames` frames from a start (`offset`; for `Del` `idx`);
 * - `Outer`: everything but those, the two ends joined;
 * - `Leading`, `Trailing`: the first or last `frames` frames;
 * - `Zero`: `frames` frames of silence, without a source.
 *
 * Inserting and deleting reallocate once, to the exact size: whoever builds a long packet out of many gathers them in
 * a PCM_PACKET_QUEUE and takes them out at once. All take the address of a handle, end the process where a part does
 * not lie in its packet or the channel counts differ, and leave the source's reference to the caller.
 *
 * @{ */

/** Overwrites frames from @p idx on with all frames of @p source. */
PCM_API void pcmPacketWrite( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source );

/** Overwrites frames from @p idx on with @p frames frames of @p source from @p offset on. */
PCM_API void pcmPacketWriteInner( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Overwrites frames from @p idx on with all of @p source but @p frames frames from @p offset on. */
PCM_API void pcmPacketWriteOuter( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Overwrites frames from @p idx on with the first @p frames frames of @p source. */
PCM_API void pcmPacketWriteLeading( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );

/** Overwrites frames from @p idx on with the last @p frames frames of @p source. */
PCM_API void pcmPacketWriteTrailing( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );

/** Overwrites frames from @p idx on with @p frames frames of silence. */
PCM_API void pcmPacketWriteZero( PCM_PACKET **pkt, int64_t idx, int64_t frames );

/** Inserts all frames of @p source before frame @p idx. */
PCM_API void pcmPacketInsert( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source );

/** Inserts @p frames frames of @p source from @p offset on before frame @p idx. */
PCM_API void pcmPacketInsertInner(
    PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Inserts all of @p source but @p frames frames from @p offset on before frame @p idx. */
PCM_API void pcmPacketInsertOuter(
    PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Inserts the first @p frames frames of @p source before frame @p idx. */
PCM_API void pcmPacketInsertLeading( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );

/** Inserts the last @p frames frames of @p source before frame @p idx. */
PCM_API void pcmPacketInsertTrailing( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );

/** Inserts @p frames frames of silence before frame @p idx. */
PCM_API void pcmPacketInsertZero( PCM_PACKET **pkt, int64_t idx, int64_t frames );

/** Adds all frames of @p source at the end. */
PCM_API void pcmPacketAppend( PCM_PACKET **pkt, PCM_PACKET *source );

/** Adds @p frames frames of @p source from @p offset on at the end. */
PCM_API void pcmPacketAppendInner( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Adds all of @p source but @p frames frames from @p offset on at the end. */
PCM_API void pcmPacketAppendOuter( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Adds the first @p frames frames of @p source at the end. */
PCM_API void pcmPacketAppendLeading( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );

/** Adds the last @p frames frames of @p source at the end. */
PCM_API void pcmPacketAppendTrailing( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );

/** Adds @p frames frames of silence at the end. */
PCM_API void pcmPacketAppendZero( PCM_PACKET **pkt, int64_t frames );

/** Adds all frames of @p source at the start. */
PCM_API void pcmPacketPrepend( PCM_PACKET **pkt, PCM_PACKET *source );

/** Adds @p frames frames of @p source from @p offset on at the start. */
PCM_API void pcmPacketPrependInner( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Adds all of @p source but @p frames frames from @p offset on at the start. */
PCM_API void pcmPacketPrependOuter( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );

/** Adds the first @p frames frames of @p source at the start. */
PCM_API void pcmPacketPrependLeading( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );

/** Adds the last @p frames frames of @p source at the start. */
PCM_API void pcmPacketPrependTrailing( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );

/** Adds @p frames frames of silence at the start. */
PCM_API void pcmPacketPrependZero( PCM_PACKET **pkt, int64_t frames );

/** Removes @p frames frames from @p idx on. */
PCM_API void pcmPacketDelInner( PCM_PACKET **pkt, int64_t idx, int64_t frames );

/** Keeps @p frames frames from @p idx on and removes the others. */
PCM_API void pcmPacketDelOuter( PCM_PACKET **pkt, int64_t idx, int64_t frames );

/** Removes the first @p frames frames. */
PCM_API void pcmPacketDelLeading( PCM_PACKET **pkt, int64_t frames );

/** Removes the last @p frames frames. */
PCM_API void pcmPacketDelTrailing( PCM_PACKET **pkt, int64_t frames );

/** @} */

/** @name Channels of a packet
 * @{ */

/**
 * Overwrites a rectangle of @p channels x @p frames samples with one of a packet, which may be the packet itself. The
 * rectangle must lie in both packets, whose channel counts may differ.
 */
PCM_API void pcmPacketWriteChannels( PCM_PACKET **pkt, int64_t destChannelOffset, int64_t destFrameOffset,
    PCM_PACKET *source, int64_t sourceChannelOffset, int64_t sourceFrameOffset, int64_t channels, int64_t frames );

/** The same from a raw block with @p sourceChannelCount channels and at least sourceFrameOffset + frames frames. */
PCM_API void pcmPacketWriteChannelsSamples( PCM_PACKET **pkt, int64_t destChannelOffset, int64_t destFrameOffset,
    const PCM_SAMPLE *source, int64_t sourceChannelOffset, int64_t sourceChannelCount, int64_t sourceFrameOffset,
    int64_t channels, int64_t frames );

/**
 * A packet whose @p channels channels each hold the sum of all channels of @p source, or @p source itself with one
 * more reference if it has that many channels. The caller owns the reference. Requires "channels > 0".
 */
PCM_API PCM_PACKET *pcmPacketCreateFromWithChannels( PCM_PACKET *source, int64_t channels );

/**
 * A packet of the channels of @p source whose bits are set in @p channelMask (bit n: channel n), in their order, or
 * @p source itself with one more reference if as many bits are set as it has channels. Bits without a channel give
 * channels of value 0 behind the others; channels from 64 on cannot be selected. Requires "channelMask".
 */
PCM_API PCM_PACKET *pcmPacketCreateFromWithChannelMask( PCM_PACKET *source, uint64_t channelMask );

/** @} */

/** @name Encoded bytes
 * @{ */

/** The frames as encoded slots in a new buffer, which the caller owns: never null, empty for a packet without frames.
 */
PCM_API KIT_BUFFER *pcmPacketEncode( PCM_PACKET *pkt, PCM_ENCODING encoding );

/**
 * A packet of the frames in a buffer of encoded slots, which is only read.
 *
 * @return null if the bytes are no whole number of frames; an empty buffer gives a packet without frames
 */
PCM_API PCM_PACKET *pcmPacketTryDecode( KIT_BUFFER *source, PCM_ENCODING encoding, int64_t channels );

/** @} */

KIT_C_END

#endif
