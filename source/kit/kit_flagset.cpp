#include "kit_flagset.h"

#include "kit_names.h"

#include <algorithm>
#include <string_view>

struct KIT_FLAGSET {
    KIT_OBJ header;
    kit::Names names;
};

static KIT_SORT kit___sort_KIT_FLAGSET = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, "KIT_FLAGSET",
    kit::destroyNamed<KIT_FLAGSET>, nullptr, nullptr };

static constexpr std::string_view separator = " | ", nothing = "0", blanks = " \t\r\n\v\f";

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
    std::string_view rest( kitStringBacking( string ), size_t( kitStringLength( string ) ) );
    uint64_t word = 0;
    while ( !rest.empty() ) {
        size_t bar = std::min( rest.find( '|' ), rest.size() );
        std::string_view text( rest.data(), bar ); // substr could throw
        rest.remove_prefix( std::min( bar + 1, rest.size() ) );
        text.remove_prefix( std::min( text.find_first_not_of( blanks ), text.size() ) );
        text.remove_suffix( text.size() - ( text.find_last_not_of( blanks ) + 1 ) );
        if ( const kit::Name *name = kit::find( set->names, text.data(), int64_t( text.size() ) ) )
            word |= name->value;
    }
    return word;
}

KIT_STRING *kitFlagsetGenerate( const KIT_FLAGSET *set, uint64_t word )
{
    KIT_CHECK( set );
    int64_t length = int64_t( nothing.size() );
    for ( const kit::Name &name : set->names ) length += int64_t( separator.size() ) + kitStringLength( name.text );
    char *text = static_cast<char *>( kitMemAlloc( length ) ), *end = text;
    auto write = [&end]( std::string_view part ) { end = std::copy( part.begin(), part.end(), end ); };
    for ( const kit::Name &name : set->names ) {
        if ( !( word & name.value ) ) continue;
        if ( end != text ) write( separator );
        write( { kitStringBacking( name.text ), size_t( kitStringLength( name.text ) ) } );
    }
    if ( end == text ) write( nothing );
    KIT_STRING *string = kitStringCreateFromCstr( text, end - text );
    kitMemFree( text );
    return string;
}
