#include "support.h"

#include <algorithm>

using test::NoLeaks, test::Packet, test::Random;

namespace {

using Frames = std::vector<std::vector<float>>;

enum Verb { Write, Insert, Append, Prepend, Del, Clear, SetFrames, SetChannels, MutableBacking };
struct Args {
    int64_t idx, start, frames, channels;
    PCM_PACKET *source;
};

// Which frames of how many a word names.
using Word = bool ( * )( int64_t frame, int64_t total, const Args &a );
const Word part = []( int64_t, int64_t, const Args & ) { return true; };
const Word partInner = []( int64_t f, int64_t, const Args &a ) { return f >= a.start && f < a.start + a.frames; };
const Word partOuter = []( int64_t f, int64_t n, const Args &a ) { return !partInner( f, n, a ); };
const Word partLeading = []( int64_t f, int64_t, const Args &a ) { return f < a.frames; };
const Word partTrailing = []( int64_t f, int64_t n, const Args &a ) { return f >= n - a.frames; };
const Word partZero = nullptr;

using Example = std::vector<float>;

struct Row {
    const char *name;
    Verb verb;
    Word word;
    Example example; // what becomes of 1 to 6 with idx 1, start 1, frames 2, source 10 to 50
    void ( *call )( PCM_PACKET **pkt, const Args &a );
};

// clang-format off
#define CALL( name, verb, word, example, ... ) \
    { #name, verb, word, Example example, []( PCM_PACKET **pkt, [[maybe_unused]] const Args &a ) { __VA_ARGS__; } }
#define EDIT( verb, word, example, ... ) \
    CALL( pcmPacket##verb##word, verb, part##word, example, pcmPacket##verb##word( pkt, __VA_ARGS__ ) )

const Row rows[] = {
    EDIT( Write, , ( { 1, 10, 20, 30, 40, 50 } ), a.idx, a.source ),
    EDIT( Write, Inner, ( { 1, 20, 30, 4, 5, 6 } ), a.idx, a.source, a.start, a.frames ),
    EDIT( Write, Outer, ( { 1, 10, 40, 50, 5, 6 } ), a.idx, a.source, a.start, a.frames ),
    EDIT( Write, Leading, ( { 1, 10, 20, 4, 5, 6 } ), a.idx, a.source, a.frames ),
    EDIT( Write, Trailing, ( { 1, 40, 50, 4, 5, 6 } ), a.idx, a.source, a.frames ),
    EDIT( Write, Zero, ( { 1, 0, 0, 4, 5, 6 } ), a.idx, a.frames ),
    EDIT( Insert, , ( { 1, 10, 20, 30, 40, 50, 2, 3, 4, 5, 6 } ), a.idx, a.source ),
    EDIT( Insert, Inner, ( { 1, 20, 30, 2, 3, 4, 5, 6 } ), a.idx, a.source, a.start, a.frames ),
    EDIT( Insert, Outer, ( { 1, 10, 40, 50, 2, 3, 4, 5, 6 } ), a.idx, a.source, a.start, a.frames ),
    EDIT( Insert, Leading, ( { 1, 10, 20, 2, 3, 4, 5, 6 } ), a.idx, a.source, a.frames ),
    EDIT( Insert, Trailing, ( { 1, 40, 50, 2, 3, 4, 5, 6 } ), a.idx, a.source, a.frames ),
    EDIT( Insert, Zero, ( { 1, 0, 0, 2, 3, 4, 5, 6 } ), a.idx, a.frames ),
    EDIT( Append, , ( { 1, 2, 3, 4, 5, 6, 10, 20, 30, 40, 50 } ), a.source ),
    EDIT( Append, Inner, ( { 1, 2, 3, 4, 5, 6, 20, 30 } ), a.source, a.start, a.frames ),
    EDIT( Append, Outer, ( { 1, 2, 3, 4, 5, 6, 10, 40, 50 } ), a.source, a.start, a.frames ),
    EDIT( Append, Leading, ( { 1, 2, 3, 4, 5, 6, 10, 20 } ), a.source, a.frames ),
    EDIT( Append, Trailing, ( { 1, 2, 3, 4, 5, 6, 40, 50 } ), a.source, a.frames ),
    EDIT( Append, Zero, ( { 1, 2, 3, 4, 5, 6, 0, 0 } ), a.frames ),
    EDIT( Prepend, , ( { 10, 20, 30, 40, 50, 1, 2, 3, 4, 5, 6 } ), a.source ),
    EDIT( Prepend, Inner, ( { 20, 30, 1, 2, 3, 4, 5, 6 } ), a.source, a.start, a.frames ),
    EDIT( Prepend, Outer, ( { 10, 40, 50, 1, 2, 3, 4, 5, 6 } ), a.source, a.start, a.frames ),
    EDIT( Prepend, Leading, ( { 10, 20, 1, 2, 3, 4, 5, 6 } ), a.source, a.frames ),
    EDIT( Prepend, Trailing, ( { 40, 50, 1, 2, 3, 4, 5, 6 } ), a.source, a.frames ),
    EDIT( Prepend, Zero, ( { 0, 0, 1, 2, 3, 4, 5, 6 } ), a.frames ),
    EDIT( Del, Inner, ( { 1, 4, 5, 6 } ), a.start, a.frames ),
    EDIT( Del, Outer, ( { 2, 3 } ), a.start, a.frames ),
    EDIT( Del, Leading, ( { 3, 4, 5, 6 } ), a.frames ),
    EDIT( Del, Trailing, ( { 1, 2, 3, 4 } ), a.frames ),
    CALL( pcmPacketClear, Clear, partZero, ( {} ), pcmPacketClear( pkt ) ),
    CALL( pcmPacketSetFrames, SetFrames, partZero, ( { 1, 2 } ), pcmPacketSetFrames( pkt, a.frames ) ),
    CALL( pcmPacketSetChannels, SetChannels, partZero, ( { 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0 } ),
        pcmPacketSetChannels( pkt, a.channels ) ),
    CALL( pcmPacketMutableBacking, MutableBacking, partZero, ( { 1, 2, 3, 4, 5, -1 } ),
        PCM_SAMPLE *backing = pcmPacketMutableBacking( pkt );
        EXPECT_EQ( backing, pcmPacketBacking( *pkt ) );
        if ( backing ) backing[pcmPacketFrames( *pkt ) * pcmPacketChannels( *pkt ) - 1] = -1 ),
};
// clang-format on

struct Model {
    int64_t channels;
    Frames frames;
    bool legal = true, something = true;
};

Model after( const Row &row, const Model &before, const Frames &source, const Args &a )
{
    Model m = { before.channels, before.frames };
    const std::vector<float> silence( size_t( m.channels ), 0.0f );
    Frames taken, rest, all = row.verb == Del ? m.frames : source;
    if ( !row.word ) taken.resize( size_t( a.frames ), silence ), all.clear();
    for ( size_t f = 0; f < all.size(); ++f )
        ( row.word( int64_t( f ), int64_t( all.size() ), a ) ? taken : rest ).push_back( all[f] );
    auto size = int64_t( m.frames.size() ), idx = row.verb == Append ? size : row.verb == Prepend ? 0 : a.idx;
    if ( row.verb == Write ) {
        m.legal = idx + int64_t( taken.size() ) <= size;
        if ( m.legal ) std::copy( taken.begin(), taken.end(), m.frames.begin() + idx );
    }
    if ( row.verb > Write && row.verb < Del ) m.frames.insert( m.frames.begin() + idx, taken.begin(), taken.end() );
    if ( row.verb == Del ) m.frames = rest;
    if ( row.verb == Clear ) m.frames.clear();
    if ( row.verb == SetFrames ) m.frames.resize( size_t( a.frames ), silence );
    if ( row.verb == SetChannels ) m.channels = a.channels;
    for ( auto &frame : m.frames ) frame.resize( size_t( m.channels ), 0.0f );
    if ( row.verb == MutableBacking && size ) m.frames.back().back() = -1;
    bool resized = m.frames.size() != before.frames.size() || m.channels != before.channels;
    m.something = row.verb == Write ? !taken.empty() : row.verb == MutableBacking || resized;
    return m;
}

Model modelOf( PCM_PACKET *pkt )
{
    Model m = { pcmPacketChannels( pkt ), {} };
    auto all = test::samples( pkt );
    for ( auto at = all.begin(); at != all.end(); at += m.channels ) m.frames.emplace_back( at, at + m.channels );
    return m;
}

void expectState( const Packet &pkt, const Model &m, int32_t count )
{
    EXPECT_EQ( pcmPacketChannels( pkt ), m.channels );
    EXPECT_EQ( modelOf( pkt ).frames, m.frames );
    EXPECT_EQ( pcmPacketFrames( pkt ), int64_t( m.frames.size() ) );
    EXPECT_EQ( pcmPacketBacking( pkt ) == nullptr, m.frames.empty() );
    EXPECT_EQ( kit___ObjDbgAllocationSize( pkt.header() ), int64_t( m.frames.size() ) * m.channels * 4 );
    EXPECT_EQ( pkt.count(), count );
}

int64_t edge( Random &random, int64_t highest )
{
    const int64_t edges[] = { 0, 1, highest, highest - 1, random.upTo( highest ) };
    return std::clamp( edges[random.upTo( 4 )], int64_t{ 0 }, highest );
}

} // namespace

TEST( Packet, EveryRowMakesItsExample )
{
    for ( const Row &row : rows ) {
        Packet source = pcmPacketCreateFromSamplesCopy( Example{ 10, 20, 30, 40, 50 }.data(), 1, 5 );
        Packet pkt = test::packet( 6, 1 );
        row.call( &pkt, { 1, 1, 2, 2, source } );
        EXPECT_EQ( test::samples( pkt ), row.example ) << row.name;
    }
}

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
        const Row &row = rows[random.upTo( std::size( rows ) - 1 )];
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
    std::fill_n( block, 10, 9.0f );
    Packet full = test::packet( 2, 3 ), wide = pcmPacketCreate( 1 ), other = wide;
    Packet used = pcmPacketCreateFromSamplesUse( block, 2, 3 );
    EXPECT_EQ( pcmPacketBacking( used ), block );
    for ( int i = 0; i < 6; ++i ) block[i] = float( i );
    struct {
        Packet made;
        int64_t channels;
        Frames frames;
    } cases[] = {
        { pcmPacketCreate( 1 ), 1, {} },
        { pcmPacketCreate( INT64_MAX ), INT64_MAX, {} },
        { pcmPacketCreateFrom( test::packet( 0, 5 ) ), 5, {} },
        { pcmPacketCreateFrom( full ), 3, { { 1, 2, 3 }, { 4, 5, 6 } } },
        { pcmPacketCreateFromSamplesCopy( test::samples( full ).data(), 2, 3 ), 2, { { 1, 2 }, { 3, 4 }, { 5, 6 } } },
        { pcmPacketCreateFromSamplesCopy( unreadable, most, 0 ), most, {} },
        { pcmPacketCreateFromSamplesCopy( nullptr, 4, 0 ), 4, {} },
        { pcmPacketCreateFromSamplesUse( nullptr, 4, 0 ), 4, {} },
        { pcmPacketCreateFromSamplesUse( static_cast<PCM_SAMPLE *>( kitMemAlloc( 40 ) ), 4, 0 ), 4, {} },
        { std::move( used ), 2, { { 0, 1 }, { 2, 3 }, { 4, 5 } } },
    };
    for ( auto &row : cases ) expectState( row.made, { row.channels, row.frames }, 1 );
    EXPECT_EQ( test::samples( full ), ( Example{ 1, 2, 3, 4, 5, 6 } ) );
    EXPECT_EQ( full.count(), 1 );

    Packet &surplus = std::end( cases )[-1].made;
    pcmPacketDelLeading( &surplus, 2 );
    pcmPacketAppend( &surplus, surplus );
    expectState( surplus, { 2, { { 4, 5 }, { 4, 5 } } }, 1 );
    pcmPacketSetChannels( &wide, most );
    expectState( wide, { most, {} }, 1 );
    expectState( other, { 1, {} }, 1 );
}
