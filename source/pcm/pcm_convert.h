#ifndef PCM_CONVERT_H
#define PCM_CONVERT_H

/** @file
 * Conversion of encoded samples in memory.
 *
 * - Integers become floats with full scale at 1.0. The result is exact, except that 32-bit integers are rounded to
 *   the nearest float.
 * - Floats become integers by truncation. Values beyond full scale are clamped, and NaN becomes the lowest code.
 *   Narrower formats keep the high-order bits of the 32-bit integer.
 * - G.711 follows the tables of ITU-T G.711. mu-law decodes to the values of the standard on a 16-bit scale, rounded
 *   down to multiples of 8. In both laws, the code of a negative value differs from that of its magnitude only in the
 *   sign bit, and NaN becomes the code of +0.
 * - 32-bit floats are copied bit for bit.
 * - Padding bytes are ignored when read and written as 0.
 *
 * The functions have no state. Any number of threads may call them at the same time.
 */

#include "pcm_encoding.h"

KIT_C_BEGIN

/**
 * Converts a buffer of samples to another encoding. Ends the process if @p source is null ("buffer").
 *
 * @param destEncoding the encoding of the result; 0 denotes PCM_SAMPLE values, which are little endian in buffers
 * @param source encoded samples, which are only read; the caller keeps its reference
 * @param sourceEncoding the encoding of @p source; 0 as for @p destEncoding
 * @return a new buffer, which the caller owns; null if @p source is empty or does not hold a whole number of slots
 */
PCM_API KIT_BUFFER *pcmTryConvert( PCM_ENCODING destEncoding, KIT_BUFFER *source, PCM_ENCODING sourceEncoding );

/**
 * Converts samples in the caller's memory.
 *
 * @param dest the destination for @p samples slots of @p destEncoding, at any alignment; nothing else is written
 * @param destEncoding any encoding word; 0: @p dest is an array of PCM_SAMPLE in the byte order of the host
 * @param source @p samples slots of @p sourceEncoding, at any alignment; nothing else is read
 * @param sourceEncoding any encoding word; 0: @p source is an array of PCM_SAMPLE in the byte order of the host
 * @param samples the number of samples, which for frames is frames x channels; if it is 0, both blocks may be null
 *
 * The addresses @p dest and @p source may be equal if a destination slot is not wider than a source slot and has no
 * padding bytes. Otherwise the blocks must not overlap.
 *
 * Ends the process unless "samples >= 0", "dest || samples == 0", "source || samples == 0" and the sizes of both
 * blocks in bytes fit 64 bits.
 */
PCM_API void pcm___Convert(
    void *dest, PCM_ENCODING destEncoding, const void *source, PCM_ENCODING sourceEncoding, int64_t samples );

KIT_C_END

#endif
