#ifndef PCM_SRC_TYPE_H
#define PCM_SRC_TYPE_H

/** @file
 * The kinds of sample rate conversion: those of libsamplerate. A number that is no type, and null for a string, end
 * the process. Any thread may call these functions.
 */

#include "pcm_api.h"

KIT_C_BEGIN

enum {
    PCM_SRC_TYPE_SINC_BEST_QUALITY = 0,   /**< widest band, slowest */
    PCM_SRC_TYPE_SINC_MEDIUM_QUALITY = 1, /**< in between */
    PCM_SRC_TYPE_SINC_FASTEST = 2,        /**< the usual choice for telephony */
    PCM_SRC_TYPE_ZERO_ORDER_HOLD = 3,     /**< repeats and drops frames */
    PCM_SRC_TYPE_LINEAR = 4               /**< straight lines between frames */
};

/** Whether a number is one of the types. */
#define PCM_SRC_TYPE_OK( type ) ( (uint64_t)( type ) <= PCM_SRC_TYPE_LINEAR )

/** The type of a name such as "PCM_SRC_TYPE_LINEAR", or -1. Needs the module to be started. */
PCM_API int64_t pcmSrcTypeFromString( KIT_STRING *kits );

/** The name of a type. Needs the module to be started. The caller owns the string. */
PCM_API KIT_STRING *pcmSrcTypeToString( int64_t type );

/** The converter constant of libsamplerate for a type. */
PCM_API int32_t pcm___SrcTypeToSamplerateConverterType( int64_t type );

/** Makes the table of the names; part of the module's start-up and shut-down. */
PCM_API void pcm___SrcTypeStartup( void );

/** Drops the table. */
PCM_API void pcm___SrcTypeShutdown( void );

KIT_C_END

#endif
