#include "operations.h"
#include "support.h"

#include <algorithm>
#include <deque>
#include <memory>

using operations::streams::converters, operations::streams::direct, operations::streams::Direct;
using test::bits, test::NoLeaks, test::Packet, test::Random, test::Ref, test::Samples;

namespace {

// The model of a packet and of a queue. Whoever holds one keeps it in a shared pointer, so the counts of the pointers
// are the counts that the library's objects should have. An object that a call is about to make has no id yet.
struct Item {
    PCM_PACKET *id;
    Samples samples;
};
using ItemPtr = std::shared_ptr<Item>;
using Items = std::deque<ItemPtr>;
struct State {
    PCM_PACKET_QUEUE *id;
    std::shared_ptr<Items> waiting = std::make_shared<Items>();
    ItemPtr current = nullptr;
    size_t used = 0; // samples of the current packet
};
template <class T, class M> struct Held {
    Ref<T> real;
    std::shared_ptr<M> model;
};
using HeldQueue = Held<PCM_PACKET_QUEUE, State>;
using HeldPacket = Held<PCM_PACKET, Item>;

// Copy-on-write in the model.
template <class M> M &own( std::shared_ptr<M> &model )
{
    if ( model.use_count() == 1 ) return *model;
    model = std::make_shared<M>( *model );
    if constexpr ( !std::is_same_v<M, Items> ) model->id = nullptr;
    return *model;
}

int64_t packets( const State &s ) { return int64_t( s.waiting->size() ) + ( s.current ? 1 : 0 ); }

struct QueueWalk {
    Random random;
    int64_t channels;
    float next = 0;
    std::vector<HeldPacket> held{};
    std::vector<std::weak_ptr<Item>> items{};
    std::vector<HeldQueue> queues{ { pcmPacketQueueCreate( channels ), std::make_shared<State>() } };

    void step()
    {
        HeldQueue &q = random.oneOf( queues );
        int64_t all = frames( *q.model ), frames = random.upTo( std::min( all, int64_t{ 6 } ) );
        if ( random.upTo( 7 ) == 0 ) frames = all;
        switch ( int64_t kind = random.upTo( 15 ) ) {
        case 0: { // one more holder of the queue, or a copy
            HeldQueue other = q;
            if ( random.upTo( 1 ) ) {
                other.real = pcmPacketQueueCreateFrom( q.real );
                own( other.model );
                know( other );
            }
            queues.push_back( std::move( other ) );
            if ( queues.size() > 4 ) queues.erase( queues.begin() + random.upTo( 3 ) );
            return;
        }
        case 1: // a writer goes on to change a packet that queues may hold
            if ( HeldPacket *pkt = held.empty() ? nullptr : &random.oneOf( held ) ) {
                own( pkt->model );
                PCM_SAMPLE *backing = pcmPacketMutableBacking( &pkt->real );
                if ( backing ) pkt->model->samples[0] = backing[0] = next += 100;
                know( *pkt );
            }
            return;
        case 2:
        case 3: held.erase( held.begin(), held.begin() + random.upTo( int64_t( held.size() ) ) ); return;
        case 4:
            if ( random.upTo( 2 ) ) return;
            own( q.model );
            *q.model = { q.model->id };
            pcmPacketQueueClear( &q.real );
            break;
        case 5:
        case 6:
            if ( packets( *q.model ) ) read( q );
            return;
        case 7:
        case 8: {
            auto item = std::make_shared<Item>();
            if ( frames && !own( q.model ).current ) q.model->current = takeFirst( *q.model );
            if ( frames && q.model->current->samples.size() - q.model->used == size_t( frames * channels ) )
                item = takeCurrent( *q.model );
            else if ( frames )
                item->samples = taken( *q.model, frames );
            hold( { pcmPacketQueueGather( &q.real, frames ), std::move( item ) } );
            break;
        }
        case 9:
        case 10: {
            Samples expected = taken( own( q.model ), frames ), dest( expected.size() + 1, 1000 );
            for ( float &sample : expected ) sample += kind == 9 ? 1000.0f : 0.0f;
            expected.push_back( 1000 ); // what lies behind stays
            auto call = kind == 9 ? pcmPacketQueueGatherSamplesAdd : pcmPacketQueueGatherSamples;
            call( &q.real, frames ? dest.data() : nullptr, frames );
            EXPECT_EQ( dest, expected );
            break;
        }
        default: { // a new packet, or one that may be in some queue already
            Packet fresh = test::packet( random.upTo( 5 ), channels, next += 100 );
            if ( held.empty() || random.upTo( 3 ) )
                hold( { fresh, ItemPtr( new Item{ nullptr, test::samples( fresh ) } ) } );
            HeldPacket &pkt = random.oneOf( held );
            own( own( q.model ).waiting ).push_back( pkt.model );
            pcmPacketQueueWrite( &q.real, pkt.real );
        }
        }
        know( q );
    }

    void read( HeldQueue &q )
    {
        State &s = own( q.model );
        hold( { pcmPacketQueueRead( &q.real ), s.current ? takeCurrent( s ) : takeFirst( s ) } );
        know( q );
    }

