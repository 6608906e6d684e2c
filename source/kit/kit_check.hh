#ifndef KIT_CHECK_HH
#define KIT_CHECK_HH

// C++ only, private to the libraries: contract checks.

#include "kit_abort.h"

#include <cstddef>
#include <cstdint>

/// Ends the process with the text of the condition if the condition is false. Keep the condition on one line and do
/// not change its spacing, because hosts see the text.
#define KIT_CHECK( condition ) KIT___CHECK( nullptr, #condition, condition )
#define KIT_CHECK_IN( context, condition ) KIT___CHECK( context, #condition, condition )

// The outer macros stringify the condition. If KIT___CHECK did, the macros in the condition would be expanded first.
#define KIT___CHECK( context, text, condition ) \
    ( ( condition ) ? (void)0 : kit___Abort( context, kit::sourcePath<__FILE__>, __LINE__, text ) )

#define KIT_SIZEOF( type ) ( (int64_t)sizeof( type ) )

namespace kit {

/// The path of a source file relative to the project's root, without its extension. Independent of the build folder.
template <size_t size> struct SourcePath {
    char text[size]{};

    consteval SourcePath( const char ( &file )[size] )
    {
        size_t begin = 0, end = size - 1;
        for ( size_t i = 0; i < size; ++i ) {
            if ( isRoot( file, i ) ) begin = i;
            if ( file[i] == '.' ) end = i;
        }
        for ( size_t i = begin; i < end; ++i ) text[i - begin] = file[i];
    }

private:
    static consteval bool isRoot( const char ( &file )[size], size_t at )
    {
        const char root[] = "source/";
        if ( at > 0 && file[at - 1] != '/' ) return false;
        for ( size_t i = 0; root[i]; ++i )
            if ( at + i >= size || file[at + i] != root[i] ) return false;
        return true;
    }
};

template <SourcePath path> inline constexpr const char *sourcePath = path.text;

/// Returns the product, or INT64_MAX if it overflows. No allocator can serve a block of that size.
constexpr int64_t saturatedMul( int64_t a, int64_t b )
{
    int64_t product;
    return __builtin_mul_overflow( a, b, &product ) ? INT64_MAX : product;
}

} // namespace kit

// Texts of conditions contain these names. The capitals mark them as checks, not arithmetic.

constexpr bool KIT_INT_ADD_OK( int64_t a, int64_t b )
{
    int64_t sum;
    return !__builtin_add_overflow( a, b, &sum );
}

constexpr bool KIT_INT_SUB_OK( int64_t a, int64_t b )
{
    int64_t difference;
    return !__builtin_sub_overflow( a, b, &difference );
}

constexpr bool KIT_INT_MUL_OK( int64_t a, int64_t b )
{
    int64_t product;
    return !__builtin_mul_overflow( a, b, &product );
}

constexpr bool KIT_INT_TO_SIGNED_INT_CONV_OK( int64_t value ) { return value == int32_t( value ); }

/// Treats `long` as 32 bits wide, its width on some platforms.
constexpr bool KIT_INT_TO_SIGNED_LONG_CONV_OK( int64_t value ) { return value == int32_t( value ); }

#endif
