#ifndef KIT_RANDOM_H
#define KIT_RANDOM_H

#include "kit_api.h"

KIT_C_BEGIN

/** @file
 * Random numbers for audio and tests, not for cryptography.
 *
 * The process has one generator, which takes its seed from the operating system on first use. Any number of threads
 * may call these functions at the same time. The algorithm is SplitMix64: G. L. Steele, D. Lea, C. H. Flood, "Fast
 * Splittable Pseudorandom Number Generators", OOPSLA 2014.
 */

/** Returns a uniformly distributed integer from the signed 64-bit range. */
KIT_API int64_t kitRandomInt( void );

/**
 * Returns a uniformly distributed integer that is at least @p low and less than @p high. Ends the process unless "low
 * >= 0" and "low < high".
 */
KIT_API int64_t kitRandomNonNegativeIntRange( int64_t low, int64_t high );

KIT_C_END

#endif
