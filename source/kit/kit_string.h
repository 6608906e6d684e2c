#ifndef KIT_STRING_H
#define KIT_STRING_H

/** @file
 * Texts as objects. They never change, so any number of threads may hold one.
 */

#include "kit_object.h"

KIT_C_BEGIN

/**
 * A string object, never changed after its creation, with one reference for the caller.
 *
 * @param cstr the bytes to copy; null is legal with length 0
 * @param length their number, or -1 for a NUL-terminated text
 */
KIT_API KIT_STRING *kitStringCreateFromCstr( const char *cstr, int64_t length );

/** The bytes, with a NUL behind them; valid as long as the string. */
KIT_API const char *kitStringBacking( const KIT_STRING *string );

/** Their number, without the NUL. */
KIT_API int64_t kitStringLength( const KIT_STRING *string );

KIT_C_END

#endif
