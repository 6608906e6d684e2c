#ifndef KIT_MEMORY_H
#define KIT_MEMORY_H

/** @file
 * Memory at the exact size. An allocator returns a usable block or does not return: what cannot be served ends the
 * process, and a size whose product does not fit 64 bits ends it before anything is touched. Sizes are in bytes, 0 is
 * legal everywhere, and negative sizes end the process. Any thread may allocate, and free what another one allocated.
 */

#include "kit_api.h"

KIT_C_BEGIN

/** A block of @p bytes, unwritten; the caller owns it and ends it with kitMemFree. */
KIT_API void *kitMemAlloc( int64_t bytes );

/** A block of @p count items of @p size bytes. */
KIT_API void *kitMemAllocN( int64_t count, int64_t size );

/** Resizes a block, which may move, and keeps what fits; null as @p block allocates. */
KIT_API void *kitMemReallocN( void *block, int64_t count, int64_t size );

/** Frees a block of the functions above; null is accepted. */
KIT_API void kitMemFree( void *block );

/** Copies between blocks that do not overlap. Null pointers are legal where there is nothing to copy. */
KIT_API void kitMemCopy( void *dest, const void *source, int64_t bytes );

/** The same for @p count items of @p size bytes. */
KIT_API void kitMemCopyN( void *dest, const void *source, int64_t count, int64_t size );

/** The same for blocks that may overlap. */
KIT_API void kitMemMoveN( void *dest, const void *source, int64_t count, int64_t size );

/** Sets every byte of @p count items of @p size bytes to @p value. */
KIT_API void kitMemSetN( void *dest, int32_t value, int64_t count, int64_t size );

KIT_C_END

#endif
