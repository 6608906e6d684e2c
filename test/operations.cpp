#include "operations.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <utility>

using reference::Encoding, reference::floatOf;

namespace operations {

Samples samplesOf( const pcm::Packet &pkt ) { return { pkt.samples().begin(), pkt.samples().end() }; }

Bytes bytesOf( const pcm::Buffer &buffer )
{
    auto *begin = reinterpret_cast<const uint8_t *>( buffer.bytes().data() );
    return { begin, begin + buffer.length() };
}

pcm::Buffer bufferOf( const Bytes &bytes ) { return pcm::Buffer( std::as_bytes( std::span( bytes ) ) ); }

void Results::add( const Bytes &g, const Bytes &w )
{
    got.insert( got.end(), g.begin(), g.end() );
    wanted.insert( wanted.end(), w.begin(), w.end() );
}

void Results::add( Samples g, Samples w, bool onlyMoved )
{
    for ( Samples *samples : { &g, &w } )
        for ( float &x : *samples )
            if ( std::isnan( x ) && !onlyMoved ) x = floatOf( 0x7FC00000 );
    add( reference::bytesOf( g ), reference::bytesOf( w ) );
}

void Results::add( int64_t g, int64_t w )
{
    for ( int shift = 0; shift < 64; shift += 8 ) {
        got.push_back( uint8_t( g >> shift ) );
        wanted.push_back( uint8_t( w >> shift ) );
    }
}

void Results::add( const pcm::Packet &g, int64_t channels, const Samples &w, bool onlyMoved )
{
    add( g.channels(), channels );
    add( g.frames(), int64_t( w.size() ) / channels );
    add( samplesOf( g ), w, onlyMoved );
    require( ( g.backing() == nullptr ) == w.empty(), "a packet has a block exactly if it has frames" );
    require( kit___ObjDbgAllocationSize( g.obj() ) == int64_t( w.size() * sizeof( float ) ), "packet size recorded" );
}

void Results::requireSame( const pcm::Packet &pkt, const Samples &samples, const std::string &rule )
{
    if ( pkt ) require( reference::bytesOf( samplesOf( pkt ) ) == reference::bytesOf( samples ), rule );
}

namespace {

std::vector<Operation> table;
std::string currentSuite;

void add( const std::string &name, int goldenRounds, int walkRounds,
    const std::function<void( Results &, Choices & )> &run )
{
    table.push_back( { name, currentSuite, goldenRounds, walkRounds, run } );
}

/// Checks that an operation followed copy-on-write: if the object is shared, or must be new in any case, a new object
/// with one reference replaces it. Any other object is changed in place.
class HandleCheck {
public:
    template <class T>
    HandleCheck( const T &handle, bool alwaysNew )
        : object( handle.get() ), references( handle.references() ), replaces( alwaysNew || references > 1 )
    {
    }
    template <class T> void check( Results &out, const T &handle, bool changes ) const
    {
        const bool replaced = replaces && changes;
        out.require( ( handle.get() != object ) == replaced, "the handle is replaced exactly if it must be" );
        out.require( handle.references() == ( replaced ? 1 : references ), "references of the result" );
    }

private:
    const void *object;
    int32_t references;
    bool replaces;
};

// ---- Encodings

/// A word with many or few flags, sometimes with unused bits.
uint64_t anyWord( Choices &in )
{
    uint64_t word = in.word( 3 ), choice = in.upTo( 7 );
    if ( choice & 1 ) word &= in.word( 3 ) & in.word( 3 );
    return choice & 6 ? word & 0x7FFFF : word;
}

/// Converts arbitrary bytes between arbitrary encodings, in buffers, packets and memory at any alignment.
void convertAnything( Results &out, Choices &in )
{
    const uint64_t dest = anyWord( in ), source = anyWord( in );
    const auto slot = size_t( Encoding{ source }.slot() ), destSlot = size_t( Encoding{ dest }.slot() );
    const int64_t channels = 1 + in.upTo( 4 );
    Bytes given = in.bytes( in.upTo( in.upTo( 15 ) ? 60 : 3000 ) );

    const pcm::Buffer buffer = bufferOf( given );
    const auto pkt = pcm::Packet::tryDecode( buffer, source, channels );
    const auto made = pcm::tryConvert( dest, buffer, source );
    out.require( pkt.has_value() == ( given.size() % ( slot * size_t( channels ) ) == 0 ), "whole frames only" );
    out.require( made.has_value() == ( given.size() % slot == 0 && !given.empty() ), "whole slots only" );
    out.add( bytesOf( buffer ), given );
    out.require( buffer.references() == 1, "references of the source" );
    given.resize( given.size() / slot * slot );
    const Bytes wanted = reference::convert( dest, source, given );
    if ( made ) out.add( bytesOf( *made ), wanted );
    if ( pkt ) {
        const Bytes floats = reference::convert( 0, source, given );
        out.add( reference::bytesOf( samplesOf( *pkt ) ), floats );
        out.add( *pkt, channels, samplesOf( *pkt ), true );
        out.add( bytesOf( pkt->encode( dest ) ), reference::convert( dest, 0, floats ) );
    }

    // The blocks end exactly with their bytes, so that the address sanitizer sees an access beyond them.
    const size_t samples = given.size() / slot, destShift = size_t( in.upTo( 7 ) ),
                 sourceShift = size_t( in.upTo( 7 ) );
    const Bytes bytes = reference::inMemory( source, given );
    std::unique_ptr<uint8_t[]> to( new uint8_t[destShift + samples * destSlot] );
    std::unique_ptr<uint8_t[]> from( new uint8_t[sourceShift + bytes.size()] );
    std::fill_n( to.get(), destShift + samples * destSlot, uint8_t( 0xA7 ) );
    std::copy( bytes.begin(), bytes.end(), from.get() + sourceShift );
    pcm___Convert( to.get() + destShift, dest, from.get() + sourceShift, source, int64_t( samples ) );
    const uint8_t *begin = to.get() + destShift;
    out.require( std::count( to.get(), to.get() + destShift, 0xA7 ) == ptrdiff_t( destShift ),
        "nothing written before the block" );
    out.add( reference::inMemory( dest, { begin, begin + samples * destSlot } ), wanted );
}

void addEncodings()
{
    static const char *const bases[] = { "0", "PCM_ENCODING_G711_ALAW", "PCM_ENCODING_G711_MULAW",
        "PCM_ENCODING_INT_8", "PCM_ENCODING_INT_16", "PCM_ENCODING_INT_24", "PCM_ENCODING_INT_32",
        "PCM_ENCODING_FLOAT_32" };
    static std::array<std::vector<uint64_t>, 8> layouts;
    for ( uint64_t word : reference::layouts() ) layouts[size_t( Encoding{ word }.base ) + 1].push_back( word );
    for ( auto &words : layouts ) {
        const std::string base = bases[&words - layouts.data()];
        add( "from " + base, 1, 1, [&]( Results &out, Choices &in ) {
            for ( uint64_t word : words ) {
                const Bytes given = in.bytes( 67 * Encoding{ word }.slot() );
                for ( uint64_t dest : { uint64_t{ 0 }, in.oneOf( in.oneOf( layouts ) ) } )
                    out.add( converted( dest, word, given ), reference::convert( dest, word, given ) );
            }
        } );
        add( "to " + base, 1, 1, [&]( Results &out, Choices &in ) {
            for ( uint64_t word : words ) {
                const Bytes given = reference::bytesOf( in.samples( 131, 2 ) );
                out.add( converted( word, 0, given ), reference::convert( word, 0, given ) );
            }
        } );
        add( "packets and buffers of " + base, 1, 2, [&]( Results &out, Choices &in ) {
            for ( uint64_t word : words ) {
                const int64_t channels = 1 + in.upTo( 2 );
                const Samples given = in.samples( 24 );
                const Bytes slots = reference::convert( word, 0, reference::bytesOf( given ) );
                const pcm::Buffer source = bufferOf( slots );
                const pcm::Packet decoded = *pcm::Packet::tryDecode( source, word, channels );
                out.add( bytesOf( pcm::Packet( given, channels ).encode( word ) ), slots );
                out.add( decoded.channels(), channels );
                out.add( reference::bytesOf( samplesOf( decoded ) ), reference::convert( 0, word, slots ) );
                out.add( bytesOf( *pcm::tryConvert( pcm::Encoding::alaw, source, word ) ),
                    reference::convert( PCM_ENCODING_G711_ALAW, word, slots ) );
            }
        } );
    }
    add( "samples in buffers", 20, 20, []( Results &out, Choices &in ) {
        for ( auto &words : layouts ) {
            const uint64_t word = in.oneOf( words );
            const Bytes given = in.bytes( 9 * Encoding{ word }.slot() );
            out.add(
                bytesOf( *pcm::tryConvert( 0, bufferOf( given ), word ) ), reference::convert( 0, word, given ) );
        }
    } );
    add( "encoding words", 20000, 2000, []( Results &out, Choices &in ) {
        const uint64_t bits = in.word();
        const Encoding e{ bits >> in.upTo( 63 ) };
        const pcm::Encoding word = e.word;
        out.add( int64_t( word.normalized().word() ), int64_t( e.normalized() ) );
        out.add( int64_t( pcm::Encoding::fromString( to_string( word ) ).word() ), int64_t( e.normalized() ) );
        out.add( word.sizeofFrame( 3 ), 3 * e.slot() );
    } );
    add( "any conversion", 0, 3000, convertAnything );
}

// ---- Kernels

enum class KernelOp { zero, copy, move, add, mul, scale };

/// The arguments of a kernel. A flat kernel has one channel.
struct KernelCall {
    float *dest;
    int64_t destChannel, destChannels;
    const float *source;
    int64_t sourceChannel, sourceChannels, frames;
    double factor;

