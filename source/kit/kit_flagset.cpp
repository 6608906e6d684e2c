#include "kit_flagset.h"

#include "kit_names.hh"

#include <algorithm>

struct KIT_FLAGSET {
    KIT_OBJ header;
    kit::Names names;
};

static KIT_SORT kit___sort_KIT_FLAGSET = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, "KIT_FLAGSET",
    kit::destroyNamed<KIT_FLAGSET>, nullptr, nullptr };

static constexpr char separator[] = " | ", noFlags[] = "0";

static bool isBlank( char c ) { return c == ' ' || ( c >= '\t' && c <= '\r' ); }

KIT_FLAGSET *kitFlagsetCreate( void ) { return kit::create<KIT_FLAGSET>( &kit___sort_KIT_FLAGSET ); }

void kitFlagsetSetFlagCstr( KIT_FLAGSET **set, const char *name, int64_t length, uint64_t bit )
{
    KIT_CHECK( set );
    KIT_CHECK( *set );
    kit::makePrivate( set, kit::copyNamed<KIT_FLAGSET, &kit___sort_KIT_FLAGSET> );
    kit::set( ( *set )->names, name, length, bit );
}

int32_t kitFlagsetHasFlagCstr( const KIT_FLAGSET *set, const char *name, int64_t length )
{
    KIT_CHECK( set );
    return kit::find( set->names, name, length ) != nullptr;
}

uint64_t kitFlagsetParse( const KIT_FLAGSET *set, const KIT_STRING *string )
{
    KIT_CHECK( set );
    KIT_CHECK( string );
    const char *at = kitStringBacking( string ), *end = at + kitStringLength( string );
    uint64_t word = 0;
    while ( at < end ) {
        const char *bar = std::find( at, end, '|' ), *first = at, *last = bar;
        while ( first < last && isBlank( *first ) ) ++first;
        while ( first < last && isBlank( last[-1] ) ) --last;
        if ( const kit::Name *name = kit::find( set->names, first, last - first ) ) word |= name->value;
        at = bar + ( bar < end );
    }
    return word;
}

KIT_STRING *kitFlagsetGenerate( const KIT_FLAGSET *set, uint64_t word )
{
    KIT_CHECK( set );
    int64_t length = sizeof noFlags;
    for ( const kit::Name &name : set->names ) length += int64_t( sizeof separator ) + kitStringLength( name.text );
    char *text = static_cast<char *>( kitMemAlloc( length ) ), *end = text;
    auto write = [&end]( const char *part, int64_t size ) { end = std::copy_n( part, size, end ); };
    for ( const kit::Name &name : set->names ) {
        if ( !( word & name.value ) ) continue;
        if ( end != text ) write( separator, sizeof separator - 1 );
        write( kitStringBacking( name.text ), kitStringLength( name.text ) );
    }
    if ( end == text ) write( noFlags, sizeof noFlags - 1 );
    KIT_STRING *string = kitStringCreateFromCstr( text, end - text );
    kitMemFree( text );
    return string;
}
