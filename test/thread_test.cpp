#include "support.h"

#include <algorithm>
#include <atomic>
#include <numeric>
#include <thread>

using pcm::Packet, pcm::Queue, test::NoLeaks, test::Samples, test::together;

TEST( ThreadShared, HoldersOfAQueueAreIndependent )
{
    NoLeaks noLeaks;
    Queue shared( 1 );
    Samples original( 60 );
    std::iota( original.begin(), original.end(), 1.0f );
    for ( int64_t at = 0, size = 0; at < 60; at += size++ )
        shared.write( test::packet( std::min( size, 60 - at ), 1, float( at + 1 ) ) );
    std::vector<Queue> handles( 4, shared );
    together( 4, [&]( int i ) {
        test::Seeded random( static_cast<uint64_t>( i ) );
        const Queue own = std::move( handles[size_t( i )] );
        for ( int round = 0; round < 300; ++round ) {
            Queue queue = own;
            Samples expected = original, got;
            for ( int step = 0; queue.packets(); ++step ) {
                const int64_t frames = random.upTo( std::min( queue.frames(), int64_t{ 9 } ) );
                Packet pkt = random.upTo( 1 ) ? queue.read() : queue.gather( frames ), copy = pkt;
                for ( float sample : pkt.samples() ) got.push_back( sample );
                if ( step < 3 ) {
                    queue.write( pkt );
                    expected.insert( expected.end(), got.end() - pkt.frames(), got.end() );
                }
                pkt.writeZero( 0, pkt.frames() );
                copy.append( pkt );
                EXPECT_EQ( test::samples( pkt ), Samples( size_t( pkt.frames() ) ) );
                EXPECT_EQ( copy.frames(), 2 * pkt.frames() );
            }
            EXPECT_EQ( got, expected );
        }
        EXPECT_EQ( own.frames(), 60 );
    } );
    EXPECT_EQ( shared.references(), 1 );
    EXPECT_EQ( test::samples( shared.gather( 60 ) ), original );
}

// After the other holders have released the objects, the last one changes them in place. Only the reference counts
// show that it is the last one.
TEST( ThreadLast, HolderChangesInPlace )
{
    NoLeaks noLeaks;
    int inPlace = 0;
    const Samples original{ 1, 2, 3, 4, 5, 6, 7, 8 };
    for ( int round = 0; round < 300; ++round ) {
        const size_t others = 1 + size_t( round % 3 );
        Packet pkt = test::packet( 8, 1 );
        Queue queue( 1 );
        for ( float first : { 1.0f, 5.0f } ) queue.write( test::packet( 4, 1, first ) );
        std::vector<Packet> packets( others, pkt );
        std::vector<Queue> queues( others, queue );
        std::atomic<size_t> gone = 0;
        together( int( others ) + 1, [&]( int i ) {
            if ( i ) {
                Packet own = std::move( packets[size_t( i ) - 1] );
                Queue ownQueue = std::move( queues[size_t( i ) - 1] );
                EXPECT_EQ( test::samples( own ), original );
                EXPECT_EQ( test::samples( ownQueue.gather( 8 ) ), original );
                own = Packet();
                ownQueue = Queue();
                gone.fetch_add( 1, std::memory_order_relaxed );
                return;
            }
            while ( gone.load( std::memory_order_relaxed ) < others ) std::this_thread::yield();
            const void *const object = pkt.get(), *const queueObject = queue.get();
            pkt.writeZero( 0, 8 );
            pkt.delLeading( 7 );
            queue.write( pkt );
            (void)queue.gather( 1 );
            EXPECT_EQ( test::samples( queue.read() ), ( Samples{ 2, 3, 4 } ) );
            EXPECT_EQ( queue.frames(), 5 );
            inPlace += pkt.get() == object && queue.get() == queueObject;
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
    auto waitFor = [&]( int count ) {
        for ( int spins = 0; arrived < count; ++spins )
            if ( spins > 1000 ) std::this_thread::yield();
    };
    together( 2, [&]( int i ) {
        for ( int round = 0; round < rounds; ++round ) {
            if ( i == 0 ) tone = pcmToneRetain( pcmToneCreate( 4 ) );
            ++arrived;
            waitFor( 4 * round + 2 );
            pcmToneRelease( tone );
            ++arrived;
            waitFor( 4 * round + 4 );
        }
    } );
}

// No random number repeats across threads.
TEST( ThreadRandom, NumbersDiffer )
{
    std::vector<int64_t> numbers( 80000 );
    together( 4, [&]( int i ) { std::generate_n( numbers.begin() + i * 20000, 20000, kitRandomInt ); } );
    std::sort( numbers.begin(), numbers.end() );
    EXPECT_EQ( std::adjacent_find( numbers.begin(), numbers.end() ), numbers.end() );
}
