#include "operations.h"
#include "support.h"

#include <algorithm>
#include <cmath>
#include <complex>
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

/// Changes what one handle names; returns the samples that the library gave and the ones that it should have given.
std::pair<Samples, Samples> change( Random &random, Filter &real, Model &model, int64_t rare )
{
    const size_t taps = model.taps.size(), C = model.channels;
    int64_t most = int64_t( model.ready.size() / C ), frames = random.upTo( 3 ) ? random.upTo( most ) : most;
    Samples block = random.samples( size_t( frames ) * C, 2, rare ), wanted;
    switch ( int64_t action = random.upTo( 8 ) ) {
    case 0:
        if ( random.upTo( 4 ) ) break;
        pcmFilterReset( &real );
        model = { model.taps, C };
        return {};
    case 1: {
        if ( model.packets.empty() ) break;
        Packet pkt = pcmFilterRead( &real );
        wanted = model.read();
        EXPECT_EQ( pcmPacketChannels( pkt ), C );
        EXPECT_EQ( kit___ObjDbgAllocationSize( pkt.header() ), wanted.size() * 4 );
        return { test::samples( pkt ), wanted };
    }
    case 2: return { test::samples( Packet( pcmFilterGather( &real, frames ) ) ), model.take( block.size() ) };
    case 3:
    case 4:
        wanted = model.take( block.size() );
        for ( size_t i = 0; action == 3 && i < block.size(); ++i ) wanted[i] = block[i] + wanted[i];
        auto gather = action == 3 ? pcmFilterGatherSamplesAdd : pcmFilterGatherSamples;
        gather( &real, frames ? block.data() : nullptr, frames );
        return { block, wanted };
    }
    const size_t sizes[] = { 0, 1, 2, taps - 1, taps, taps + 1, size_t( random.upTo( 3 * int64_t( taps ) ) ), 40 };
    frames = int64_t( std::min( sizes[random.upTo( 7 )], taps + 1 + 20000 / ( taps * C ) ) );
    block = random.samples( size_t( frames ) * C, random.upTo( 9 ) ? 1 : 4, rare );
    Packet pkt = packetOf( block, int64_t( C ) );
    pcmFilterWrite( &real, pkt );
    model.write( block );
    EXPECT_EQ( pkt.count(), 1 );
    return { test::samples( pkt ), block };
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

// Some handles, of one filter or of several that were one once. Every step changes through one of them.
TEST( Filter, RandomWalksKeepToTheModel )
{
    NoLeaks noLeaks;
    Random random( 42 );
    for ( int round = 0; round < 144; ++round ) {
        auto taps = size_t( round % 24 == 5 ? 256 : 1 + random.upTo( round % 2 ? 8 : 69 ) );
        auto channels = size_t( round % 24 == 7 ? 700 : round % 12 == 2 ? 64 : 1 + random.upTo( 8 ) );
        const float scales[] = { 1e-20f, 1e-3f, 1 / float( taps ), 0.3f, 1 };
        const Samples values = random.samples( taps, scales[random.upTo( 4 )], random.upTo( 3 ) ? 0 : 30 );
        const int64_t rare = 20 * random.upTo( 2 );
        Coefficients set = setOf( values );
        std::vector<std::pair<Filter, Model>> handles = { { pcmFilterCreate( set, int64_t( channels ) ),
            { values, channels } } };
        for ( int step = 0; step < 60; ++step ) {
            if ( handles.size() > 4 ) handles.erase( handles.begin(), handles.begin() + 2 );
            const int64_t how = random.upTo( 9 );
            if ( how == 0 ) handles.emplace_back( handles[0].first, handles[0].second );
            if ( how == 1 ) handles.emplace_back( pcmFilterCreateFrom( handles[0].first ), handles[0].second );
            auto &[real, model] = handles[size_t( random.upTo( int64_t( handles.size() ) - 1 ) )];
            PCM_FILTER *object = real;
            const bool shared = real.count() > 1;
            auto [got, wanted] = change( random, real, model, rare );
            EXPECT_EQ( bits( got ), bits( wanted ) );
            EXPECT_EQ( real != object, shared );
            for ( auto &[real, model] : handles ) {
                EXPECT_EQ( pcmFilterFrames( real ), model.ready.size() / channels );
                EXPECT_EQ( pcmFilterPackets( real ), model.packets.size() );
                EXPECT_EQ( pcmFilterChannels( real ), channels );
                EXPECT_EQ( Coefficients( pcmFilterCoefficients( real ) ), set );
                EXPECT_EQ( kit___ObjDbgAllocationSize( real.header() ), taps * channels * 4 );
            }
            ASSERT_FALSE( HasFailure() ) << taps << " taps, " << channels << " channels, " << round << ", " << step;
        }
        handles.clear();
        EXPECT_EQ( set.count(), 1 );
    }
}
