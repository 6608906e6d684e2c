#ifndef KIT_BUFFER_H
#define KIT_BUFFER_H

/** @file
 * Bytes as an object. They never change, so any number of threads may hold one.
 */

#include "kit_object.h"

KIT_C_BEGIN

/** A run of bytes as an object. Nothing in the libraries changes one after its creation. */
typedef struct KIT_BUFFER KIT_BUFFER;

/** An empty buffer with one reference for the caller; end it with kitObjRelease. */
KIT_API KIT_BUFFER *kitBufferCreate( void );

/**
 * A buffer that takes over a block of kitMemAlloc (or its relatives) without copying; the caller no longer owns it.
 *
 * @param bytes the block; null is legal with length 0
 * @param length its bytes, 0 or more
 */
KIT_API KIT_BUFFER *kitBufferCreateFromBytesUse( void *bytes, int64_t length );

/** The bytes, valid as long as the buffer; null or an address without bytes where the length is 0. */
KIT_API const uint8_t *kitBufferBacking( const KIT_BUFFER *buffer );

/** The number of bytes. */
KIT_API int64_t kitBufferLength( const KIT_BUFFER *buffer );

KIT_C_END

#endif
