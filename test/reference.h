#ifndef REFERENCE_H
#define REFERENCE_H

// Slow and obvious models of encoding words and of their samples. They share no code with the library: flags are bit
// numbers, samples are bit patterns, and the arithmetic is done in wider types.

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

namespace reference {

/// The index of the first flag of a group that is set, or -1.
inline int winner( uint64_t word, int first, int last )
{
    for ( int bit = first; bit <= last; ++bit )
        if ( word >> bit & 1 ) return bit;
    return -1;
}

enum { alaw, mulaw, int8, int16, int24, int32, float32, none = -1 };

/// The flags of a word: an index or -1 for each group.
struct Encoding {
    uint64_t word;
    int base = winner( word, 0, 6 ), sign = winner( word, 7, 7 ), order = winner( word, 8, 9 ),
        pad = winner( word, 10, 11 ), pack = winner( word, 12, 18 );

    uint64_t normalized() const
    {
        uint64_t sum = 0;
        for ( int bit : { base, sign, order, pad, pack } ) sum += bit < 0 ? 0 : uint64_t{ 1 } << bit;
        return sum;
    }
    bool big() const { return order == 8; }
    int64_t width() const { return base == none ? 4 : std::array{ 1, 1, 1, 2, 3, 4, 4 }[size_t( base )]; }
    int64_t slot() const { return std::max<int64_t>( width(), pack < 0 ? 1 : pack - 10 ); }
    bool isAfterPadding() const { return pad == 10 || ( pad != 11 && big() ); }
    int64_t offset() const { return isAfterPadding() ? slot() - width() : 0; }
    /// The position in the slot of byte i of the sample. Byte 0 is the lowest.
    int64_t place( int64_t i ) const { return offset() + ( big() && base != none ? width() - 1 - i : i ); }
};

/// One word for each layout.
inline std::vector<uint64_t> layouts()
{
    std::vector<uint64_t> words;
    for ( uint64_t word = 0; word < 1 << 19; ++word )
        if ( Encoding{ word }.normalized() == word ) words.push_back( word );
    return words;
}

/// The intervals of a G.711 law, on a 16-bit scale: for the low seven bits of a code, before they are inverted, the
/// decoded value and the lowest magnitude that is encoded as this code.
struct Law {
    std::array<int, 128> value, lowest;
    int inverted;

    Law( bool mu ) : inverted( mu ? 0x7F : 0x55 )
    {
        int at = mu ? 0 : 8, low = mu ? -4 : 0;
        for ( size_t code = 0; code < 128; ++code ) {
            value[code] = at;
            lowest[code] = low;
            at += ( step( mu, int( code ) ) + step( mu, int( code ) + 1 ) ) / 2;
            low += step( mu, int( code ) );
        }
    }
    static int step( bool mu, int code ) { return !mu && code < 32 ? 16 : 8 << code / 16; }
    uint8_t code( int magnitude ) const
    {
        int found = 127, multiple = magnitude / 8 * 8;
        while ( lowest[size_t( found )] > multiple ) --found;
        return uint8_t( found ^ inverted );
    }
};

inline const Law laws[] = { Law( false ), Law( true ) };

inline float floatOf( uint32_t pattern ) { return std::bit_cast<float>( pattern ); }
inline uint32_t patternOf( float x ) { return std::bit_cast<uint32_t>( x ); }

/// Decodes the bits of one sample to the bits of a float.
inline uint32_t decode( const Encoding &e, uint32_t bits )
{
    if ( e.base == none || e.base == float32 ) return bits;
    if ( e.base == alaw || e.base == mulaw ) {
        int magnitude = laws[e.base].value[( bits ^ uint32_t( laws[e.base].inverted ) ) & 0x7F];
        double value = bits & 0x80 ? magnitude : -magnitude;
        return patternOf( float( e.base == alaw ? value : std::floor( value / 8 ) * 8 ) / 32768 );
    }
    int64_t half = int64_t( std::pow( 2, 8 * e.width() - 1 ) ), v = bits;
    if ( e.sign < 0 && v >= half ) v -= 2 * half;
    float rounded = float( v ) / float( half );
    return patternOf( e.sign < 0 ? rounded : rounded - 1 );
}

/// Encodes the bits of a float.
inline uint32_t encode( const Encoding &e, uint32_t pattern )
{
    if ( e.base == none || e.base == float32 ) return pattern;
    double x = floatOf( pattern );
    bool nan = std::isnan( x );
    if ( e.base == alaw || e.base == mulaw ) {
        double y = nan ? 0 : x * 32768;
        int v = y <= -32768 ? -32768 : y >= 32767 ? 32767 : int( y );
        uint8_t code = laws[e.base].code( std::abs( v ) );
        return v < 0 ? code : code | 0x80;
    }
    double y = x * 2147483648.0, low = e.sign < 0 ? -2147483648.0 : 0, high = low + 4294967295.0;
    if ( e.sign >= 0 ) y = float( y + 2147483648.0 );
    int64_t v = int64_t( nan ? low : y <= low ? low : y > high ? high : std::trunc( y ) );
    return uint32_t( v ) >> ( 32 - 8 * e.width() );
}

/// Reads the bits of the sample in a slot.
inline uint32_t read( const Encoding &e, const uint8_t *slot )
{
    uint32_t bits = 0;
    for ( int64_t i = 0; i < e.width(); ++i ) bits |= uint32_t( slot[e.place( i )] ) << ( 8 * i );
    return bits;
}

/// Appends a slot with these bits. Padding is 0.
inline void append( const Encoding &e, uint32_t bits, std::vector<uint8_t> &bytes )
{
    size_t at = bytes.size();
    bytes.resize( at + size_t( e.slot() ) );
    for ( int64_t i = 0; i < e.width(); ++i ) bytes[at + size_t( e.place( i ) )] = uint8_t( bits >> ( 8 * i ) );
}

/// The bytes of an array of samples.
inline std::vector<uint8_t> bytesOf( const std::vector<float> &samples )
{
    std::vector<uint8_t> bytes;
    for ( float x : samples ) append( Encoding{ 0 }, patternOf( x ), bytes );
    return bytes;
}

/// Converts between the bytes of a buffer and those in memory, which differ for word 0 on big-endian hosts.
inline std::vector<uint8_t> inMemory( uint64_t word, std::vector<uint8_t> bytes )
{
    bool swap = std::endian::native == std::endian::big && Encoding{ word }.normalized() == 0;
    for ( size_t at = 0; swap && at < bytes.size(); at += 4 ) std::reverse( &bytes[at], &bytes[at] + 4 );
    return bytes;
}

/// Converts slots to another encoding.
inline std::vector<uint8_t> convert( uint64_t dest, uint64_t source, const std::vector<uint8_t> &bytes )
{
    Encoding to{ dest }, from{ source };
    std::vector<uint8_t> result;
    for ( size_t at = 0; at < bytes.size(); at += size_t( from.slot() ) )
        append( to, encode( to, decode( from, read( from, &bytes[at] ) ) ), result );
    return result;
}

} // namespace reference

#endif
