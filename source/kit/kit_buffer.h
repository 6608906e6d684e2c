#ifndef KIT_BUFFER_H
#define KIT_BUFFER_H

/** @file
 * Buffers: immutable arrays of bytes. Any number of threads may share a buffer. A null buffer ends the process.
 */

#include "kit_object.h"

KIT_C_BEGIN

/** An array of bytes. The libraries never change a buffer after its creation. */
typedef struct KIT_BUFFER KIT_BUFFER;

/** Creates an empty buffer. The caller owns it and releases it with kitObjRelease(). */
KIT_API KIT_BUFFER *kitBufferCreate( void );

/**
 * Creates a buffer from a block of memory without copying it.
 *
 * The block must come from kitMemAlloc(), kitMemAllocN() or kitMemReallocN(). The buffer owns the block from then on,
 * and the caller owns the buffer. Ends the process unless "length >= 0" and "bytes || length == 0".
 *
 * @param bytes the block; may be null if @p length is 0
 * @param length the number of bytes, 0 or more
 */
KIT_API KIT_BUFFER *kitBufferCreateFromBytesUse( void *bytes, int64_t length );

/**
 * Returns the bytes. The buffer owns them, and the pointer is valid as long as the buffer exists. If the length is 0,
 * the pointer may be null and must not be dereferenced.
 */
KIT_API const uint8_t *kitBufferBacking( const KIT_BUFFER *buffer );

/** Returns the number of bytes. */
KIT_API int64_t kitBufferLength( const KIT_BUFFER *buffer );

KIT_C_END

#endif
