// Scripts of operations on packets, queues and filters that share what they hold, beside their models.

#include "../operations.h"
#include "../support.h"
#include "fuzz.h"

using namespace operations::edits;
using namespace operations::channels;
using Stream = operations::streams::Model;
using test::Packet, test::Ref, test::Samples;

namespace {

using Wide = __int128;
using Text = const char *;

Model modelOf( PCM_PACKET *pkt )
{
    const int64_t channels = pcmPacketChannels( pkt );
    return { channels, framesOf( test::samples( pkt ), channels ) };
}

bool fits( Wide x ) { return x == int64_t( x ); }

#define NEED( condition, text ) \
    if ( !( condition ) ) return text

/// What allocating samples breaks, if anything.
Text tooMany( Wide frames, Wide channels )
{
    Wide bytes = frames * std::min<Wide>( channels * 4, INT64_MAX );
    NEED( fits( bytes ), "KIT_INT_MUL_OK( count, size )" );
    return bytes > Wide{ 1 } << 40 ? "memory" : nullptr;
}

/// The handle that a call gets: 0, good; 1, no address; 2, null.
Text handleText( int missing ) { return missing == 1 ? "pkt" : missing ? "*pkt" : nullptr; }

// The first condition that an edit breaks; the tests of its own come first, then those of its steps.
Text broken( const Row &row, const Args &a, int missing, const Model &m, const Model *source )
{
    const Text handle = handleText( missing );
    const Wide n = a.frames, all = source ? source->frames.size() : 0;
    const bool inserts = row.verb > Write && row.verb < Del, outer = row.word == partOuter, whole = row.word == part;
    const bool trailing = row.word == partTrailing, stretch = row.word == partInner || outer;
    Wide size = m.frames.size(), idx = row.verb == Append ? size : row.verb == Prepend ? 0 : a.idx;

    if ( row.verb >= Del || row.verb == Append ) NEED( !handle, handle );
    if ( row.verb == SetFrames ) {
        NEED( n >= 0, "frames >= 0" );
        return n > size ? tooMany( n, m.channels ) : nullptr;
    }
    if ( row.verb == SetChannels ) {
        NEED( a.channels > 0, "channels > 0" );
        NEED( fits( Wide( a.channels ) * 4 ), "KIT_INT_MUL_OK( channels, KIT_SIZEOF( PCM_SAMPLE ) )" );
        return a.channels != m.channels && size ? tooMany( size, a.channels ) : nullptr;
    }
    if ( row.verb == Del ) {
        if ( trailing ) NEED( fits( size - n ), "KIT_INT_SUB_OK( (*pkt)->frames, frames )" );
        idx = trailing ? size - n : stretch ? Wide( a.start ) : 0;
        NEED( idx >= 0, "idx >= 0" );
        NEED( n >= 0, "frames >= 0" );
        NEED( fits( idx + n ), "KIT_INT_ADD_OK( idx, frames )" );
        NEED( idx + n <= size, "idx + frames <= (*pkt)->frames" );
    }
    if ( row.verb >= Del ) return nullptr;

    if ( inserts && outer ) NEED( missing != 1, "pkt" );
    if ( whole || trailing || ( inserts && ( outer || row.word == partLeading ) ) ) NEED( source, "source" );
    if ( trailing || ( inserts && outer ) ) NEED( fits( all - n ), "KIT_INT_SUB_OK( source->frames, frames )" );
    const Wide offset = stretch ? Wide( a.start ) : trailing ? all - n : 0, length = whole ? all : n;
    const Wide written = outer ? all - length : length;
    NEED( !handle, handle );
    NEED( idx >= 0, "idx >= 0" );
    if ( inserts ) {
        NEED( written >= 0, "frames >= 0" );
        NEED( fits( idx + written ), "KIT_INT_ADD_OK( idx, frames )" );
        NEED( fits( size + written ), "KIT_INT_ADD_OK( (*pkt)->frames, frames )" );
        if ( Text text = written && idx <= size ? tooMany( size + written, m.channels ) : nullptr ) return text;
        if ( idx <= size ) size += written;
    }
    if ( row.word ) {
        NEED( source, "source" );
        NEED( offset >= 0, "offset >= 0" );
    }
    NEED( length >= 0, "frames >= 0" );
    if ( row.word ) {
        NEED( fits( offset + length ), "KIT_INT_ADD_OK( offset, frames )" );
        NEED( offset + length <= all, "offset + frames <= source->frames" );
    }
    NEED( fits( idx + written ),
        outer ? "KIT_INT_ADD_OK( idx, source->frames - frames )" : "KIT_INT_ADD_OK( idx, frames )" );
    NEED( idx + written <= size,
        outer ? "idx + (source->frames - frames) <= (*pkt)->frames" : "idx + frames <= (*pkt)->frames" );
    NEED( !row.word || m.channels == source->channels, "(*pkt)->channels == source->channels" );
    return nullptr;
}

struct Rectangle {
    int64_t destChannel, destFrame, sourceChannel, sourceFrame, channels, frames, sourceChannels;
    bool raw;
};

Text broken( const Rectangle &r, int missing, const Model &m, const Model *source )
{
    const Wide width = r.channels, height = r.frames, sourceFrames = source ? source->frames.size() : 0;
    if ( !r.raw ) {
        NEED( missing != 1, "pkt" );
        NEED( source, "source" );
        NEED( fits( r.sourceFrame + height ), "KIT_INT_ADD_OK( sourceFrameOffset, frames )" );
        NEED( r.sourceFrame + height <= sourceFrames, "sourceFrameOffset + frames <= source->frames" );
    }
    NEED( !missing, handleText( missing ) );
    NEED( r.destChannel >= 0, "destChannelOffset >= 0" );
    NEED( fits( r.destChannel + width ), "KIT_INT_ADD_OK( destChannelOffset, channels )" );
    NEED( r.destChannel + width <= m.channels, "destChannelOffset + channels <= (*pkt)->channels" );
    NEED( r.destFrame >= 0, "destFrameOffset >= 0" );
    NEED( fits( r.destFrame + height ), "KIT_INT_ADD_OK( destFrameOffset, frames )" );
    NEED( r.destFrame + height <= Wide( m.frames.size() ), "destFrameOffset + frames <= (*pkt)->frames" );
    NEED( sourceFrames || !height, "source || !frames" );
    NEED( r.sourceChannel >= 0, "sourceChannelOffset >= 0" );
    NEED( fits( r.sourceChannel + width ), "KIT_INT_ADD_OK( sourceChannelOffset, channels )" );
    NEED( r.sourceChannel + width <= r.sourceChannels, "sourceChannelOffset + channels <= sourceChannelCount" );
    NEED( r.sourceFrame >= 0, "sourceFrameOffset >= 0" );
    NEED( fits( r.sourceFrame + height ), "KIT_INT_ADD_OK( sourceFrameOffset, frames )" );
    NEED( width >= 0, "channels >= 0" );
    NEED( height >= 0, "frames >= 0" );
    return nullptr;
}

void write( PCM_PACKET **pkt, const Rectangle &r, PCM_PACKET *source )
{
    if ( r.raw )
        pcmPacketWriteChannelsSamples( pkt, r.destChannel, r.destFrame, source ? pcmPacketBacking( source ) : nullptr,
            r.sourceChannel, r.sourceChannels, r.sourceFrame, r.channels, r.frames );
    else
        pcmPacketWriteChannels(
            pkt, r.destChannel, r.destFrame, source, r.sourceChannel, r.sourceFrame, r.channels, r.frames );
}

// The same for the calls that change channel or frame counts.
Text broken( int call, int64_t n, int missing, const Model &m )
{
    const Wide size = m.frames.size(), channels = call == withMask ? std::popcount( uint64_t( n ) ) : n;
    if ( call < replaceWithDownmix ) {
        NEED( !missing, "source" );
        if ( call == withMask ) NEED( n, "channelMask" );
        NEED( channels > 0, "channels > 0" );
        bool stays = channels == m.channels;
        return !stays && size * std::min<Wide>( channels * 4, INT64_MAX ) > Wide{ 1 } << 40 ? "memory" : nullptr;
    }
    NEED( !missing, handleText( missing ) );
    if ( call < extend ) {
        NEED( n > 0, "channels > 0" );
        if ( call == expandWithDownmix && n > m.channels )
            NEED( fits( channels * 4 ), "KIT_INT_MUL_OK( channels, KIT_SIZEOF( PCM_SAMPLE ) )" );
        return size && !( call == expandWithDownmix && n == m.channels ) ? tooMany( size, n ) : nullptr;
    }
    NEED( n > 1, call == extend ? "mult > 1" : "div > 1" );
    if ( call == reduce || !size ) return !size || size % n == 0 ? nullptr : "sourceFrames % div == 0";
    NEED( fits( size * n ), "KIT_INT_MUL_OK( sourceFrames, mult )" );
    NEED( fits( size * n * m.channels ), "KIT_INT_MUL_OK( destFrames, sourceChannels )" );
    return tooMany( size * n * m.channels, 1 );
}

/// What queues and filters both do.
template <class T> struct Calls : operations::streams::Calls<T **> {
    std::string name;
    T *( *copy )( T * );
    void ( *clear )( T ** );
    int64_t ( *queries[3] )( T * );
    T *( *create )( const Samples &taps, int64_t channels );
};

const Calls<PCM_PACKET_QUEUE> queueCalls = { operations::streams::ofQueues, "queue", pcmPacketQueueCreateFrom,
    pcmPacketQueueClear, { pcmPacketQueueFrames, pcmPacketQueuePackets, pcmPacketQueueChannels },
    []( const Samples &, int64_t channels ) { return pcmPacketQueueCreate( channels ); } };

const Calls<PCM_FILTER> filterCalls = { operations::streams::ofFilters, "filter", pcmFilterCreateFrom, pcmFilterReset,
    { pcmFilterFrames, pcmFilterPackets, pcmFilterChannels }, []( const Samples &taps, int64_t channels ) {
        auto set = pcmFilterCoefficientsCreateFromSamplesCopy( taps.data(), int64_t( taps.size() ) );
        PCM_FILTER *filter = pcmFilterCreate( set, channels );
        pcmFilterCoefficientsRelease( set );
        return filter;
    } };

enum { Retain, Copy, Reset, Read, Gather, Into, Add, Put };

/// `given`: whether there is a block to write to, or a packet, of so many channels.
template <class T>
std::string broken(
    const Calls<T> &calls, const Stream &s, int missing, int verb, int64_t frames, bool given, int64_t channels )
{
    const auto ready = int64_t( s.ready.size() / s.channels );
    NEED( !missing, ( missing == 1 ? "" : "*" ) + calls.name );
    if ( verb == Read ) NEED( s.packets.size(), "pkt" );
    if ( verb >= Put ) {
        NEED( given, "pkt" );
        NEED( channels == int64_t( s.channels ), "pcmPacketChannels( pkt ) == (*" + calls.name + ")->channels" );
    }
    if ( verb < Gather || verb >= Put ) return "";
    NEED( frames >= 0, "frames >= 0" );
    NEED( verb == Gather || given || !frames, "frames == 0 || dest" );
    NEED( frames <= ready, verb == Gather ? "frames <= (*queue)->frames" : "(*queue)->frames >= frames" );
    return "";
}

/// What a call may do to an object: a shared one, or one that must be new in any case, is replaced by one with a
/// single holder; any other is changed where it is.
template <class T> struct Change {
    const Ref<T> &real;
    bool replaces;
    const T *object = real;
    int32_t count = real.count();
    const void *backing = backingOf( real );

    Change( const Ref<T> &handle, bool renewed ) : real( handle ), replaces( renewed || real.count() > 1 ) {}
    static const void *backingOf( PCM_PACKET *pkt ) { return pcmPacketBacking( pkt ); }
    static const void *backingOf( void * ) { return nullptr; }
    bool isRight( bool something, bool resizes ) const
    {
        const bool replaced = replaces && something;
        return ( real != object ) == replaced && real.count() == ( replaced ? 1 : count ) &&
               ( replaced || ( something && resizes ) || backingOf( real ) == backing );
    }
};

struct Walk {
    struct Held {
        Packet real;
        Model model;
    };
    template <class T> struct HeldStream {
        Ref<T> real;
        Stream model;
    };

