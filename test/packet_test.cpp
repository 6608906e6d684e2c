#include "support.h"

#include <malloc.h>
#include <numeric>

using test::expectPacket, test::NoLeaks, test::Packet, test::Samples;

// Of 1 MiB, one frame is left.
TEST( Packet, DeletingFreesMemory )
{
    for ( bool inner : { true, false } ) {
        Packet pkt = test::packet( 1 << 18, 1 );
        if ( inner )
            pcmPacketDelInner( &pkt, 1, ( 1 << 18 ) - 1 );
        else
            pcmPacketDelOuter( &pkt, 1000, 1 );
        EXPECT_LT( malloc_usable_size( const_cast<float *>( pcmPacketBacking( pkt ) ) ), 65536u );
    }
}

// 2^61 - 1 channels are the most that can be sized; nothing is allocated for them without frames.
TEST( Packet, CreatorsTakeWhatIsLegal )
{
    NoLeaks noLeaks;
    const int64_t most = 0x1FFFFFFFFFFFFFFF;
    const auto *unreadable = reinterpret_cast<const PCM_SAMPLE *>( sizeof( PCM_SAMPLE ) );
    auto *block = static_cast<PCM_SAMPLE *>( kitMemAllocN( 10, 4 ) ); // more than its packet needs
    std::iota( block, block + 10, 0.0f );
    Packet full = test::packet( 2, 3 ), wide = pcmPacketCreate( 1 ), other = wide;
    struct {
        Packet made;
        int64_t channels;
        Samples samples;
    } cases[] = {
        { pcmPacketCreate( 1 ), 1, {} },
        { pcmPacketCreate( INT64_MAX ), INT64_MAX, {} },
        { pcmPacketCreateFrom( test::packet( 0, 5 ) ), 5, {} },
        { pcmPacketCreateFrom( full ), 3, { 1, 2, 3, 4, 5, 6 } },
        { pcmPacketCreateFromSamplesCopy( unreadable, most, 0 ), most, {} },
        { pcmPacketCreateFromSamplesCopy( nullptr, 4, 0 ), 4, {} },
        { pcmPacketCreateFromSamplesUse( nullptr, 4, 0 ), 4, {} },
        { pcmPacketCreateFromSamplesUse( static_cast<PCM_SAMPLE *>( kitMemAlloc( 40 ) ), 4, 0 ), 4, {} },
        { pcmPacketCreateFromSamplesUse( block, 2, 3 ), 2, { 0, 1, 2, 3, 4, 5 } },
    };
    for ( auto &row : cases ) expectPacket( row.made, row.channels, row.samples );
    Packet &surplus = std::end( cases )[-1].made;
    EXPECT_EQ( pcmPacketBacking( surplus ), block );
    pcmPacketDelLeading( &surplus, 2 );
    pcmPacketAppend( &surplus, surplus );
    expectPacket( surplus, 2, { 4, 5, 4, 5 } );
    pcmPacketSetChannels( &wide, most );
    expectPacket( wide, most, {} );
    expectPacket( other, 1, {} );
}
