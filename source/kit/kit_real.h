#ifndef KIT_REAL_H
#define KIT_REAL_H

/** @file
 * Small functions on reals (`double`), exact: nothing here knows a tolerance.
 */

#include "kit_api.h"

/** Whether x is no number. */
KIT_INLINE int32_t kitRealIsNan( double x ) { return x != x; }

/** Neither NaN nor an infinity: only then is the difference from itself 0. */
KIT_INLINE int32_t kitRealIsFinite( double x ) { return x - x == 0; }

/** Whether a and b are equal; a NaN equals nothing, and the two zeros are equal. */
KIT_INLINE int32_t kitRealEquals( double a, double b ) { return a == b; }

/** Negative, 0 or positive as a is below, at or above b; 0 as well where a NaN has no place in the order. */
KIT_INLINE int64_t kitRealCompare( double a, double b ) { return ( a > b ) - ( a < b ); }

#endif
