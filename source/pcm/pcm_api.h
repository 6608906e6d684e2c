#ifndef PCM_API_H
#define PCM_API_H

/** @file
 * What marks a name of `pcm` for its hosts, and the types that all of its concepts share.
 */

#include "../kit/kit.h"

/** @def PCM_API
 * Marks what hosts may call. */
#if defined( _WIN32 ) && defined( PCM_BUILD )
    #define PCM_API __declspec( dllexport )
#elif defined( _WIN32 )
    #define PCM_API __declspec( dllimport )
#else
    #define PCM_API __attribute__( ( visibility( "default" ) ) )
#endif

/** The handle type of an object type and its eight standard functions `...Sort` to `...ToString`. */
#define PCM_OBJECT_DECLARE( TYPE, prefix ) KIT_OBJECT_DECLARE( PCM_API, TYPE, prefix )

/** One sample, 1.0 at full scale. Blocks hold frames one after another, and in each frame one sample a channel. */
typedef float PCM_SAMPLE;

#endif
