#ifndef PCM_ENCODING_H
#define PCM_ENCODING_H

/** @file
 * Encoding words: how samples lie in a byte buffer.
 *
 * A buffer is an unbroken run of slots, one for each sample, without header or alignment; frames lie as in a packet.
 * A word names the sample's form (base), its sign and byte order, the width of the slot (pack) and where in a wider
 * slot the sample lies (pad). A group that a word leaves out has its default: little endian, a slot as wide as the
 * sample, and the sample at the low-order end of the slot, which is its last bytes under PCM_ENCODING_BIG_ENDIAN and
 * its first bytes otherwise.
 *
 * Word 0 stands for an array of PCM_SAMPLE in memory. A word without a base that isn't 0 is a slot with a 32-bit
 * pattern, little endian whatever the byte order flags say.
 *
 * Words are plain numbers, and all functions may run on any number of threads. Null for a string ends the process,
 * and a frame that has no channels or does not fit 64 bits.
 */

#include "pcm_api.h"

KIT_C_BEGIN

/** A word of the flags below, or 0. */
typedef uint64_t PCM_ENCODING;

#define PCM_ENCODING_G711_ALAW ( (PCM_ENCODING)0x1 )       /**< base: 1 byte, ITU-T G.711 A-law */
#define PCM_ENCODING_G711_MULAW ( (PCM_ENCODING)0x2 )      /**< base: 1 byte, ITU-T G.711 mu-law */
#define PCM_ENCODING_INT_8 ( (PCM_ENCODING)0x4 )           /**< base: 1-byte integer */
#define PCM_ENCODING_INT_16 ( (PCM_ENCODING)0x8 )          /**< base: 2-byte integer */
#define PCM_ENCODING_INT_24 ( (PCM_ENCODING)0x10 )         /**< base: 3-byte integer */
#define PCM_ENCODING_INT_32 ( (PCM_ENCODING)0x20 )         /**< base: 4-byte integer */
#define PCM_ENCODING_FLOAT_32 ( (PCM_ENCODING)0x40 )       /**< base: 4-byte IEEE 754 float */
#define PCM_ENCODING_UNSIGNED ( (PCM_ENCODING)0x80 )       /**< integers: the middle code is 0.0 */
#define PCM_ENCODING_BIG_ENDIAN ( (PCM_ENCODING)0x100 )    /**< most significant byte first */
#define PCM_ENCODING_LITTLE_ENDIAN ( (PCM_ENCODING)0x200 ) /**< least significant byte first */
#define PCM_ENCODING_PAD_BEFORE ( (PCM_ENCODING)0x400 )    /**< spare bytes stand before the sample */
#define PCM_ENCODING_PAD_AFTER ( (PCM_ENCODING)0x800 )     /**< spare bytes stand behind the sample */
#define PCM_ENCODING_PACK_16 ( (PCM_ENCODING)0x1000 )      /**< a slot of at least 2 bytes */
#define PCM_ENCODING_PACK_24 ( (PCM_ENCODING)0x2000 )      /**< a slot of at least 3 bytes */
#define PCM_ENCODING_PACK_32 ( (PCM_ENCODING)0x4000 )      /**< a slot of at least 4 bytes */
#define PCM_ENCODING_PACK_40 ( (PCM_ENCODING)0x8000 )      /**< a slot of at least 5 bytes */
#define PCM_ENCODING_PACK_48 ( (PCM_ENCODING)0x10000 )     /**< a slot of at least 6 bytes */
#define PCM_ENCODING_PACK_56 ( (PCM_ENCODING)0x20000 )     /**< a slot of at least 7 bytes */
#define PCM_ENCODING_PACK_64 ( (PCM_ENCODING)0x40000 )     /**< a slot of at least 8 bytes */

/** All base flags. */
#define PCM_ENCODING_BASE_MASK ( (PCM_ENCODING)0x7F )

/**
 * The word with at most one flag of each of the groups base, byte order, pad and pack, and without the bits that have
 * no meaning. Of several flags of a group the lowest value wins. All functions take any word and normalise it first.
 */
PCM_API PCM_ENCODING pcmEncodingNormalize( PCM_ENCODING encoding );

/** The width of a slot in bytes: that of the base, or that of the pack flag where it is wider. 4 for word 0. */
PCM_API int64_t pcmEncodingSizeofSample( PCM_ENCODING encoding );

/** The bytes of a frame of @p channels slots. Ends the process unless "channels > 0" and the product fits. */
PCM_API int64_t pcmEncodingSizeofFrame( PCM_ENCODING encoding, int64_t channels );

/**
 * The normalised word of a text of flag names, "PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN". Names that aren't
 * flags add nothing. Needs the module to be started. Ends the process at null ("kits").
 */
PCM_API PCM_ENCODING pcmEncodingFromString( KIT_STRING *kits );

/** The text of the normalised word; "0" for word 0. Needs the module to be started. The caller owns the string. */
PCM_API KIT_STRING *pcmEncodingToString( PCM_ENCODING encoding );

/** Makes the table of the flag names; part of the module's start-up and shut-down. */
PCM_API void pcm___EncodingStartup( void );

/** Drops the table; its names are unknown from then on. */
PCM_API void pcm___EncodingShutdown( void );

KIT_C_END

#endif
