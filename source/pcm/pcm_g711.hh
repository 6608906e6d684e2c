#ifndef PCM_G711_HH
#define PCM_G711_HH

// Private to the library: ITU-T G.711 A-law and mu-law.
//
// All values are on a 16-bit scale. A decoding table maps each code to its value. An encoding table maps a magnitude,
// divided by 8, to the low seven bits of its code.

#include "pcm_integer.hh"

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

// The converters compute values and codes instead of looking them up, which is faster in vectors. The exponent of a
// float is that of a segment, and the high bits of its fraction are the position within the segment. The functions
// also accept a single number, so that a static_assert can compare all results with the tables.

constexpr int32_t patternOf( PCM_SAMPLE value ) { return std::bit_cast<int32_t>( value ); }
inline Ints patternOf( Samples value ) { return (Ints)value; }

constexpr PCM_SAMPLE fromPattern( int32_t bits ) { return std::bit_cast<PCM_SAMPLE>( bits ); }
inline Samples fromPattern( Ints bits ) { return (Samples)bits; }

/// Returns a value with all bits set if a < b, otherwise 0.
constexpr int32_t isBelow( PCM_SAMPLE a, PCM_SAMPLE b ) { return -int32_t( a < b ); }
inline Ints isBelow( Samples a, PCM_SAMPLE b ) { return a < b; }

/// Returns a value with all bits set for each code of the lowest segment, otherwise 0.
template <class Codes> Codes isLowest( Codes code ) { return (Codes)( ( code & 0x70 ) == 0 ); }

/// Returns 16 * segment + position. The magnitude is at least 2^unit, where segment 0 begins.
template <class Float> constexpr auto segmentAndPosition( Float magnitude, int unit )
{
    return ( patternOf( magnitude ) >> 19 ) - ( ( 127 + unit ) << 4 );
}

// The magnitude has at most 12 significant bits, so no sum rounds. For a magnitude beyond the last segment, the
// result is above 127, and the caller limits it to 127.

struct AlawRule {
    static constexpr int invertedBits = 0x55;
    // In the lowest segment the step size is that of the next one, so its codes become those of the next one. The
    // difference, 2^-7, has the pattern 0x3C000000. It has the sign of the code.
    template <class Codes> static Codes segmentOf( Codes code ) { return code + ( isLowest( code ) & 0x10 ); }
    template <class Codes> static Codes offsetOf( Codes code )
    {
        return ( isLowest( code ) & 0x3C ) | ( code & 0x80 );
    }
    static Words offsetPattern( Words word ) { return word << 8; }

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
    // The value less 132 is rounded down to a multiple of 8 after the sign is applied, except in the lowest segment,
    // where it is a multiple already. So the offset is 136, 128 if the value is negative, or 132. On the scale of
    // samples, these are the patterns 0x3B880000, 0x3B800000 and 0x3B840000, with the sign of the code.
    template <class Codes> static Codes segmentOf( Codes code ) { return code; }
    template <class Codes> static Codes offsetOf( Codes code )
    {
        const Codes lowest = isLowest( code ), other = ( ~code >> 4 & 8 ) | 0x80;
        return ( lowest & 0x84 ) | ( ~lowest & other );
    }
    static Words offsetPattern( Words word ) { return ( word & 0x80FF0000 ) | 0x3B000000; }

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

template <class Rule> struct G711 {
    static constexpr int width = 1;

    static void decode( uint8_t *dest, const uint8_t *source )
    {
        const Tile words = load( source );
        unrolled<4>( [&]( int r ) { storeAs( dest + r * laneBytes, expanded( words.of[r] ) ); } );
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
        storeAs( dest, (Bytes)magnitude ^ allInverted ^ ( (Bytes)sign & uint8_t( 0x80 ) ) );
    }

private:
    static constexpr uint8_t allInverted = Rule::invertedBits | 0x80; // then the top bit is set for negative values

    // Loads a tile of codes, each with its segment and position in the top byte and its offset in the next one.
    static Tile load( const uint8_t *at )
    {
        const Bytes codes = spread( loadAs<Bytes>( at ) ) ^ allInverted;
        const Bytes segments = Rule::segmentOf( codes ), offsets = Rule::offsetOf( codes );
        const Halves low = paired<Halves, false>( segments, offsets ),
                     high = paired<Halves, true>( segments, offsets );
        return { { widenedHigh<Words, false>( low ), widenedHigh<Words, true>( low ),
            widenedHigh<Words, false>( high ), widenedHigh<Words, true>( high ) } };
    }
    // The segment becomes the exponent of a float and the position its fraction, to which half a step is added.
    static Samples expanded( Words word )
    {
        const Words middle = ( (Words)( (Ints)word >> 5 ) & 0x83F80000 ) + ( 119u << 23 | 1u << 18 );
        return (Samples)middle - (Samples)Rule::offsetPattern( word ); // never -0
    }
};

using Alaw = G711<AlawRule>;
using Mulaw = G711<MulawRule>;

} // namespace pcm

#endif
