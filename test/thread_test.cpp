#include "support.h"

#include <algorithm>
#include <atomic>
#include <numeric>
#include <thread>

using test::NoLeaks, test::Packet, test::Queue, test::Random, test::Samples, test::together;

TEST( ThreadShared, HoldersGoTheirOwnWays )
{
    NoLeaks noLeaks;
    Queue shared = pcmPacketQueueCreate( 1 );
    Samples original( 60 );
    std::iota( original.begin(), original.end(), 1.0f );
    for ( int64_t at = 0, size = 0; at < 60; at += size++ )
        pcmPacketQueueWrite( &shared, test::packet( std::min( size, 60 - at ), 1, float( at + 1 ) ) );
    std::vector<Queue> handles( 4, shared );
    together( 4, [&]( int i ) {
        Random random( static_cast<uint64_t>( i ) );
        Queue mine = std::move( handles[size_t( i )] );
        for ( int round = 0; round < 300; ++round ) {
            Queue queue = mine;
            Samples expected = original, got;
            for ( int step = 0; pcmPacketQueuePackets( queue ); ++step ) {
                auto frames = random.upTo( std::min( pcmPacketQueueFrames( queue ), int64_t{ 9 } ) );
                bool whole = random.upTo( 1 );
                Packet pkt = whole ? pcmPacketQueueRead( &queue ) : pcmPacketQueueGather( &queue, frames ),
                       copy = pkt;
                for ( float sample : test::samples( pkt ) ) got.push_back( sample );
                if ( step < 3 ) pcmPacketQueueWrite( &queue, pkt );
                if ( step < 3 ) expected.insert( expected.end(), got.end() - pcmPacketFrames( pkt ), got.end() );
                pcmPacketWriteZero( &pkt, 0, pcmPacketFrames( pkt ) );
                pcmPacketAppend( &copy, pkt );
                EXPECT_EQ( test::samples( pkt ), Samples( size_t( pcmPacketFrames( pkt ) ) ) );
                EXPECT_EQ( pcmPacketFrames( copy ), 2 * pcmPacketFrames( pkt ) );
            }
            EXPECT_EQ( got, expected );
        }
        EXPECT_EQ( pcmPacketQueueFrames( mine ), 60 );
    } );
    EXPECT_EQ( shared.count(), 1 );
    EXPECT_EQ( test::samples( Packet( pcmPacketQueueGather( &shared, 60 ) ) ), original );
}

TEST( ThreadFilter, HoldersGoTheirOwnWays )
{
    NoLeaks noLeaks;
    using Filter = test::Ref<PCM_FILTER>;
    const float halves[] = { 0.5f, 0.25f };
    std::vector<test::Ref<PCM_FILTER_COEFFICIENTS>> sets(
        4, pcmFilterCoefficientsCreateFromSamplesCopy( halves, 2 ) );
    Filter shared = pcmFilterCreate( sets[0], 1 );
    pcmFilterWrite( &shared, test::packetOf( { 0.5f } ) );
    std::vector<Filter> handles( 4, shared );
    together( 4, [&]( int i ) {
        auto set = std::move( sets[size_t( i )] );
        Filter mine = std::move( handles[size_t( i )] );
        for ( int round = 0; round < 300; ++round ) {
            float x = float( i * 300 + round ) / 2048;
            Filter filters[] = { mine, pcmFilterCreateFrom( mine ), pcmFilterCreate( set, 1 ) };
            for ( Filter &filter : filters ) {
                auto expected = filter == filters[2] ? Samples{ x / 2 } : Samples{ 0.25f, x / 2 + 0.125f };
                pcmFilterWrite( &filter, test::packetOf( { x } ) );
                Packet got = pcmFilterGather( &filter, pcmFilterFrames( filter ) );
                EXPECT_EQ( test::samples( got ), expected );
                pcmFilterReset( &filter );
            }
        }
        EXPECT_EQ( pcmFilterFrames( mine ), 1 );
    } );
    EXPECT_EQ( shared.count(), 1 );
}

// The other holders are gone, and nothing but their counts says so to the last one, which changes the object itself.
TEST( ThreadLast, HolderChangesInPlace )
{
    NoLeaks noLeaks;
    int inPlace = 0;
    for ( int round = 0; round < 300; ++round ) {
        size_t others = 1 + size_t( round % 3 );
        Packet pkt = test::packet( 8, 1 );
        Queue queue = pcmPacketQueueCreate( 1 );
        for ( float first : { 1, 5 } ) pcmPacketQueueWrite( &queue, test::packet( 4, 1, first ) );
        std::vector<Packet> packets( others, pkt );
        std::vector<Queue> queues( others, queue );
        std::atomic<size_t> gone = 0;
        together( int( others ) + 1, [&]( int i ) {
            const Samples original{ 1, 2, 3, 4, 5, 6, 7, 8 };
            if ( i ) {
                Packet own = std::move( packets[size_t( i ) - 1] );
                Queue ownQueue = std::move( queues[size_t( i ) - 1] );
                EXPECT_EQ( test::samples( own ), original );
                EXPECT_EQ( test::samples( Packet( pcmPacketQueueGather( &ownQueue, 8 ) ) ), original );
                own = nullptr;
                ownQueue = nullptr;
                gone.fetch_add( 1, std::memory_order_relaxed );
                return;
            }
            while ( gone.load( std::memory_order_relaxed ) < others ) std::this_thread::yield();
            PCM_PACKET *object = pkt;
            PCM_PACKET_QUEUE *queueObject = queue;
            pcmPacketWriteZero( &pkt, 0, 8 );
            pcmPacketDelLeading( &pkt, 7 );
            pcmPacketQueueWrite( &queue, pkt );
            Packet first = pcmPacketQueueGather( &queue, 1 ), second = pcmPacketQueueRead( &queue );
            EXPECT_EQ( test::samples( second ), ( Samples{ 2, 3, 4 } ) );
            EXPECT_EQ( pcmPacketQueueFrames( queue ), 5 );
            inPlace += pkt == object && queue == queueObject;
        } );
        EXPECT_EQ( test::samples( pkt ), Samples{ 0 } );
    }
    EXPECT_GT( inPlace, 0 );
}

// The object must be freed exactly once.
TEST( ThreadLast, TwoOwnersReleaseAtTheSameTime )
{
    constexpr int rounds = 200000;
    NoLeaks noLeaks;
    PCM_TONE *tone = nullptr;
    std::atomic<int> arrived = 0;
    together( 2, [&]( int i ) {
        for ( int round = 0; round < rounds; ++round ) {
            if ( i == 0 ) tone = pcmToneRetain( pcmToneCreate( 4 ) );
            ++arrived;
            for ( int spins = 0; arrived < 4 * round + 2; ++spins )
                if ( spins > 1000 ) std::this_thread::yield();
            pcmToneRelease( tone );
            ++arrived;
            for ( int spins = 0; arrived < 4 * round + 4; ++spins )
                if ( spins > 1000 ) std::this_thread::yield();
        }
    } );
}

// The generator's results do not repeat before all are through.
TEST( ThreadRandom, NumbersDiffer )
{
    std::vector<int64_t> numbers( 80000 );
    together( 4, [&]( int i ) { std::generate_n( numbers.begin() + i * 20000, 20000, kitRandomInt ); } );
    std::sort( numbers.begin(), numbers.end() );
    EXPECT_EQ( std::adjacent_find( numbers.begin(), numbers.end() ), numbers.end() );
}
