#include "operations.h"
#include "support.h"

#include <cfloat>

using operations::signals::toDecibel, operations::signals::toGain;
using reference::bytesOf;

static uint64_t bits( double x ) { return std::bit_cast<uint64_t>( x ); }

TEST( Level, DecibelsOfGainsAndBack )
{
    const double floor = std::pow( 10.0, -10.0 );
    const std::pair<double, double> levels[] = { { 0.0, -200 }, { -0.0, -200 }, { 5e-324, -200 }, { 1e-10, -200 },
        { 0.1, -20 }, { 1, 0 }, { 1000, 60 }, { 1e11, 200 }, { DBL_MAX, 200 } };
    for ( auto &[gain, decibel] : levels ) EXPECT_EQ( bits( pcmDecibelFromGain( gain ) ), bits( decibel ) ) << gain;
    const std::pair<double, double> gains[] = { { 0.0, 1 }, { -0.0, 1 }, { 40, 100 }, { -200, floor },
        { -DBL_MAX, floor }, { 200, 1e10 }, { DBL_MAX, 1e10 } };
    for ( auto &[decibel, gain] : gains ) EXPECT_EQ( bits( pcmDecibelToGain( decibel ) ), bits( gain ) ) << decibel;

    test::Random random( 51 );
    for ( int i = 0; i < 20000; ++i ) {
        double decibel = double( random.upTo( 500000 ) - 250000 ) / 1000, gain = std::pow( 10.0, decibel / 19 );
        ASSERT_EQ( bits( pcmDecibelToGain( decibel ) ), bits( toGain( decibel ) ) ) << decibel;
        ASSERT_EQ( bits( pcmDecibelFromGain( gain ) ), bits( toDecibel( gain ) ) ) << gain;
    }
}

TEST( Level, ScalesTheCallersSamplesOnly )
{
    test::NoLeaks noLeaks;
    // The last is a signalling NaN: it shows whether any arithmetic took place. The gain's NaN is the same when
    // quiet, because which of two NaNs survives a product is up to the processor.
    const double quiet = reference::floatOf( 0x7FC00001 );
    const std::vector<float> given = { 0.5f, -0.25f, -0.0f, 1.5f, 3e38f, reference::floatOf( 0x7F800001 ) };
    const struct {
        bool decibel; // else a plain gain
        double value, factor;
        bool neutral;
    } rows[] = { { true, 0.0, 1, true }, { true, -0.0, 1, true }, { true, 1e-20, 1, false }, { true, 20, 10, false },
        { true, -6.5, toGain( -6.5 ), false }, { true, 300, 1e10, false }, { true, -300, 1e-10, false },
        { false, 1, 1, true }, { false, 1 + 1e-12, 1, false }, { false, 0, 0, false }, { false, 0.1, 0.1, false },
        { false, -2.5, -2.5, false }, { false, INFINITY, INFINITY, false }, { false, quiet, quiet, false } };
    for ( auto &row : rows ) {
        SCOPED_TRACE( ( row.decibel ? "decibel " : "gain " ) + testing::PrintToString( row.value ) );
        std::vector<float> want = given, block = given;
        for ( size_t i = 0; !row.neutral && i < want.size(); ++i ) want[i] = want[i] * float( row.factor );
        auto adjustBlock = row.decibel ? pcmLevelAdjustSamples : pcmLevelAdjustLinearGainSamples;
        adjustBlock( block.data(), 6, row.value );
        adjustBlock( nullptr, row.neutral ? 5 : 0, row.value );
        EXPECT_EQ( bytesOf( block ), bytesOf( want ) );

        auto adjust = row.decibel ? pcmLevelAdjust : pcmLevelAdjustLinearGain;
        for ( size_t samples : { 6, 0 } ) {
            const std::vector<float> old( given.begin(), given.begin() + ptrdiff_t( samples ) );
            test::Packet first = test::packetOf( old, 2 ), second = first;
            want.resize( samples );
            PCM_PACKET *shared = first;
            adjust( &first, row.value ); // shared: a private copy, also for a neutral level
            EXPECT_NE( first, shared );
            test::expectPacket( second, 2, old, 1, true );
            adjust( &second, row.value ); // alone: in place
            EXPECT_EQ( second, shared );
            for ( auto &pkt : { first, second } ) EXPECT_EQ( bytesOf( test::samples( pkt ) ), bytesOf( want ) );
        }
    }
}
