#include "kit_object.h"

#include "kit_memory.h"
#include "kit_ref.hh"
#include "kit_string.h"

#include <cstdio>
#include <cstring>

static KIT_SORT kit___sort_KIT_SORT = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, "KIT_SORT", nullptr, nullptr,
    nullptr };
static KIT_SORT kit___sort_KIT_MODULE = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, "KIT_MODULE", nullptr, nullptr,
    nullptr };

#ifdef NDEBUG
static void countLiveObjects( int64_t ) {}
int64_t kit___ObjDbgLiveObjects( void ) { return 0; }
#else
static int64_t liveObjects;
static void countLiveObjects( int64_t change ) { std::atomic_ref( liveObjects ).fetch_add( change ); }
int64_t kit___ObjDbgLiveObjects( void ) { return std::atomic_ref( liveObjects ).load(); }
#endif

KIT_OBJ *kitObjRetain( KIT_OBJ *obj )
{
    KIT_CHECK( obj );
    return kit::retain( obj );
}

void kitObjRelease( KIT_OBJ *obj )
{
    KIT_CHECK( obj );
    kit::release( obj );
}

KIT_SORT *kitObjSort( KIT_OBJ *obj )
{
    KIT_CHECK( obj );
    switch ( obj->kind ) {
    case KIT_KIND_SORT: return &kit___sort_KIT_SORT;
    case KIT_KIND_MODULE: return &kit___sort_KIT_MODULE;
    default: return obj->sort.record;
    }
}

template <class T> static int64_t compareAddresses( T *a, T *b )
{
    auto first = reinterpret_cast<uintptr_t>( a ), second = reinterpret_cast<uintptr_t>( b );
    return ( first > second ) - ( first < second );
}

int64_t kitObjCompare( KIT_OBJ *a, KIT_OBJ *b )
{
    if ( a == b || !a || !b ) return !!a - !!b;
    KIT_SORT *sortA = kitObjSort( a ), *sortB = kitObjSort( b );
    if ( sortA != sortB ) return compareAddresses( sortA, sortB );
    return sortA->compare ? sortA->compare( a, b ) : compareAddresses( a, b );
}

KIT_STRING *kitObjToString( KIT_OBJ *obj )
{
    KIT_SORT *sort = kitObjSort( obj );
    if ( sort->toString ) return sort->toString( obj );
    size_t size = std::strlen( sort->name ) + 32; // with room for a space, an address and a NUL
    auto *text = static_cast<char *>( kitMemAlloc( int64_t( size ) ) );
    std::snprintf( text, size, "%s %p", sort->name, static_cast<void *>( obj ) );
    KIT_STRING *string = kitStringCreateFromCstr( text, -1 );
    kitMemFree( text );
    return string;
}

KIT_OBJ *kit___ObjCreate( int64_t size, KIT_SORT *sort )
{
    KIT_CHECK( size >= KIT_SIZEOF( KIT_OBJ ) );
    KIT_CHECK( sort );
    auto *obj = static_cast<KIT_OBJ *>( kitMemAlloc( size ) );
    std::memset( obj, 0, size_t( size ) );
    obj->sort.record = sort;
    obj->storage = size;
    obj->refCount = 1;
    countLiveObjects( 1 );
    return obj;
}

void kit___ObjFree( KIT_OBJ *obj )
{
    KIT_CHECK( obj );
    if ( obj->storage < 0 ) {
        kit::refCount( obj ).store( 1 );
        return;
    }
    if ( auto destructor = obj->sort.record->destructor ) destructor( obj );
    countLiveObjects( -1 );
    kitMemFree( obj );
}

void kit___ObjDbgSetAllocationSize( KIT_OBJ *obj, int64_t bytes )
{
    KIT_CHECK( obj );
    obj->noted = bytes;
}

void kit___ObjDbgSetAllocationSizeN( KIT_OBJ *obj, int64_t count, int64_t size )
{
    kit___ObjDbgSetAllocationSize( obj, kit::saturatedMul( count, size ) );
}

int64_t kit___ObjDbgAllocationSize( KIT_OBJ *obj )
{
    KIT_CHECK( obj );
    return obj->noted;
}