    std::span<float> to() const { return { dest, size_t( frames ) }; }
    std::span<const float> from() const { return { source, size_t( frames ) }; }
    pcm::samples::Channel toChannel() const { return { dest, destChannel, destChannels }; }
    pcm::samples::ConstChannel fromChannel() const { return { source, sourceChannel, sourceChannels }; }
};

const struct Kernel {
    const char *name;
    KernelOp op;
    bool isFlat;
    void ( *run )( const KernelCall &c );
} kernels[] = {
    { "Zero", KernelOp::zero, true, []( auto &c ) { pcm::samples::zero( c.to() ); } },
    { "Copy", KernelOp::copy, true, []( auto &c ) { pcm::samples::copy( c.to(), c.from() ); } },
    { "Move", KernelOp::move, true, []( auto &c ) { pcm::samples::move( c.to(), c.from() ); } },
    { "Add", KernelOp::add, true, []( auto &c ) { pcm::samples::add( c.to(), c.from() ); } },
    { "Mul", KernelOp::mul, true, []( auto &c ) { pcm::samples::mul( c.to(), c.from() ); } },
    { "Scale", KernelOp::scale, true, []( auto &c ) { pcm::samples::scale( c.to(), c.factor ); } },
    { "ChannelZero", KernelOp::zero, false, []( auto &c ) { pcm::samples::zero( c.toChannel(), c.frames ); } },
    { "ChannelCopy", KernelOp::copy, false,
        []( auto &c ) { pcm::samples::copy( c.toChannel(), c.fromChannel(), c.frames ); } },
    { "ChannelAdd", KernelOp::add, false,
        []( auto &c ) { pcm::samples::add( c.toChannel(), c.fromChannel(), c.frames ); } },
    { "ChannelMul", KernelOp::mul, false,
        []( auto &c ) { pcm::samples::mul( c.toChannel(), c.fromChannel(), c.frames ); } },
    { "ChannelScale", KernelOp::scale, false,
        []( auto &c ) { pcm::samples::scale( c.toChannel(), c.frames, c.factor ); } },
};

void runModel( KernelOp op, const KernelCall &c )
{
    Samples before;
    if ( op == KernelOp::move ) before.assign( c.source, c.source + c.frames );
    for ( int64_t f = 0; f < c.frames; ++f ) {
        float *d = c.dest + f * c.destChannels + c.destChannel, narrowed = float( c.factor );
        const float *s = c.source + f * c.sourceChannels + c.sourceChannel;
        if ( op == KernelOp::zero ) *d = 0;
        if ( op == KernelOp::copy ) std::memcpy( d, s, sizeof *d );
        if ( op == KernelOp::move ) std::memcpy( d, &before[size_t( f )], sizeof *d );
        if ( op == KernelOp::add ) *d = *d + *s;
        if ( op == KernelOp::mul ) *d = *d * *s;
        if ( op == KernelOp::scale ) *d = *d * narrowed;
    }
}

const double factors[] = { 0.1, 1.0 / 3, -0.0, -1.0, 1e-50, 1e-44, 1 + 0x1p-25, 3e38, INFINITY, NAN };

void addKernels()
{
    for ( auto &kernel : kernels )
        add( kernel.name, 200, 3000, [&]( Results &out, Choices &in ) {
            const int64_t frames = in.upTo( 70 ) + ( in.variant( 99 ) == 99 ? 1000 : 0 );
            const int64_t to = kernel.isFlat ? 1 : 1 + in.upTo( 5 ), from = kernel.isFlat ? 1 : 1 + in.upTo( 5 );
            int64_t sourceAt = to * frames, destAt = 0;
            KernelCall call{ nullptr, in.upTo( to - 1 ), to, nullptr, in.upTo( from - 1 ), from, frames,
                in.oneOf( factors ) };
            Samples got = in.samples( sourceAt + from * frames, 4 ), wanted = got;
            if ( kernel.op != KernelOp::copy && in.upTo( 1 ) ) { // the blocks overlap
                sourceAt = in.upTo( sourceAt );
                if ( in.variant( 1 ) ) sourceAt = std::min<int64_t>( sourceAt, in.upTo( 9 ) );
                if ( in.variant( 1 ) && sourceAt <= from * frames ) std::swap( sourceAt, destAt );
            }
            call.dest = got.data() + destAt, call.source = got.data() + sourceAt;
            kernel.run( call );
            call.dest = wanted.data() + destAt, call.source = wanted.data() + sourceAt;
            runModel( kernel.op, call );
            out.add( got, wanted, kernel.op < KernelOp::add );
        } );
}

// ---- Frames of packets

using Frames = std::vector<Samples>;

Frames framesOf( const Samples &samples, int64_t channels )
{
    Frames frames;
    for ( auto at = samples.begin(); at != samples.end(); at += channels ) frames.emplace_back( at, at + channels );
    return frames;
}

Samples joined( const Frames &frames )
{
    Samples all;
    for ( auto &frame : frames ) all.insert( all.end(), frame.begin(), frame.end() );
    return all;
}

enum class Verb { write, insert, append, prepend, del, other };
enum class Selection { whole, inner, outer, leading, trailing, zero };

struct EditArguments {
    int64_t idx, start, frames, channels;
    const pcm::Packet *source;
};

/// Whether an edit selects frame f of n.
bool selects( Selection selection, int64_t f, int64_t n, const EditArguments &a )
{
    const bool isInner = f >= a.start && f < a.start + a.frames;
    switch ( selection ) {
    case Selection::inner: return isInner;
    case Selection::outer: return !isInner;
    case Selection::leading: return f < a.frames;
    case Selection::trailing: return f >= n - a.frames;
    default: return true;
    }
}

struct Edit {
    const char *name;
    Verb verb;
    Selection selection;
    void ( *run )( pcm::Packet &pkt, const EditArguments &a );
};

#define EDIT( function, verb, selection, ... )                                                      \
    {                                                                                               \
        #function, Verb::verb, Selection::selection,                                                \
            []( pcm::Packet & p, [[maybe_unused]] const EditArguments &a ) { (void)p.__VA_ARGS__; } \
    }

const Edit edits[] = {
    EDIT( pcmPacketWrite, write, whole, write( a.idx, *a.source ) ),
    EDIT( pcmPacketWriteInner, write, inner, writeInner( a.idx, *a.source, a.start, a.frames ) ),
    EDIT( pcmPacketWriteOuter, write, outer, writeOuter( a.idx, *a.source, a.start, a.frames ) ),
    EDIT( pcmPacketWriteLeading, write, leading, writeLeading( a.idx, *a.source, a.frames ) ),
    EDIT( pcmPacketWriteTrailing, write, trailing, writeTrailing( a.idx, *a.source, a.frames ) ),
    EDIT( pcmPacketWriteZero, write, zero, writeZero( a.idx, a.frames ) ),
    EDIT( pcmPacketInsert, insert, whole, insert( a.idx, *a.source ) ),
    EDIT( pcmPacketInsertInner, insert, inner, insertInner( a.idx, *a.source, a.start, a.frames ) ),
    EDIT( pcmPacketInsertOuter, insert, outer, insertOuter( a.idx, *a.source, a.start, a.frames ) ),
    EDIT( pcmPacketInsertLeading, insert, leading, insertLeading( a.idx, *a.source, a.frames ) ),
    EDIT( pcmPacketInsertTrailing, insert, trailing, insertTrailing( a.idx, *a.source, a.frames ) ),
    EDIT( pcmPacketInsertZero, insert, zero, insertZero( a.idx, a.frames ) ),
    EDIT( pcmPacketAppend, append, whole, append( *a.source ) ),
    EDIT( pcmPacketAppendInner, append, inner, appendInner( *a.source, a.start, a.frames ) ),
    EDIT( pcmPacketAppendOuter, append, outer, appendOuter( *a.source, a.start, a.frames ) ),
    EDIT( pcmPacketAppendLeading, append, leading, appendLeading( *a.source, a.frames ) ),
    EDIT( pcmPacketAppendTrailing, append, trailing, appendTrailing( *a.source, a.frames ) ),
    EDIT( pcmPacketAppendZero, append, zero, appendZero( a.frames ) ),
    EDIT( pcmPacketPrepend, prepend, whole, prepend( *a.source ) ),
    EDIT( pcmPacketPrependInner, prepend, inner, prependInner( *a.source, a.start, a.frames ) ),
    EDIT( pcmPacketPrependOuter, prepend, outer, prependOuter( *a.source, a.start, a.frames ) ),
    EDIT( pcmPacketPrependLeading, prepend, leading, prependLeading( *a.source, a.frames ) ),
    EDIT( pcmPacketPrependTrailing, prepend, trailing, prependTrailing( *a.source, a.frames ) ),
    EDIT( pcmPacketPrependZero, prepend, zero, prependZero( a.frames ) ),
    EDIT( pcmPacketDelInner, del, inner, delInner( a.start, a.frames ) ),
    EDIT( pcmPacketDelOuter, del, outer, delOuter( a.start, a.frames ) ),
    EDIT( pcmPacketDelLeading, del, leading, delLeading( a.frames ) ),
    EDIT( pcmPacketDelTrailing, del, trailing, delTrailing( a.frames ) ),
    EDIT( pcmPacketClear, other, zero, clear() ),
    EDIT( pcmPacketSetFrames, other, zero, setFrames( a.frames ) ),
    EDIT( pcmPacketSetChannels, other, zero, setChannels( a.channels ) ),
    { "pcmPacketMutableBacking", Verb::other, Selection::zero,
        []( pcm::Packet &p, const EditArguments & ) {
            const auto samples = p.mutableSamples();
            if ( !samples.empty() ) samples.back() = -1;
        } },
};

struct EditModel {
    int64_t channels;
    Frames frames;
    bool isLegal = true;

