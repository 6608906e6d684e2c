#include "operations.h"
#include "support.h"

#include <algorithm>

using test::expectPacket, test::NoLeaks, test::Packet, test::packetOf, test::Random, test::Samples;

using namespace operations::channels;

namespace {

Block someBlock( Random &random, int64_t channels, int64_t frames )
{
    return { uint64_t( channels ), random.samples( size_t( channels * frames ), 70, 10 ) };
}

/// Only moved, samples stay what they are bit for bit.
void expectBlock( const Packet &pkt, const Block &b, int32_t count, bool moved = true )
{
    expectPacket( pkt, int64_t( b.channels ), b.samples, count, moved );
}

void check( Random &random, int call, int64_t channels, int64_t frames, uint64_t n )
{
    const Block before = someBlock( random, channels, frames );
    Packet pkt = packetOf( before.samples, int64_t( before.channels ) );
    const std::vector<Packet> others( size_t( random.upTo( 2 ) ), pkt );
    const auto holders = int32_t( others.size() );
    PCM_PACKET *object = pkt;
    bool stays;
    const Block expected = after( call, before, n, stays );
    calls[call]( &pkt, int64_t( n ) );
    EXPECT_EQ( pkt == object, stays );
    expectBlock( pkt, expected, stays ? 1 + holders : 1, call == withMask || call >= extend );
    for ( const Packet &other : others ) expectBlock( other, before, stays ? 1 + holders : holders );
    ASSERT_FALSE( testing::Test::HasFailure() )
        << "call " << call << ", " << channels << " x " << frames << ", n " << n;
}

} // namespace

TEST( Channels, CallsMakeWhatTheModelMakes )
{
    NoLeaks noLeaks;
    Random random( 5 );
    for ( int round = 0; round < 6000 && !HasFailure(); ++round ) {
        const int call = round % 6;
        const int64_t n = random.upTo( round % 80 ? 5 : 80 ) + ( call < extend ? 1 : 2 );
        check( random, call, round % 50 ? 1 + random.upTo( 5 ) : 60 + random.upTo( 80 ),
            call == reduce ? n * random.upTo( 4 ) : random.upTo( 6 ), uint64_t( n ) );
    }
    for ( int call : { replaceWithDownmix, expandWithDownmix } )
        check( random, call, 1, 0, 0x1FFFFFFFFFFFFFFF ); // ends soon
    for ( uint64_t mask = 1; mask < 512; ++mask )        // of channels that are there, of others, of both
        for ( int64_t channels = 1; channels <= 6; ++channels ) check( random, withMask, channels, 2, mask );
    for ( int round = 0; round < 300; ++round ) {
        const uint64_t masks[] = { ~0ull, ~1ull, ~0ull >> 1, 1ull << 63, random(), random() & random() & random() };
        check( random, withMask, 60 + random.upTo( round % 5 ? 9 : 140 ), random.upTo( 3 ), masks[round % 6] );
    }
}

TEST( Channels, RectanglesAreWrittenIntoTheirPlace )
{
    NoLeaks noLeaks;
    Random random( 7 );
    for ( int round = 0; round < 6000; ++round ) {
        auto upTo = [&]( size_t highest ) { return int64_t( random.upTo( int64_t( highest ) ) ); };
        Block before = someBlock( random, 1 + upTo( 4 ), upTo( 5 ) ), expected = before,
              other = someBlock( random, 1 + upTo( 4 ), upTo( 5 ) );
        Packet pkt = packetOf( before.samples, int64_t( before.channels ) ),
               otherPkt = packetOf( other.samples, int64_t( other.channels ) );
        const std::vector<Packet> others( size_t( upTo( 2 ) ), pkt );
        const auto holders = int32_t( others.size() );
        const bool aliased = upTo( 2 ) == 0, raw = upTo( 1 );
        Block from = aliased ? before : other;
        const int64_t width = upTo( std::min( before.channels, from.channels ) ),
                      height = upTo( std::min( before.frames(), from.frames() ) ),
                      dc = upTo( before.channels - size_t( width ) ), df = upTo( before.frames() - size_t( height ) ),
                      sc = upTo( from.channels - size_t( width ) ), sf = upTo( from.frames() - size_t( height ) );
        writeRectangle( expected, dc, df, from, sc, sf, width, height );
        PCM_PACKET *object = pkt;
        const PCM_SAMPLE *backing = pcmPacketBacking( pkt ), *source = from.samples.data();
        if ( raw )
            pcmPacketWriteChannelsSamples( &pkt, dc, df, source, sc, int64_t( from.channels ), sf, width, height );
        else
            pcmPacketWriteChannels( &pkt, dc, df, aliased ? pkt : otherPkt, sc, sf, width, height );
        const bool replaced = width && height && ( holders || ( aliased && !raw ) );
        EXPECT_EQ( pkt != object, replaced );
        EXPECT_EQ( pcmPacketBacking( pkt ) != backing, replaced );
        expectBlock( pkt, expected, replaced ? 1 : 1 + holders );
        for ( const Packet &old : others ) expectBlock( old, before, replaced ? holders : 1 + holders );
        expectBlock( otherPkt, other, 1 );
        ASSERT_FALSE( HasFailure() ) << "round " << round << ": " << width << " x " << height << ", raw " << raw;
    }
}
