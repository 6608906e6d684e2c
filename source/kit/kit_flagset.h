#ifndef KIT_FLAGSET_H
#define KIT_FLAGSET_H

/** @file
 * Flag sets: names for the bits of a word. A null argument ends the process. Use a handle variable from only one
 * thread at a time. Any number of threads may read a flag set.
 */

#include "kit_string.h"

KIT_C_BEGIN

/** Names for the bits of a 64-bit word. The text of such a word is "NAME_A | NAME_B", or "0". */
typedef struct KIT_FLAGSET KIT_FLAGSET;

/** Creates a flag set without names. The caller owns it. */
KIT_API KIT_FLAGSET *kitFlagsetCreate( void );

/**
 * Adds a name, or sets the bit of an existing name. A shared flag set is copied first (copy-on-write).
 *
 * @param set the address of the handle
 * @param name the name
 * @param length the number of bytes of the name, or -1 if it is NUL-terminated
 * @param bit a word with one bit set
 */
KIT_API void kitFlagsetSetFlagCstr( KIT_FLAGSET **set, const char *name, int64_t length, uint64_t bit );

/** Returns 1 if the set contains a name, otherwise 0. A @p length of -1 means that @p name is NUL-terminated. */
KIT_API int32_t kitFlagsetHasFlagCstr( const KIT_FLAGSET *set, const char *name, int64_t length );

/**
 * Converts text to a word: returns the bits of all names in the text. The names are separated by `|`, with optional
 * white space around them. Names that the set does not contain, such as "0", are ignored.
 */
KIT_API uint64_t kitFlagsetParse( const KIT_FLAGSET *set, const KIT_STRING *string );

/**
 * Converts a word to text: returns the names of its bits, in the order in which they were added, or "0" if no bit has
 * a name. The caller owns the string.
 */
KIT_API KIT_STRING *kitFlagsetGenerate( const KIT_FLAGSET *set, uint64_t word );

KIT_C_END

#endif
