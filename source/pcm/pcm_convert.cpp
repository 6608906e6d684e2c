#include "pcm_convert.h"

#include "pcm_lanes.h"
#include "pcm_slot.h"

#include "kit/kit_check.h"
#include "kit/kit_loop.h"

#include <array>

using namespace pcm;

// Samples are converted a tile at a time, in registers: their bytes become 32-bit words, and these become floats.
// An integer of any width stands at the top of its word: then one scale serves all widths.

static constexpr int64_t sampleSize = KIT_SIZEOF( PCM_SAMPLE );
static constexpr int tile = 4 * lanes;

struct Tile {
    Words of[4];
};

// The bytes of a tile of samples, without spare ones, as words. `turned` turns the top bit of each sample, which
// makes an unsigned integer a signed one and back.
template <int size, std::endian order, bool turned> struct BytesOf {
    using Word = std::conditional_t<size == 1, uint8_t, std::conditional_t<size == 2, uint16_t, uint32_t>>;
    static constexpr int below = 32 - 8 * size;
    static constexpr Word turn = turned ? Word( 1u << ( 8 * size - 1 ) ) : Word( 0 );

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
            unrolled<4>( [&]( int r ) { words.of[r] = ordered( loadAs<Words>( at + r * laneBytes ) ) ^ turn; } );
        } else if constexpr ( laneBytes > 16 ) { // processors with such lanes widen while they load
            unrolled<4>( [&]( int r ) {
                Words low = widened<Word>( at + r * lanes * size );
                bool swaps = size == 2 && order != std::endian::native; // which lifts as well
                words.of[r] = ( swaps ? swapped32( low ) : low << below ) ^ uint32_t( turn ) << below;
            } );
        } else if constexpr ( size == 2 ) {
            unrolled<2>( [&]( int r ) {
                Halves halves = ordered( loadAs<Halves>( at + r * laneBytes ) ) ^ turn;
                words.of[2 * r] = tops<Words, false>( halves );
                words.of[2 * r + 1] = tops<Words, true>( halves );
            } );
        } else {
            Bytes bytes = loadAs<Bytes>( at ) ^ turn;
            Halves low = tops<Halves, false>( bytes ), high = tops<Halves, true>( bytes );
            words = { { tops<Words, false>( low ), tops<Words, true>( low ), //
                tops<Words, false>( high ), tops<Words, true>( high ) } };
        }
        return words;
    }
    static void store( uint8_t *at, const Tile &words )
    {
        auto sample = [&]( int r ) { return (Ints)words.of[r] >> below; };
        if constexpr ( size == 4 ) {
            unrolled<4>( [&]( int r ) { storeAs( at + r * laneBytes, ordered( words.of[r] ^ turn ) ); } );
        } else if constexpr ( size == 2 ) {
            unrolled<2>( [&]( int r ) {
                auto halves = (Halves)narrowed( sample( 2 * r ), sample( 2 * r + 1 ) );
                storeAs( at + r * laneBytes, ordered( halves ^ turn ) );
            } );
        } else {
            storeAs( at, (Bytes)narrowed( sample( 0 ), sample( 1 ), sample( 2 ), sample( 3 ) ) ^ turn );
        }
    }
};

