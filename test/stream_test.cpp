#include "operations.h"
#include "support.h"

#include <algorithm>

using operations::streams::converters, operations::streams::direct, operations::streams::Direct;
using test::bits, test::NoLeaks, test::Packet, test::Queue, test::Random, test::Ref, test::Samples;

namespace {

const char *const types[] = { "PCM_SRC_TYPE_SINC_BEST_QUALITY", "PCM_SRC_TYPE_SINC_MEDIUM_QUALITY",
    "PCM_SRC_TYPE_SINC_FASTEST", "PCM_SRC_TYPE_ZERO_ORDER_HOLD", "PCM_SRC_TYPE_LINEAR" };

} // namespace

// A packet comes out as it went in. What is left of one is a new object only if the old one has other holders, of
// which a second queue is one.
TEST( Queue, HandsOutThePacketsThemselves )
{
    for ( int round = 0; round < 36; ++round ) {
        NoLeaks noLeaks;
        const bool held = round % 2, retained = round / 2 % 3 == 1, copied = round / 2 % 3 == 2, reads = round / 18;
        const int way = round / 6 % 3; // to consume a frame first: none, into a packet, into a block
        const int others = held + ( retained || copied );
        Packet packets[] = { test::packet( 3, 2 ), test::packet( 2, 2, 7 ), test::packet( 4, 2, 11 ) };
        const std::vector<PCM_PACKET *> objects( packets, std::end( packets ) );
        Queue queue = pcmPacketQueueCreate( 2 );
        for ( Packet &pkt : packets ) pcmPacketQueueWrite( &queue, pkt );
        for ( Packet &pkt : packets ) EXPECT_EQ( pkt.count(), 2 );
        if ( !held ) std::fill( packets, std::end( packets ), nullptr );
        Queue other = copied ? Queue( pcmPacketQueueCreateFrom( queue ) ) : retained ? queue : nullptr;
        Samples block( 2 ), rest = { 3, 4, 5, 6 };
        if ( way == 0 ) rest = { 1, 2, 3, 4, 5, 6 };
        if ( way == 1 ) block = test::samples( Packet( pcmPacketQueueGather( &queue, 1 ) ) );
        if ( way == 2 ) pcmPacketQueueGatherSamples( &queue, block.data(), 1 );
        EXPECT_EQ( block, way ? Samples( { 1, 2 } ) : Samples( 2 ) );
        Packet first = reads ? pcmPacketQueueRead( &queue ) : pcmPacketQueueGather( &queue, way ? 2 : 3 ),
               second = pcmPacketQueueGather( &queue, 2 ),
               joined = other ? pcmPacketQueueGather( &other, 4 ) : nullptr;
        EXPECT_EQ( first == objects[0], !way || !others );
        test::expectPacket( first, 2, rest, way ? 1 : 1 + held );
        EXPECT_EQ( second, objects[1] );
        test::expectPacket( second, 2, { 7, 8, 9, 10 }, 1 + others );
        if ( other ) test::expectPacket( joined, 2, { 1, 2, 3, 4, 5, 6, 7, 8 } );
        queue = other = nullptr;
        first = second = nullptr;
        if ( held ) test::expectPacket( packets[0], 2, { 1, 2, 3, 4, 5, 6 } );
        for ( Packet &pkt : packets ) EXPECT_TRUE( !held || pkt.count() == 1 );
    }
}

