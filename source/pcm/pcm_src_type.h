#ifndef PCM_SRC_TYPE_H
#define PCM_SRC_TYPE_H

/** @file
 * Types of sample rate converters, which are those of libsamplerate.
 *
 * An unknown type and a null string end the process. Any thread may call these functions.
 */

#include "pcm_api.h"

KIT_C_BEGIN

enum {
    PCM_SRC_TYPE_SINC_BEST_QUALITY = 0,   /**< widest band, slowest */
    PCM_SRC_TYPE_SINC_MEDIUM_QUALITY = 1, /**< between the other two */
    PCM_SRC_TYPE_SINC_FASTEST = 2,        /**< usual choice for telephony */
    PCM_SRC_TYPE_ZERO_ORDER_HOLD = 3,     /**< repeats and drops frames */
    PCM_SRC_TYPE_LINEAR = 4               /**< linear interpolation between frames */
};

/** Tests whether a number is one of the types. */
#define PCM_SRC_TYPE_OK( type ) ( (uint64_t)( type ) <= PCM_SRC_TYPE_LINEAR )

/**
 * Returns the type with a name such as "PCM_SRC_TYPE_LINEAR", or -1 if there is none. Call
 * `kitModuleStartup( pcmModule() )` first.
 */
PCM_API int64_t pcmSrcTypeFromString( KIT_STRING *kits );

/** Returns the name of a type. The caller owns the string. Call `kitModuleStartup( pcmModule() )` first. */
PCM_API KIT_STRING *pcmSrcTypeToString( int64_t type );

/** Returns the converter constant of libsamplerate for a type. */
PCM_API int32_t pcm___SrcTypeToSamplerateConverterType( int64_t type );

/** Creates the table of names. Called by the start-up of the module. */
PCM_API void pcm___SrcTypeStartup( void );

/** Frees the table. Called by the shut-down of the module. */
PCM_API void pcm___SrcTypeShutdown( void );

KIT_C_END

#endif