template <std::endian order, bool turned> struct BytesOf<3, order, turned> {
    static constexpr bool little = order == std::endian::little;
    static constexpr int pairs = lanes / 2, up = little ? 8 : 0;
    static constexpr uint32_t turn = turned ? 1u << 31 : 0;
    using Slots = BytesOf<4, order, false>;

    // Two samples at a time, as six of the eight bytes of a long; of the last two, the bytes before them.
    static Tile load( const uint8_t *at )
    {
        Tile words;
        if constexpr ( std::endian::native == std::endian::big ) return loadEach( at );
        const Longs first = Longs{} + ( uint64_t{ 0xFFFFFF } << up ), second = first << 32;
        unrolled<4>( [&]( int r ) {
            uint64_t each[pairs];
            unrolled<pairs>( [&]( int i ) {
                const uint8_t *pair = at + 6 * ( r * pairs + i );
                each[i] = r == 3 && i == pairs - 1 ? loadAs<uint64_t>( pair - 2 ) >> 16 : loadAs<uint64_t>( pair );
            } );
            auto longs = loadAs<Longs>( each );
            auto w = (Words)( ( longs << up & first ) | ( longs << ( up + 8 ) & second ) );
            words.of[r] = ( little ? w : swapped32( w ) ) ^ turn;
        } );
        return words;
    }
    static void store( uint8_t *at, const Tile &words )
    {
        if constexpr ( std::endian::native == std::endian::big ) return storeEach( at, words );
        const Longs first = Longs{} + 0xFFFFFF, second = first << 24;
        unrolled<4>( [&]( int r ) {
            Words w = words.of[r] ^ turn;
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
    // Slots of four bytes are words in which the sample is high or low.
    static Tile loadSlots( const uint8_t *at, int64_t offset )
    {
        bool high = little == ( offset == 1 );
        Tile words = Slots::load( at );
        for ( Words &w : words.of ) w = ( high ? w & ~0xFFu : w << 8 ) ^ turn;
        return words;
    }
    static void storeSlots( uint8_t *at, const Tile &words, int64_t offset )
    {
        bool high = little == ( offset == 1 );
        Tile slots;
        for ( int r = 0; r < 4; ++r )
            slots.of[r] = high ? ( words.of[r] ^ turn ) & ~0xFFu : ( words.of[r] ^ turn ) >> 8;
        Slots::store( at, slots );
    }

private:
    static constexpr int lowByte = little ? 0 : 2, highByte = 2 - lowByte;
    static Tile loadEach( const uint8_t *at )
    {
        uint32_t words[tile];
        for ( uint32_t &w : words ) {
            w = ( uint32_t{ at[lowByte] } << 8 | uint32_t{ at[1] } << 16 | uint32_t{ at[highByte] } << 24 ) ^ turn;
            at += 3;
        }
        return loadAs<Tile>( words );
    }
    static void storeEach( uint8_t *at, const Tile &tileWords )
    {
        uint32_t words[tile];
        storeAs( words, tileWords );
        for ( uint32_t w : words ) {
            at[lowByte] = uint8_t( ( w ^ turn ) >> 8 );
            at[1] = uint8_t( ( w ^ turn ) >> 16 );
            at[highByte] = uint8_t( ( w ^ turn ) >> 24 );
            at += 3;
        }
    }
};

// A code turns words into what the float side holds, and back.

struct Pattern {
    static constexpr int width = 4;
    static constexpr bool turned = false;
    static Words decode( Words bits ) { return bits; } // not as floats: no NaN may change on its way
    static Words encode( Words bits ) { return bits; }
};

static Samples toSamples( Words bits ) { return __builtin_convertvector( (Ints)bits, Samples ); }

template <int bytes> struct Signed {
    static constexpr int width = bytes;
    static constexpr bool turned = false;
    static Samples decode( Words bits ) { return toSamples( bits ) * 0x1p-31f; }
    static Words encode( Samples x ) { return (Words)truncated( x * 0x1p31f ); }
};

template <int bytes> struct Unsigned {
    static constexpr int width = bytes;
    static constexpr bool turned = true;
    static Samples decode( Words bits )
    {
        // Up to 24 bits every step is exact, so the signed code gives the same.
        if constexpr ( bytes < 4 ) return Signed<bytes>::decode( bits );
        // Both halves are exact, and their sum rounds once: the conversion of the unsigned value.
        bits ^= 1u << 31;
        return ( toSamples( bits >> 16 ) * 0x1p16f + toSamples( bits & 0xFFFF ) ) * 0x1p-31f - 1.0f;
    }
    static Words encode( Samples x )
    {
        // The sum rounds. It is a whole multiple of 128 wherever it is in range, so the difference is exact: the
        // conversion of the unsigned value, made by the signed one that every processor has.
        return (Words)truncated( ( x * 0x1p31f + 0x1p31f ) - 0x1p31f );
    }
};

// G.711, on a 16-bit scale. A code expands to its value; the magnitude of a value, without its three low bits, is
// the index of its code.

template <class Entry> static constexpr auto expandTable( Entry entry )
{
    std::array<int16_t, 256> table{};
    for ( int code = 0; code < 256; ++code ) table[size_t( code )] = int16_t( entry( code ) );
    return table;
}

template <class Entry> static constexpr auto compressTable( Entry entry )
{
    std::array<uint8_t, 4097> table{};
    for ( int index = 0; index <= 4096; ++index ) table[size_t( index )] = uint8_t( entry( index ) );
    return table;
}

// The smallest segment whose end, 2^(s + bits) - 1, is at or above the value.
static constexpr int segment( int value, int bits )
{
    int s = 0;
    while ( value >> ( s + bits ) ) ++s;
    return s;
}

static constexpr auto pcm___AlawExpandTable = expandTable( []( int code ) {
    int a = code ^ 0x55, s = a >> 4 & 7, m = a & 15;
    int magnitude = s == 0 ? 16 * m + 8 : ( 16 * m + 264 ) << ( s - 1 );
    return code & 0x80 ? magnitude : -magnitude;
} );

static constexpr auto pcm___MulawExpandTable = expandTable( []( int code ) {
    int u = code ^ 0xFF, s = u >> 4 & 7, m = u & 15;
    int magnitude = ( ( 8 * m + 132 ) << s ) - 132;
    return ( code & 0x80 ? magnitude : -magnitude ) & ~7; // down to a multiple of 8
} );

static constexpr auto pcm___AlawCompressTable = compressTable( []( int index ) {
    int i = index < 4096 ? index : 4095, s = segment( i, 5 );
    return ( 16 * s + ( i >> ( s < 2 ? 1 : s ) & 15 ) ) ^ 0x55;
} );

static constexpr auto pcm___MulawCompressTable = compressTable( []( int index ) {
    int b = 2 * index + 33;
    if ( b > 8191 ) return 0;
    int s = segment( b, 6 );
    return ( 16 * s + ( b >> ( s + 1 ) & 15 ) ) ^ 0x7F;
} );

static_assert( pcm___AlawExpandTable[0xD5] == 8 && pcm___AlawExpandTable[0x2A] == -32256 );
static_assert( pcm___MulawExpandTable[0x80] == 32120 && pcm___MulawExpandTable[0x0F] == -16768 );
static_assert( pcm___AlawCompressTable[31] == 0x5A && pcm___AlawCompressTable[4096] == 0x2A );
static_assert( pcm___MulawCompressTable[16] == 0x6F && pcm___MulawCompressTable[3952] == 0x00 );

// A magnitude's segment and its place in it are where a float keeps its exponent and the top of its fraction. In
// lanes this is faster than the tables, which it is held against. It takes single numbers too, so that this can be
// shown at compile time.

static constexpr int32_t patternOf( PCM_SAMPLE value ) { return std::bit_cast<int32_t>( value ); }
static Ints patternOf( Samples value ) { return (Ints)value; }

static constexpr PCM_SAMPLE fromPattern( int32_t bits ) { return std::bit_cast<PCM_SAMPLE>( bits ); }
static Samples fromPattern( Ints bits ) { return (Samples)bits; }

/// All bits set where it is so.
static constexpr int32_t isBelow( PCM_SAMPLE a, PCM_SAMPLE b ) { return -int32_t( a < b ); }
static Ints isBelow( Samples a, PCM_SAMPLE b ) { return a < b; }

/// For magnitudes from 2^unit on, where segment 0 begins.
template <class Float> static constexpr auto segmentAndPlace( Float magnitude, int unit )
{
    return ( patternOf( magnitude ) >> 19 ) - ( ( 127 + unit ) << 4 );
}

// Both take magnitudes on the 16-bit scale that have at most 12 significant bits, so that no sum rounds, and give
// numbers above 127 for those beyond the last segment.

struct AlawRule {
    static constexpr int flip = 0x55;
    template <class Float> static constexpr auto compress( Float magnitude )
    {
        // The first two segments have steps of one size: the lower one is taken for the upper, and put back.
        auto lowest = isBelow( magnitude, 256.0f );
        return segmentAndPlace( magnitude + fromPattern( lowest & patternOf( 256.0f ) ), 7 ) + lowest * 16;
    }
};

struct MulawRule {
    static constexpr int flip = 0x7F;
    template <class Float> static constexpr auto compress( Float magnitude )
    {
        return segmentAndPlace( magnitude + 128.0f, 7 );
    }
};

template <class Rule, class Table> static constexpr bool follows( const Table &table )
{
    for ( int32_t index = 0; index <= 4096; ++index ) {
        int32_t code = Rule::compress( PCM_SAMPLE( 8 * index ) );
        if ( ( ( code < 127 ? code : 127 ) ^ Rule::flip ) != table[size_t( index )] ) return false;
    }
    return true;
}
static_assert( follows<AlawRule>( pcm___AlawCompressTable ) && follows<MulawRule>( pcm___MulawCompressTable ) );

static constexpr auto readyFloats( const std::array<int16_t, 256> &table )
{
    std::array<PCM_SAMPLE, 256> floats{};
    for ( size_t code = 0; code < 256; ++code ) floats[code] = PCM_SAMPLE( table[code] ) * 0x1p-15f;
    return floats;
}
static constexpr auto alawFloats = readyFloats( pcm___AlawExpandTable );
static constexpr auto mulawFloats = readyFloats( pcm___MulawExpandTable );

// A format decodes and encodes one tile without spare bytes.

template <class Code, std::endian order> struct Linear {
    static constexpr int width = Code::width;
    using At = BytesOf<width, order, Code::turned>;

    static void decode( uint8_t *dest, const uint8_t *source ) { decodeWords( dest, At::load( source ) ); }
    static void encode( uint8_t *dest, const uint8_t *source ) { At::store( dest, encodeWords( source ) ); }

    static void decodeWords( uint8_t *dest, const Tile &words )
    {
        unrolled<4>( [&]( int r ) { storeAs( dest + r * laneBytes, Code::decode( words.of[r] ) ); } );
    }
    static Tile encodeWords( const uint8_t *source )
    {
        using Values = decltype( Code::decode( Words{} ) );
        Tile words;
        unrolled<4>( [&]( int r ) { words.of[r] = Code::encode( loadAs<Values>( source + r * laneBytes ) ); } );
        return words;
    }
};

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
            // NaN counts as 0. What is below a step of 8 makes no difference.
            codes[r] = Rule::compress( (Samples)( (Ints)y & ( y == y ) & 0x7FFFF000 ) );
        } );
        auto magnitude = narrowed( codes[0], codes[1], codes[2], codes[3] ); // up to 127
        auto sign = narrowed( negative[0], negative[1], negative[2], negative[3] );
        storeAs( dest, (Bytes)magnitude ^ uint8_t( Rule::flip | 0x80 ) ^ ( (Bytes)sign & uint8_t( 0x80 ) ) );
    }
};