    fuzz::Reader in;
    std::vector<Held> packets{};
    std::vector<HeldStream<PCM_PACKET_QUEUE>> queues{};
    std::vector<HeldStream<PCM_FILTER>> filters{};

    Samples someSamples( size_t count )
    {
        Samples samples( count );
        for ( float &x : samples ) x = in.sample();
        return samples;
    }

    Packet somePacket()
    {
        int64_t channels = in.upTo( 31 ) ? 1 + in.upTo( 2 ) : 66, frames = in.upTo( channels > 3 ? 2 : 9 );
        return test::packetOf( someSamples( size_t( frames * channels ) ), channels );
    }

    void hold( Packet pkt, size_t place )
    {
        Model model = modelOf( pkt );
        if ( place < packets.size() )
            packets[place] = { pkt, model };
        else
            packets.push_back( { pkt, model } );
    }

    int missing()
    {
        const int choice = in.byte();
        return choice < 248 ? 0 : 1 + choice % 2;
    }

    /// A packet of the walk, often the one that is edited, or none.
    Held *someSource( Held &edited )
    {
        uint8_t choice = in.byte();
        return choice % 32 == 31 ? nullptr : choice % 4 == 3 ? &edited : &packets[choice % packets.size()];
    }

    /// Breaks the condition with copies of the packets, shared and the same as they are.
    template <class Call> void mustBreak( Text text, const Held &h, const Held *source, int missing, Call call )
    {
        test::mustBreak( text, [&] {
            PCM_PACKET *own = pcmPacketCreateFrom( h.real ), *from = nullptr;
            if ( source ) from = source->real == h.real ? own : pcmPacketCreateFrom( source->real );
            if ( h.real.count() > 1 ) pcmPacketRetain( own );
            if ( missing == 2 ) own = nullptr;
            call( missing == 1 ? nullptr : &own, from );
        } );
    }