    void run( const Edit &edit, const Frames &source, const EditArguments &a )
    {
        const Samples silence( size_t( channels ), 0.0f );
        Frames selected, rest, all = edit.verb == Verb::del ? frames : source;
        if ( edit.selection == Selection::zero ) {
            selected.resize( size_t( a.frames ), silence );
            all.clear();
        }
        const auto total = int64_t( all.size() ), size = int64_t( frames.size() );
        for ( int64_t f = 0; f < total; ++f )
            ( selects( edit.selection, f, total, a ) ? selected : rest ).push_back( all[size_t( f )] );
        const std::string name = edit.name;
        const auto at = [&] { return frames.begin() + a.idx; };
        switch ( edit.verb ) {
        case Verb::write:
            isLegal = a.idx + int64_t( selected.size() ) <= size;
            if ( isLegal ) std::copy( selected.begin(), selected.end(), at() );
            break;
        case Verb::insert: frames.insert( at(), selected.begin(), selected.end() ); break;
        case Verb::append: frames.insert( frames.end(), selected.begin(), selected.end() ); break;
        case Verb::prepend: frames.insert( frames.begin(), selected.begin(), selected.end() ); break;
        case Verb::del:
            // DelOuter deletes the frames that its selection names, as all other edits insert or write them.
            frames = rest;
            break;
        case Verb::other:
            if ( name == "pcmPacketClear" ) frames.clear();
            if ( name == "pcmPacketSetFrames" ) frames.resize( size_t( a.frames ), silence );
            if ( name == "pcmPacketSetChannels" ) channels = a.channels;
            if ( name == "pcmPacketMutableBacking" && size ) frames.back().back() = -1;
            for ( auto &frame : frames ) frame.resize( size_t( channels ), 0.0f );
        }
    }
};

void runEdit( const Edit &edit, Results &out, Choices &in )
{
    const bool readsSource = edit.selection != Selection::zero && edit.verb < Verb::del;
    const int64_t channels = in.variant( 31 ) == 31 ? 66 : 1 + in.upTo( 3 ), frames = in.upTo( 8 );
    const Samples given = in.samples( channels * frames );
    pcm::Packet pkt( given, channels ), source;
    EditModel model;
    EditArguments a{};
    do {
        const bool isSelf = in.upTo( 3 ) == 0;
        const Samples other = isSelf ? given : in.samples( channels * in.upTo( 8 ) );
        source = isSelf ? pkt : pcm::Packet( other, channels );
        const int64_t total = edit.verb == Verb::del ? frames : int64_t( other.size() ) / channels;
        a.idx = in.upTo( frames );
        a.start = in.upTo( total );
        a.channels = 1 + in.upTo( 4 );
        a.frames = in.upTo( edit.selection == Selection::zero ? frames + 2 : total - a.start );
        model = { channels, framesOf( given, channels ) };
        model.run( edit, framesOf( other, channels ), a );
    } while ( !model.isLegal );

    const bool isSelf = source == pkt;
    if ( isSelf && in.variant( 1 ) ) source = pcm::Packet(); // the edited handle is the only one
    a.source = source ? &source : &pkt;
    const pcm::Packet holder = in.variant( 1 ) ? pkt : pcm::Packet();
    const Frames before = framesOf( given, channels );
    const bool writes = edit.verb == Verb::write;
    bool changes = model.frames.size() != before.size() || model.channels != channels;
    if ( writes ) changes = edit.selection == Selection::outer ? a.frames < a.source->frames() : a.frames > 0;
    if ( writes && edit.selection == Selection::whole ) changes = a.source->frames() > 0;
    if ( edit.name == std::string( "pcmPacketMutableBacking" ) ) changes = true;
    const HandleCheck check( pkt, readsSource && isSelf );
    const float *backing = pkt.backing();
    const bool shared = pkt.references() > 1 || ( readsSource && isSelf );

    edit.run( pkt, a );
    out.add( pkt, model.channels, joined( model.frames ), true );
    check.check( out, pkt, changes );
    if ( !changes || ( writes && !shared ) ) out.require( pkt.backing() == backing, "the block stays in place" );
    out.requireSame( holder, given, "other holders" );
}

struct Block {
    int64_t channels;
    Samples samples;

