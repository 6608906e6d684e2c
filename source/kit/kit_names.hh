#ifndef KIT_NAMES_HH
#define KIT_NAMES_HH

// C++ only, private to the libraries: lists of names with one value each, in the order in which they were added. Flag
// sets and enumerations consist of such a list.

#include "kit_memory.h"
#include "kit_ref.hh"
#include "kit_string.h"

#include <cstring>

namespace kit {

struct Name {
    KIT_STRING *text;
    uint64_t value;
};

struct Names {
    Name *list;
    int64_t count;

    const Name *begin() const { return list; }
    const Name *end() const { return list + count; }
};

inline Name *find( const Names &names, const char *text, int64_t length )
{
    KIT_CHECK( text || length == 0 );
    size_t size = length < 0 ? std::strlen( text ) : size_t( length );
    for ( Name *name = names.list; name != names.end(); ++name )
        if ( size_t( kitStringLength( name->text ) ) == size &&
             ( !size || !std::memcmp( kitStringBacking( name->text ), text, size ) ) )
            return name;
    return nullptr;
}

inline void add( Names &names, KIT_STRING *text, uint64_t value )
{
    names.list = static_cast<Name *>( kitMemReallocN( names.list, names.count + 1, KIT_SIZEOF( Name ) ) );
    names.list[names.count++] = { text, value };
}

inline void set( Names &names, const char *text, int64_t length, uint64_t value )
{
    if ( Name *name = find( names, text, length ) )
        name->value = value;
    else
        add( names, kitStringCreateFromCstr( text, length ), value );
}

inline void clear( Names &names )
{
    for ( const Name &name : names ) release( name.text );
    kitMemFree( names.list );
}

/// Destructor and copy function of an object that consists of a header and `Names`.
template <class T> void destroyNamed( KIT_OBJ *obj ) { clear( reinterpret_cast<T *>( obj )->names ); }

template <class T, KIT_SORT *sort> T *copyNamed( T *source )
{
    Owned copy( create<T>( sort ) );
    for ( const Name &name : source->names ) add( copy->names, retain( name.text ), name.value );
    return copy.take();
}

} // namespace kit

#endif
