#ifndef PCM_FILTER_COEFFICIENTS_H
#define PCM_FILTER_COEFFICIENTS_H

/** @file
 * Coefficient sets: the taps of FIR filters.
 *
 * A set never changes, so any number of filters and threads may share it. Tap 0 applies to the newest frame. The
 * built-in sets are symmetric and have even lengths, a group delay of (taps - 1) / 2 frames and a gain slightly below
 * 1 at 0 Hz. Null, unknown types and lengths below 1 end the process.
 */

#include "pcm_filter_type.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_FILTER_COEFFICIENTS, pcmFilterCoefficients );

/**
 * Returns the built-in set of a type. Each call returns the same object with an additional reference, which the
 * caller owns. Call `kitModuleStartup( pcmModule() )` first.
 *
 * @param type one of PCM_FILTER_TYPE_...
 */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreate( int64_t type );

/** Creates a set with a copy of the taps of @p source. The caller owns it. */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFrom( PCM_FILTER_COEFFICIENTS *source );

/** Creates a set with a copy of @p length taps. The caller owns it. Requires "length > 0". */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFromSamplesCopy(
    const PCM_SAMPLE *coefficients, int64_t length );

/**
 * Creates a set from a block of @p length taps without copying it. The block must come from kitMemAlloc(),
 * kitMemAllocN() or kitMemReallocN(). The set owns the block from then on, and the caller owns the set. Requires
 * "length > 0".
 */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFromSamplesUse(
    PCM_SAMPLE *coefficients, int64_t length );

/** Returns the taps, for reading only. The pointer is valid as long as the caller holds a reference. */
PCM_API const PCM_SAMPLE *pcmFilterCoefficientsBacking( PCM_FILTER_COEFFICIENTS *coeff );

/** Returns the number of taps. */
PCM_API int64_t pcmFilterCoefficientsLength( PCM_FILTER_COEFFICIENTS *coeff );

/** Creates the built-in sets. Called by the start-up of the module. */
PCM_API void pcm___FilterCoefficientsStartup( void );

/** Releases the built-in sets. Called by the shut-down of the module. A set that has other holders remains valid. */
PCM_API void pcm___FilterCoefficientsShutdown( void );

KIT_C_END

#endif