    size_t frames() const { return samples.size() / size_t( channels ); }
    float &at( int64_t frame, int64_t channel ) { return samples[size_t( frame * channels + channel )]; }
};

enum class Layout { channels, mask, replaceWithDownmix, expandWithDownmix, extend, reduce };

const struct LayoutCall {
    const char *name;
    Layout layout;
    void ( *run )( pcm::Packet &pkt, int64_t n );
} layoutCalls[] = {
    { "pcmPacketCreateFromWithChannels", Layout::channels, []( auto &p, int64_t n ) { p = p.withChannels( n ); } },
    { "pcmPacketCreateFromWithChannelMask", Layout::mask,
        []( auto &p, int64_t n ) { p = p.withChannelMask( uint64_t( n ) ); } },
    { "pcmChannelsAdjustReplaceWithDownmix", Layout::replaceWithDownmix,
        []( auto &p, int64_t n ) { p.channelsAdjustReplaceWithDownmix( n ); } },
    { "pcmChannelsAdjustExpandWithDownmix", Layout::expandWithDownmix,
        []( auto &p, int64_t n ) { p.channelsAdjustExpandWithDownmix( n ); } },
    { "pcmFramesExtend", Layout::extend, []( auto &p, int64_t n ) { p.framesExtend( n ); } },
    { "pcmFramesReduce", Layout::reduce, []( auto &p, int64_t n ) { p.framesReduce( n ); } },
};

/// The result for a channel count, channel mask or factor n; `isUnchanged` if there is nothing to do.
Block relayout( Layout layout, const Block &before, int64_t n, bool &isUnchanged )
{
    const int64_t channels = before.channels;
    const bool changesChannels = layout < Layout::extend;
    Block made = { channels, {} };
    if ( changesChannels ) made.channels = layout == Layout::mask ? std::popcount( uint64_t( n ) ) : n;
    isUnchanged =
        changesChannels ? made.channels == channels && layout != Layout::replaceWithDownmix : before.samples.empty();
    if ( isUnchanged ) return before;
    for ( size_t f = 0; f < before.frames(); ++f ) {
        auto at = before.samples.begin() + ptrdiff_t( f ) * channels;
        Samples frame( at, at + channels ), selected;
        float sum = 0;
        for ( float x : frame ) sum += x;
        if ( layout != Layout::channels && channels > 1 ) sum *= float( 1.0 / double( channels ) );
        for ( int64_t c = 0; c < std::min<int64_t>( channels, 64 ); ++c )
            if ( n >> c & 1 ) selected.push_back( frame[size_t( c )] );
        switch ( layout ) {
        case Layout::channels:
        case Layout::replaceWithDownmix: frame.assign( size_t( n ), sum ); break;
        case Layout::expandWithDownmix:
            if ( n < channels ) frame.clear();
            frame.resize( size_t( n ), sum );
            break;
        case Layout::mask:
            frame = selected;
            frame.resize( size_t( made.channels ), 0 );
            break;
        case Layout::extend: frame.resize( size_t( channels * n ) ); break;
        case Layout::reduce:
            if ( f % size_t( n ) ) frame.clear();
        }
        made.samples.insert( made.samples.end(), frame.begin(), frame.end() );
    }
    return made;
}

void runLayoutCall( const LayoutCall &call, Results &out, Choices &in )
{
    const Layout layout = call.layout;
    int64_t n = 2 + in.upTo( 6 ), width = 1 + in.upTo( 6 );
    if ( in.variant( 15 ) == 1 ) width = 66;
    const int64_t frames = in.upTo( 9 ) * ( layout == Layout::reduce ? n : 1 );
    if ( layout < Layout::extend && in.variant( 7 ) == 1 ) n = 1;
    if ( layout < Layout::extend && layout != Layout::mask && in.variant( 7 ) == 1 ) n = width;
    if ( layout == Layout::mask && in.variant( 3 ) == 1 ) n = int64_t( in.word() & in.word() & in.word() ) | 1;
    const Block before{ width, in.samples( width * frames, 4 ) };
    bool isUnchanged;
    const Block after = relayout( layout, before, n, isUnchanged );
    pcm::Packet pkt( before.samples, width ), holder = in.variant( 1 ) ? pkt : pcm::Packet();
    const HandleCheck check( pkt, true );
    call.run( pkt, n );
    const bool onlyMoved = false;
    out.add( pkt, after.channels, after.samples, onlyMoved );
    check.check( out, pkt, !isUnchanged );
    if ( holder ) out.require( samplesOf( holder ).size() == before.samples.size(), "other holders see no change" );
    if ( holder ) out.add( samplesOf( holder ), before.samples, true );
}

void runWriteChannels( Results &out, Choices &in )
{
    int64_t to = 1 + in.upTo( 5 ), from = 1 + in.upTo( 5 ), frames = in.upTo( 9 );
    Block dest{ to, in.samples( to * frames ) }, source{ from, in.samples( from * frames ) };
    pcm::Packet pkt( dest.samples, to ), other( source.samples, from );
    const int64_t self = in.variant( 3 ); // 1: the source is the packet itself
    if ( self == 1 ) source = dest, from = to, other = pkt;
    const int64_t width = in.upTo( std::min( to, from ) ), height = in.upTo( frames ), dc = in.upTo( to - width ),
                  df = in.upTo( frames - height ), sc = in.upTo( from - width ), sf = in.upTo( frames - height );
    const bool isRaw = in.upTo( 1 );
    if ( isRaw && self == 1 ) other = pcm::Packet();
    const pcm::Packet holder = !( isRaw && self == 1 ) && in.variant( 1 ) ? pkt : pcm::Packet();
    const Samples before = dest.samples;
    // A raw block may be the packet's own: then a channel sees what an earlier channel wrote.
    Block &read = isRaw && self == 1 ? dest : source;
    for ( int64_t c = 0; c < width; ++c )
        for ( int64_t f = 0; f < height; ++f ) dest.at( df + f, dc + c ) = read.at( sf + f, sc + c );
    const HandleCheck check( pkt, !isRaw && self == 1 );
    const std::span<const float> block =
        isRaw && self == 1 ? pkt.samples() : std::span<const float>( source.samples );
    if ( !isRaw )
        pkt.writeChannels( dc, df, other, sc, sf, width, height );
    else
        pkt.writeChannels( dc, df, block, sc, from, sf, width, height );
    out.add( pkt, to, dest.samples, true );
    check.check( out, pkt, width && height );
    out.requireSame( holder, before, "other holders" );
}

void addPackets()
{
    for ( auto &edit : edits )
        add( edit.name, 100, 1500, [&]( Results &out, Choices &in ) { runEdit( edit, out, in ); } );
    for ( auto &call : layoutCalls )
        add( call.name, 200, 1500, [&]( Results &out, Choices &in ) { runLayoutCall( call, out, in ); } );
    add( "pcmPacketWriteChannels", 400, 3000, runWriteChannels );
}

// ---- Streams

/// A queue, or a filter that works frame by frame on a history of as many past frames as there are taps.
struct StreamModel {
    Samples taps;
    int64_t channels;
    std::deque<Samples> history = std::deque( taps.size(), Samples( size_t( channels ) ) );
    std::deque<float> ready{};        ///< samples that can be taken
    std::deque<size_t> packetSizes{}; ///< in samples, for each packet that can be read
    int64_t written = 0;              ///< frames

