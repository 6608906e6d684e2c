#include "support.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <dlfcn.h>
#include <unistd.h>

using pcm::Packet, pcm::Tone, test::expectPacket, test::NoLeaks, test::Samples;

// Counts the random numbers that noise draws. A test can replace them.
static std::atomic<int> draws;
static thread_local int64_t lastStart;
static int64_t forcedStart = -1;
static const std::vector<int64_t> *forcedInts;
static size_t forcedIntsUsed;

extern "C" int64_t kitRandomNonNegativeIntRange( int64_t low, int64_t high )
{
    static auto real = reinterpret_cast<int64_t ( * )( int64_t, int64_t )>( dlsym( RTLD_NEXT, __func__ ) );
    ++draws;
    return lastStart = forcedStart < 0 ? real( low, high ) : forcedStart;
}

extern "C" int64_t kitRandomInt( void )
{
    static auto real = reinterpret_cast<int64_t ( * )()>( dlsym( RTLD_NEXT, __func__ ) );
    return forcedInts ? ( *forcedInts )[forcedIntsUsed++ % forcedInts->size()] : real();
}

namespace {

/// Table values from a start index on. After the last value, the first one follows.
Samples sequence( const Samples &table, int64_t start, size_t samples )
{
    Samples all( samples );
    for ( size_t i = 0; i < samples; ++i ) all[i] = table[( size_t( start ) + i ) % table.size()];
    return all;
}

Samples noiseTable()
{
    forcedStart = 0;
    Samples table = test::samples( pcm::noise::gather( 8192 ) );
    forcedStart = -1;
    return table;
}

} // namespace

TEST( Tone, PeriodsComeFromFrequencies )
{
    const struct {
        int64_t rate, hertz;
        double period;
    } rows[] = {
        { 8000, 440, 200.0 / 11 }, { 1, 1000, 0.001 }, { INT64_MAX, 1, 0x1p63 },
        { 16777217, 4194304, 16777217.0 / 4194304 }, // as a float, the rate would be 16777216
    };
    for ( auto &row : rows ) {
        Tone tone = *Tone::tryCreate( row.rate, row.hertz ), wanted( row.period );
        (void)tone.gather( 5000 ), (void)wanted.gather( 5000 ); // a difference of periods adds up
        EXPECT_EQ( test::samples( tone.gather( 50 ) ), test::samples( wanted.gather( 50 ) ) ) << row.rate;
    }
}

// The phase is correct for periods far below a frame. SIGALRM ends the child process if a call does not return.
TEST( Tone, EveryCallReturns )
{
    auto eleventh = []( double period ) {
        Tone tone( period );
        (void)tone.gather( 10 );
        return test::samples( tone.gather( 1 ) )[0];
    };
    EXPECT_NEAR( eleventh( 0.0007 ), std::sin( 6.283185307179586 * ( 10 / 0.0007 - 14285 ) ), 1e-6 );
    EXPECT_EQ( eleventh( 0x1p-10 ), float( std::sin( 6.283185307179586 ) ) ); // a whole period stays one
    auto endless = [] {
        for ( double period : { 5e-324, 1e-300, 0x1p-63, 1e-17, 1e-9, 1e-5, 1e300, HUGE_VAL } )
            for ( int64_t samples : { 1, 2, 100000 } ) {
                Tone tone( period );
                for ( int64_t sample = 0; sample < 3 * samples; sample += samples )
                    for ( float x : test::samples( tone.gather( samples ) ) )
                        if ( period > 1e-307 && !( std::abs( x ) <= 1 ) ) return 1;
            }
        return 0;
    };
    EXPECT_EXIT( alarm( 30 ); _exit( endless() ), testing::ExitedWithCode( 0 ), "" );
}

TEST( Noise, TableIsScaledFromRandomIntegers )
{
    NoLeaks noLeaks;
    const std::vector<int64_t> given = { INT64_MIN, INT64_MAX, 0, 1, -1, INT64_MAX - 1, 3, 0x123456789ABCDEF0,
        -0x4000000000000001 };
    forcedInts = &given;
    forcedIntsUsed = 0;
    kitModuleShutdown( pcmModule() );
    kitModuleStartup( pcmModule() );
    forcedInts = nullptr;
    const Samples table = noiseTable();
    EXPECT_EQ( forcedIntsUsed, 8192 );
    EXPECT_TRUE( table[0] == 1 && table[1] == -1 );
    for ( size_t i = 0; i < 8192; ++i ) ASSERT_EQ( table[i], float( given[i % 9] ) / -9223372036854775808.0f ) << i;
}

TEST( Noise, EachCallDrawsOneStartIndex )
{
    NoLeaks noLeaks;
    const Samples table = noiseTable();
    for ( int64_t start : { -1, 0, 1, 8000, 8191, 8192, -1, -1, -1 } )
        for ( int64_t samples : { 0, 1, 191, 192, 193, 8191, 8192, 8193, 20000 } ) {
            forcedStart = start;
            const int before = draws;
            Samples dest( size_t( samples ), 0.5f );
            auto *block = samples ? dest.data() : nullptr;
            pcmNoiseGatherSamples( block, samples );
            const Samples first = sequence( table, lastStart, dest.size() );
            EXPECT_EQ( dest, first );
            pcmNoiseGatherSamplesAdd( block, samples );
            const Samples second = sequence( table, lastStart, dest.size() );
            for ( size_t i = 0; i < dest.size(); ++i )
                ASSERT_EQ( dest[i], first[i] + second[i] ) << i << " from " << start;
            EXPECT_EQ( draws, before + 2 );
            const Packet pkt = pcm::noise::gather( samples );
            EXPECT_EQ( draws, before + 2 + ( samples > 0 ) );
            expectPacket( pkt, 1, sequence( table, lastStart, dest.size() ) );
            EXPECT_TRUE( lastStart >= 0 && lastStart <= 8192 );
        }
    forcedStart = -1;
}

TEST( ThreadNoise, EveryThreadGetsWholeSequences )
{
    const Samples table = noiseTable();
    test::together( 4, [&]( int ) {
        for ( size_t samples = 0; samples < 1000; samples += 7 ) {
            const Samples made = test::samples( pcm::noise::gather( int64_t( samples ) ) );
            EXPECT_EQ( made, sequence( table, lastStart, samples ) );
        }
    } );
}