    void edit( Held &h )
    {
        const Row &row = in.oneOf( rows );
        Held *source = someSource( h );
        auto size = int64_t( h.model.frames.size() ), all = size;
        if ( row.word && row.verb < Del ) all = source ? int64_t( source->model.frames.size() ) : 0;
        Args a = { in.number( size ), in.number( all ), in.number( all ), in.number( 4 ), nullptr };
        if ( row.verb > Del && row.verb != SetFrames ) a.frames = 0;
        const int missing = this->missing();
        if ( Text text = broken( row, a, missing, h.model, source ? &source->model : nullptr ) )
            return mustBreak( text, h, source, missing, [&]( PCM_PACKET **pkt, PCM_PACKET *from ) {
                a.source = from;
                row.call( pkt, a );
            } );
        if ( source ) a.source = source->real;
        const Change change( h.real, row.word && row.verb < Del && a.source == h.real );
        h.model = after( row, Model( h.model ), source ? Frames( source->model.frames ) : Frames(), a );
        row.call( &h.real, a );
        const bool resized = row.verb != Write && row.verb != MutableBacking;
        EXPECT_TRUE( change.isRight( h.model.something, resized ) ) << row.name;
    }

    void rectangle( Held &h )
    {
        Held *source = someSource( h );
        const Model none{ 3, {} }, from = source ? source->model : none, before = h.model;
        auto size = int64_t( before.frames.size() ), all = int64_t( from.frames.size() );
        const int64_t channels = std::min( before.channels, from.channels );
        Rectangle r = { in.number( 1 ), in.number( size / 2 ), in.number( 1 ), in.number( all / 2 ),
            in.number( channels ), in.number( std::min( size, all ) ), from.channels, in.upTo( 1 ) != 0 };
        const int missing = this->missing();
        if ( Text text = broken( r, missing, before, source ? &source->model : nullptr ) )
            return mustBreak(
                text, h, source, missing, [&]( PCM_PACKET **pkt, PCM_PACKET *packet ) { write( pkt, r, packet ); } );
        if ( r.raw && r.sourceFrame + r.frames > all ) return; // nobody tests that
        const bool own = source && source->real == h.real;
        const Change change( h.real, !r.raw && own );
        const Model &read =
            own && !change.replaces ? h.model : from; // a raw block may be the packet's own: as it changes
        for ( int64_t c = 0; c < r.channels; ++c )
            for ( int64_t f = 0; f < r.frames; ++f )
                h.model.frames[size_t( r.destFrame + f )][size_t( r.destChannel + c )] =
                    read.frames[size_t( r.sourceFrame + f )][size_t( r.sourceChannel + c )];
        write( &h.real, r, source ? *&source->real : nullptr );
        EXPECT_TRUE( change.isRight( r.channels && r.frames, false ) );
    }