    void write( const Samples &block )
    {
        Samples made;
        for ( const Samples &frame : framesOf( block, channels ) ) {
            history.pop_front();
            history.push_back( frame );
            for ( size_t c = 0; c < frame.size(); ++c ) {
                float sum = 0;
                for ( size_t i = 0; i < taps.size(); ++i ) {
                    const float product = history[i][c] * taps[taps.size() - 1 - i];
                    sum += product;
                }
                made.push_back( sum < -1 ? -1 : sum > 1 ? 1 : sum );
            }
            ++written;
        }
        queue( made );
    }
    void queue( const Samples &block )
    {
        ready.insert( ready.end(), block.begin(), block.end() );
        packetSizes.push_back( block.size() );
    }
    Samples read()
    {
        if ( packetSizes[0] ) return take( packetSizes[0] );
        packetSizes.pop_front();
        return {};
    }
    Samples take( size_t samples )
    {
        auto end = ready.begin() + ptrdiff_t( samples );
        Samples taken( ready.begin(), end );
        ready.erase( ready.begin(), end );
        while ( samples ) {
            const size_t n = std::min( samples, packetSizes[0] );
            samples -= n;
            if ( !( packetSizes[0] -= n ) ) packetSizes.pop_front();
        }
        return taken;
    }
    int64_t frames() const { return int64_t( ready.size() ) / channels; }
    void reset() { *this = { taps, channels }; }
};

/// The slot of the history that the next frame overwrites: the sixth field after the header, on 64-bit hosts.
int64_t historyPosition( const pcm::Filter &filter )
{
    int64_t position;
    std::memcpy(
        &position, reinterpret_cast<const char *>( filter.get() ) + sizeof( KIT_OBJ ) + 40, sizeof position );
    return position;
}

template <class Stream> struct Held {
    Stream stream;
    StreamModel model;

    void compare( Results &out ) const
    {
        const auto packets = int64_t( model.packetSizes.size() );
        out.require( stream.frames() == model.frames() && stream.packets() == packets, "frames and packets" );
        out.require( stream.channels() == model.channels, "channels" );
        if constexpr ( std::is_same_v<Stream, pcm::Filter> ) {
            const auto taps = int64_t( model.taps.size() );
            out.require( stream.coefficients().length() == taps, "coefficients" );
            out.require(
                sizeof( void * ) != 8 || historyPosition( stream ) == model.written % taps, "history position" );
        }
    }
};

/// Writes and takes frames, sometimes through copies of the stream. `writeModel` writes a block to the model.
template <class Stream, class Write>
void walk( Results &out, Choices &in, Held<Stream> held, int64_t shortest, Write writeModel )
{
    constexpr bool isCopyOnWrite = !std::is_same_v<Stream, pcm::Src>;
    constexpr bool isQueue = std::is_same_v<Stream, pcm::Queue>;
    auto &[stream, model] = held;
    const int64_t channels = model.channels;
    std::vector<Held<Stream>> others;
    for ( int i = 0; i < 40 && out.areRight(); ++i ) {
        if constexpr ( isCopyOnWrite ) {
            const int64_t choice = in.variant( 9 );
            if ( choice == 1 ) others.push_back( held );
            if ( choice == 2 ) others.push_back( { stream.clone(), model } );
            if ( choice == 3 && !others.empty() ) std::swap( held, in.oneOf( others ) );
            if ( choice == 4 && !others.empty() ) others.pop_back();
        }
        if ( in.variant( 29 ) == 1 ) {
            const HandleCheck check( stream, false );
            if constexpr ( isQueue )
                stream.clear();
            else
                stream.reset();
            model.reset();
            if constexpr ( isCopyOnWrite ) check.check( out, stream, true );
        }

        const int64_t size =
            in.variant( 5 ) == 1 ? in.variant( 2 ) + shortest : 2 + in.upTo( i % 2 ? 400 / channels : 6 );
        const Samples block = in.samples( size * channels );
        const pcm::Packet written( block, channels );
        const HandleCheck writeCheck( stream, false );
        stream.write( written );
        writeModel( model, block );
        if constexpr ( isCopyOnWrite ) writeCheck.check( out, stream, true );
        if ( i % 8 == 7 ) out.requireSame( written, block, "input" );
        held.compare( out );

        const int64_t n = in.upTo( model.frames() );
        Samples got = in.samples( n * channels ), wanted = i % 4 ? model.take( got.size() ) : model.read();
        const HandleCheck takeCheck( stream, false );
        pcm::Packet taken;
        switch ( i % 4 ) {
        case 0: taken = stream.read(); break;
        case 1: taken = stream.gather( n ); break;
        case 2: stream.gather( got, n ); break;
        case 3:
            for ( size_t s = 0; s < got.size(); ++s ) wanted[s] = got[s] + wanted[s];
            stream.gatherAdd( got, n );
        }
        if ( taken )
            out.add( taken, channels, wanted );
        else
            out.add( got, wanted );
        if ( isQueue ) out.requireSame( taken, wanted, "a queue moves samples" );
        if constexpr ( isCopyOnWrite ) takeCheck.check( out, stream, !( isQueue && i % 4 == 1 && n == 0 ) );
        held.compare( out );
    }
    others.push_back( held );
    for ( auto &other : others ) { // each holder sees its own stream only
        Results rest;
        other.compare( rest );
        while ( rest.areRight() && other.model.packetSizes.size() && &other != &others.back() )
            rest.add( other.stream.read(), channels, other.model.read(), isQueue );
        out.require( rest.areRight(), "other holders: " + rest.failures );
    }
}

void walkFilter( Results &out, Choices &in, const pcm::Coefficients &set, const Samples &taps, int64_t channels )
{
    const pcm::Filter filter( set, channels );
    out.require( filter.coefficients() == set, "coefficients of the filter" );
    const auto size = int64_t( taps.size() * sizeof( float ) );
    out.require( kit___ObjDbgAllocationSize( filter.obj() ) == size * channels, "filter size recorded" );
    walk<pcm::Filter>( out, in, { filter, { taps, channels } }, 0, []( auto &m, auto &block ) { m.write( block ); } );
}

void runFilterOfTaps( int64_t length, Results &out, Choices &in )
{
    if ( in.variant( 1 ) ) length = in.variant( 9 ) == 9 ? 256 : 1 + in.upTo( 69 );
    Samples taps( static_cast<size_t>( length ) );
    for ( float &tap : taps ) tap = float( int32_t( in.word( 2 ) >> 32 ) ) * 0x1p-33f;
    if ( length == 1 ) taps[0] = 1; // output at the limits themselves
    if ( in.variant( 9 ) == 9 ) taps = in.samples( length );
    int64_t channels = length == 9 ? 64 : 1 + in.upTo( 8 );
    if ( length < 30 && in.variant( 15 ) == 15 ) channels = 700;
    walkFilter( out, in, pcm::Coefficients( taps ), taps, channels );
}

void runRateConversion( pcm::SrcType type, Results &out, Choices &in )
{
    struct Rates {
        int64_t read, write;
    };
    static const Rates edges[] = { { 8000, 8000 }, { 48000, 44100 }, { 256, 1 }, { 1, 256 } };
    for ( int64_t rate : { 16000, 11025, 44100 } ) {
        const Rates rates = in.variant( 1 ) ? in.oneOf( edges ) : Rates{ rate, 16000 };
        const int64_t channels = in.variant( 1 ) ? 1 + in.upTo( 2 ) : 2;
        int error;
        const auto makeState = [&] {
            return Converter( src_new( converterTypes[int( type )], int( channels ), &error ), src_delete );
        };
        const double ratio = double( rates.read ) / double( rates.write );
        Converter state = makeState();
        pcm::Src src = *pcm::Src::tryCreate( type, rates.read, rates.write, channels );
        out.require( src.type() == type && src.readFrameRate() == rates.read && src.writeFrameRate() == rates.write,
            "arguments of the converter" );
        const auto writeModel = [&]( StreamModel &m, const Samples &block ) {
            if ( !m.written ) state = makeState(); // new, or after a reset
            m.written = 1;
            m.queue( convertDirectly( state, block, channels, ratio ) );
        };
        // libsamplerate's linear converter reads one frame before a packet of a single frame.
        walk<pcm::Src>( out, in, { src, { {}, channels } }, type == pcm::SrcType::linear ? 2 : 0, writeModel );
    }
}

void addStreams()
{
    add( "queue", 5, 150, []( Results &out, Choices &in ) {
        const int64_t channels = 1 + in.upTo( 5 );
        walk<pcm::Queue>( out, in, { pcm::Queue( channels ), { {}, channels } }, 0,
            []( auto &m, auto &block ) { m.queue( block ); } );
    } );
    for ( auto &set : filterSets )
        add( set.name, 3, 4, [&]( Results &out, Choices &in ) {
            walkFilter( out, in, pcm::Coefficients( set.type ), set.taps, 1 + in.upTo( 4 ) );
        } );
    for ( int64_t length : { 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 33, 64, 100, 257 } )
        add( "filter of taps: " + std::to_string( length ), length == 1 ? 40 : 2, 6,
            [=]( Results &out, Choices &in ) { runFilterOfTaps( length, out, in ); } );
    for ( int64_t type = 0; type < 5; ++type )
        add( "platform/rate conversion " + std::to_string( type ), 1, 5,
            [=]( Results &out, Choices &in ) { runRateConversion( pcm::SrcType( type ), out, in ); } );
}

// ---- Signals

struct Wave {
    double period, position = 0;