using Alaw = G711<alawFloats, AlawRule>;
using Mulaw = G711<mulawFloats, MulawRule>;

// Runs of tiles.

// Slots without spare bytes, four bytes with a sample of three, and all others.
enum Kind { dense, threeInFour, spread };

template <class Format, Kind kind>
static void decodeTile( uint8_t *dest, const uint8_t *source, int64_t width, int64_t offset )
{
    if constexpr ( kind == dense ) {
        Format::decode( dest, source );
    } else if constexpr ( kind == threeInFour ) {
        Format::decodeWords( dest, Format::At::loadSlots( source, offset ) );
    } else {
        uint8_t samples[tile * Format::width];
        for ( int i = 0; i < tile; ++i )
            std::memcpy( samples + i * Format::width, source + offset + i * width, Format::width );
        Format::decode( dest, samples );
    }
}

template <class Format, Kind kind>
static void encodeTile( uint8_t *dest, const uint8_t *source, int64_t width, int64_t offset )
{
    if constexpr ( kind == dense ) {
        Format::encode( dest, source );
    } else if constexpr ( kind == threeInFour ) {
        Format::At::storeSlots( dest, Format::encodeWords( source ), offset );
    } else {
        uint8_t samples[tile * Format::width];
        Format::encode( samples, source );
        for ( int i = 0; i < tile; ++i )
            std::memcpy( dest + offset + i * width, samples + i * Format::width, Format::width );
    }
}