    void recount( Held &h )
    {
        const int call = int( in.upTo( 5 ) ),
                  missing = std::min( this->missing(), call < replaceWithDownmix ? 0 : 2 );
        const int64_t n = call == withMask ? int64_t( in.word( in.upTo( 7 ) ? 1 : 8 ) ) : in.number( 5 );
        if ( Text text = broken( call, n, missing, h.model ) )
            return mustBreak(
                text, h, nullptr, missing, [&]( PCM_PACKET **pkt, PCM_PACKET * ) { calls[call]( pkt, n ); } );
        Block before = { size_t( h.model.channels ), test::samples( h.real ) };
        bool stays;
        const Block wanted = after( call, before, uint64_t( n ), stays );
        const Change change( h.real, true );
        calls[call]( &h.real, n );
        EXPECT_TRUE( change.isRight( !stays, true ) );
        test::expectPacket( h.real, int64_t( wanted.channels ), wanted.samples, h.real.count(),
            stays || call == withMask || call >= extend );
        h.model = modelOf( h.real ); // where samples were added, NaNs are any
    }

    template <class T> void stream( std::vector<HeldStream<T>> &all, const Calls<T> &calls, Held &pkt )
    {
        if ( all.size() > 5 ) all.erase( all.begin() );
        if ( all.empty() || in.upTo( 15 ) == 15 ) {
            const int64_t channels = std::min<int64_t>( pkt.model.channels, 70 );
            Samples taps = calls.name == "queue" ? Samples() : someSamples( size_t( 1 + in.upTo( 19 ) ) );
            for ( float &tap : taps ) tap /= float( taps.size() ); // few results are limited
            all.push_back( { calls.create( taps, channels ), { taps, size_t( channels ) } } );
        }
        HeldStream<T> &held = in.oneOf( all );
        Ref<T> &real = held.real;
        Stream &model = held.model;
        const auto C = int64_t( model.channels ), ready = int64_t( model.ready.size() ) / C;
        const int verb = int( in.upTo( 10 ) ), missing = verb < Reset ? 0 : this->missing();
        if ( verb == Retain ) return all.push_back( HeldStream<T>( held ) );
        if ( verb == Copy ) return all.push_back( { calls.copy( real ), Stream( model ) } );
        const int64_t frames = in.number( ready );
        const bool given = in.upTo( 31 ) < 31;
        const std::string text = broken( calls, model, missing, verb, frames, given, pkt.model.channels );
        if ( !text.empty() )
            return test::mustBreak( text, [&] {
                T *own = calls.create( { 1, 2 }, C );
                PCM_PACKET *waiting = pcmPacketCreate( C ), *other = pcmPacketCreateFrom( pkt.real );
                pcmPacketSetFrames( &waiting, ready );
                if ( model.packets.size() ) calls.write( &own, waiting );
                T **handle = missing == 1 ? nullptr : &own;
                PCM_SAMPLE sample;
                if ( missing == 2 ) own = nullptr;
                if ( verb == Reset ) calls.clear( handle );
                if ( verb == Read ) calls.read( handle );
                if ( verb == Gather ) calls.gather( handle, frames );
                if ( verb == Into || verb == Add )
                    calls.into[verb - Into]( handle, given ? &sample : nullptr, frames );
                if ( verb >= Put ) calls.write( handle, given ? other : nullptr );
            } );

        const Change change( real, false );
        const bool something = verb != Gather || frames || calls.name == "filter";
        Packet got;
        Samples wanted;
        if ( verb == Reset ) calls.clear( &real ), model = { model.taps, model.channels };
        if ( verb == Read ) got = calls.read( &real ), wanted = model.read();
        if ( verb == Gather ) got = calls.gather( &real, frames ), wanted = model.take( size_t( frames * C ) );
        if ( verb == Into || verb == Add ) {
            wanted = model.take( size_t( frames * C ) );
            Samples block = someSamples( wanted.size() );
            for ( size_t i = 0; verb == Add && i < block.size(); ++i ) wanted[i] = block[i] + wanted[i];
            calls.into[verb - Into]( &real, frames ? block.data() : nullptr, frames );
            EXPECT_EQ( test::bits( block ), test::bits( wanted ) ) << calls.name;
        }
        if ( verb >= Put ) {
            calls.write( &real, pkt.real );
            model.taps.empty() ? model.put( pkt.model.samples() ) : model.write( pkt.model.samples() );
        }
        EXPECT_TRUE( change.isRight( something, true ) ) << calls.name << " " << verb;
        if ( !got ) return;
        test::expectPacket( got, C, wanted, got.count(), model.taps.empty() );
        hold( got, packets.size() < 9 ? packets.size() : 0 );
    }