    Samples next( int64_t samples )
    {
        Samples made;
        while ( int64_t( made.size() ) < samples ) {
            made.push_back( float( std::sin( 6.283185307179586 / period * position ) ) );
            position += 1;
        }
        while ( position > period ) position -= period;
        return made;
    }
};

/// The next samples of a source, from the waves of its tones.
using WaveModel = Samples ( * )( Wave &a, Wave &b, int64_t samples );

Samples singleWave( Wave &a, Wave &, int64_t samples ) { return a.next( samples ); }

Samples dualWave( Wave &a, Wave &b, int64_t samples )
{
    Samples made = a.next( samples ), other = b.next( samples );
    for ( size_t i = 0; i < made.size(); ++i ) made[i] = ( made[i] + other[i] ) * 0.5f;
    return made;
}

Samples modulatedWave( Wave &a, Wave &b, int64_t samples )
{
    Samples made = a.next( samples ), other;
    for ( size_t i = 0; i < made.size(); ++i ) {
        if ( i % 128 == 0 ) other = b.next( std::min<int64_t>( 128, samples - int64_t( i ) ) );
        made[i] *= other[i % 128];
    }
    return made;
}

/// Generates samples with all three functions of a source. `chunk` is the number of samples that gatherAdd generates
/// at a time.
template <class Source>
void runSource( Results &out, Choices &in, Source source, WaveModel model, Wave &a, Wave &b, int64_t chunk )
{
    static const int64_t lengths[] = { 0, 1, 4, 5, 127, 128, 129, 256, 300 };
    for ( int64_t n : { 100, 333 } ) {
        if ( in.variant( 1 ) ) n = in.oneOf( lengths );
        Samples block( size_t( n ), 0.25f ), wanted;
        switch ( in.variant( 2 ) ) {
        case 0: out.add( source.gather( n ), 1, model( a, b, n ) ); continue;
        case 1:
            source.gather( block );
            wanted = model( a, b, n );
            break;
        default:
            source.gatherAdd( block );
            for ( int64_t done = 0; done < n; done += chunk )
                for ( float x : model( a, b, std::min( chunk, n - done ) ) ) wanted.push_back( 0.25f + x );
        }
        out.add( block, wanted );
    }
}

void runTones( int kind, Results &out, Choices &in )
{
    static const double usual[] = { 4, 0.3, 2.5, 8000 / 440.0, 8000 / 1336.0, 100, 48000 / 25.0 };
    static const double edges[] = { 1, 128, 0.5, 0.0011, 0.00123, 1e300, INFINITY };
    Wave a{ in.oneOf( usual ) }, b{ in.oneOf( usual ) };
    for ( Wave *wave : { &a, &b } )
        if ( in.variant( 2 ) == 1 ) wave->period = in.oneOf( edges );
    const pcm::Tone toneA( a.period ), toneB = in.variant( 3 ) == 1 ? toneA : pcm::Tone( b.period );
    Wave &second = toneB == toneA ? a : b; // one tone may be given twice
    if ( kind == 0 ) runSource( out, in, toneA, singleWave, a, b, INT64_MAX );
    if ( kind == 1 ) runSource( out, in, pcm::DualTone{ toneA, toneB }, dualWave, a, second, 128 );
    if ( kind == 2 ) runSource( out, in, pcm::ModulatedTone{ toneA, toneB }, modulatedWave, a, second, 128 );
}

void runGain( Results &out, Choices &in )
{
    const double gain = in.oneOf( factors );
    Samples got = in.samples( 20 ), wanted = got;
    pcm::Packet pkt( got, 2 ), holder = in.variant( 1 ) ? pkt : pcm::Packet();
    const HandleCheck check( pkt, false );
    for ( float &x : wanted ) x *= float( gain );
    pkt.levelAdjustLinearGain( gain );
    check.check( out, pkt, true );
    out.requireSame( holder, got, "other holders" );
    pcm::samples::levelAdjustLinearGain( got, gain );
    out.add( pkt, 2, wanted );
    out.add( got, wanted );
}

void runDecibels( Results &out, Choices &in )
{
    const auto bits = []( double x ) { return std::bit_cast<int64_t>( x ); };
    const double decibel = double( in.upTo( 450000 ) ) / 1000 - 225, factor = toGain( decibel );
    const double gain = double( 1 + in.upTo( 1 << 30 ) ) / ( 1 << 20 );
    out.add( bits( pcm::decibelFromGain( gain ) ), bits( toDecibel( gain ) ) );
    out.add( bits( pcm::decibelToGain( decibel ) ), bits( factor ) );
    Samples got = in.samples( 20 ), wanted = got;
    pcm::Packet pkt( got, 2 );
    for ( float &x : wanted ) x *= float( factor );
    pcm::samples::levelAdjust( got, decibel );
    out.add( got, wanted );
    pkt.levelAdjust( decibel );
    Results ofPacket;
    ofPacket.add( pkt, 2, wanted );
    out.require( ofPacket.areRight(), "level of a packet" );
}

void addSignals()
{
    add( "gain", 100, 300, runGain );
    add( "platform/decibels", 2000, 5000, runDecibels );
    for ( int kind : { 0, 1, 2 } )
        add( "tones " + std::to_string( kind ), 40, 300,
            [=]( Results &out, Choices &in ) { runTones( kind, out, in ); } );
    add( "silence", 1, 1, []( Results &out, Choices & ) {
        Samples block( 3, 1 );
        pcm::silence::gather( std::span( block ).first( 2 ) );
        out.require( block == Samples{ 0, 0, 1 }, "silence in a block" );
        out.add( pcm::silence::gather( 1000 ), 1, Samples( 1000 ), true );
    } );
    add( "shape of noise", 1, 1, []( Results &out, Choices & ) {
        const pcm::Packet pkt = pcm::noise::gather( 20000 );
        const Samples all = samplesOf( pkt );
        auto [min, max] = std::minmax_element( all.begin(), all.end() );
        out.add( pkt.frames() * pkt.channels(), 20000 );
        out.add( *min >= -1 && *min < -0.9f && *max > 0.9f && *max <= 1, 1 );
    } );
}

// ---- golden

/// Draws nothing for choices that must not change the results.
struct GoldenChoices : test::Seeded {
    using Seeded::Seeded;
    int64_t variant( int64_t ) override { return 0; }
};

Results goldenResults( const Operation &operation )
{
    Results out;
    GoldenChoices in( XXH64( operation.name.data(), operation.name.size(), 0 ) );
    for ( int i = 0; i < operation.goldenRounds; ++i ) operation.run( out, in );
    return out;
}

std::string checksum( const Bytes &bytes )
{
    char text[17];
    std::snprintf( text, sizeof text, "%016llx", (unsigned long long)XXH64( bytes.data(), bytes.size(), 0 ) );
    return text;
}

} // namespace

const std::vector<Operation> &all()
{
    if ( table.empty() ) {
        const std::pair<const char *, void ( * )()> suites[] = { { "Encodings", addEncodings },
            { "Kernels", addKernels }, { "Packets", addPackets }, { "Streams", addStreams },
            { "Signals", addSignals } };
        for ( auto &[name, addAll] : suites ) {
            currentSuite = name;
            addAll();
        }
    }
    return table;
}

int compareWithGolden( const std::string &path, bool printAll )
{
    std::map<std::string, std::string> kept;
    std::ifstream file( path );
    for ( std::string sum, name; file >> sum && std::getline( file >> std::ws, name ); ) kept[name] = sum;

    int same = 0, different = 0, platformSame = 0, platformDifferent = 0;
    for ( auto &operation : all() ) {
        if ( !operation.goldenRounds ) continue;
        const Results out = goldenResults( operation );
        const std::string sum = checksum( out.got );
        const bool isKept = kept[operation.name] == sum, isPlatform = operation.name.starts_with( "platform/" );
        ++( isPlatform && out.areRight() ? isKept ? platformSame : platformDifferent : isKept ? same : different );
        if ( printAll || ( !isKept && !isPlatform ) || !out.areRight() )
            std::printf( "%s %s%s%s%s\n", sum.c_str(), operation.name.c_str(),
                isKept ? "" : ", DIFFERS from the kept checksum",
                out.got == out.wanted ? "" : ", DIFFERS from its model",
                out.failures.empty() ? "" : ( ", " + out.failures ).c_str() );
        kept.erase( operation.name );
    }
    for ( auto &[name, sum] : kept )
        std::printf( "%s %s is kept, but DIFFERS: no such operation\n", sum.c_str(), name.c_str() );
    different += int( kept.size() );
    if ( printAll )
        std::printf( "%d same, %d differ; platform-dependent: %d same, %d differ\n", same, different, platformSame,
            platformDifferent );
    return different;
}

void printGolden()
{
    for ( auto &operation : all() )
        if ( operation.goldenRounds )
            std::printf( "%s %s\n", checksum( goldenResults( operation ).wanted ).c_str(), operation.name.c_str() );
}

// ---- Models that other tests use too

Bytes converted( uint64_t dest, uint64_t source, const Bytes &bytes )
{
    const Encoding to{ dest }, from{ source };
    const int64_t samples = int64_t( bytes.size() ) / from.slot();
    Bytes made( size_t( samples * to.slot() ) + 64, 0xA7 );
    pcm___Convert( made.data(), dest, reference::inMemory( source, bytes ).data(), source, samples );
    if ( std::count( made.end() - 64, made.end(), 0xA7 ) != 64 ) std::abort();
    made.resize( made.size() - 64 );
    return reference::inMemory( dest, made );
}

/// Takes the first half of the taps, multiplied by 10^8.
static Samples mirrored( const std::vector<int> &half )
{
    Samples taps;
    for ( int tap : half ) taps.push_back( float( tap / 1e8 ) );
    for ( size_t i = half.size(); i--; ) taps.push_back( taps[i] );
    return taps;
}

#define SET( cutOff, rate, sum, decibel, ... )                                                                     \
    {                                                                                                              \
        pcm::FilterType::lowpass##cutOff##At##rate, "PCM_FILTER_TYPE_LOWPASS_" #cutOff "_AT_" #rate, cutOff, rate, \
            sum, decibel, mirrored( __VA_ARGS__ )                                                                  \
    }

const std::vector<FilterSet> filterSets = {
    SET( 4000, 16000, 0.97401, -3.76,
        { -692039, -2939334, 1561120, 5077554, -3835860, -9874936, 12675393, 46728578 } ),
    SET( 4000, 24000, 0.98288, -3.40,
        { -743, -1157224, -1402500, 113505, 2371669, 2695675, -677197, -5515933, -5668846, 3877607, 20576246,
            33931801 } ),
    SET( 4000, 48000, 0.98704, -3.26,
        { 93995, -126115, -364955, -551805, -612509, -491882, -176680, 287701, 793933, 1187851, 1303053, 1010423,
            272245, -814065, -1998999, -2904297, -3092136, -2173573, 64716, 3549140, 7863814, 12287326, 15938070,
            18006885 } ),
    SET( 6000, 24000, 0.99079, -3.33,
        { -166381, -1081769, 331986, 1768523, -693677, -2940972, 1559481, 5075915, -3837499, -9876574, 12673753,
            46726942 } ),
    SET( 6000, 48000, 0.99601, -3.10,
        { 20451, -134397, -251919, -234377, -42367, 254427, 483893, 453695, 81266, -501387, -953355, -883966, -117772,
            1078422, 1987852, 1763846, 4262, -2707405, -4694626, -3797615, 1395688, 10299704, 19978382, 26317838 } ),
    SET( 8000, 48000, 0.99843, -3.06,
        { 662, -102161, -125558, -2844, 181886, 226605, 7440, -327570, -410891, -10847, 604963, 753968, -2261,
            -1158741, -1404018, 111987, 2370152, 2694158, -678714, -5517450, -5670363, 3876090, 20574728,
            33930284 } ),
    SET( 12000, 48000, 0.99943, -3.06,
        { -5807, -70003, 9739, 108956, -16205, -169985, 27915, 267005, -48887, -421832, 88776, 672354, -167224,
            -1082612, 331143, 1767680, -694521, -2941815, 1558637, 5075073, -3838342, -9877416, 12672912,
            46726102 } ),
};

const int converterTypes[5] = { SRC_SINC_BEST_QUALITY, SRC_SINC_MEDIUM_QUALITY, SRC_SINC_FASTEST, SRC_ZERO_ORDER_HOLD,
    SRC_LINEAR };

Samples convertDirectly( const Converter &state, const Samples &in, int64_t channels, double ratio )
{
    Samples out;
    long frames = long( in.size() / size_t( channels ) ), taken = 0, space = 0, made = 0;
    while ( taken < frames ) {
        space += std::max( 1L, long( double( frames - taken ) * ratio ) );
        out.resize( size_t( space * channels ) );
        SRC_DATA pass = { in.data() + taken * channels, out.data() + made * channels, frames - taken, space - made, 0,
            0, 0, ratio };
        if ( src_process( state.get(), &pass ) ) std::abort();
        taken += pass.input_frames_used;
        made += pass.output_frames_gen;
    }
    out.resize( size_t( made * channels ) );
    return out;
}

double toDecibel( double gain ) { return std::clamp( std::log10( gain ) * 20.0, -200.0, 200.0 ); }

double toGain( double decibel ) { return std::pow( 10.0, std::clamp( decibel, -200.0, 200.0 ) / 20.0 ); }

} // namespace operations
