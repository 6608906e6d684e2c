#ifndef PCM_SLOT_H
#define PCM_SLOT_H

// C++ only: what an encoding word says of its slots, for the library's own sources.

#include "pcm_encoding.h"

#include <bit>
#include <cstdint>

namespace pcm {

constexpr PCM_ENCODING packGroup = 2 * PCM_ENCODING_PACK_64 - PCM_ENCODING_PACK_16;
constexpr PCM_ENCODING allFlags = 2 * PCM_ENCODING_PACK_64 - 1;

struct Slot {
    int base; // the place of the base flag; 7 without one
    bool isUnsigned, isBigEndian;
    int64_t width, sampleWidth, offset; // the sample's place in the slot
};

inline constexpr uint8_t sampleWidths[] = { 1, 1, 1, 2, 3, 4, 4, 4 }, packWidths[] = { 2, 3, 4, 5, 6, 7, 8, 1 };

/// Of several flags of a group the lowest counts.
constexpr Slot slotOf( PCM_ENCODING encoding )
{
    Slot slot = {};
    slot.base = std::countr_zero( encoding | PCM_ENCODING_UNSIGNED ); // the flag behind all bases
    slot.isUnsigned = encoding & PCM_ENCODING_UNSIGNED;
    slot.isBigEndian = encoding & PCM_ENCODING_BIG_ENDIAN;
    slot.sampleWidth = sampleWidths[slot.base];
    int64_t pack = packWidths[std::countr_zero( ( encoding & packGroup ) / PCM_ENCODING_PACK_16 | 0x80 )];
    slot.width = pack > slot.sampleWidth ? pack : slot.sampleWidth;
    bool before = encoding & PCM_ENCODING_PAD_BEFORE, after = encoding & PCM_ENCODING_PAD_AFTER;
    slot.offset = before || ( !after && slot.isBigEndian ) ? slot.width - slot.sampleWidth : 0;
    return slot;
}

/// Whether a word normalises to 0, which stands for an array of `PCM_SAMPLE`.
constexpr bool isSamples( PCM_ENCODING encoding ) { return !( encoding & allFlags ); }

/// On big-endian hosts those samples have a word of their own: in memory they are the host's, but in a buffer, which
/// may travel, little endian as on all hosts.
constexpr bool isBigEndianHost = std::endian::native == std::endian::big;
constexpr PCM_ENCODING inMemory( PCM_ENCODING encoding )
{
    return isBigEndianHost && isSamples( encoding ) ? PCM_ENCODING_FLOAT_32 | PCM_ENCODING_BIG_ENDIAN : encoding;
}
constexpr PCM_ENCODING inBuffer( PCM_ENCODING encoding )
{
    return isBigEndianHost && isSamples( encoding ) ? PCM_ENCODING_FLOAT_32 : encoding;
}

} // namespace pcm

#endif
