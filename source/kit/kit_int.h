#ifndef KIT_INT_H
#define KIT_INT_H

/** @file
 * Small functions on integers.
 */

#include "kit_api.h"

/** The smaller of two. */
KIT_INLINE int64_t kitIntMin( int64_t a, int64_t b ) { return a < b ? a : b; }

/** The larger of two. */
KIT_INLINE int64_t kitIntMax( int64_t a, int64_t b ) { return a > b ? a : b; }

/** The number of bits set. */
KIT_INLINE int64_t kitIntBitCount( uint64_t value )
{
    int64_t bits = 0;
    for ( ; value; value &= value - 1 ) ++bits;
    return bits;
}

#endif