    ItemPtr takeFirst( State &s )
    {
        ItemPtr item = s.waiting->front();
        own( s.waiting ).pop_front();
        return item;
    }

    // Removing frames that were consumed gives a packet that others hold a new object.
    ItemPtr takeCurrent( State &s )
    {
        ItemPtr item = std::exchange( s.current, nullptr );
        auto used = int64_t( std::exchange( s.used, 0 ) );
        if ( used ) own( item ).samples.erase( item->samples.begin(), item->samples.begin() + used );
        return item;
    }

    Samples taken( State &s, int64_t frames )
    {
        Samples samples;
        while ( samples.size() < size_t( frames * channels ) ) {
            if ( !s.current ) s.current = takeFirst( s );
            if ( s.used < s.current->samples.size() ) samples.push_back( s.current->samples[s.used++] );
            if ( s.used == s.current->samples.size() ) s.current = nullptr, s.used = 0;
        }
        return samples;
    }

    int64_t frames( const State &s )
    {
        size_t samples = s.current ? s.current->samples.size() - s.used : 0;
        for ( auto &item : *s.waiting ) samples += item->samples.size();
        return int64_t( samples ) / channels;
    }

    template <class T, class M> void know( Held<T, M> &h )
    {
        if constexpr ( std::is_same_v<M, Item> )
            if ( !h.model->id ) items.push_back( h.model );
        if ( !h.model->id ) h.model->id = h.real;
        EXPECT_TRUE( h.real == h.model->id );
    }

    void hold( HeldPacket pkt )
    {
        know( pkt );
        held.push_back( std::move( pkt ) );
    }

    void check()
    {
        for ( auto &[real, model] : queues ) {
            EXPECT_EQ( real.count(), model.use_count() );
            EXPECT_EQ( pcmPacketQueueFrames( real ), frames( *model ) );
            EXPECT_EQ( pcmPacketQueuePackets( real ), packets( *model ) );
            EXPECT_EQ( pcmPacketQueueChannels( real ), channels );
        }
        std::erase_if( items, []( auto &item ) { return item.expired(); } );
        for ( auto &item : items ) {
            PCM_PACKET *pkt = item.lock()->id;
            EXPECT_EQ( pcmPacketObj( pkt )->refCount, item.use_count() );
            EXPECT_EQ( test::samples( pkt ), item.lock()->samples );
        }
    }
};

const char *const types[] = { "PCM_SRC_TYPE_SINC_BEST_QUALITY", "PCM_SRC_TYPE_SINC_MEDIUM_QUALITY",
    "PCM_SRC_TYPE_SINC_FASTEST", "PCM_SRC_TYPE_ZERO_ORDER_HOLD", "PCM_SRC_TYPE_LINEAR" };

} // namespace

TEST( Queue, RandomWalksKeepToTheModel )
{
    for ( int64_t channels = 1; channels <= 3; ++channels ) {
        NoLeaks noLeaks;
        QueueWalk walk{ Random( uint64_t( channels ) ), channels };
        walk.know( walk.queues[0] );
        for ( int i = 0; i < 20000; ++i, walk.check() ) {
            ASSERT_FALSE( HasFailure() ) << "step " << i;
            walk.step();
        }
        for ( auto &queue : walk.queues )
            for ( ; packets( *queue.model ) && !HasFailure(); walk.check() ) walk.read( queue );
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
            std::deque<Samples> due;
            Samples rest;
            int64_t frames = 0;
            for ( int64_t i = 0; i < 8; ++i ) {
                EXPECT_EQ( pcmSrcPackets( src ), i );
                EXPECT_EQ( pcmSrcFrames( src ), frames );
                const int64_t sizes[] = { 0, type == PCM_SRC_TYPE_LINEAR ? 2 : 1, 2, 3, 300 };
                int64_t size = random.oneOf( sizes );
                if ( size == 300 ) size = 4 + random.upTo( int64_t( 300 / ratio ) );
                Samples block = random.samples( size_t( size * channels ), 1, 0 );
                due.push_back( direct( state, block, long( channels ), ratio ) );
                frames += int64_t( due.back().size() ) / channels;
                Packet pkt = test::packetOf( block, channels );
                pcmSrcWrite( src, pkt );
                test::expectPacket( pkt, channels, block );
            }
            for ( int i = 0; i < 5; ++i, due.pop_front() )
                test::expectPacket( pcmSrcRead( src ), channels, due.front() );
            ASSERT_FALSE( HasFailure() );
            for ( auto &samples : due ) rest.insert( rest.end(), samples.begin(), samples.end() );
            int64_t left = pcmSrcFrames( src ), first = random.upTo( left ), last = ( left - first ) / 2;
            Samples got = test::samples( Packet( pcmSrcGather( src, first ) ) );
            got.resize( rest.size(), 1 );
            pcmSrcGatherSamples( src, got.data() + first * channels, left - first - last );
            pcmSrcGatherSamplesAdd( src, got.data() + ( left - last ) * channels, last );
            for ( auto at = rest.end() - last * channels; at != rest.end(); ++at ) *at += 1;
            EXPECT_EQ( bits( got ), bits( rest ) );
        }
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
