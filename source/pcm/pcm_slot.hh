#ifndef PCM_SLOT_HH
#define PCM_SLOT_HH

// Private to the library: the slot layout that an encoding word describes.

#include "pcm_encoding.h"

#include <bit>
#include <cstdint>

namespace pcm {

constexpr PCM_ENCODING packGroup = 2 * PCM_ENCODING_PACK_64 - PCM_ENCODING_PACK_16;
constexpr PCM_ENCODING allFlags = 2 * PCM_ENCODING_PACK_64 - 1;

/// Returns the index of the lowest flag in a group that is set, which is the flag that applies. Returns the number of
/// flags in the group if none is set.
constexpr int flagIndex( PCM_ENCODING encoding, PCM_ENCODING firstFlag, PCM_ENCODING lastFlag )
{
    const PCM_ENCODING afterLast = 2 * lastFlag;
    return std::countr_zero( encoding / firstFlag | afterLast / firstFlag );
}

/// Returns whether the padding bytes of a slot, if there are any, come before the sample.
constexpr bool padsBefore( PCM_ENCODING encoding )
{
    const bool before = encoding & PCM_ENCODING_PAD_BEFORE, after = encoding & PCM_ENCODING_PAD_AFTER;
    return before || ( !after && ( encoding & PCM_ENCODING_BIG_ENDIAN ) );
}

struct Slot {
    int base; // index of the base flag
    bool isUnsigned, isBigEndian;
    int64_t width, sampleWidth, offset; // in bytes; the offset is the position of the sample in the slot
};

/// In bytes, by the index of the base or pack flag. The last entry applies if there is no such flag.
inline constexpr uint8_t sampleWidths[] = { 1, 1, 1, 2, 3, 4, 4, 4 }, packWidths[] = { 2, 3, 4, 5, 6, 7, 8, 1 };

constexpr Slot slotOf( PCM_ENCODING encoding )
{
    Slot slot = {};
    slot.base = flagIndex( encoding, PCM_ENCODING_G711_ALAW, PCM_ENCODING_FLOAT_32 );
    slot.isUnsigned = encoding & PCM_ENCODING_UNSIGNED;
    slot.isBigEndian = encoding & PCM_ENCODING_BIG_ENDIAN;
    slot.sampleWidth = sampleWidths[slot.base];
    int64_t pack = packWidths[flagIndex( encoding, PCM_ENCODING_PACK_16, PCM_ENCODING_PACK_64 )];
    slot.width = pack > slot.sampleWidth ? pack : slot.sampleWidth;
    slot.offset = padsBefore( encoding ) ? slot.width - slot.sampleWidth : 0;
    return slot;
}

/// Returns whether a word normalises to 0, which denotes an array of `PCM_SAMPLE`.
constexpr bool isSamples( PCM_ENCODING encoding ) { return !( encoding & allFlags ); }

/// Replaces word 0 by a word for floats in the given byte order, unless that is what word 0 already means.
///
/// Word 0 has two meanings on a big-endian host. In memory it denotes an array of `PCM_SAMPLE`, in the byte order of
/// the host. In a buffer, which may be sent to another host, samples are little-endian everywhere. The functions on
/// buffers therefore call this function with little endian before they call pcm___Convert, and pcm___Convert calls it
/// with the order of the host. The second call does not change the result of the first, which is no longer 0.
constexpr PCM_ENCODING samplesIn( std::endian order, PCM_ENCODING encoding )
{
    if ( std::endian::native == std::endian::little || !isSamples( encoding ) ) return encoding;
    return PCM_ENCODING_FLOAT_32 | ( order == std::endian::big ? PCM_ENCODING_BIG_ENDIAN : 0 );
}

} // namespace pcm

#endif
