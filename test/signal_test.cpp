#include "operations.h"
#include "support.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <dlfcn.h>
#include <unistd.h>

using namespace operations::signals;
using test::expectPacket, test::NoLeaks, test::Packet, test::Random, test::Samples;
using Tone = test::Ref<PCM_TONE>;

// What noise asks of the random generator, counted; a test can answer in its place.
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

/// Table values from a start on, round and round.
Samples stretch( const Samples &table, int64_t start, size_t samples )
{
    Samples all( samples );
    for ( size_t i = 0; i < samples; ++i ) all[i] = table[( size_t( start ) + i ) % table.size()];
    return all;
}

Samples noiseTable()
{
    forcedStart = 0;
    Samples table = test::samples( Packet( pcmNoiseGather( 8192 ) ) );
    forcedStart = -1;
    return table;
}

} // namespace

// Below a frame the rounding of many subtractions shows where a wrap falls; of whole periods the zeros show it.
TEST( Tone, WavesAreThoseOfTheModel )
{
    NoLeaks noLeaks;
    Random random( 8 );
    const double periods[] = { 4, 1, 128, 0.5, 0.3, 0.0011, 0.00123, 2.5, 8000 / 440.0, 100, 1e300, INFINITY };
    const int64_t lengths[] = { 0, 1, 4, 5, 127, 128, 129, 256, 300 };
    for ( int round = 0; round < 150; ++round ) {
        Wave a{ periods[round % 12] }, b{ random.oneOf( periods ) };
        Tone toneA = pcmToneCreate( a.period ), toneB = pcmToneCreate( b.period );
        Tone &second = random.upTo( 4 ) ? toneB : toneA, otherHolder = toneA;
        Wave &other = &second == &toneA ? a : b;
        for ( int call = 0; call < 8; ++call ) {
            auto &family = random.oneOf( families );
            const int64_t samples = random.oneOf( lengths ), action = random.upTo( 2 );
            const int64_t chunk = action ? samples : family.chunk;
            Samples dest( size_t( samples ), 0.25f ), expected;
            for ( int64_t done = 0; done < samples; done += chunk )
                for ( float x : family.model( a, other, std::min( chunk, samples - done ) ) )
                    expected.push_back( action ? x : 0.25f + x );
            if ( action == 2 ) {
                expectPacket( family.gather( toneA, second, samples ), 1, expected );
                continue;
            }
            auto function = action ? family.gatherSamples : family.gatherSamplesAdd;
            function( toneA, second, samples ? dest.data() : nullptr, samples );
            ASSERT_EQ( dest, expected ) << a.period << " and " << b.period << ", family " << &family - families;
        }
    }
}

TEST( Tone, TakesFrequencies )
{
    const int64_t frequencies[][2] = { { 8000, 440 }, { 1, 1000 }, { INT64_MAX, 1 }, { 16777217, 4194304 } };
    for ( auto &[rate, hertz] : frequencies ) {
        Wave wave{ double( rate ) / double( hertz ) };
        expectPacket( pcmToneGather( Tone( pcmToneTryCreateWithFrequency( rate, hertz ) ), 50 ), 1, wave.next( 50 ) );
    }
}

// Of periods far below a frame, however many have gone by, the phase stays. The child ends by SIGALRM if a call
// doesn't.
TEST( Tone, EveryCallEnds )
{
    auto eleventh = []( double period ) {
        Tone tone = pcmToneCreate( period );
        Packet before = pcmToneGather( tone, 10 ), next = pcmToneGather( tone, 1 );
        return test::samples( next )[0];
    };
    EXPECT_NEAR( eleventh( 0.0007 ), std::sin( 6.283185307179586 * ( 10 / 0.0007 - 14285 ) ), 1e-6 );
    EXPECT_EQ( eleventh( 0x1p-10 ), float( std::sin( 6.283185307179586 ) ) ); // a whole period stays one
    auto endless = [] {
        for ( double period : { 5e-324, 1e-300, 0x1p-63, 1e-17, 1e-9, 1e-5, 1e300, HUGE_VAL } )
            for ( int64_t samples : { 1, 2, 100000 } ) {
                Tone tone = pcmToneCreate( period );
                for ( int64_t sample = 0; sample < 3 * samples; sample += samples )
                    for ( float x : test::samples( Packet( pcmToneGather( tone, samples ) ) ) )
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

TEST( Noise, CallsGoRoundTheTableFromOneDraw )
{
    NoLeaks noLeaks;
    Random random( 9 );
    const Samples table = noiseTable();
    for ( int64_t start : { -1, 0, 1, 8000, 8191, 8192, -1, -1, -1 } )
        for ( int64_t samples : { 0, 1, 191, 192, 193, 8191, 8192, 8193, 20000 } ) {
            forcedStart = start;
            const int before = draws;
            Samples dest( size_t( samples ), 0.5f );
            auto *block = samples ? dest.data() : nullptr;
            pcmNoiseGatherSamples( block, samples );
            const Samples first = stretch( table, lastStart, dest.size() );
            EXPECT_EQ( dest, first );
            pcmNoiseGatherSamplesAdd( block, samples );
            const Samples second = stretch( table, lastStart, dest.size() );
            for ( size_t i = 0; i < dest.size(); ++i )
                ASSERT_EQ( dest[i], first[i] + second[i] ) << i << " from " << start;
            EXPECT_EQ( draws, before + 2 );
            Packet pkt = pcmNoiseGather( samples );
            EXPECT_EQ( draws, before + 2 + ( samples > 0 ) );
            expectPacket( pkt, 1, stretch( table, lastStart, dest.size() ) );
            EXPECT_TRUE( lastStart >= 0 && lastStart <= 8192 );
        }
    forcedStart = -1;
}

TEST( ThreadNoise, EveryThreadGetsWholeStretches )
{
    const Samples table = noiseTable();
    test::together( 4, [&]( int ) {
        for ( size_t samples = 0; samples < 1000; samples += 7 ) {
            Packet pkt = pcmNoiseGather( int64_t( samples ) );
            EXPECT_EQ( test::samples( pkt ), stretch( table, lastStart, samples ) );
        }
    } );
}

TEST( Silence, IsZeroAndNoLonger )
{
    NoLeaks noLeaks;
    for ( size_t samples : { 0, 1, 1000 } )
        expectPacket( pcmSilenceGather( int64_t( samples ) ), 1, Samples( samples ) );
    Samples dest = { 1, 2, 3 };
    pcmSilenceGatherSamples( dest.data(), 2 );
    EXPECT_EQ( dest, ( Samples{ 0, 0, 3 } ) );
}