using Run = void ( * )( uint8_t *dest, const uint8_t *source, int64_t samples, int64_t slotWidth, int64_t offset );

// A run of less than a tile is put into one and taken out.
template <class Format, Kind kind, bool decodes>
[[gnu::flatten]] static void convertRun(
    uint8_t *dest, const uint8_t *source, int64_t samples, int64_t slotWidth, int64_t offset )
{
    constexpr int64_t width = kind == dense ? Format::width : kind == threeInFour ? 4 : 0;
    constexpr int64_t widest = width ? width : 8;
    const int64_t encoded = width ? width : slotWidth;
    const int64_t destWidth = decodes ? sampleSize : encoded, sourceWidth = decodes ? encoded : sampleSize;
    constexpr auto convertTile = decodes ? decodeTile<Format, kind> : encodeTile<Format, kind>;
    const int64_t rest = samples % tile, whole = samples - rest;
    for ( int64_t done = 0; done < whole; done += tile )
        convertTile( dest + done * destWidth, source + done * sourceWidth, encoded, offset );
    if ( !rest ) return;
    const uint8_t *destEnd = dest + samples * destWidth, *sourceEnd = source + samples * sourceWidth;
    if ( whole && ( destEnd <= source || sourceEnd <= dest ) ) // the last ones once more with those before them
        return convertTile(
            dest + ( samples - tile ) * destWidth, source + ( samples - tile ) * sourceWidth, encoded, offset );
    uint8_t in[tile * ( decodes ? widest : sampleSize )] = {}, out[tile * ( decodes ? sampleSize : widest )] = {};
    std::memcpy( in, source + whole * sourceWidth, size_t( rest * sourceWidth ) );
    convertTile( out, in, encoded, offset );
    std::memcpy( dest + whole * destWidth, out, size_t( rest * destWidth ) );
}

