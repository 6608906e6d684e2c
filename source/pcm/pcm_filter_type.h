#ifndef PCM_FILTER_TYPE_H
#define PCM_FILTER_TYPE_H

/** @file
 * Types of the built-in low-pass filters.
 *
 * The names state the cut-off frequency and the sample rate that the filter is designed for, in hertz. A coefficient
 * set has no sample rate: at another rate, the cut-off frequency changes in proportion. An unknown type and a null
 * string end the process. Any thread may call these functions.
 */

#include "pcm_api.h"

KIT_C_BEGIN

enum {
    PCM_FILTER_TYPE_LOWPASS_4000_AT_16000 = 0, /**< 16 taps, -3.76 dB at the cut-off */
    PCM_FILTER_TYPE_LOWPASS_4000_AT_24000 = 1, /**< 24 taps, -3.40 dB */
    PCM_FILTER_TYPE_LOWPASS_4000_AT_48000 = 2, /**< 48 taps, -3.26 dB */
    PCM_FILTER_TYPE_LOWPASS_6000_AT_24000 = 3, /**< 24 taps, -3.33 dB */
    PCM_FILTER_TYPE_LOWPASS_6000_AT_48000 = 4, /**< 48 taps, -3.10 dB */
    PCM_FILTER_TYPE_LOWPASS_8000_AT_48000 = 5, /**< 48 taps, -3.06 dB */
    PCM_FILTER_TYPE_LOWPASS_12000_AT_48000 = 6 /**< 48 taps, -3.06 dB */
};

/** Tests whether a number is one of the types. */
#define PCM_FILTER_TYPE_OK( type ) ( (uint64_t)( type ) <= PCM_FILTER_TYPE_LOWPASS_12000_AT_48000 )

/**
 * Returns the type with a name such as "PCM_FILTER_TYPE_LOWPASS_4000_AT_16000", or -1 if there is none. Call
 * `kitModuleStartup( pcmModule() )` first.
 */
PCM_API int64_t pcmFilterTypeFromString( KIT_STRING *kits );

/** Returns the name of a type. The caller owns the string. Call `kitModuleStartup( pcmModule() )` first. */
PCM_API KIT_STRING *pcmFilterTypeToString( int64_t type );

/** Creates the table of names. Called by the start-up of the module. */
PCM_API void pcm___FilterTypeStartup( void );

/** Frees the table. Called by the shut-down of the module. */
PCM_API void pcm___FilterTypeShutdown( void );

KIT_C_END

#endif
