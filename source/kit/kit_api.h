#ifndef KIT_API_H
#define KIT_API_H

/** @file
 * What marks a name of `kit` for its hosts. The whole library is compiled with hidden visibility, so that a name
 * without this mark stays inside.
 */

#include <stdint.h>

/** @def KIT_API
 * Marks what hosts may call. */
#if defined( _WIN32 ) && defined( KIT_BUILD )
    #define KIT_API __declspec( dllexport )
#elif defined( _WIN32 )
    #define KIT_API __declspec( dllimport )
#else
    #define KIT_API __attribute__( ( visibility( "default" ) ) )
#endif

/** @def KIT_NORETURN
 * Marks what does not return. */
/** @def KIT_INLINE
 * Marks what stands in a header as a whole. */
#if defined( __GNUC__ )
    #define KIT_NORETURN __attribute__( ( noreturn ) )
    #define KIT_INLINE static inline __attribute__( ( unused ) )
#else
    #define KIT_NORETURN
    #define KIT_INLINE static inline
#endif

/** @def KIT_C_BEGIN
 * Opens what has C names, also for C++. */
/** @def KIT_C_END
 * Ends it. */
#if defined( __cplusplus )
    #define KIT_C_BEGIN extern "C" {
    #define KIT_C_END }
#else
    #define KIT_C_BEGIN
    #define KIT_C_END
#endif

#endif