static void copyRun( uint8_t *dest, const uint8_t *source, int64_t samples, int64_t, int64_t )
{
    if ( samples ) std::memmove( dest, source, size_t( samples * sampleSize ) );
}

// The whole map from words to formats, by the place of the base flag; 7 is the empty base.
template <int base, bool isUnsigned, std::endian order> static auto formatOf()
{
    if constexpr ( base == 0 ) return Alaw{};
    if constexpr ( base == 1 ) return Mulaw{};
    if constexpr ( base >= 2 && base <= 5 )
        return Linear<std::conditional_t<isUnsigned, Unsigned<base - 1>, Signed<base - 1>>, order>{};
    if constexpr ( base == 6 ) return Linear<Pattern, order>{};
    if constexpr ( base == 7 ) return Linear<Pattern, std::endian::little>{}; // whatever the byte order flags say
}

struct Runs {
    Run decode[3], encode[3]; // by kind
};

template <size_t place> static constexpr Runs runsOf()
{
    constexpr auto order = place & 1 ? std::endian::big : std::endian::little;
    using Format = decltype( formatOf<int( place >> 2 ), ( place & 2 ) != 0, order>() );
    constexpr auto four = Format::width == 3 ? threeInFour : spread;
    Runs runs = { { convertRun<Format, dense, true>, convertRun<Format, four, true>,
                      convertRun<Format, spread, true> },
        { convertRun<Format, dense, false>, convertRun<Format, four, false>, convertRun<Format, spread, false> } };
    if ( std::is_same_v<Format, Linear<Pattern, std::endian::native>> )
        runs.decode[dense] = runs.encode[dense] = copyRun;
    return runs;
}

