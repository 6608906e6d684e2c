#ifndef KIT_MEMORY_H
#define KIT_MEMORY_H

/** @file
 * Memory allocation and copying.
 *
 * Sizes are in bytes and may be 0. Blocks are allocated at the requested size, without spare room. The allocation
 * functions never return null: they end the process if memory is exhausted ("out of memory"). A negative size ends
 * the process. So does a product of count and size that does not fit in 64 bits, before any memory is touched. Any
 * thread may call these functions, and a thread may free a block that another one allocated.
 */

#include "kit_api.h"

KIT_C_BEGIN

/** Allocates @p bytes bytes without initialising them. The caller owns the block and frees it with kitMemFree(). */
KIT_API void *kitMemAlloc( int64_t bytes );

/** Allocates a block of @p count items of @p size bytes, like kitMemAlloc(). */
KIT_API void *kitMemAllocN( int64_t count, int64_t size );

/**
 * Resizes a block to @p count items of @p size bytes and returns its address, which may change. The contents are kept
 * up to the smaller of the two sizes. If @p block is null, allocates a new block.
 */
KIT_API void *kitMemReallocN( void *block, int64_t count, int64_t size );

/** Frees a block of the functions above. Does nothing if @p block is null. */
KIT_API void kitMemFree( void *block );

/** Copies @p bytes bytes between blocks that do not overlap. The pointers may be null if there is nothing to copy. */
KIT_API void kitMemCopy( void *dest, const void *source, int64_t bytes );

/** Copies @p count items of @p size bytes, like kitMemCopy(). */
KIT_API void kitMemCopyN( void *dest, const void *source, int64_t count, int64_t size );

/** Copies @p count items of @p size bytes between blocks that may overlap. */
KIT_API void kitMemMoveN( void *dest, const void *source, int64_t count, int64_t size );

/** Sets every byte of @p count items of @p size bytes to @p value. */
KIT_API void kitMemSetN( void *dest, int32_t value, int64_t count, int64_t size );

KIT_C_END

#endif
