#ifndef KIT_REAL_H
#define KIT_REAL_H

/** @file
 * Helpers for reals (`double`). All comparisons are exact, without a tolerance.
 */

#include "kit_api.h"

/** Returns 1 if @p x is NaN, otherwise 0. */
KIT_INLINE int32_t kitRealIsNan( double x ) { return x != x; }

/** Returns 1 if @p x is neither NaN nor infinite, otherwise 0. Only for finite numbers is x - x equal to 0. */
KIT_INLINE int32_t kitRealIsFinite( double x ) { return x - x == 0; }

/** Returns 1 if @p a and @p b are equal, otherwise 0. NaN is not equal to anything. The two zeros are equal. */
KIT_INLINE int32_t kitRealEquals( double a, double b ) { return a == b; }

/**
 * Returns a negative value, 0 or a positive value if @p a is less than, equal to or greater than @p b. Returns 0 if
 * either is NaN.
 */
KIT_INLINE int64_t kitRealCompare( double a, double b ) { return ( a > b ) - ( a < b ); }

#endif