// A single frame is not written to the linear converter, which would read the frame before it.
TEST( RateConverter, GivesTheBitsOfDirectCalls )
{
    const int64_t rates[][2] = { { 8000, 8000 }, { 16000, 8000 }, { 8000, 16000 }, { 48000, 44100 }, { 11025, 48000 },
        { 256, 1 }, { 1, 256 } };
    Random random( 1 );
    for ( auto [readRate, writeRate] : rates )
        for ( int run = 0; run < 30; ++run ) { // each type, 1 to 3 channels, a new converter and one after a reset
            int64_t type = run % 5, channels = 1 + run / 5 % 3;
            double ratio = double( readRate ) / double( writeRate );
            SCOPED_TRACE( testing::Message() << types[type] << " " << writeRate << " to " << readRate );
            NoLeaks noLeaks;
            Ref<PCM_SRC> src = pcmSrcTryCreate( type, readRate, writeRate, channels );
            ASSERT_TRUE( src );
            EXPECT_EQ( pcmSrcType( src ), type );
            EXPECT_EQ( test::text( pcmSrcTypeToString( type ) ), types[type] );
            EXPECT_EQ( pcmSrcTypeFromString( test::string( types[type] ) ), type );
            EXPECT_EQ( pcmSrcReadFrameRate( src ), readRate );
            EXPECT_EQ( pcmSrcWriteFrameRate( src ), writeRate );
            EXPECT_EQ( pcmSrcChannels( src ), channels );
            if ( run < 15 ) {
                pcmSrcWrite( src, test::packet( 1000, channels ) );
                pcmSrcReset( src );
            }
            int error;
            Direct state( src_new( converters[type], int( channels ), &error ), src_delete );
            operations::streams::Model model{ {}, size_t( channels ) };
            for ( int64_t i = 0; i < 8; ++i ) {
                EXPECT_EQ( pcmSrcPackets( src ), i );
                EXPECT_EQ( pcmSrcFrames( src ), int64_t( model.ready.size() ) / channels );
                const int64_t sizes[] = { 0, type == PCM_SRC_TYPE_LINEAR ? 2 : 1, 2, 3, 300 };
                int64_t size = random.oneOf( sizes );
                if ( size == 300 ) size = 4 + random.upTo( int64_t( 300 / ratio ) );
                Samples block = random.samples( size_t( size * channels ), 1, 0 );
                model.put( direct( state, block, long( channels ), ratio ) );
                Packet pkt = test::packetOf( block, channels );
                pcmSrcWrite( src, pkt );
                test::expectPacket( pkt, channels, block );
            }
            for ( int i = 0; i < 5; ++i ) test::expectPacket( pcmSrcRead( src ), channels, model.read() );
            ASSERT_FALSE( HasFailure() );
            Samples rest = model.take( model.ready.size() );
            const int64_t left = pcmSrcFrames( src ), first = random.upTo( left ), last = ( left - first ) / 2;
            Samples got = test::samples( Packet( pcmSrcGather( src, first ) ) );
            got.resize( rest.size(), 1 );
            pcmSrcGatherSamples( src, got.data() + first * channels, left - first - last );
            pcmSrcGatherSamplesAdd( src, got.data() + ( left - last ) * channels, last );
            for ( auto at = rest.end() - last * channels; at != rest.end(); ++at ) *at += 1;
            EXPECT_EQ( bits( got ), bits( rest ) );
        }
}

TEST( RateConverter, ResetAlsoResetsTheConverterWhenAllOutputIsTaken )
{
    for ( int64_t type = 0; type < 5; ++type ) {
        Ref<PCM_SRC> src = pcmSrcTryCreate( type, 3, 2, 1 );
        Samples out[2];
        for ( Samples &made : out ) {
            pcmSrcWrite( src, test::packet( 200, 1 ) );
            made = test::samples( Packet( pcmSrcRead( src ) ) );
            pcmSrcReset( src );
        }
        EXPECT_EQ( out[0], out[1] ) << types[type];
    }
}

TEST( RateConverter, ChannelCountHasMoreThan16Bits )
{
    const int64_t channels = ( 1 << 16 ) + 1;
    Ref<PCM_SRC> src = pcmSrcTryCreate( PCM_SRC_TYPE_ZERO_ORDER_HOLD, 1, 1, channels );
    int error;
    Direct state( src_new( SRC_ZERO_ORDER_HOLD, int( channels ), &error ), src_delete );
    Packet pkt = test::packet( 3, channels );
    pcmSrcWrite( src, pkt );
    EXPECT_EQ( test::samples( Packet( pcmSrcRead( src ) ) ), direct( state, test::samples( pkt ), channels, 1 ) );
}

TEST( RateConverter, IsNullWhereItsLibraryRefuses )
{
    struct {
        int64_t type, readRate, writeRate, channels;
        int32_t ratio;
        bool made;
    } rows[] = {
        { PCM_SRC_TYPE_LINEAR, 257, 1, 1, 0, false },
        { PCM_SRC_TYPE_LINEAR, 1, 257, 1, 0, false },
        { PCM_SRC_TYPE_LINEAR, 16777217, 65536, 1, 0, false }, // as a float, the rate would be 16777216
        { PCM_SRC_TYPE_LINEAR, 16777216, 65536, 1, 1, true },
        { PCM_SRC_TYPE_ZERO_ORDER_HOLD, INT64_MAX, INT64_MAX, 129, 1, true },
        { PCM_SRC_TYPE_SINC_FASTEST, 8000, 8000, 128, 1, true },
        { PCM_SRC_TYPE_SINC_FASTEST, 8000, 8000, 129, 1, false },
    };
    for ( auto &row : rows ) {
        NoLeaks noLeaks;
        Ref<PCM_SRC> src = pcmSrcTryCreate( row.type, row.readRate, row.writeRate, row.channels );
        EXPECT_EQ( src != nullptr, row.made ) << types[row.type] << " " << row.readRate << " " << row.channels;
        EXPECT_EQ( pcmSrcFrameRateCheckCompatibility( row.readRate, row.writeRate ), row.ratio );
    }
}
