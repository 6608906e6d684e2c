#ifndef HANDLES_H
#define HANDLES_H

// Objects that let go by themselves, and what packets and buffers hold.

#include <pcm/pcm.h>

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace test {

/// Releases an object at the end of the scope; `&handle` serves the functions that take a handle's address.
template <class T> class Ref {
public:
    Ref( T *object = nullptr ) : obj( object ) {}
    Ref( const Ref &other ) : obj( other.obj )
    {
        if ( obj ) kitObjRetain( header() );
    }
    Ref( Ref &&other ) noexcept : obj( other.release() ) {}
    Ref &operator=( Ref other )
    {
        std::swap( obj, other.obj );
        return *this;
    }
    ~Ref()
    {
        if ( obj ) kitObjRelease( header() );
    }
    operator T *() const { return obj; }
    T **operator&() { return &obj; }
    T *release() { return std::exchange( obj, nullptr ); }
    KIT_OBJ *header() const { return reinterpret_cast<KIT_OBJ *>( obj ); }
    int32_t count() const { return header()->refCount; }

private:
    T *obj;
};

using Packet = Ref<PCM_PACKET>;
using Queue = Ref<PCM_PACKET_QUEUE>;
using Buffer = Ref<KIT_BUFFER>;
using String = Ref<KIT_STRING>;

/// A buffer with a copy of the bytes.
inline Buffer buffer( const std::vector<uint8_t> &bytes )
{
    void *block = kitMemAlloc( int64_t( bytes.size() ) );
    if ( !bytes.empty() ) std::memcpy( block, bytes.data(), bytes.size() );
    return kitBufferCreateFromBytesUse( block, int64_t( bytes.size() ) );
}

inline std::vector<uint8_t> bytes( KIT_BUFFER *buffer )
{
    const uint8_t *backing = kitBufferBacking( buffer );
    return { backing, backing + kitBufferLength( buffer ) };
}

using Samples = std::vector<float>;

inline Packet packetOf( const Samples &samples, int64_t channels = 1 )
{
    return pcmPacketCreateFromSamplesCopy( samples.data(), channels, int64_t( samples.size() ) / channels );
}

inline Samples samples( PCM_PACKET *pkt )
{
    const float *backing = pcmPacketBacking( pkt );
    return { backing, backing + pcmPacketFrames( pkt ) * pcmPacketChannels( pkt ) };
}

} // namespace test

#endif
