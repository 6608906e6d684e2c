#ifndef PCM_SINE_HH
#define PCM_SINE_HH

// Private to the library: sin( x ), rounded to a double and then to a float, with the same bits on every processor.
//
// Argument reduction subtracts the nearest multiple n of pi, with |n| < 2^20, in three parts. The first two parts
// have 33 bits, so their products with n are exact, and so is every difference that cancels leading bits. The rest r
// of the argument has a relative error below 2^-51. Its sine is an odd polynomial in double precision, without fused
// operations.
//
// The coefficients were computed with Remez' algorithm in 300-bit arithmetic for |r| <= pi/2 (1 + 2^-20), to minimize
// the relative error, and rounded to doubles. At 4001 points of that range, the rounded polynomial differs from the
// sine by less than 2^-52.2 of the result. The rounded steps of the evaluation add less than 2^-50, so that a result
// is within 16 units in the last place of the sine.
//
// Rounding to a float drops 29 bits. Nearly all results round to the same float as the sine, because none of the 16
// units on either side is the middle between two floats. The others, about one in 16 million, are computed again as a
// series with twice the precision.

#include "pcm_lanes.hh"

#include <cmath>
#include <iterator>

namespace pcm {

/// The argument up to which sines are computed here. The platform's sin is used beyond it.
constexpr double maxSineArgument = 0x1p20;

/// The sum of the parts is pi. The third part is also given as the sum of its first 33 bits and a rest.
constexpr double piParts[] = { 0x1.921fb544p1, 0x1.0b4611a6p-33, 0x1.3198a2e037073p-68 };
constexpr double piThirdHigh = 0x1.3198a2ep-68, piThirdLow = 0x1.b839a252049c1p-103;
constexpr double byPi = 0x1.45f306dc9c883p-2;

/// sin( r ) / r = 1 + z p( z ), with z = r * r. The coefficients of p, lowest first.
constexpr double sineCoefficients[] = { -0x1.55555555554a8p-3, 0x1.111111110a573p-7, -0x1.a01a019a659a4p-13,
    0x1.71de3806aca8ep-19, -0x1.ae6355aa43f1dp-26, 0x1.60e6bed0ae54ep-33, -0x1.9f1515fe9ec10p-41 };

/// Adding this number rounds to an integer, which is then in the lowest bits.
constexpr double integerShift = 0x1.8p52;

using Doubles = Vector<double>;

/// The unevaluated sum of two doubles.
struct Precise {
    double high, low;
};

/// Returns a + b without an error.
inline Precise exactSum( double a, double b )
{
    double sum = a + b, addedB = sum - a;
    return { sum, ( a - ( sum - addedB ) ) + ( b - addedB ) };
}

inline Precise exactProduct( double a, double b )
{
    constexpr double split = 0x1p27 + 1;
    double scaledA = a * split, highA = scaledA - ( scaledA - a ), lowA = a - highA;
    double scaledB = b * split, highB = scaledB - ( scaledB - b ), lowB = b - highB;
    double product = a * b;
    return { product, ( ( highA * highB - product ) + highA * lowB + lowA * highB ) + lowA * lowB };
}

inline Precise operator+( Precise a, Precise b )
{
    Precise sum = exactSum( a.high, b.high );
    return exactSum( sum.high, sum.low + ( a.low + b.low ) );
}

inline Precise operator*( Precise a, Precise b )
{
    Precise product = exactProduct( a.high, b.high );
    return exactSum( product.high, product.low + ( a.high * b.low + a.low * b.high ) );
}

inline Precise operator/( Precise a, double b )
{
    double quotient = a.high / b;
    Precise product = exactProduct( quotient, b );
    return exactSum( quotient, ( ( a.high - product.high ) - product.low + a.low ) / b );
}

/// Computes the sine of an argument up to maxSineArgument with an error below 2^-95.
inline double preciseSine( double x )
{
    const double shifted = x * byPi + integerShift, n = shifted - integerShift;
    Precise r = { x - n * piParts[0], 0 };
    for ( double part : { piParts[1], piThirdHigh, piThirdLow } ) r = r + Precise{ -n * part, 0 };
    const Precise minusSquare = r * Precise{ -r.high, -r.low };
    Precise term = r, sum = r;
    for ( int k = 2; k < 36; k += 2 ) {
        term = term * minusSquare / double( k * ( k + 1 ) );
        sum = sum + term;
    }
    return std::bit_cast<uint64_t>( shifted ) & 1 ? -sum.high : sum.high;
}

/// Returns the sines of arguments from 0 to maxSineArgument. The top bit of `unsure` shows that the result is close
/// to the middle between two floats.
inline Doubles sines( Doubles x, Longs &unsure )
{
    const Doubles shifted = x * byPi + integerShift, n = shifted - integerShift;
    const Doubles r = ( ( x - n * piParts[0] ) - n * piParts[1] ) - n * piParts[2], z = r * r;
    constexpr int degree = int( std::size( sineCoefficients ) ) - 1;
    Doubles p = z * sineCoefficients[degree] + sineCoefficients[degree - 1];
    for ( int i = degree - 2; i >= 0; --i ) p = p * z + sineCoefficients[i];
    const Longs bits = (Longs)( r + r * ( z * p ) ) ^ (Longs)shifted << 63;

    constexpr uint64_t window = 16, dropped = ( uint64_t{ 1 } << 29 ) - 1, middle = uint64_t{ 1 } << 28;
    unsure = ( ( bits + ( window - middle ) ) & dropped ) - ( 2 * window + 1 );
    return (Doubles)bits;
}

constexpr int sineTile = 16, sineStep = laneBytes / int( sizeof( double ) );

/// Replaces the samples of a tile that the polynomial does not determine.
[[gnu::noinline, gnu::cold]] inline void refineSines( PCM_SAMPLE *dest, double radians, double position )
{
    for ( int i = 0; i < sineTile; ++i ) {
        const double x = radians * position;
        Longs unsure;
        sines( Doubles{} + x, unsure );
        if ( !( x <= maxSineArgument ) )
            dest[i] = PCM_SAMPLE( std::sin( x ) );
        else if ( unsure[0] >> 63 )
            dest[i] = PCM_SAMPLE( preciseSine( x ) );
        position += 1.0;
    }
}

/// Writes the sines of `radians` times each position of a tile. `positionsAt( i )` returns those from index i on.
template <class PositionsAt>
inline void makeSines( PCM_SAMPLE *dest, double radians, double first, PositionsAt positionsAt )
{
    Doubles x = {};
    Longs anyUnsure = {};
    for ( int i = 0; i < sineTile; i += sineStep ) {
        Longs unsure;
        x = positionsAt( i ) * radians;
        storeAs( dest + i, __builtin_convertvector( sines( x, unsure ), Vector<PCM_SAMPLE, sineStep> ) );
        anyUnsure |= unsure;
    }
    uint64_t any = 0;
    for ( int i = 0; i < sineStep; ++i ) any |= anyUnsure[i];
    if ( any >> 63 || !( x[sineStep - 1] <= maxSineArgument ) ) [[unlikely]]
        refineSines( dest, radians, first );
}

/// The same for any position. Returns the position after `count` samples.
[[gnu::noinline]] inline double makeFirstSines( PCM_SAMPLE *dest, double radians, double position, int64_t count )
{
    double positions[sineTile + 1] = { position };
    for ( int i = 0; i < sineTile; ++i ) positions[i + 1] = positions[i] + 1.0;
    makeSines( dest, radians, position, [&]( int i ) { return loadAs<Doubles>( positions + i ); } );
    return positions[count];
}

/// Writes a tile of samples: the sines of `radians` times the position, the position + 1.0, and so on. Returns the
/// position after `count` samples.
inline double makeSines( PCM_SAMPLE *dest, double radians, double position, int64_t count )
{
    // Each position is the previous one plus 1.0, rounded. In a tile with at most one power of two, only one addition
    // is inexact, so that any number of steps can be added at once.
    if ( !( position >= sineTile && position < 0x1p50 ) ) return makeFirstSines( dest, radians, position, count );
    Doubles steps;
    for ( int i = 0; i < sineStep; ++i ) steps[i] = i;
    makeSines( dest, radians, position, [=]( int i ) { return position + ( steps + double( i ) ); } );
    return position + double( count );
}

} // namespace pcm

#endif
