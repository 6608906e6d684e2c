#ifndef PCM_DECIBEL_H
#define PCM_DECIBEL_H

#include "pcm_api.h"

KIT_C_BEGIN

/** @file
 * Levels and gains: decibel = 20 log10( gain ), within -200 to +200 dB. What `log10` and `pow` of the platform give
 * is what these give. Any number of threads may call at once.
 */

/** The level of a gain, in dB; -200 for 0. Ends the process unless the gain is finite and not negative. */
PCM_API double pcmDecibelFromGain( double gain );

/** The gain of a level in dB: exactly 1 for 0 dB. Ends the process unless the level is finite. */
PCM_API double pcmDecibelToGain( double decibel );

KIT_C_END

#endif
