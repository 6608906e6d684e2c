#include "kit_vector.h"

#include "kit_memory.h"
#include "kit_ref.hh"

// A ring buffer whose capacity is 0 or a power of two. Items move only when it grows.
struct KIT_VECTOR {
    KIT_OBJ header;
    KIT_OBJ **items;
    int64_t first;
    int64_t length;
    int64_t capacity;
};

static KIT_OBJ *&item( const KIT_VECTOR *vector, int64_t index )
{
    return vector->items[( vector->first + index ) & ( vector->capacity - 1 )];
}

static void resize( KIT_VECTOR *vector, int64_t capacity )
{
    auto **items = static_cast<KIT_OBJ **>( kitMemAllocN( capacity, KIT_SIZEOF( KIT_OBJ * ) ) );
    for ( int64_t i = 0; i < vector->length; ++i ) items[i] = item( vector, i );
    kitMemFree( vector->items );
    vector->items = items;
    vector->first = 0;
    vector->capacity = capacity;
    kit___ObjDbgSetAllocationSizeN( &vector->header, capacity, KIT_SIZEOF( KIT_OBJ * ) );
}

static void push( KIT_VECTOR *vector, KIT_OBJ *obj )
{
    if ( vector->length == vector->capacity ) resize( vector, vector->capacity ? 2 * vector->capacity : 4 );
    item( vector, vector->length++ ) = kit::retain( obj );
}

static void destroy( KIT_OBJ *obj )
{
    auto *vector = reinterpret_cast<KIT_VECTOR *>( obj );
    for ( int64_t i = 0; i < vector->length; ++i ) kit::release( item( vector, i ) );
    kitMemFree( vector->items );
}

static KIT_SORT kit___sort_KIT_VECTOR = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, "KIT_VECTOR", destroy, nullptr,
    nullptr };

static KIT_VECTOR *copy( KIT_VECTOR *source )
{
    kit::Owned vector( kitVectorCreate() );
    for ( int64_t i = 0; i < source->length; ++i ) push( vector.get(), item( source, i ) );
    return vector.take();
}

KIT_VECTOR *kitVectorCreate( void ) { return kit::create<KIT_VECTOR>( &kit___sort_KIT_VECTOR ); }

int64_t kitVectorLength( const KIT_VECTOR *vector )
{
    KIT_CHECK( vector );
    return vector->length;
}

void kitVectorAppendObj( KIT_VECTOR **vector, KIT_OBJ *obj )
{
    KIT_CHECK( vector );
    KIT_CHECK( *vector );
    KIT_CHECK( obj );
    kit::makePrivate( vector, copy );
    push( *vector, obj );
}

KIT_OBJ *kitVectorUnshift( KIT_VECTOR **vector )
{
    KIT_CHECK( vector );
    KIT_CHECK( *vector );
    if ( !( *vector )->length ) return nullptr;
    kit::makePrivate( vector, copy );
    KIT_OBJ *obj = item( *vector, 0 );
    ( *vector )->first = ( ( *vector )->first + 1 ) & ( ( *vector )->capacity - 1 );
    --( *vector )->length;
    return obj;
}

void kitVectorClear( KIT_VECTOR **vector )
{
    KIT_CHECK( vector );
    KIT_CHECK( *vector );
    if ( ( *vector )->length ) kit::replace( vector, kitVectorCreate() );
}
