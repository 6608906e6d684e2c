#include "support.h"

#include <cstring>

// More samples than 31 bits count. Run by script/large: up to 16 GiB are in use at once.

namespace {

using pcm::Buffer, pcm::Encoding, pcm::Packet, pcm::Queue;

constexpr int64_t many = ( int64_t{ 1 } << 31 ) + 6;
constexpr int64_t period = 251; // neighbours of a power of two differ

int8_t codeOf( int64_t index ) { return int8_t( index % period - 125 ); }

Buffer ramp( int64_t size )
{
    auto bytes = pcm::allocate<std::byte>( size );
    for ( int64_t i = 0; i < size; ++i ) bytes[size_t( i )] = std::byte( codeOf( i ) );
    return Buffer::use( std::move( bytes ), size );
}

/// The first sample that is not that of the ramp, from an index of it on; -1: all are.
int64_t firstWrong( const float *samples, int64_t count, int64_t index, float scale )
{
    for ( int64_t i = 0; i < count; ++i )
        if ( samples[i] != float( codeOf( index + i ) ) * scale ) return i;
    return -1;
}

TEST( Large, EncodingsPacketsAndKernels )
{
    Buffer bytes = ramp( many );
    Packet pkt = *Packet::tryDecode( bytes, Encoding::int8, 2 );
    ASSERT_EQ( pkt.frames(), many / 2 );
    EXPECT_EQ( firstWrong( pkt.backing(), many, 0, 1.0f / 128 ), -1 );
    Buffer other = pkt.encode( Encoding::int8 );
    ASSERT_EQ( other.length(), many );
    EXPECT_EQ( std::memcmp( other.bytes().data(), bytes.bytes().data(), size_t( many ) ), 0 );
    other = *pcm::tryConvert( Encoding::int16, bytes, Encoding::int8 );
    ASSERT_EQ( other.length(), 2 * many );
    int64_t wrong = 0;
    for ( int64_t i = 0; i < many; ++i ) {
        const std::byte *slot = other.bytes().data() + 2 * i;
        wrong += slot[0] != std::byte( 0 ) || int8_t( slot[1] ) != codeOf( i );
    }
    EXPECT_EQ( wrong, 0 );
    other = bytes = Buffer();

    pkt.delLeading( 3 );
    EXPECT_EQ( firstWrong( pkt.backing(), many - 6, 6, 1.0f / 128 ), -1 );
    pkt.prependZero( 3 );
    ASSERT_EQ( pkt.frames(), many / 2 );
    const std::span<float> all = pkt.mutableSamples();
    pcm::samples::add( all, all );
    pcm::samples::scale( all, 0.25 );
    for ( size_t i = 0; i < 6; ++i ) EXPECT_EQ( all[i], 0 );
    EXPECT_EQ( firstWrong( &all[6], many - 6, 6, 1.0f / 256 ), -1 );
    pcm::samples::zero( { all.data(), 1, 2 }, many / 2 );
    EXPECT_EQ( all.back(), 0 );
    EXPECT_EQ( firstWrong( &all[size_t( many - 2 )], 1, many - 2, 1.0f / 256 ), -1 );
}

TEST( Large, Queues )
{
    constexpr int64_t part = int64_t{ 1 } << 30;
    const Packet pkt = *Packet::tryDecode( ramp( part ), Encoding::int8, 1 );
    Queue queue( 1 );
    for ( int i = 0; i < 3; ++i ) queue.write( pkt );
    EXPECT_EQ( queue.frames(), 3 * part );
    Packet got = queue.gather( 2 * part + 7 );
    for ( int64_t at = 0; at <= 2 * part; at += part ) {
        const int64_t count = std::min( part, 2 * part + 7 - at );
        EXPECT_EQ( firstWrong( got.backing() + at, count, 0, 1.0f / 128 ), -1 ) << at;
    }
    got = Packet();
    EXPECT_EQ( queue.frames(), part - 7 );
    got = queue.read();
    ASSERT_EQ( got.frames(), part - 7 );
    EXPECT_EQ( firstWrong( got.backing(), part - 7, 7, 1.0f / 128 ), -1 );
}

TEST( Large, Filters )
{
    pcm::Filter filter( pcm::Coefficients( std::vector{ 0.5f } ), 1 );
    filter.write( *Packet::tryDecode( ramp( many ), Encoding::int8, 1 ) );
    const Packet out = filter.read();
    ASSERT_EQ( out.frames(), many );
    EXPECT_EQ( firstWrong( out.backing(), many, 0, 1.0f / 256 ), -1 );
}

} // namespace
