#ifndef KIT_ENUM_H
#define KIT_ENUM_H

/** @file
 * Names for single values. Null ends the process. One handle variable serves one thread at a time; reading
 * is for any number of them.
 */

#include "kit_string.h"

KIT_C_BEGIN

/** Names for single values. */
typedef struct KIT_ENUM KIT_ENUM;

/** An enumeration without names, with one reference for the caller. */
KIT_API KIT_ENUM *kitEnumCreate( void );

/** Gives a name to a value, or another value to a name that is there; a length of -1: NUL-terminated. Copy-on-write.
 */
KIT_API void kitEnumSetEnumerantCstr( KIT_ENUM **enumeration, const char *name, int64_t length, int64_t value );

/** The value of a name, or -1 for a text that is none. */
KIT_API int64_t kitEnumParse( const KIT_ENUM *enumeration, const KIT_STRING *string );

/** The first name of a value, or an empty string for a value without one. The caller owns the string. */
KIT_API KIT_STRING *kitEnumGenerate( const KIT_ENUM *enumeration, int64_t value );

KIT_C_END

#endif
