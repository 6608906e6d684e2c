#ifndef SUPPORT_H
#define SUPPORT_H

// What all tests share: the module started once, the abort stand-in, and objects that let go by themselves.

#include <gtest/gtest.h>
#include <pcm/pcm.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
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

inline String string( const std::string &text )
{
    return kitStringCreateFromCstr( text.data(), int64_t( text.size() ) );
}

inline std::string text( const String &string )
{
    return { kitStringBacking( string ), size_t( kitStringLength( string ) ) };
}

/// A buffer with a copy of the bytes.
Buffer buffer( const std::vector<uint8_t> &bytes );

std::vector<uint8_t> bytes( KIT_BUFFER *buffer );

/// A packet whose samples are all different: 1, 2, 3 ... from `first` on.
Packet packet( int64_t frames, int64_t channels, float first = 1 );

using Samples = std::vector<float>;

Packet packetOf( const Samples &samples, int64_t channels = 1 );

Samples samples( PCM_PACKET *pkt );

/// The patterns of samples: -0.0 differs from +0.0. Every NaN equals every other, as arithmetic leaves it open which
/// of two survives, but where samples are only moved.
std::vector<uint32_t> bits( const Samples &samples, bool moved = false );

/// What can be seen of a packet.
void expectPacket(
    const Packet &pkt, int64_t channels, const Samples &samples, int32_t count = 1, bool moved = false );

/// Fails at the end of the scope if objects were left behind. Counts in builds without NDEBUG.
class NoLeaks {
public:
    ~NoLeaks() { EXPECT_EQ( kit___ObjDbgLiveObjects(), before ); }

private:
    int64_t before = kit___ObjDbgLiveObjects();
};

/// Seeded by PCM_TEST_SEED, or by a number of its own, and printed with any failure of the test.
class Random : public std::mt19937_64 {
public:
    explicit Random( uint64_t seed );
    int64_t upTo( int64_t highest ) { return std::uniform_int_distribution<int64_t>( 0, highest )( *this ); }
    template <class T> auto &oneOf( T &list ) { return list[size_t( upTo( int64_t( std::size( list ) ) - 1 ) )]; }
    /// Numbers around the scale, one in `rare` of them unusual; 0: none.
    std::vector<float> samples( size_t count, float scale, int64_t rare );

private:
    testing::ScopedTrace trace;
};

/// Runs the work with each thread's number, in threads that start at once.
void together( int threads, const std::function<void( int )> &work );

} // namespace test

#endif
