#include "kit_enum.h"

#include "kit_names.hh"

struct KIT_ENUM {
    KIT_OBJ header;
    kit::Names names;
};

static KIT_SORT kit___sort_KIT_ENUM = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, "KIT_ENUM",
    kit::destroyNamed<KIT_ENUM>, nullptr, nullptr };

KIT_ENUM *kitEnumCreate( void ) { return kit::create<KIT_ENUM>( &kit___sort_KIT_ENUM ); }

void kitEnumSetEnumerantCstr( KIT_ENUM **enumeration, const char *name, int64_t length, int64_t value )
{
    KIT_CHECK( enumeration );
    KIT_CHECK( *enumeration );
    kit::makePrivate( enumeration, kit::copyNamed<KIT_ENUM, &kit___sort_KIT_ENUM> );
    kit::set( ( *enumeration )->names, name, length, uint64_t( value ) );
}

int64_t kitEnumParse( const KIT_ENUM *enumeration, const KIT_STRING *string )
{
    KIT_CHECK( enumeration );
    const kit::Name *name = kit::find( enumeration->names, kitStringBacking( string ), kitStringLength( string ) );
    return name ? int64_t( name->value ) : -1;
}

KIT_STRING *kitEnumGenerate( const KIT_ENUM *enumeration, int64_t value )
{
    KIT_CHECK( enumeration );
    for ( const kit::Name &name : enumeration->names )
        if ( int64_t( name.value ) == value ) return kit::retain( name.text );
    return kitStringCreateFromCstr( "", 0 );
}
