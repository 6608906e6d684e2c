#ifndef PCM_G711_HH
#define PCM_G711_HH

// Private to the library: ITU-T G.711 A-law and mu-law.
//
// All values are on a 16-bit scale. A decoding table maps each code to its value. An encoding table maps a magnitude,
// divided by 8, to the low seven bits of its code.

#include "pcm_lanes.hh"

#include <array>
#include <bit>

namespace pcm {

template <class Entry> constexpr auto expandTable( Entry entry )
{
    std::array<int16_t, 256> table{};
    for ( int code = 0; code < 256; ++code ) table[size_t( code )] = int16_t( entry( code ) );
    return table;
}

template <class Entry> constexpr auto compressTable( Entry entry )
{
    std::array<uint8_t, 4097> table{};
    for ( int index = 0; index <= 4096; ++index ) table[size_t( index )] = uint8_t( entry( index ) );
    return table;
}

/// Returns the lowest segment s that contains the value, that is, the lowest s for which 2^(s + bits) is greater than
/// the value.
constexpr int segment( int value, int bits )
{
    int s = 0;
    while ( value >> ( s + bits ) ) ++s;
    return s;
}

inline constexpr auto pcm___AlawExpandTable = expandTable( []( int code ) {
    int a = code ^ 0x55, s = a >> 4 & 7, m = a & 15;
    int magnitude = s == 0 ? 16 * m + 8 : ( 16 * m + 264 ) << ( s - 1 );
    return code & 0x80 ? magnitude : -magnitude;
} );

inline constexpr auto pcm___MulawExpandTable = expandTable( []( int code ) {
    int u = code ^ 0xFF, s = u >> 4 & 7, m = u & 15;
    int magnitude = ( ( 8 * m + 132 ) << s ) - 132;
    return ( code & 0x80 ? magnitude : -magnitude ) & ~7; // round down to a multiple of 8
} );

inline constexpr auto pcm___AlawCompressTable = compressTable( []( int index ) {
    int i = index < 4096 ? index : 4095, s = segment( i, 5 );
    return ( 16 * s + ( i >> ( s < 2 ? 1 : s ) & 15 ) ) ^ 0x55;
} );

inline constexpr auto pcm___MulawCompressTable = compressTable( []( int index ) {
    int b = 2 * index + 33;
    if ( b > 8191 ) return 0;
    int s = segment( b, 6 );
    return ( 16 * s + ( b >> ( s + 1 ) & 15 ) ) ^ 0x7F;
} );

static_assert( pcm___AlawExpandTable[0xD5] == 8 && pcm___AlawExpandTable[0x2A] == -32256 );
static_assert( pcm___MulawExpandTable[0x80] == 32120 && pcm___MulawExpandTable[0x0F] == -16768 );
static_assert( pcm___AlawCompressTable[31] == 0x5A && pcm___AlawCompressTable[4096] == 0x2A );
static_assert( pcm___MulawCompressTable[16] == 0x6F && pcm___MulawCompressTable[3952] == 0x00 );

// The encoder computes the code instead of looking it up. The exponent of a float determines the segment of a
// magnitude and the high bits of its fraction determine the position within the segment. In vectors this is faster
// than a table. The functions also accept a single number, so that a static_assert can compare all results with the
// tables.

constexpr int32_t patternOf( PCM_SAMPLE value ) { return std::bit_cast<int32_t>( value ); }
inline Ints patternOf( Samples value ) { return (Ints)value; }

constexpr PCM_SAMPLE fromPattern( int32_t bits ) { return std::bit_cast<PCM_SAMPLE>( bits ); }
inline Samples fromPattern( Ints bits ) { return (Samples)bits; }

/// Returns a value with all bits set if a < b, otherwise 0.
constexpr int32_t isBelow( PCM_SAMPLE a, PCM_SAMPLE b ) { return -int32_t( a < b ); }
inline Ints isBelow( Samples a, PCM_SAMPLE b ) { return a < b; }

/// Returns 16 * segment + position. The magnitude is at least 2^unit, where segment 0 begins.
template <class Float> constexpr auto segmentAndPosition( Float magnitude, int unit )
{
    return ( patternOf( magnitude ) >> 19 ) - ( ( 127 + unit ) << 4 );
}

// The magnitude has at most 12 significant bits, so no sum rounds. For a magnitude beyond the last segment, the
// result is above 127, and the caller limits it to 127.

struct AlawRule {
    static constexpr int invertedBits = 0x55;
    template <class Float> static constexpr auto compress( Float magnitude )
    {
        // The first two segments have the same step size. Compute a value of the lower one as if it were in the upper
        // one, then subtract one segment.
        auto lowest = isBelow( magnitude, 256.0f );
        return segmentAndPosition( magnitude + fromPattern( lowest & patternOf( 256.0f ) ), 7 ) + lowest * 16;
    }
};

struct MulawRule {
    static constexpr int invertedBits = 0x7F;
    template <class Float> static constexpr auto compress( Float magnitude )
    {
        return segmentAndPosition( magnitude + 128.0f, 7 );
    }
};

template <class Rule, class Table> constexpr bool matches( const Table &table )
{
    for ( int32_t index = 0; index <= 4096; ++index ) {
        int32_t code = Rule::compress( PCM_SAMPLE( 8 * index ) );
        if ( ( ( code < 127 ? code : 127 ) ^ Rule::invertedBits ) != table[size_t( index )] ) return false;
    }
    return true;
}
static_assert( matches<AlawRule>( pcm___AlawCompressTable ) && matches<MulawRule>( pcm___MulawCompressTable ) );

constexpr auto toFloats( const std::array<int16_t, 256> &table )
{
    std::array<PCM_SAMPLE, 256> floats{};
    for ( size_t code = 0; code < 256; ++code ) floats[code] = PCM_SAMPLE( table[code] ) * 0x1p-15f;
    return floats;
}
inline constexpr auto alawFloats = toFloats( pcm___AlawExpandTable );
inline constexpr auto mulawFloats = toFloats( pcm___MulawExpandTable );

template <const auto &floats, class Rule> struct G711 {
    static constexpr int width = 1;

    static void decode( uint8_t *dest, const uint8_t *source )
    {
        unrolled<4>( [&]( int r ) {
            Samples values;
            unrolled<lanes>( [&]( int i ) { values[i] = floats[source[r * lanes + i]]; } );
            storeAs( dest + r * laneBytes, values );
        } );
    }
    static void encode( uint8_t *dest, const uint8_t *source )
    {
        Ints codes[4], negative[4];
        unrolled<4>( [&]( int r ) {
            Samples y = loadAs<Samples>( source + r * laneBytes ) * 0x1p15f;
            negative[r] = y <= -1.0f;
            // Treat NaN as 0. Clear the bits below the smallest step, which have no effect on the code.
            codes[r] = Rule::compress( (Samples)( (Ints)y & ( y == y ) & 0x7FFFF000 ) );
        } );
        auto magnitude = narrowed( codes[0], codes[1], codes[2], codes[3] ); // at most 127
        auto sign = narrowed( negative[0], negative[1], negative[2], negative[3] );
        storeAs( dest, (Bytes)magnitude ^ uint8_t( Rule::invertedBits | 0x80 ) ^ ( (Bytes)sign & uint8_t( 0x80 ) ) );
    }
};

using Alaw = G711<alawFloats, AlawRule>;
using Mulaw = G711<mulawFloats, MulawRule>;

} // namespace pcm

#endif
