#ifndef KIT_STRING_H
#define KIT_STRING_H

/** @file
 * Strings: immutable text. Any number of threads may share a string. A null string ends the process.
 */

#include "kit_object.h"

KIT_C_BEGIN

/**
 * Creates a string with a copy of a text. The string never changes. The caller owns it. Ends the process unless
 * "length >= -1" and "cstr || length == 0".
 *
 * @param cstr the bytes to copy; may be null if @p length is 0
 * @param length the number of bytes, or -1 if the text is NUL-terminated
 */
KIT_API KIT_STRING *kitStringCreateFromCstr( const char *cstr, int64_t length );

/** Returns the bytes, followed by a NUL. The pointer is valid as long as the string exists. */
KIT_API const char *kitStringBacking( const KIT_STRING *string );

/** Returns the number of bytes, without the NUL. */
KIT_API int64_t kitStringLength( const KIT_STRING *string );

KIT_C_END

#endif
