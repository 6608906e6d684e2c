#ifndef KIT_ENUM_H
#define KIT_ENUM_H

/** @file
 * Enumerations: names for integer values. A null argument ends the process. Use a handle variable from only one
 * thread at a time. Any number of threads may read an enumeration.
 */

#include "kit_string.h"

KIT_C_BEGIN

/** A list of names with one integer value each. */
typedef struct KIT_ENUM KIT_ENUM;

/** Creates an enumeration without names. The caller owns it. */
KIT_API KIT_ENUM *kitEnumCreate( void );

/**
 * Adds a name, or sets the value of an existing name. A shared enumeration is copied first (copy-on-write).
 *
 * @param enumeration the address of the handle
 * @param name the name
 * @param length the number of bytes of the name, or -1 if it is NUL-terminated
 * @param value the value of the name
 */
KIT_API void kitEnumSetEnumerantCstr( KIT_ENUM **enumeration, const char *name, int64_t length, int64_t value );

/** Returns the value of a name, or -1 if the enumeration does not contain the name. */
KIT_API int64_t kitEnumParse( const KIT_ENUM *enumeration, const KIT_STRING *string );

/** Returns the first name of a value, or an empty string if the value has no name. The caller owns the string. */
KIT_API KIT_STRING *kitEnumGenerate( const KIT_ENUM *enumeration, int64_t value );

KIT_C_END

#endif
