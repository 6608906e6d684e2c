#include "kit_string.h"

#include "kit_memory.h"
#include "kit_ref.hh"

#include <algorithm>
#include <cstring>

struct KIT_STRING {
    KIT_OBJ header;
    int64_t length;
    // The bytes and their NUL follow in the same block.
};

static const KIT_STRING *from( KIT_OBJ *obj ) { return reinterpret_cast<KIT_STRING *>( obj ); }

static int64_t compare( KIT_OBJ *a, KIT_OBJ *b )
{
    int64_t lengthA = from( a )->length, lengthB = from( b )->length;
    size_t shared = size_t( std::min( lengthA, lengthB ) );
    int order = std::memcmp( kitStringBacking( from( a ) ), kitStringBacking( from( b ) ), shared );
    return order ? order : lengthA - lengthB;
}

static KIT_STRING *toString( KIT_OBJ *obj ) { return reinterpret_cast<KIT_STRING *>( kit::retain( obj ) ); }

static KIT_SORT kit___sort_KIT_STRING = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, "KIT_STRING", nullptr, compare,
    toString };

KIT_STRING *kitStringCreateFromCstr( const char *cstr, int64_t length )
{
    KIT_CHECK( length >= -1 );
    KIT_CHECK( cstr || length == 0 );
    if ( length < 0 ) length = int64_t( std::strlen( cstr ) );
    KIT_CHECK( KIT_INT_ADD_OK( length, KIT_SIZEOF( KIT_STRING ) + 1 ) );
    KIT_OBJ *obj = kit___ObjCreate( KIT_SIZEOF( KIT_STRING ) + length + 1, &kit___sort_KIT_STRING );
    auto *string = reinterpret_cast<KIT_STRING *>( obj );
    string->length = length;
    kitMemCopy( string + 1, cstr, length );
    return string;
}

const char *kitStringBacking( const KIT_STRING *string )
{
    KIT_CHECK( string );
    return reinterpret_cast<const char *>( string + 1 );
}

int64_t kitStringLength( const KIT_STRING *string )
{
    KIT_CHECK( string );
    return string->length;
}