static constexpr auto allRuns = []<size_t... place>( std::index_sequence<place...> )
{
    return std::array<Runs, sizeof...( place )>{ runsOf<place>()... };
}
( std::make_index_sequence<8 * 2 * 2>{} );

static const Runs &runsFor( Slot slot )
{
    return allRuns[4 * size_t( slot.base ) + 2 * slot.isUnsigned + slot.isBigEndian];
}

static Kind kindOf( Slot slot )
{
    return slot.width == slot.sampleWidth ? dense : slot.width == 4 ? threeInFour : spread;
}

static void pcm___ConvertToSamples( uint8_t *dest, const uint8_t *source, Slot slot, int64_t samples )
{
    runsFor( slot ).decode[kindOf( slot )]( dest, source, samples, slot.width, slot.offset );
}

static void pcm___ConvertFromSamples( uint8_t *dest, Slot slot, const uint8_t *source, int64_t samples )
{
    if ( slot.width != slot.sampleWidth ) kitMemSetN( dest, 0, samples, slot.width );
    runsFor( slot ).encode[kindOf( slot )]( dest, source, samples, slot.width, slot.offset );
}

// By itself, so that the other roads don't make room for its block.
[[gnu::noinline]] static void convertThroughSamples(
    uint8_t *dest, Slot destSlot, const uint8_t *source, Slot sourceSlot, int64_t samples )
{
    constexpr int64_t blockSamples = 256;
    uint8_t block[blockSamples * sizeof( PCM_SAMPLE )];
    kit::forChunks( samples, blockSamples, [&]( int64_t done, int64_t n ) {
        pcm___ConvertToSamples( block, source + done * sourceSlot.width, sourceSlot, n );
        pcm___ConvertFromSamples( dest + done * destSlot.width, destSlot, block, n );
    } );
}

KIT_BUFFER *pcmTryConvert( PCM_ENCODING destEncoding, KIT_BUFFER *source, PCM_ENCODING sourceEncoding )
{
    int64_t destSampleSize = pcmEncodingSizeofSample( destEncoding );
    int64_t sourceSampleSize = pcmEncodingSizeofSample( sourceEncoding );
    int64_t length = kitBufferLength( source ), samples = length / sourceSampleSize;
    if ( length % sourceSampleSize || !samples ) return nullptr;
    KIT_CHECK( KIT_INT_MUL_OK( destSampleSize, samples ) );
    void *bytes = kitMemAlloc( destSampleSize * samples );
    pcm___Convert( bytes, inBuffer( destEncoding ), kitBufferBacking( source ), inBuffer( sourceEncoding ), samples );
    return kitBufferCreateFromBytesUse( bytes, destSampleSize * samples );
}

void pcm___Convert(
    void *dest, PCM_ENCODING destEncoding, const void *source, PCM_ENCODING sourceEncoding, int64_t samples )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( dest || samples == 0 );
    KIT_CHECK( source || samples == 0 );
    Slot destSlot = slotOf( inMemory( destEncoding ) ), sourceSlot = slotOf( inMemory( sourceEncoding ) );
    int64_t destSize = destSlot.width, sourceSize = sourceSlot.width;
    KIT_CHECK( KIT_INT_MUL_OK( destSize, samples ) );
    KIT_CHECK( KIT_INT_MUL_OK( sourceSize, samples ) );

    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const uint8_t *>( source );
    if ( isSamples( destEncoding ) ) return pcm___ConvertToSamples( to, from, sourceSlot, samples );
    if ( isSamples( sourceEncoding ) ) return pcm___ConvertFromSamples( to, destSlot, from, samples );

    convertThroughSamples( to, destSlot, from, sourceSlot, samples );
}
