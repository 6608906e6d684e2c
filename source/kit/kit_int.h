#ifndef KIT_INT_H
#define KIT_INT_H

/** @file
 * Integer helpers.
 */

#include "kit_api.h"

/** Returns the smaller of two integers. */
KIT_INLINE int64_t kitIntMin( int64_t a, int64_t b ) { return a < b ? a : b; }

/** Returns the larger of two integers. */
KIT_INLINE int64_t kitIntMax( int64_t a, int64_t b ) { return a > b ? a : b; }

/** Returns the number of bits that are set. */
KIT_INLINE int64_t kitIntBitCount( uint64_t value )
{
    int64_t bits = 0;
    for ( ; value; value &= value - 1 ) ++bits;
    return bits;
}

#endif
