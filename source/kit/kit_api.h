#ifndef KIT_API_H
#define KIT_API_H

/** @file
 * Export marks and linkage macros. The library is compiled with hidden visibility and exports only marked names.
 */

#include <stdint.h>

/** @def KIT_API
 * Marks a function or variable that the library exports. */
#if defined( _WIN32 ) && defined( KIT_BUILD )
    #define KIT_API __declspec( dllexport )
#elif defined( _WIN32 )
    #define KIT_API __declspec( dllimport )
#else
    #define KIT_API __attribute__( ( visibility( "default" ) ) )
#endif

/** @def KIT_NORETURN
 * Marks a function that does not return. */
/** @def KIT_INLINE
 * Marks a function that is defined in a header. */
#if defined( __GNUC__ )
    #define KIT_NORETURN __attribute__( ( noreturn ) )
    #define KIT_INLINE static inline __attribute__( ( unused ) )
#else
    #define KIT_NORETURN
    #define KIT_INLINE static inline
#endif

/** @def KIT_C_BEGIN
 * Begins declarations with C linkage. */
/** @def KIT_C_END
 * Ends declarations with C linkage. */
#if defined( __cplusplus )
    #define KIT_C_BEGIN extern "C" {
    #define KIT_C_END }
#else
    #define KIT_C_BEGIN
    #define KIT_C_END
#endif

#endif
