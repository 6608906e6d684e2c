#include "operations.h"
#include "support.h"

#include <cmath>
#include <complex>
#include <numbers>

using operations::filterSets, pcm::Coefficients, pcm::FilterType, test::NoLeaks, test::Samples;

namespace {

Samples tapsOf( const Coefficients &set ) { return { set.taps().begin(), set.taps().end() }; }

Samples filtered( const Coefficients &set, const Samples &in )
{
    pcm::Filter filter( set, 1 );
    filter.write( pcm::Packet( in, 1 ) );
    return test::samples( filter.read() );
}

/// The gain at a frequency in cycles per frame, from the response to an impulse.
double gain( const Coefficients &set, double frequency )
{
    Samples impulse( size_t( set.length() ) );
    impulse[0] = 1;
    std::complex<double> sum, step = std::polar( 1.0, 2 * std::numbers::pi * frequency );
    for ( float x : filtered( set, impulse ) ) sum = sum * step + double( x );
    return std::abs( sum );
}

} // namespace

TEST( FilterCoefficients, BuiltInSetsAreThePrintedOnes )
{
    NoLeaks noLeaks;
    for ( auto &row : filterSets ) {
        SCOPED_TRACE( row.name );
        EXPECT_EQ( int64_t( row.type ), &row - filterSets.data() );
        EXPECT_EQ( to_string( row.type ), row.name );
        EXPECT_EQ( pcm::filterTypeFromString( row.name ), row.type );
        const Coefficients set( row.type ), again( row.type );
        EXPECT_EQ( set, again );
        EXPECT_EQ( set.references(), 3 );
        EXPECT_EQ( tapsOf( set ), row.taps );
        EXPECT_NEAR( gain( set, 0 ), row.sum, 0.000005 );
        EXPECT_NEAR( 20 * std::log10( gain( set, row.cutOff / row.rate ) ), row.decibel, 0.005 );
        EXPECT_LT( gain( set, 0.5 ), 1e-12 );
    }
    EXPECT_EQ( pcm::filterTypeFromString( "PCM_FILTER_TYPE_LOWPASS_4000" ), std::nullopt );
}

TEST( FilterCoefficients, OwnTheirTaps )
{
    NoLeaks noLeaks;
    Samples taps = { 3 };
    auto block = pcm::allocate<PCM_SAMPLE>( 2 );
    block[0] = 1, block[1] = 2;
    const PCM_SAMPLE *address = block.get();
    const Coefficients builtIn( FilterType::lowpass12000At48000 ), copied( taps ),
        used = Coefficients::use( std::move( block ), 2 ), clone = builtIn.clone();
    taps[0] = 4;
    EXPECT_EQ( tapsOf( copied ), Samples{ 3 } );
    EXPECT_EQ( tapsOf( used ), ( Samples{ 1, 2 } ) );
    EXPECT_EQ( used.taps().data(), address );
    EXPECT_EQ( tapsOf( clone ), filterSets[6].taps );
    EXPECT_NE( clone.taps().data(), builtIn.taps().data() );
    for ( auto &set : { builtIn, copied, used, clone } )
        EXPECT_EQ( kit___ObjDbgAllocationSize( set.obj() ), set.length() * 4 );
}

TEST( FilterCoefficients, HeldSetsOutliveTheModule )
{
    NoLeaks noLeaks;
    const Coefficients held( FilterType::lowpass4000At16000 );
    for ( int cycle = 0; cycle < 100; ++cycle ) {
        kitModuleShutdown( pcmModule() );
        EXPECT_EQ( held.references(), 1 );
        EXPECT_EQ( tapsOf( held ), filterSets[0].taps );
        kitModuleStartup( pcmModule() );
    }
    EXPECT_NE( Coefficients( FilterType::lowpass4000At16000 ), held );
}

TEST( Filter, MatchesItsExamples )
{
    const struct {
        Samples taps, in, out;
    } rows[] = {
        { { 0.5, -0.25, 2, 0.125 }, { 1, 0, 0, 0, 0 }, { 0.5, -0.25, 1, 0.125, 0 } }, // tap 0 weighs the newest frame
        { { 2 }, { 0.75, -0.75, 0.25 }, { 1, -1, 0.5 } },
        { { 0.75, 0.75 }, { 1, 1, 0 }, { 0.75, 1, 0.75 } },       // only the output is limited
        { { 1, 1, 1 }, { 0x1p25f, 0.5, -0x1p25f }, { 1, 1, 0 } }, // added from the oldest frame on: 0.5 is lost
        { { 1, 1, 1 }, { 0x1p25f, -0x1p25f, 0.5 }, { 1, 0, 0.5 } },
        { { -1 }, { 0.0f, -0.0f, NAN, INFINITY }, { 0.0f, 0.0f, NAN, -1 } }, // sums start at +0.0
        { { 0, 1 }, { NAN, 0.5, 0.25 }, { NAN, NAN, 0.5 } },
    };
    for ( auto &row : rows )
        EXPECT_EQ( test::bits( filtered( Coefficients( row.taps ), row.in ) ), test::bits( row.out ) ) << &row - rows;
}
