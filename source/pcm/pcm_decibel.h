#ifndef PCM_DECIBEL_H
#define PCM_DECIBEL_H

#include "pcm_api.h"

KIT_C_BEGIN

/** @file
 * Conversion between gains and levels: decibel = 20 log10( gain ), limited to -200 to +200 dB.
 *
 * The results depend on the platform's `log10` and `pow`. Any number of threads may call these functions at the same
 * time.
 */

/** Returns the level of a gain in dB, or -200 for 0. Ends the process unless the gain is finite and not negative. */
PCM_API double pcmDecibelFromGain( double gain );

/** Returns the gain of a level in dB, exactly 1 for 0 dB. Ends the process unless the level is finite. */
PCM_API double pcmDecibelToGain( double decibel );

KIT_C_END

#endif
