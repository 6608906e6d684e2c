#ifndef PCM_ENCODING_H
#define PCM_ENCODING_H

/** @file
 * Encoding words: the layout of samples in a byte buffer.
 *
 * A buffer consists of consecutive slots, one for each sample, without a header or alignment. The samples are in the
 * same order as in a packet. An encoding word specifies the format of a sample (base), its sign and byte order, the
 * width of the slot (pack) and the position of the sample in a wider slot (pad). The defaults are signed integers,
 * little endian, a slot as wide as the sample, and the sample at the low-order end of the slot. The low-order end is
 * the last bytes of the slot with PCM_ENCODING_BIG_ENDIAN and the first bytes otherwise.
 *
 * Word 0 denotes an array of PCM_SAMPLE in memory. Any other word without a base denotes slots with a 32-bit pattern,
 * whose bytes are little endian regardless of the byte order flags.
 *
 * Encoding words are plain numbers, and any number of threads may call these functions at the same time. A null
 * string ends the process, and so does a frame without channels or with a size that does not fit in 64 bits.
 */

#include "pcm_api.h"

KIT_C_BEGIN

/** An encoding word: the flags below joined by `|`, or 0. */
typedef uint64_t PCM_ENCODING;

#define PCM_ENCODING_G711_ALAW ( (PCM_ENCODING)0x1 )       /**< base: 1 byte, ITU-T G.711 A-law */
#define PCM_ENCODING_G711_MULAW ( (PCM_ENCODING)0x2 )      /**< base: 1 byte, ITU-T G.711 mu-law */
#define PCM_ENCODING_INT_8 ( (PCM_ENCODING)0x4 )           /**< base: 1-byte integer */
#define PCM_ENCODING_INT_16 ( (PCM_ENCODING)0x8 )          /**< base: 2-byte integer */
#define PCM_ENCODING_INT_24 ( (PCM_ENCODING)0x10 )         /**< base: 3-byte integer */
#define PCM_ENCODING_INT_32 ( (PCM_ENCODING)0x20 )         /**< base: 4-byte integer */
#define PCM_ENCODING_FLOAT_32 ( (PCM_ENCODING)0x40 )       /**< base: 4-byte IEEE 754 float */
#define PCM_ENCODING_UNSIGNED ( (PCM_ENCODING)0x80 )       /**< unsigned integers: the middle code is 0.0 */
#define PCM_ENCODING_BIG_ENDIAN ( (PCM_ENCODING)0x100 )    /**< most significant byte first */
#define PCM_ENCODING_LITTLE_ENDIAN ( (PCM_ENCODING)0x200 ) /**< least significant byte first */
#define PCM_ENCODING_PAD_BEFORE ( (PCM_ENCODING)0x400 )    /**< padding bytes precede the sample */
#define PCM_ENCODING_PAD_AFTER ( (PCM_ENCODING)0x800 )     /**< padding bytes follow the sample */
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
 * Returns the normalised word. It has at most one flag of each of the groups base, byte order, pad and pack, and no
 * bits without a meaning. If a word has several flags of a group, the lowest one applies. All functions accept any
 * word and normalise it first.
 */
PCM_API PCM_ENCODING pcmEncodingNormalize( PCM_ENCODING encoding );

/**
 * Returns the width of a slot in bytes: that of the base, or that of the pack flag if it is wider. Returns 4 for word
 * 0.
 */
PCM_API int64_t pcmEncodingSizeofSample( PCM_ENCODING encoding );

/**
 * Returns the size of a frame of @p channels slots in bytes. Ends the process unless "channels > 0" and the size fits
 * 64 bits.
 */
PCM_API int64_t pcmEncodingSizeofFrame( PCM_ENCODING encoding, int64_t channels );

/**
 * Converts a text such as "PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN" to a normalised word. Names that are not
 * flags are ignored. Call `kitModuleStartup( pcmModule() )` first. Ends the process if @p kits is null ("kits").
 */
PCM_API PCM_ENCODING pcmEncodingFromString( KIT_STRING *kits );

/**
 * Returns the text of the normalised word, "0" for word 0. The caller owns the string. Call
 * `kitModuleStartup( pcmModule() )` first.
 */
PCM_API KIT_STRING *pcmEncodingToString( PCM_ENCODING encoding );

/** Creates the table of flag names. Called by the start-up of the module. */
PCM_API void pcm___EncodingStartup( void );

/** Frees the table. Called by the shut-down of the module. Flag names cannot be converted afterwards. */
PCM_API void pcm___EncodingShutdown( void );

KIT_C_END

#endif
