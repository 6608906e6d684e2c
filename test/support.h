#ifndef SUPPORT_H
#define SUPPORT_H

// What all tests share: the module started once, the abort stand-in, and what they expect of packets.

#include "handles.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace test {

inline String string( const std::string &text )
{
    return kitStringCreateFromCstr( text.data(), int64_t( text.size() ) );
}

inline std::string text( const String &string )
{
    return { kitStringBacking( string ), size_t( kitStringLength( string ) ) };
}

/// A packet whose samples are all different: 1, 2, 3 ... from `first` on.
Packet packet( int64_t frames, int64_t channels, float first = 1 );

/// The patterns of samples: -0.0 differs from +0.0. Every NaN equals every other, as arithmetic leaves it open which
/// of two survives, but where samples are only moved.
std::vector<uint32_t> bits( const Samples &samples, bool moved = false );

/// What can be seen of a packet.
void expectPacket(
    const Packet &pkt, int64_t channels, const Samples &samples, int32_t count = 1, bool moved = false );

/// Fails at the end of the scope if objects were left behind, but for those of `mustBreak`. Counts in builds without
/// NDEBUG.
class NoLeaks {
public:
    ~NoLeaks() { EXPECT_EQ( kit___ObjDbgLiveObjects() - leftBehind, before ); }
    static inline int64_t leftBehind = 0;

private:
    int64_t before = kit___ObjDbgLiveObjects() - leftBehind;
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

/// Runs a call that must break this condition. It ends there: what it has made is left behind.
void mustBreak( const std::string &condition, const std::function<void()> &call );

/// Runs the work with each thread's number, in threads that start at once.
void together( int threads, const std::function<void( int )> &work );

} // namespace test

#endif
