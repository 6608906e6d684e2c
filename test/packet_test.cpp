#include "support.h"

#include <algorithm>
#include <malloc.h>

using pcm::adopt, pcm::Packet, test::expectPacket, test::NoLeaks, test::Samples;

// 2^61 - 1 channels are the most that can be sized. Without frames, nothing is allocated for them.
TEST( Packet, CreatorsAcceptAllLegalArguments )
{
    NoLeaks noLeaks;
    const int64_t maxChannels = 0x1FFFFFFFFFFFFFFF;
    const auto *unreadable = reinterpret_cast<const PCM_SAMPLE *>( sizeof( PCM_SAMPLE ) );
    auto larger = pcm::allocate<PCM_SAMPLE>( 10 ); // more than its packet needs
    const PCM_SAMPLE *address = larger.get();
    std::fill_n( larger.get(), 10, 0.5f );
    const struct {
        Packet pkt;
        int64_t channels;
        Samples samples;
    } rows[] = {
        { Packet( 1 ), 1, {} },
        { Packet( INT64_MAX ), INT64_MAX, {} },
        { test::packet( 0, 5 ).clone(), 5, {} },
        { test::packet( 2, 3 ).clone(), 3, { 1, 2, 3, 4, 5, 6 } },
        { Packet( adopt, pcmPacketCreateFromSamplesCopy( unreadable, maxChannels, 0 ) ), maxChannels, {} },
        { Packet( adopt, pcmPacketCreateFromSamplesCopy( nullptr, 4, 0 ) ), 4, {} },
        { Packet::use( nullptr, 4, 0 ), 4, {} },
        { Packet::use( pcm::allocate<PCM_SAMPLE>( 10 ), 4, 0 ), 4, {} },
        { Packet::use( std::move( larger ), 2, 3 ), 2, Samples( 6, 0.5f ) },
    };
    for ( auto &row : rows ) expectPacket( row.pkt, row.channels, row.samples );
    Packet last = std::end( rows )[-1].pkt, wide( 1 ), holder = wide;
    EXPECT_EQ( last.backing(), address );
    wide.setChannels( maxChannels );
    expectPacket( wide, maxChannels, {} );
    expectPacket( holder, 1, {} );
}

TEST( Packet, DeletingFreesMemory )
{
    for ( bool inner : { true, false } ) {
        Packet pkt = test::packet( 1 << 18, 1 );
        if ( inner )
            pkt.delInner( 1, ( 1 << 18 ) - 1 );
        else
            pkt.delOuter( 1000, 1 );
        EXPECT_LT( malloc_usable_size( const_cast<float *>( pkt.backing() ) ), 65536u );
    }
}
