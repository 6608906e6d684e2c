#ifndef PCM_FILTER_COEFFICIENTS_H
#define PCM_FILTER_COEFFICIENTS_H

/** @file
 * Sets of FIR taps. A set never changes, so any number of filters and threads may hold one. Tap 0 weighs the newest
 * frame. The built-in sets are symmetric, of even length, with a group delay of (taps - 1) / 2 frames and a gain a
 * little below 1 at 0 Hz. Null, unknown types and lengths below 1 end the process.
 */

#include "pcm_filter_type.h"

KIT_C_BEGIN

PCM_OBJECT_DECLARE( PCM_FILTER_COEFFICIENTS, pcmFilterCoefficients );

/**
 * Returns the built-in set of a type, the same object on every call. The caller owns one reference. Requires that the
 * module has been started.
 */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreate( int64_t type );

/** A new set with a copy of the taps of another, owned by the caller. */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFrom( PCM_FILTER_COEFFICIENTS *source );

/** A new set with a copy of @p length taps, owned by the caller. Requires "length > 0". */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFromSamplesCopy(
    const PCM_SAMPLE *coefficients, int64_t length );

/** A new set that takes over a block of kitMemAlloc (or its relatives) with @p length taps. */
PCM_API PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFromSamplesUse(
    PCM_SAMPLE *coefficients, int64_t length );

/** The taps, for reading only; valid while the caller holds a reference. */
PCM_API const PCM_SAMPLE *pcmFilterCoefficientsBacking( PCM_FILTER_COEFFICIENTS *coeff );

/** The number of taps. */
PCM_API int64_t pcmFilterCoefficientsLength( PCM_FILTER_COEFFICIENTS *coeff );

/** Makes the built-in sets; part of the module's start-up and shut-down. A set that is held lives on. */
PCM_API void pcm___FilterCoefficientsStartup( void );

/** Drops the built-in sets. */
PCM_API void pcm___FilterCoefficientsShutdown( void );

KIT_C_END

#endif
