#include "operations.h"
#include "support.h"

#include <cfloat>
#include <cmath>

using reference::bytesOf;

TEST( Level, DecibelsOfGainsAndBack )
{
    const double floor = std::pow( 10.0, -10.0 );
    const struct {
        double gain, decibel;
    } levels[] = { { 0.0, -200 }, { -0.0, -200 }, { 5e-324, -200 }, { 1e-10, -200 }, { 0.1, -20 }, { 1, 0 },
        { 1000, 60 }, { 1e11, 200 }, { DBL_MAX, 200 } };
    for ( auto &row : levels ) EXPECT_EQ( pcm::decibelFromGain( row.gain ), row.decibel ) << row.gain;
    const struct {
        double decibel, gain;
    } gains[] = { { 0.0, 1 }, { -0.0, 1 }, { 40, 100 }, { -200, floor }, { -DBL_MAX, floor }, { 200, 1e10 },
        { DBL_MAX, 1e10 } };
    for ( auto &row : gains ) EXPECT_EQ( pcm::decibelToGain( row.decibel ), row.gain ) << row.decibel;
}

// The last sample is a signalling NaN, which shows whether any arithmetic took place. A neutral level does none, but
// still makes a shared packet private.
TEST( Level, NeutralLevelsDoNoArithmetic )
{
    const test::Samples given = { 0.5f, -0.0f, 3e38f, reference::floatOf( 0x7F800001 ) };
    const struct {
        bool isDecibel;
        double value, factor;
        bool isNeutral;
    } rows[] = {
        { true, 0.0, 1, true },
        { true, -0.0, 1, true },
        { true, 1e-20, 1, false },
        { true, 20, 10, false },
        { true, -300, 1e-10, false },
        { false, 1, 1, true },
        { false, 1 + 1e-12, 1, false },
        { false, 0, 0, false },
        { false, -2.5, -2.5, false },
    };
    for ( auto &row : rows ) {
        test::Samples wanted = given, block = given;
        for ( float &x : wanted )
            if ( !row.isNeutral ) x *= float( row.factor );
        pcm::Packet pkt( given, 2 ), holder = pkt;
        ( row.isDecibel ? pcmLevelAdjustSamples : pcmLevelAdjustLinearGainSamples )( block.data(), 4, row.value );
        ( row.isDecibel ? pcmLevelAdjust : pcmLevelAdjustLinearGain )( pkt.address(), row.value );
        EXPECT_EQ( bytesOf( block ), bytesOf( wanted ) ) << row.value;
        EXPECT_EQ( bytesOf( test::samples( pkt ) ), bytesOf( wanted ) ) << row.value;
        EXPECT_NE( pkt, holder );
        EXPECT_EQ( bytesOf( test::samples( holder ) ), bytesOf( given ) );
    }
}
