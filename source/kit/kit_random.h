#ifndef KIT_RANDOM_H
#define KIT_RANDOM_H

#include "kit_api.h"

KIT_C_BEGIN

/** @file
 * Random numbers for audio and tests, not for secrets. The one generator of the process takes its seed from the
 * system at its first use and serves any number of threads at once. SplitMix64: G. L. Steele, D. Lea, C. H. Flood,
 * "Fast Splittable Pseudorandom Number Generators", OOPSLA 2014.
 */

/** Any integer of the signed 64-bit range, all alike. */
KIT_API int64_t kitRandomInt( void );

/** An integer from @p low to below @p high, all alike. Requires 0 <= low < high. */
KIT_API int64_t kitRandomNonNegativeIntRange( int64_t low, int64_t high );

KIT_C_END

#endif
