#include "operations.h"
#include "support.h"

#include <algorithm>
#include <numeric>

using test::expectPacket, test::NoLeaks, test::Packet, test::Random, test::Samples;

using namespace operations::edits;

namespace {

Model modelOf( PCM_PACKET *pkt )
{
    int64_t channels = pcmPacketChannels( pkt );
    return { channels, framesOf( test::samples( pkt ), channels ) };
}

void expectState( const Packet &pkt, const Model &m, int32_t count )
{
    expectPacket( pkt, m.channels, m.samples(), count );
}

int64_t edge( Random &random, int64_t highest )
{
    const int64_t edges[] = { 0, 1, highest, highest - 1, random.upTo( highest ) };
    return std::clamp( random.oneOf( edges ), int64_t{ 0 }, highest );
}

} // namespace

TEST( Packet, RandomWalksKeepToTheModel )
{
    NoLeaks noLeaks;
    Random random( 1 );
    Packet pkt = pcmPacketCreate( 2 );
    Model model = modelOf( pkt ), before, sourceModel;
    for ( int step = 0; step < 40000; ++step ) {
        if ( random.upTo( 3 ) == 0 || model.frames.size() > 30 ) {
            pkt = test::packet( random.upTo( 6 ), 1 + random.upTo( 2 ), float( 1 + random.upTo( 99 ) ) );
            model = modelOf( pkt );
        }
        const Row &row = random.oneOf( rows );
        const std::vector<Packet> others( size_t( random.upTo( 2 ) ), pkt );
        bool hasSource = row.verb < Del && row.word != partZero, aliased;
        Packet source;
        Args a;
        before = model;
        do {
            aliased = hasSource && random.upTo( 2 ) == 0;
            source = test::packet( random.upTo( 6 ), model.channels, float( 1001 + random.upTo( 99 ) ) );
            sourceModel = aliased ? before : modelOf( source );
            auto size = int64_t( before.frames.size() ), total = int64_t( sourceModel.frames.size() );
            if ( row.verb == Del ) total = size;
            a = { edge( random, size ), edge( random, total ), 0, 1 + random.upTo( 3 ), aliased ? pkt : source };
            bool stretch = row.word == partInner || row.word == partOuter;
            a.frames = row.word == partZero ? edge( random, size + 2 ) : edge( random, total - stretch * a.start );
            model = after( row, before, sourceModel.frames, a );
        } while ( !model.legal );
        const std::vector<Packet> sourceHolders( size_t( random.upTo( 1 ) ), source );
        PCM_PACKET *object = pkt;
        const PCM_SAMPLE *backing = pcmPacketBacking( pkt );
        row.call( &pkt, a );

        bool replaced = model.something && ( !others.empty() || aliased );
        bool resized = model.something && row.verb != Write && row.verb != MutableBacking;
        auto holders = int32_t( others.size() );
        EXPECT_EQ( pkt != object, replaced );
        EXPECT_TRUE( replaced || resized || pcmPacketBacking( pkt ) == backing );
        expectState( pkt, model, replaced ? 1 : 1 + holders );
        if ( replaced && holders ) expectState( others[0], before, holders );
        if ( !aliased ) expectState( source, sourceModel, 1 + int32_t( sourceHolders.size() ) );
        ASSERT_FALSE( HasFailure() ) << row.name << " idx " << a.idx << " start " << a.start << " frames " << a.frames
                                     << ", aliased " << aliased << ", others " << holders << ", step " << step;
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
