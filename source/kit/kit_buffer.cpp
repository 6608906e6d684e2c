#include "kit_buffer.h"

#include "kit_memory.h"
#include "kit_ref.hh"

struct KIT_BUFFER {
    KIT_OBJ header;
    uint8_t *bytes;
    int64_t length;
};

static void destroy( KIT_OBJ *obj ) { kitMemFree( reinterpret_cast<KIT_BUFFER *>( obj )->bytes ); }

static KIT_SORT kit___sort_KIT_BUFFER = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, "KIT_BUFFER", destroy, nullptr,
    nullptr };

KIT_BUFFER *kitBufferCreate( void ) { return kit::create<KIT_BUFFER>( &kit___sort_KIT_BUFFER ); }

KIT_BUFFER *kitBufferCreateFromBytesUse( void *bytes, int64_t length )
{
    KIT_CHECK( length >= 0 );
    KIT_CHECK( bytes || length == 0 );
    KIT_BUFFER *buffer = kitBufferCreate();
    buffer->bytes = static_cast<uint8_t *>( bytes );
    buffer->length = length;
    kit___ObjDbgSetAllocationSize( &buffer->header, length );
    return buffer;
}

const uint8_t *kitBufferBacking( const KIT_BUFFER *buffer )
{
    KIT_CHECK( buffer );
    return buffer->bytes;
}

int64_t kitBufferLength( const KIT_BUFFER *buffer )
{
    KIT_CHECK( buffer );
    return buffer->length;
}
