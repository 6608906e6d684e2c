#include "operations.h"
#include "support.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>

using operations::streams::Model, operations::streams::sets;
using test::bits, test::NoLeaks, test::Packet, test::packetOf, test::Random, test::Ref, test::Samples;
using Filter = Ref<PCM_FILTER>;
using Coefficients = Ref<PCM_FILTER_COEFFICIENTS>;

namespace {

Coefficients setOf( const Samples &taps )
{
    return pcmFilterCoefficientsCreateFromSamplesCopy( taps.data(), int64_t( taps.size() ) );
}

Samples tapsOf( PCM_FILTER_COEFFICIENTS *set )
{
    const PCM_SAMPLE *backing = pcmFilterCoefficientsBacking( set );
    return { backing, backing + pcmFilterCoefficientsLength( set ) };
}

Samples filtered( PCM_FILTER_COEFFICIENTS *set, const Samples &in )
{
    Filter filter = pcmFilterCreate( set, 1 );
    pcmFilterWrite( &filter, packetOf( in ) );
    return test::samples( Packet( pcmFilterRead( &filter ) ) );
}

/// The slot of the history that the next frame overwrites: the sixth field after the header, on 64-bit hosts.
size_t historyPosition( PCM_FILTER *filter )
{
    int64_t position;
    std::memcpy( &position, reinterpret_cast<const char *>( filter ) + sizeof( KIT_OBJ ) + 40, sizeof position );
    return size_t( position );
}

/// The gain at a frequency in cycles in a frame, from what becomes of an impulse.
double gain( PCM_FILTER_COEFFICIENTS *set, double frequency )
{
    Samples impulse( size_t( pcmFilterCoefficientsLength( set ) ) );
    impulse[0] = 1;
    std::complex<double> sum, turn = std::polar( 1.0, 2 * std::numbers::pi * frequency );
    for ( float x : filtered( set, impulse ) ) sum = sum * turn + double( x );
    return std::abs( sum );
}

} // namespace

TEST( FilterCoefficients, BuiltInSetsAreThePrintedOnes )
{
    NoLeaks noLeaks;
    for ( auto &row : sets ) {
        SCOPED_TRACE( row.name );
        EXPECT_EQ( row.type, &row - sets );
        EXPECT_EQ( test::text( pcmFilterTypeToString( row.type ) ), row.name );
        EXPECT_EQ( pcmFilterTypeFromString( test::string( row.name ) ), row.type );
        Coefficients set = pcmFilterCoefficientsCreate( row.type ), again = pcmFilterCoefficientsCreate( row.type );
        EXPECT_EQ( set, again );
        EXPECT_EQ( set.count(), 3 );
        EXPECT_EQ( tapsOf( set ), row.taps );
        EXPECT_NEAR( gain( set, 0 ), row.sum, 0.000005 );
        EXPECT_NEAR( 20 * std::log10( gain( set, row.cutOff / row.rate ) ), row.decibel, 0.005 );
        EXPECT_LT( gain( set, 0.5 ), 1e-12 );
    }
    EXPECT_EQ( pcmFilterTypeFromString( test::string( "PCM_FILTER_TYPE_LOWPASS_4000" ) ), -1 );
}

TEST( FilterCoefficients, OwnTheirTaps )
{
    NoLeaks noLeaks;
    Samples taps = { 3 };
    auto *block = static_cast<PCM_SAMPLE *>( kitMemAllocN( 2, 4 ) );
    block[0] = 1, block[1] = 2;
    Coefficients builtIn = pcmFilterCoefficientsCreate( 6 ), copied = setOf( taps ),
                 used = pcmFilterCoefficientsCreateFromSamplesUse( block, 2 ),
                 other = pcmFilterCoefficientsCreateFrom( builtIn );
    taps[0] = 4;
    EXPECT_EQ( tapsOf( copied ), Samples{ 3 } );
    EXPECT_EQ( tapsOf( used ), ( Samples{ 1, 2 } ) );
    EXPECT_EQ( tapsOf( other ), sets[6].taps );
    EXPECT_EQ( pcmFilterCoefficientsBacking( used ), block );
    EXPECT_NE( pcmFilterCoefficientsBacking( other ), pcmFilterCoefficientsBacking( builtIn ) );
    for ( auto &set : { builtIn, copied, used, other } )
        EXPECT_EQ( kit___ObjDbgAllocationSize( set.header() ), tapsOf( set ).size() * 4 );
}

