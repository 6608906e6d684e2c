#ifndef KIT_REF_HH
#define KIT_REF_HH

// C++ only, private to the libraries: references, copy-on-write and the standard functions of object types.
//
// A host that compiles the sources with exceptions enabled, as the Python module does, may define a kit___Abort that
// throws. All operations then leave their objects unchanged and free what they allocated. Owned and Block therefore
// own whatever a later step could leak.

#include "kit_check.hh"
#include "kit_memory.h"
#include "kit_object.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

namespace kit {

template <class T> KIT_OBJ *header( T *obj ) { return reinterpret_cast<KIT_OBJ *>( obj ); }

template <class T> auto refCount( T *obj ) { return std::atomic_ref( header( obj )->refCount ); }

template <class T> T *retain( T *obj )
{
    if ( obj ) refCount( obj ).fetch_add( 1 );
    return obj;
}

/// Acquire ordering makes another holder's reads before its release happen before our writes.
template <class T> bool isShared( T *obj ) { return refCount( obj ).load( std::memory_order_acquire ) > 1; }

/// The last holder needs no atomic subtraction, because no other thread can change the count.
template <class T> void release( T *obj )
{
    if ( !obj ) return;
    if ( isShared( obj ) ) {
        if ( refCount( obj ).fetch_sub( 1 ) != 1 ) return;
    } else {
        refCount( obj ).store( 0, std::memory_order_relaxed );
    }
    kit___ObjFree( header( obj ) );
}

/// Releases a field or global and poisons it to make a use after free fault.
template <class T> void releaseAndPoison( T *&field )
{
    release( field );
    field = reinterpret_cast<T *>( intptr_t{ -1 } );
}

template <class T> void replace( T **handle, T *fresh )
{
    T *old = *handle;
    *handle = fresh;
    release( old );
}

template <class T> void makePrivate( T **handle, T *( *copy )(T *))
{
    if ( isShared( *handle ) ) replace( handle, copy( *handle ) );
}

/// Holds an additional reference until the end of the scope. Null is allowed.
template <class T> class Hold {
public:
    explicit Hold( T *obj ) : object( retain( obj ) ) {}
    ~Hold() { release( object ); }
    Hold( const Hold & ) = delete;
    Hold &operator=( const Hold & ) = delete;

private:
    T *object;
};

/// Owns one reference until it is taken.
template <class T> class Owned {
public:
    explicit Owned( T *obj ) : object( obj ) {}
    ~Owned() { release( object ); }
    Owned( const Owned & ) = delete;
    Owned &operator=( const Owned & ) = delete;

    T *operator->() const { return object; }
    T *get() const { return object; }
    T **address() { return &object; }
    [[nodiscard]] T *take() { return std::exchange( object, nullptr ); }

private:
    T *object;
};

struct MemoryFree {
    void operator()( void *block ) const { kitMemFree( block ); }
};
/// Owns a block of kitMemAlloc(), kitMemAllocN() or kitMemReallocN().
template <class T> using Block = std::unique_ptr<T[], MemoryFree>;

template <class T> Block<T> allocate( int64_t count, int64_t size = KIT_SIZEOF( T ) )
{
    return Block<T>( static_cast<T *>( kitMemAllocN( count, size ) ) );
}

template <class T> T *create( KIT_SORT *sort )
{
    return reinterpret_cast<T *>( kit___ObjCreate( KIT_SIZEOF( T ), sort ) );
}

} // namespace kit

/// Checks that an untyped `obj` is of the given type. Destructors begin with this check.
#define KIT_CHECK_SORT( library, TYPE ) \
    KIT_CHECK_IN( "stdfunc from", !obj || kitObjSort(obj)==&library##___sort_##TYPE )

/// Defines the sort record and the eight standard functions of an object type, whose structure starts with
/// `KIT_OBJ header`. For `KIT_OBJECT_DEFINE( pcm, PCM_PACKET, pcmPacket, pcm___PacketFreeFunc )` these are
/// `pcm___sort_PCM_PACKET`, `pcmPacketSort`, `pcmPacketObj`, `pcmPacketFrom`, `pcmPacketRetain`, `pcmPacketRelease`,
/// `pcmPacketCompare`, `pcmPacketEquals` and `pcmPacketToString`. KIT_OBJECT_DECLARE has a table of what they do.
///
/// This is a macro because the checks must report the source file of the type and because the functions have C names.
#define KIT_OBJECT_DEFINE( library, TYPE, prefix, destroy )                                                       \
    static_assert( std::is_standard_layout_v<TYPE> && offsetof( TYPE, header ) == 0 );                            \
    KIT_SORT library##___sort_##TYPE = { KIT_STATIC_HEADER( KIT_KIND_SORT ), &library##___module, #TYPE, destroy, \
        nullptr, nullptr };                                                                                       \
    KIT_SORT *prefix##Sort( void ) { return &library##___sort_##TYPE; }                                           \
    KIT_OBJ *prefix##Obj( TYPE *obj ) { return kit::header( obj ); }                                              \
    TYPE *prefix##From( KIT_OBJ *obj )                                                                            \
    {                                                                                                             \
        KIT_CHECK_SORT( library, TYPE );                                                                          \
        return reinterpret_cast<TYPE *>( obj );                                                                   \
    }                                                                                                             \
    TYPE *prefix##Retain( TYPE *obj )                                                                             \
    {                                                                                                             \
        KIT_CHECK_IN( "stdfunc retain", obj );                                                                    \
        return kit::retain( obj );                                                                                \
    }                                                                                                             \
    void prefix##Release( TYPE *obj )                                                                             \
    {                                                                                                             \
        KIT_CHECK_IN( "stdfunc release", obj );                                                                   \
        kit::release( obj );                                                                                      \
    }                                                                                                             \
    int64_t prefix##Compare( TYPE *objA, TYPE *objB )                                                             \
    {                                                                                                             \
        KIT_CHECK_IN( "stdfunc compare a", objA );                                                                \
        KIT_CHECK_IN( "stdfunc compare b", objB );                                                                \
        return kitObjCompare( kit::header( objA ), kit::header( objB ) );                                         \
    }                                                                                                             \
    int32_t prefix##Equals( TYPE *objA, TYPE *objB )                                                              \
    {                                                                                                             \
        return kitObjCompare( kit::header( objA ), kit::header( objB ) ) == 0;                                    \
    }                                                                                                             \
    KIT_STRING *prefix##ToString( TYPE *obj )                                                                     \
    {                                                                                                             \
        KIT_CHECK_IN( "stdfunc tostring", obj );                                                                  \
        return kitObjToString( kit::header( obj ) );                                                              \
    }                                                                                                             \
    static_assert( true )

#endif
