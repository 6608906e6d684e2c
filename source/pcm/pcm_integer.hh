#ifndef PCM_INTEGER_HH
#define PCM_INTEGER_HH

// Private to the library: samples as bytes, as integers in 32-bit words, and as floats.
//
// Samples are converted a tile at a time, in registers: bytes become 32-bit words, and words become floats. An
// integer of any width occupies the high end of its word, so one scale serves all widths.

#include "pcm_lanes.hh"

#include <bit>
#include <type_traits>

namespace pcm {

constexpr int tile = 4 * lanes;

struct Tile {
    Words of[4];
};

// Loads and stores a tile of samples without padding bytes. `flipsSign` inverts the top bit of each sample, which
// converts between unsigned and signed integers.
template <int size, std::endian order, bool flipsSign> struct BytesOf {
    using Word = std::conditional_t<size == 1, uint8_t, std::conditional_t<size == 2, uint16_t, uint32_t>>;
    static constexpr int spareBits = 32 - 8 * size;
    static constexpr Word signFlip = flipsSign ? Word( 1u << ( 8 * size - 1 ) ) : Word( 0 );

    template <class Lanes> static Lanes ordered( Lanes v )
    {
        if constexpr ( order == std::endian::native || size == 1 ) return v;
        if constexpr ( size == 2 ) return swapped16( v );
        if constexpr ( size == 4 ) return swapped32( v );
    }
    static Tile load( const uint8_t *at )
    {
        Tile words;
        if constexpr ( size == 4 ) {
            unrolled<4>( [&]( int r ) { words.of[r] = ordered( loadAs<Words>( at + r * laneBytes ) ) ^ signFlip; } );
        } else if constexpr ( laneBytes > 16 ) { // these processors widen while they load
            unrolled<4>( [&]( int r ) {
                Words low = widened<Word>( at + r * lanes * size );
                bool swaps =
                    size == 2 && order != std::endian::native; // the swap also moves the value to the high end
                words.of[r] = ( swaps ? swapped32( low ) : low << spareBits ) ^ uint32_t( signFlip ) << spareBits;
            } );
        } else if constexpr ( size == 2 ) {
            unrolled<2>( [&]( int r ) {
                Halves halves = ordered( loadAs<Halves>( at + r * laneBytes ) ) ^ signFlip;
                words.of[2 * r] = widenedHigh<Words, false>( halves );
                words.of[2 * r + 1] = widenedHigh<Words, true>( halves );
            } );
        } else {
            Bytes bytes = loadAs<Bytes>( at ) ^ signFlip;
            Halves low = widenedHigh<Halves, false>( bytes ), high = widenedHigh<Halves, true>( bytes );
            words = { { widenedHigh<Words, false>( low ), widenedHigh<Words, true>( low ), //
                widenedHigh<Words, false>( high ), widenedHigh<Words, true>( high ) } };
        }
        return words;
    }
    static void store( uint8_t *at, const Tile &words )
    {
        if constexpr ( size == 4 ) {
            unrolled<4>( [&]( int r ) { storeAs( at + r * laneBytes, ordered( words.of[r] ^ signFlip ) ); } );
        } else if constexpr ( size == 2 ) {
            unrolled<2>( [&]( int r ) {
                const Halves halves = narrowedHigh( words.of[2 * r], words.of[2 * r + 1] );
                storeAs( at + r * laneBytes, ordered( halves ^ signFlip ) );
            } );
        } else {
            storeAs( at, narrowedHigh( words.of[0], words.of[1], words.of[2], words.of[3] ) ^ signFlip );
        }
    }
};

template <std::endian order, bool flipsSign> struct BytesOf<3, order, flipsSign> {
    static constexpr bool little = order == std::endian::little;
    static constexpr int pairs = lanes / 2, up = little ? 8 : 0;
    static constexpr uint32_t signFlip = flipsSign ? 1u << 31 : 0;
    using Slots = BytesOf<4, order, false>;

    // Loads two samples at a time, as six bytes of an 8-byte word. The last two samples are loaded with the two bytes
    // before them, to stay inside the tile.
    static Tile load( const uint8_t *at )
    {
        Tile words;
        if constexpr ( std::endian::native == std::endian::big ) return loadEach( at );
#ifdef __AARCH64EL__
        // Load the last four samples with the four bytes before them, to stay inside the tile.
        unrolled<4>(
            [&]( int r ) { words.of[r] = r < 3 ? shifted<0>( at + 12 * r ) : shifted<4>( at + 12 * r - 4 ); } );
        return words;
#endif
        const Longs first = Longs{} + ( uint64_t{ 0xFFFFFF } << up ), second = first << 32;
        unrolled<4>( [&]( int r ) {
            uint64_t each[pairs];
            unrolled<pairs>( [&]( int i ) {
                const uint8_t *pair = at + 6 * ( r * pairs + i );
                each[i] = r == 3 && i == pairs - 1 ? loadAs<uint64_t>( pair - 2 ) >> 16 : loadAs<uint64_t>( pair );
            } );
            auto longs = loadAs<Longs>( each );
            auto w = (Words)( ( longs << up & first ) | ( longs << ( up + 8 ) & second ) );
            words.of[r] = ( little ? w : swapped32( w ) ) ^ signFlip;
        } );
        return words;
    }
    static void store( uint8_t *at, const Tile &words )
    {
        if constexpr ( std::endian::native == std::endian::big ) return storeEach( at, words );
#ifdef __AARCH64EL__
        // A store of four samples also writes the four bytes after them, which the next one overwrites.
        unrolled<4>( [&]( int r ) {
            auto w =
                (Words)picked<[]( int i ) { return i < 12 ? i / 3 * 4 + ( little ? 1 + i % 3 : 3 - i % 3 ) : -1; }>(
                    (Bytes)( words.of[r] ^ signFlip ) );
            if ( r < 3 ) return storeAs( at + 12 * r, w );
            storeAs( at + 12 * r, ( (Longs)w )[0] );
            storeAs( at + 12 * r + 8, w[2] );
        } );
        return;
#endif
        const Longs first = Longs{} + 0xFFFFFF, second = first << 24;
        unrolled<4>( [&]( int r ) {
            Words w = words.of[r] ^ signFlip;
            auto each = (Longs)( little ? w : swapped32( w ) );
            Longs longs = ( each >> up & first ) | ( each >> ( up + 8 ) & second );
            unrolled<pairs>( [&]( int i ) {
                uint8_t *pair = at + 6 * ( r * pairs + i );
                if ( r < 3 || i < pairs - 1 ) return storeAs( pair, longs[i] );
                storeAs( pair, uint32_t( longs[i] ) );
                storeAs( pair + 4, uint16_t( longs[i] >> 32 ) );
            } );
        } );
    }
    // A 4-byte slot is a word with the sample in its high or low three bytes.
    static Tile loadSlots( const uint8_t *at, int64_t offset )
    {
        bool high = little == ( offset == 1 );
        Tile words = Slots::load( at );
        for ( Words &w : words.of ) w = ( high ? w & ~0xFFu : w << 8 ) ^ signFlip;
        return words;
    }
    static void storeSlots( uint8_t *at, const Tile &words, int64_t offset )
    {
        bool high = little == ( offset == 1 );
        Tile slots;
        for ( int r = 0; r < 4; ++r )
            slots.of[r] = high ? ( words.of[r] ^ signFlip ) & ~0xFFu : ( words.of[r] ^ signFlip ) >> 8;
        Slots::store( at, slots );
    }

private:
#ifdef __AARCH64EL__
    // Loads 16 bytes, of which four samples begin at byte `first`.
    template <int first> static Words shifted( const uint8_t *at )
    {
        auto indexOf = []( int i ) { return i % 4 ? first + i / 4 * 3 + ( little ? i % 4 - 1 : 3 - i % 4 ) : -1; };
        return (Words)picked<indexOf>( loadAs<Bytes>( at ) ) ^ signFlip;
    }
#endif
    static constexpr int lowByte = little ? 0 : 2, highByte = 2 - lowByte;
    static Tile loadEach( const uint8_t *at )
    {
        uint32_t words[tile];
        for ( uint32_t &w : words ) {
            w = ( uint32_t{ at[lowByte] } << 8 | uint32_t{ at[1] } << 16 | uint32_t{ at[highByte] } << 24 ) ^
                signFlip;
            at += 3;
        }
        return loadAs<Tile>( words );
    }
    static void storeEach( uint8_t *at, const Tile &tileWords )
    {
        uint32_t words[tile];
        storeAs( words, tileWords );
        for ( uint32_t w : words ) {
            at[lowByte] = uint8_t( ( w ^ signFlip ) >> 8 );
            at[1] = uint8_t( ( w ^ signFlip ) >> 16 );
            at[highByte] = uint8_t( ( w ^ signFlip ) >> 24 );
            at += 3;
        }
    }
};

// Codes: conversion between words and samples.

struct Pattern {
    static constexpr int width = 4;
    static constexpr bool flipsSign = false;
    static Words decode( Words bits ) { return bits; } // as integers, so that every NaN keeps its bits
    static Words encode( Words bits ) { return bits; }
};

inline Samples toSamples( Words bits ) { return __builtin_convertvector( (Ints)bits, Samples ); }

// Returns the signed integer times 2^-31, rounded once.
inline Samples toFractions( Words bits )
{
#ifdef __AARCH64EL__
    return (Samples)vcvtq_n_f32_s32( (int32x4_t)bits, 31 );
#else
    return toSamples( bits ) * 0x1p-31f;
#endif
}

template <int bytes> struct Signed {
    static constexpr int width = bytes;
    static constexpr bool flipsSign = false;
    static Samples decode( Words bits ) { return toFractions( bits ); }
    static Words encode( Samples x )
    {
        const Samples y = x * 0x1p31f;
        return (Words)( bytes < 4 ? truncatedToFloat( y ) : truncated( y ) ); // the low byte only matters to 4 bytes
    }
};

template <int bytes> struct Unsigned {
    static constexpr int width = bytes;
    static constexpr bool flipsSign = true;
    static Samples decode( Words bits )
    {
        // Up to 24 bits every step is exact, so the signed conversion has the same result.
        if constexpr ( bytes < 4 ) return Signed<bytes>::decode( bits );
        bits ^= 1u << 31;
#ifdef __AARCH64EL__
        return (Samples)vcvtq_n_f32_u32( (uint32x4_t)bits, 31 ) - 1.0f;
#endif
        // Both halves are exact and their sum rounds once, as in a conversion of the unsigned value.
        return ( toSamples( bits >> 16 ) * 0x1p16f + toSamples( bits & 0xFFFF ) ) * 0x1p-31f - 1.0f;
    }
    static Words encode( Samples x )
    {
        // The sum rounds to a multiple of 128 wherever it is in range, so the difference is exact. The result is that
        // of an unsigned conversion, computed by the signed one that every processor has.
        const Samples y = ( x * 0x1p31f + 0x1p31f ) - 0x1p31f;
        return (Words)( bytes < 4 ? truncatedToFloat( y ) : truncated( y ) );
    }
};

// A format decodes and encodes one tile of slots without padding bytes.

template <class Code, std::endian order> struct Linear {
    static constexpr int width = Code::width;
    using At = BytesOf<width, order, Code::flipsSign>;

    static void decode( uint8_t *dest, const uint8_t *source ) { decodeWords( dest, At::load( source ) ); }
    static void encode( uint8_t *dest, const uint8_t *source ) { At::store( dest, encodeWords( source ) ); }

    static void decodeWords( uint8_t *dest, const Tile &words )
    {
        using Values = decltype( Code::decode( Words{} ) );
        Values values[4];
        unrolled<4>( [&]( int r ) { values[r] = Code::decode( words.of[r] ); } );
        unrolled<4>( [&]( int r ) { storeAs( dest + r * laneBytes, values[r] ); } );
    }
    static Tile encodeWords( const uint8_t *source )
    {
        using Values = decltype( Code::decode( Words{} ) );
        Tile words;
        unrolled<4>( [&]( int r ) { words.of[r] = Code::encode( loadAs<Values>( source + r * laneBytes ) ); } );
        return words;
    }
};

} // namespace pcm

#endif
