#include "operations.h"
#include "support.h"

#include <array>

using pcm::Packet, pcm::Queue, pcm::Src, pcm::SrcType, test::NoLeaks, test::Samples;

// An untouched packet comes out as the object that went in. The rest of a packet is a new object only if the packet
// has other holders, such as a second queue.
TEST( Queue, HandsOutThePacketsThemselves )
{
    enum Sharing { none, reference, copy };
    enum FirstFrame { left, gathered, gatheredIntoBlock };
    for ( bool held : { false, true } )
        for ( Sharing sharing : { none, reference, copy } )
            for ( FirstFrame firstFrame : { left, gathered, gatheredIntoBlock } )
                for ( bool reads : { false, true } ) {
                    NoLeaks noLeaks;
                    std::array packets{ test::packet( 3, 2 ), test::packet( 2, 2, 7 ), test::packet( 4, 2, 11 ) };
                    const void *const objects[] = { packets[0].get(), packets[1].get() };
                    Queue queue( 2 );
                    for ( auto &pkt : packets ) queue.write( pkt );
                    if ( !held ) packets = {};
                    Queue other = sharing == copy ? queue.clone() : sharing == reference ? queue : Queue();
                    const int others = held + ( sharing != none );
                    Samples block( 2 ), rest = { 3, 4, 5, 6 };
                    if ( firstFrame == left ) rest = { 1, 2, 3, 4, 5, 6 };
                    if ( firstFrame == gathered ) block = test::samples( queue.gather( 1 ) );
                    if ( firstFrame == gatheredIntoBlock ) queue.gather( block, 1 );
                    EXPECT_EQ( block, firstFrame == left ? Samples( 2 ) : Samples( { 1, 2 } ) );
                    Packet first = reads ? queue.read() : queue.gather( firstFrame == left ? 3 : 2 );
                    Packet second = queue.gather( 2 );
                    EXPECT_EQ( first.get() == objects[0], firstFrame == left || !others );
                    test::expectPacket( first, 2, rest, firstFrame == left ? 1 + others : 1 );
                    EXPECT_EQ( second.get(), objects[1] );
                    test::expectPacket( second, 2, { 7, 8, 9, 10 }, 1 + others );
                    if ( other ) test::expectPacket( other.gather( 4 ), 2, { 1, 2, 3, 4, 5, 6, 7, 8 } );
                    EXPECT_TRUE( !held || test::samples( packets[0] ) == Samples( { 1, 2, 3, 4, 5, 6 } ) );
                }
}

TEST( RateConverter, ResetAlsoResetsTheConverterWhenAllOutputIsTaken )
{
    for ( int64_t type = 0; type < 5; ++type ) {
        Src src = *Src::tryCreate( SrcType( type ), 3, 2, 1 );
        Samples out[2];
        for ( Samples &made : out ) {
            src.write( test::packet( 200, 1 ) );
            made = test::samples( src.read() );
            src.reset();
        }
        EXPECT_EQ( out[0], out[1] ) << type;
    }
}

TEST( RateConverter, ChannelCountHasMoreThan16Bits )
{
    const int64_t channels = ( 1 << 16 ) + 1;
    int error;
    operations::Converter state( src_new( SRC_ZERO_ORDER_HOLD, int( channels ), &error ), src_delete );
    Src src = *Src::tryCreate( SrcType::zeroOrderHold, 1, 1, channels );
    const Packet pkt = test::packet( 3, channels );
    src.write( pkt );
    EXPECT_EQ( test::samples( src.read() ), operations::convertDirectly( state, test::samples( pkt ), channels, 1 ) );
}

TEST( RateConverter, IsNullWhereItsLibraryRefuses )
{
    const struct {
        SrcType type;
        int64_t readRate, writeRate, channels;
        bool ratioIsValid, isCreated;
    } rows[] = {
        { SrcType::linear, 257, 1, 1, false, false },
        { SrcType::linear, 1, 257, 1, false, false },
        { SrcType::linear, 16777217, 65536, 1, false, false }, // as a float, the rate would be 16777216
        { SrcType::linear, 16777216, 65536, 1, true, true },
        { SrcType::zeroOrderHold, INT64_MAX, INT64_MAX, 129, true, true },
        { SrcType::sincFastest, 8000, 8000, 128, true, true },
        { SrcType::sincFastest, 8000, 8000, 129, true, false },
    };
    for ( auto &row : rows ) {
        NoLeaks noLeaks;
        EXPECT_EQ( Src::tryCreate( row.type, row.readRate, row.writeRate, row.channels ).has_value(), row.isCreated )
            << &row - rows;
        EXPECT_EQ( Src::isCompatible( row.readRate, row.writeRate ), row.ratioIsValid ) << &row - rows;
    }
}
