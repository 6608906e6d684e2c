#include "support.h"

#include <pcm/pcm_samples_stdc.h>

#include <cstring>

// More samples than 31 bits count. Run by script/large: up to 16 GiB are in use at once.

namespace {

using test::Buffer, test::Packet, test::Queue;

constexpr int64_t many = ( int64_t{ 1 } << 31 ) + 6;
constexpr int64_t period = 251; // neighbours of a power of two differ

int8_t codeOf( int64_t index ) { return int8_t( index % period - 125 ); }

Buffer ramp( int64_t size )
{
    auto *bytes = static_cast<int8_t *>( kitMemAlloc( size ) );
    for ( int64_t i = 0; i < size; ++i ) bytes[i] = codeOf( i );
    return kitBufferCreateFromBytesUse( bytes, size );
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
    Packet pkt = pcmPacketTryDecode( bytes, PCM_ENCODING_INT_8, 2 );
    ASSERT_EQ( pcmPacketFrames( pkt ), many / 2 );
    EXPECT_EQ( firstWrong( pcmPacketBacking( pkt ), many, 0, 1.0f / 128 ), -1 );
    Buffer other = pcmPacketEncode( pkt, PCM_ENCODING_INT_8 );
    ASSERT_EQ( kitBufferLength( other ), many );
    EXPECT_EQ( std::memcmp( kitBufferBacking( other ), kitBufferBacking( bytes ), size_t( many ) ), 0 );
    other = pcmTryConvert( PCM_ENCODING_INT_16, bytes, PCM_ENCODING_INT_8 );
    ASSERT_EQ( kitBufferLength( other ), 2 * many );
    int64_t wrong = 0;
    for ( int64_t i = 0; i < many; ++i ) {
        const uint8_t *slot = kitBufferBacking( other ) + 2 * i;
        wrong += slot[0] != 0 || int8_t( slot[1] ) != codeOf( i );
    }
    EXPECT_EQ( wrong, 0 );
    other = bytes = nullptr;

    pcmPacketDelLeading( &pkt, 3 );
    EXPECT_EQ( firstWrong( pcmPacketBacking( pkt ), many - 6, 6, 1.0f / 128 ), -1 );
    pcmPacketPrependZero( &pkt, 3 );
    ASSERT_EQ( pcmPacketFrames( pkt ), many / 2 );
    float *own = pcmPacketMutableBacking( &pkt );
    pcm___SamplesAdd( own, own, many );
    pcm___SamplesScale( own, many, 0.25 );
    for ( int i = 0; i < 6; ++i ) EXPECT_EQ( own[i], 0 );
    EXPECT_EQ( firstWrong( own + 6, many - 6, 6, 1.0f / 256 ), -1 );
    pcm___SamplesChannelZero( own, 1, 2, many / 2 );
    EXPECT_EQ( own[many - 1], 0 );
    EXPECT_EQ( firstWrong( own + many - 2, 1, many - 2, 1.0f / 256 ), -1 );
}

TEST( Large, Queues )
{
    constexpr int64_t part = int64_t{ 1 } << 30;
    Packet pkt = pcmPacketTryDecode( ramp( part ), PCM_ENCODING_INT_8, 1 );
    Queue queue = pcmPacketQueueCreate( 1 );
    for ( int i = 0; i < 3; ++i ) pcmPacketQueueWrite( &queue, pkt );
    EXPECT_EQ( pcmPacketQueueFrames( queue ), 3 * part );
    Packet got = pcmPacketQueueGather( &queue, 2 * part + 7 );
    for ( int64_t at = 0; at <= 2 * part; at += part ) {
        int64_t count = std::min( part, 2 * part + 7 - at );
        EXPECT_EQ( firstWrong( pcmPacketBacking( got ) + at, count, 0, 1.0f / 128 ), -1 ) << at;
    }
    got = nullptr;
    EXPECT_EQ( pcmPacketQueueFrames( queue ), part - 7 );
    got = pcmPacketQueueRead( &queue );
    ASSERT_EQ( pcmPacketFrames( got ), part - 7 );
    EXPECT_EQ( firstWrong( pcmPacketBacking( got ), part - 7, 7, 1.0f / 128 ), -1 );
}

TEST( Large, Filters )
{
    const float half = 0.5f;
    test::Ref<PCM_FILTER> filter =
        pcmFilterCreate( test::Ref( pcmFilterCoefficientsCreateFromSamplesCopy( &half, 1 ) ), 1 );
    Packet in = pcmPacketTryDecode( ramp( many ), PCM_ENCODING_INT_8, 1 );
    pcmFilterWrite( &filter, in );
    in = nullptr;
    Packet out = pcmFilterRead( &filter );
    ASSERT_EQ( pcmPacketFrames( out ), many );
    EXPECT_EQ( firstWrong( pcmPacketBacking( out ), many, 0, 1.0f / 256 ), -1 );
}

} // namespace
