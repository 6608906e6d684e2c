#ifndef PCM_API_H
#define PCM_API_H

/** @file
 * The export mark and the types that all headers of `pcm` share.
 */

#include "../kit/kit.h"

/** @def PCM_API
 * Marks a function or variable that the library exports. */
#if defined( _WIN32 ) && defined( PCM_BUILD )
    #define PCM_API __declspec( dllexport )
#elif defined( _WIN32 )
    #define PCM_API __declspec( dllimport )
#else
    #define PCM_API __attribute__( ( visibility( "default" ) ) )
#endif

/** Declares the handle type of an object type and its eight standard functions, `...Sort` to `...ToString`. */
#define PCM_OBJECT_DECLARE( TYPE, prefix ) KIT_OBJECT_DECLARE( PCM_API, TYPE, prefix )

/** One sample. Full scale is 1.0. A block of samples holds consecutive frames of one sample per channel. */
typedef float PCM_SAMPLE;

#endif
