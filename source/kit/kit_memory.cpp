#include "kit_memory.h"

#include "kit_check.hh"

#include <algorithm>
#include <cstdlib>
#include <cstring>

// Some systems return null for a block of 0 bytes. Allocate 1 byte instead.
static size_t blockSize( int64_t bytes )
{
    KIT_CHECK( bytes >= 0 );
    return size_t( std::max( bytes, int64_t{ 1 } ) );
}

static int64_t product( int64_t count, int64_t size )
{
    KIT_CHECK( count >= 0 );
    KIT_CHECK( size >= 0 );
    KIT_CHECK( KIT_INT_MUL_OK( count, size ) );
    return count * size;
}

// A size that does not fit size_t, where that is narrower than 64 bits, counts as out of memory.
static void *allocate( void *block, int64_t bytes )
{
    size_t size = blockSize( bytes );
    bool fits = uint64_t( bytes ) <= SIZE_MAX;
    void *memory = !fits ? nullptr : block ? std::realloc( block, size ) : std::malloc( size );
    KIT_CHECK_IN( "out of memory", memory );
    return memory;
}

void *kitMemAlloc( int64_t bytes ) { return allocate( nullptr, bytes ); }

void *kitMemAllocN( int64_t count, int64_t size ) { return allocate( nullptr, product( count, size ) ); }

void *kitMemReallocN( void *block, int64_t count, int64_t size ) { return allocate( block, product( count, size ) ); }

void kitMemFree( void *block ) { std::free( block ); }

void kitMemCopy( void *dest, const void *source, int64_t bytes ) { kitMemCopyN( dest, source, bytes, 1 ); }

void kitMemCopyN( void *dest, const void *source, int64_t count, int64_t size )
{
    int64_t bytes = product( count, size );
    KIT_CHECK( dest || !bytes );
    KIT_CHECK( source || !bytes );
    if ( bytes ) std::memcpy( dest, source, size_t( bytes ) );
}

void kitMemMoveN( void *dest, const void *source, int64_t count, int64_t size )
{
    int64_t bytes = product( count, size );
    KIT_CHECK( dest || !bytes );
    KIT_CHECK( source || !bytes );
    if ( bytes ) std::memmove( dest, source, size_t( bytes ) );
}

void kitMemSetN( void *dest, int32_t value, int64_t count, int64_t size )
{
    int64_t bytes = product( count, size );
    KIT_CHECK( dest || !bytes );
    if ( bytes ) std::memset( dest, value, size_t( bytes ) );
}
