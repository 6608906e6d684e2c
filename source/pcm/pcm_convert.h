#ifndef PCM_CONVERT_H
#define PCM_CONVERT_H

/** @file
 * Conversion of encoded samples in memory.
 *
 * Integers become floats exactly (32-bit ones round to the nearest float), with full scale at 1.0. Floats become
 * integers by truncation: values beyond full scale are clamped, NaN becomes the lowest code, and a narrow form takes
 * the top of the 32-bit value (G.711 gives the code of +0 for NaN). G.711 follows the tables of ITU-T G.711; mu-law
 * decodes to the standard's values on a 16-bit scale rounded down to multiples of 8, and both laws encode a negative
 * value with the magnitude's code. 32-bit floats pass bit for bit. Spare bytes are ignored when read and written as
 * 0.
 *
 * All functions are free of state and may run on any number of threads.
 */

#include "pcm_encoding.h"

KIT_C_BEGIN

/**
 * A new buffer with the samples of @p source in another encoding.
 *
 * @param destEncoding the encoding of the result; 0: PCM_SAMPLE values, in a buffer little endian on every host
 * @param source encoded samples, only read; the caller keeps its reference
 * @param sourceEncoding the encoding of @p source
 * @return a buffer that the caller owns; null if @p source is empty or does not hold whole slots
 */
PCM_API KIT_BUFFER *pcmTryConvert( PCM_ENCODING destEncoding, KIT_BUFFER *source, PCM_ENCODING sourceEncoding );

/**
 * Converts a run of samples in the caller's memory.
 *
 * @param dest receives @p samples slots of @p destEncoding, at any alignment; nothing beyond them is written
 * @param destEncoding any word; 0: @p dest is an array of PCM_SAMPLE, in the host's byte order
 * @param source holds @p samples slots of @p sourceEncoding, at any alignment; nothing beyond them is read
 * @param sourceEncoding any word; 0: @p source is an array of PCM_SAMPLE, in the host's byte order
 * @param samples for frames, their number times the channels; with 0 both blocks may be null
 *
 * @p dest and @p source may be the same address if a destination slot is not wider than a source slot and has no
 * spare bytes. Otherwise the blocks must not overlap.
 *
 * Ends the process unless "samples >= 0", the blocks are there, and the sizes in bytes fit 64 bits.
 */
PCM_API void pcm___Convert(
    void *dest, PCM_ENCODING destEncoding, const void *source, PCM_ENCODING sourceEncoding, int64_t samples );

KIT_C_END

#endif
