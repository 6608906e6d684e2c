#ifndef KIT_FLAGSET_H
#define KIT_FLAGSET_H

/** @file
 * Names for the bits of a word. Null ends the process. One handle variable serves one thread at a time; reading
 * is for any number of them.
 */

#include "kit_string.h"

KIT_C_BEGIN

/** Names for the bits of a 64-bit word, and the text of such a word: "NAME_A | NAME_B", or "0". */
typedef struct KIT_FLAGSET KIT_FLAGSET;

/** A flag set without names, with one reference for the caller. */
KIT_API KIT_FLAGSET *kitFlagsetCreate( void );

/**
 * Gives a name to a bit, or another bit to a name that is there. Copy-on-write.
 *
 * @param name the name
 * @param length its bytes, or -1 for a NUL-terminated name
 * @param bit a word with one bit set
 */
KIT_API void kitFlagsetSetFlagCstr( KIT_FLAGSET **set, const char *name, int64_t length, uint64_t bit );

/** Whether the set holds a name. */
KIT_API int32_t kitFlagsetHasFlagCstr( const KIT_FLAGSET *set, const char *name, int64_t length );

/**
 * The word of a text: the bits of all names between its bars, with any spacing around them. What the set does not
 * hold, "0" among it, adds nothing.
 */
KIT_API uint64_t kitFlagsetParse( const KIT_FLAGSET *set, const KIT_STRING *string );

/** The text of a word: the names of its bits, in the order in which they were given. The caller owns the string. */
KIT_API KIT_STRING *kitFlagsetGenerate( const KIT_FLAGSET *set, uint64_t word );

KIT_C_END

#endif