    void step()
    {
        const size_t place = size_t( in.upTo( int64_t( packets.size() ) - 1 ) );
        Held &h = packets[place];
        if ( h.model.channels > 70 || h.model.frames.size() * size_t( h.model.channels ) > 500 )
            hold( somePacket(), place );
        switch ( in.upTo( 11 ) ) {
        case 0: return hold( somePacket(), packets.size() < 9 ? packets.size() : place );
        case 1: // one more holder
            if ( packets.size() < 9 ) packets.push_back( Held( h ) );
            return;
        case 2:
            if ( packets.size() > 1 ) packets.erase( packets.begin() + int64_t( place ) );
            return;
        case 3: return rectangle( h );
        case 4: return recount( h );
        case 5:
        case 6: return stream( queues, queueCalls, h );
        case 7:
        case 8: return stream( filters, filterCalls, h );
        default: return edit( h );
        }
    }

    template <class T> void check( std::vector<HeldStream<T>> &all, const Calls<T> &calls )
    {
        for ( auto &[real, model] : all ) {
            EXPECT_EQ( calls.queries[0]( real ), model.ready.size() / model.channels );
            EXPECT_EQ( calls.queries[1]( real ), model.packets.size() );
            EXPECT_EQ( calls.queries[2]( real ), model.channels );
            while ( !in.left() && model.packets.size() &&
                    !testing::Test::HasFailure() ) { // at the end, what is still in there
                Packet pkt = calls.read( &real );
                test::expectPacket( pkt, int64_t( model.channels ), model.read(), pkt.count(), model.taps.empty() );
            }
        }
    }

    void run()
    {
        hold( somePacket(), 0 );
        for ( int steps = 0; in.left() && steps < 300 && !testing::Test::HasFailure(); ++steps ) {
            step();
            for ( auto &[real, model] : packets )
                test::expectPacket( real, model.channels, model.samples(), real.count(), true );
            check( queues, queueCalls );
            check( filters, filterCalls );
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t *data, size_t size )
{
    test::NoLeaks noLeaks;
    Walk{ { data, size } }.run();
    return 0;
}
