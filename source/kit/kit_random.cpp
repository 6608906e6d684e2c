#include "kit_random.h"

#include "kit_check.hh"

#include <atomic>

#if defined( _WIN32 )
    #define _CRT_RAND_S
    #include <stdlib.h> // rand_s
#else
    #include <unistd.h> // getentropy
#endif

static uint64_t systemEntropy()
{
    uint64_t seed = 0;
#if defined( _WIN32 )
    unsigned half[2];
    bool seeded = !rand_s( &half[0] ) && !rand_s( &half[1] );
    seed = uint64_t{ half[0] } << 32 | half[1];
#else
    bool seeded = !getentropy( &seed, sizeof seed );
#endif
    KIT_CHECK( seeded );
    return seed | 1;
}

// 0 until seeded. If several threads seed it at the same time, all use the seed of one of them.
alignas( 8 ) static uint64_t state;

static uint64_t next()
{
    constexpr uint64_t step = 0x9E3779B97F4A7C15;
    std::atomic_ref shared( state );
    uint64_t expected = 0;
    if ( shared.load( std::memory_order_relaxed ) == 0 ) shared.compare_exchange_strong( expected, systemEntropy() );
    uint64_t z = shared.fetch_add( step, std::memory_order_relaxed ) + step;
    z = ( z ^ ( z >> 30 ) ) * 0xBF58476D1CE4E5B9;
    z = ( z ^ ( z >> 27 ) ) * 0x94D049BB133111EB;
    return z ^ ( z >> 31 );
}

int64_t kitRandomInt( void ) { return int64_t( next() ); }

int64_t kitRandomNonNegativeIntRange( int64_t low, int64_t high )
{
    KIT_CHECK( low >= 0 );
    KIT_CHECK( low < high );
    // Reject the lowest values, so that the others are a whole multiple of the span and all results are equally
    // likely.
    uint64_t span = uint64_t( high - low ), surplus = -span % span, random;
    do random = next();
    while ( random < surplus );
    return low + int64_t( random % span );
}