TEST( FilterCoefficients, HeldSetsOutliveTheModule )
{
    NoLeaks noLeaks;
    Coefficients held = pcmFilterCoefficientsCreate( 0 );
    for ( int cycle = 0; cycle < 100; ++cycle ) {
        kitModuleShutdown( pcmModule() );
        EXPECT_EQ( held.count(), 1 );
        EXPECT_EQ( tapsOf( held ), sets[0].taps );
        kitModuleStartup( pcmModule() );
    }
    EXPECT_NE( Coefficients( pcmFilterCoefficientsCreate( 0 ) ), held );
}

TEST( Filter, MakesItsExamples )
{
    const struct {
        Samples taps, in, out;
    } rows[] = {
        { { 0.5, -0.25, 2, 0.125 }, { 1, 0, 0, 0, 0 }, { 0.5, -0.25, 1, 0.125, 0 } }, // tap 0 weighs the newest frame
        { { 2 }, { 0.75, -0.75, 0.25 }, { 1, -1, 0.5 } },
        { { 0.75, 0.75 }, { 1, 1, 0 }, { 0.75, 1, 0.75 } },       // limited on its way out only
        { { 1, 1, 1 }, { 0x1p25f, 0.5, -0x1p25f }, { 1, 1, 0 } }, // the oldest frame comes first: 0.5 is lost
        { { 1, 1, 1 }, { 0x1p25f, -0x1p25f, 0.5 }, { 1, 0, 0.5 } },
        { { -1 }, { 0.0f, -0.0f, NAN, INFINITY }, { 0.0f, 0.0f, NAN, -1 } }, // sums start at +0.0
        { { 0, 1 }, { NAN, 0.5, 0.25 }, { NAN, NAN, 0.5 } },
    };
    for ( auto &row : rows )
        EXPECT_EQ( bits( filtered( setOf( row.taps ), row.in ) ), bits( row.out ) ) << &row - rows;
}

TEST( Filter, KeepsToTheModelAtEverySize )
{
    NoLeaks noLeaks;
    Random random( 42 );
    for ( int round = 0; round < 288; ++round ) {
        const auto taps = size_t( round % 24 == 5 ? 256 : 1 + random.upTo( round % 2 ? 8 : 69 ) );
        const auto channels = size_t( round % 24 == 7 ? 700 : round % 12 == 2 ? 64 : 1 + random.upTo( 8 ) );
        const float scales[] = { 1e-20f, 1e-3f, 1 / float( taps ), 0.3f, 1 };
        const int64_t rare = 20 * random.upTo( 2 );
        Model model{ random.samples( taps, random.oneOf( scales ), random.upTo( 3 ) ? 0 : 30 ), channels };
        Coefficients set = setOf( model.taps );
        Filter real = pcmFilterCreate( set, int64_t( channels ) );
        size_t written = 0;
        for ( int step = 0; step < 20; ++step ) {
            const size_t sizes[] = { 0, 1, 2, taps - 1, taps, taps + 1, size_t( random.upTo( 3 * int64_t( taps ) ) ),
                40 },
                         frames = std::min( random.oneOf( sizes ), taps + 1 + 20000 / ( taps * channels ) );
            const Samples block = random.samples( frames * channels, random.upTo( 9 ) ? 1 : 4, rare );
            Packet pkt = packetOf( block, int64_t( channels ) );
            pcmFilterWrite( &real, pkt );
            model.write( block );
            written += frames;
            EXPECT_TRUE( sizeof( void * ) != 8 || historyPosition( real ) == written % taps );
            test::expectPacket( pkt, int64_t( channels ), block );
            test::expectPacket( pcmFilterRead( &real ), int64_t( channels ), model.read() );
            ASSERT_FALSE( HasFailure() ) << taps << " taps, " << channels << " channels, " << round << ", " << step;
        }
        EXPECT_EQ( Coefficients( pcmFilterCoefficients( real ) ), set );
        EXPECT_EQ( kit___ObjDbgAllocationSize( real.header() ), taps * channels * 4 );
        real = nullptr;
        EXPECT_EQ( set.count(), 1 );
    }
}
