#include "support.h"

#include <algorithm>
#include <numeric>

using test::expectPacket, test::NoLeaks, test::Packet, test::Random, test::Samples;

namespace {

using Frames = std::vector<Samples>;

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

struct Row {
    const char *name;
    Verb verb;
    Word word;
    void ( *call )( PCM_PACKET **pkt, const Args &a );
};

// clang-format off
#define CALL( name, verb, word, ... ) \
    { #name, verb, word, []( PCM_PACKET **pkt, [[maybe_unused]] const Args &a ) { __VA_ARGS__; } }
#define EDIT( verb, word, ... ) \
    CALL( pcmPacket##verb##word, verb, part##word, pcmPacket##verb##word( pkt, __VA_ARGS__ ) )
// All words of a verb; `place` is an index and a comma, or nothing.
#define EDITS( verb, place ) \
    EDIT( verb, , place a.source ), \
    EDIT( verb, Inner, place a.source, a.start, a.frames ), \
    EDIT( verb, Outer, place a.source, a.start, a.frames ), \
    EDIT( verb, Leading, place a.source, a.frames ), \
    EDIT( verb, Trailing, place a.source, a.frames ), \
    EDIT( verb, Zero, place a.frames )
#define AT a.idx,

const Row rows[] = {
    EDITS( Write, AT ), EDITS( Insert, AT ), EDITS( Append, ), EDITS( Prepend, ),
    EDIT( Del, Inner, a.start, a.frames ),
    EDIT( Del, Outer, a.start, a.frames ),
    EDIT( Del, Leading, a.frames ),
    EDIT( Del, Trailing, a.frames ),
    CALL( pcmPacketClear, Clear, partZero, pcmPacketClear( pkt ) ),
    CALL( pcmPacketSetFrames, SetFrames, partZero, pcmPacketSetFrames( pkt, a.frames ) ),
    CALL( pcmPacketSetChannels, SetChannels, partZero, pcmPacketSetChannels( pkt, a.channels ) ),
    CALL( pcmPacketMutableBacking, MutableBacking, partZero,
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
    const Samples silence( size_t( m.channels ), 0.0f );
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
    Samples all;
    for ( auto &frame : m.frames ) all.insert( all.end(), frame.begin(), frame.end() );
    expectPacket( pkt, m.channels, all, count );
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
