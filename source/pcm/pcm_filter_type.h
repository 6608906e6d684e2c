#ifndef PCM_FILTER_TYPE_H
#define PCM_FILTER_TYPE_H

/** @file
 * The built-in low-pass filters, by cut-off frequency and the sample rate for which they are laid out, in hertz. A
 * set has no rate itself: at another rate the cut-off moves along. A number that is no type, and null for a string,
 * end the process. Any thread may call these functions.
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

/** Whether a number is one of the types. */
#define PCM_FILTER_TYPE_OK( type ) ( (uint64_t)( type ) <= PCM_FILTER_TYPE_LOWPASS_12000_AT_48000 )

/** The type of a name such as "PCM_FILTER_TYPE_LOWPASS_4000_AT_16000", or -1. Needs the module to be started. */
PCM_API int64_t pcmFilterTypeFromString( KIT_STRING *kits );

/** The name of a type. Needs the module to be started. The caller owns the string. */
PCM_API KIT_STRING *pcmFilterTypeToString( int64_t type );

/** Makes the table of the names; part of the module's start-up and shut-down. */
PCM_API void pcm___FilterTypeStartup( void );

/** Drops the table. */
PCM_API void pcm___FilterTypeShutdown( void );

KIT_C_END

#endif
