#include "pcm_convert.h"

#include "kit/kit_check.h"
#include "kit/kit_loop.h"

#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

// Samples are converted a tile at a time: their bytes become 32-bit words, all alike, and these become floats, four
// lanes at once. The compilers make the loops over a tile wide, whatever they make of longer ones.
static constexpr int64_t tile = 32;
typedef PCM_SAMPLE Samples __attribute__( ( vector_size( 16 ) ) );
typedef uint32_t Words __attribute__( ( vector_size( 16 ) ) );
typedef int32_t Ints __attribute__( ( vector_size( 16 ) ) );

// Bytes in memory, as the low bits of a word. `load` and `store` serve one sample, `loadTile` and `storeTile` a tile
// of slots without spare bytes.

template <int size, std::endian order> struct Bytes {
    using Word = std::conditional_t<size == 1, uint8_t, std::conditional_t<size == 2, uint16_t, uint32_t>>;

    static Word ordered( Word word )
    {
        if constexpr ( order == std::endian::native || size == 1 ) return word;
        if constexpr ( size == 2 ) return Word( word << 8 | word >> 8 );
        // In two steps of shifts, which every processor can do in lanes.
        word = Word( ( word & 0x00FF00FF ) << 8 | ( word >> 8 & 0x00FF00FF ) );
        return Word( uint32_t{ word } << 16 | uint32_t{ word } >> 16 );
    }
    static uint32_t load( const uint8_t *at )
    {
        Word word;
        std::memcpy( &word, at, sizeof word );
        return ordered( word );
    }
    static void store( uint8_t *at, uint32_t bits )
    {
        Word word = ordered( Word( bits ) );
        std::memcpy( at, &word, sizeof word );
    }
    static void loadTile( uint32_t *bits, const uint8_t *at )
    {
        for ( int64_t i = 0; i < tile; ++i ) bits[i] = load( at + i * size );
    }
    static void storeTile( uint8_t *at, const uint32_t *bits )
    {
        for ( int64_t i = 0; i < tile; ++i ) store( at + i * size, bits[i] );
    }
};

template <std::endian order> struct Bytes<3, order> {
    static constexpr bool little = order == std::endian::little;
    static constexpr int first = little ? 0 : 2, last = 2 - first;
    using Whole = Bytes<4, order>;

    static uint32_t load( const uint8_t *at )
    {
        return uint32_t{ at[first] } | uint32_t{ at[1] } << 8 | uint32_t{ at[last] } << 16;
    }
    static void store( uint8_t *at, uint32_t bits )
    {
        at[first] = uint8_t( bits );
        at[1] = uint8_t( bits >> 8 );
        at[last] = uint8_t( bits >> 16 );
    }
    // Four samples are three words. What stands above 24 bits doesn't count.
    static void loadTile( uint32_t *bits, const uint8_t *at )
    {
        for ( int64_t i = 0; i < tile; i += 4, at += 12 ) {
            uint32_t a = Whole::load( at ), b = Whole::load( at + 4 ), c = Whole::load( at + 8 );
            bits[i] = little ? a : a >> 8;
            bits[i + 1] = little ? a >> 24 | b << 8 : a << 16 | b >> 16;
            bits[i + 2] = little ? b >> 16 | c << 16 : b << 8 | c >> 24;
            bits[i + 3] = little ? c >> 8 : c;
        }
    }
    static void storeTile( uint8_t *at, const uint32_t *bits )
    {
        for ( int64_t i = 0; i < tile; i += 4, at += 12 ) {
            uint32_t s = bits[i], t = bits[i + 1], u = bits[i + 2], v = bits[i + 3]; // 24 bits each
            Whole::store( at, little ? s | t << 24 : s << 8 | t >> 16 );
            Whole::store( at + 4, little ? t >> 8 | u << 16 : t << 16 | u >> 8 );
            Whole::store( at + 8, little ? u >> 16 | v << 8 : u << 24 | v );
        }
    }
    // Slots of four bytes, whose spare one stands before or behind: a word in which the sample is high or low.
    static void loadTileOfFour( uint32_t *bits, const uint8_t *at, int64_t offset )
    {
        int shift = little == ( offset == 1 ) ? 8 : 0;
        for ( int64_t i = 0; i < tile; ++i ) bits[i] = Whole::load( at + 4 * i ) >> shift;
    }
    static void storeTileOfFour( uint8_t *at, const uint32_t *bits, int64_t offset )
    {
        int shift = little == ( offset == 1 ) ? 8 : 0;
        for ( int64_t i = 0; i < tile; ++i ) Whole::store( at + 4 * i, bits[i] << shift );
    }
};

// A code turns the bits of samples into what the float side holds, and back, in lanes or one by one. An integer of
// any width is taken at the top of a 32-bit word: then one scale serves all widths, and narrowing is a shift.

struct Pattern {
    static constexpr int width = 4;
    using Value = uint32_t; // not a float: no NaN may change on its way
    static Words decode( Words bits ) { return bits; }
    static Words encode( Words bits ) { return bits; }
};

static constexpr uint32_t topBit = 0x80000000;

static Samples toSamples( Words bits ) { return __builtin_convertvector( (Ints)bits, Samples ); }

static Samples allLanes( PCM_SAMPLE value ) { return Samples{ value, value, value, value }; }

// Each comparison is written so that NaN takes the lower end.
static Ints truncated( Samples y, PCM_SAMPLE low, PCM_SAMPLE high )
{
    y = y > low ? y : allLanes( low );
    y = y < high ? y : allLanes( high );
    return __builtin_convertvector( y, Ints );
}

// A value that is out of range is clamped. The low bits of the highest one are there only if they are wanted: no
// float in range has them.
template <bool allBits> static Words integers( Samples y )
{
    Ints bits = truncated( y, -0x1p31f, 0x1.fffffep30f );
    if constexpr ( allBits ) bits |= ( y >= 0x1p31f ) & 0x7F;
    return (Words)bits;
}

template <int bytes> struct Signed {
    static constexpr int width = bytes, spare = 32 - 8 * bytes;
    using Value = PCM_SAMPLE;
    static Samples decode( Words bits ) { return toSamples( bits << spare ) * 0x1p-31f; }
    static Words encode( Samples x ) { return integers<spare == 0>( x * 0x1p31f ) >> spare; }
};

template <int bytes> struct Unsigned {
    static constexpr int width = bytes, spare = 32 - 8 * bytes;
    using Value = PCM_SAMPLE;
    static Samples decode( Words bits )
    {
        // Up to 24 bits every step is exact, so the signed code with its top bit turned gives the same.
        if constexpr ( spare > 0 ) return Signed<bytes>::decode( bits ^ ( topBit >> spare ) );
        // Both halves are exact, and their sum rounds once: the conversion of the unsigned value.
        return ( toSamples( bits >> 16 ) * 0x1p16f + toSamples( bits & 0xFFFF ) ) * 0x1p-31f - 1.0f;
    }
    static Words encode( Samples x )
    {
        // The sum rounds. It is a whole multiple of 128 wherever it is in range, so the difference is exact: the
        // conversion of the unsigned value, made by the signed one that every processor has.
        Samples sum = x * 0x1p31f + 0x1p31f;
        return ( integers<spare == 0>( sum - 0x1p31f ) ^ topBit ) >> spare;
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

// The leading one of a number and the four bits behind it, which make a segment and a place in it, are where a float
// keeps its exponent and the top of its fraction. In lanes this is faster than the tables, which it is held against.

static constexpr int32_t floatPattern( int32_t value ) { return std::bit_cast<int32_t>( PCM_SAMPLE( value ) ); }
static Ints floatPattern( Ints value ) { return ( Ints ) __builtin_convertvector( value, Samples ); }

// `unit` is the exponent of segment 0.
template <class Int> static constexpr Int segmentAndPlace( Int value, int32_t unit )
{
    return ( floatPattern( value ) >> 19 ) - ( ( 127 + unit ) << 4 );
}

struct AlawRule {
    template <class Int> static constexpr Int compress( Int index )
    {
        index -= index >> 12; // 4096 counts as 4095
        return ( index < 32 ? index >> 1 : segmentAndPlace( index, 4 ) ) ^ 0x55;
    }
};

struct MulawRule {
    template <class Int> static constexpr Int compress( Int index )
    {
        Int biased = 2 * index + 33, highest = Int{} + 8191;
        return segmentAndPlace( biased < highest ? biased : highest, 5 ) ^ 0x7F;
    }
};

template <class Rule, class Table> static constexpr bool follows( const Table &table )
{
    for ( int32_t index = 0; index <= 4096; ++index )
        if ( Rule::compress( index ) != table[size_t( index )] ) return false;
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

template <const auto &floats, class Rule> struct G711 {
    static constexpr int width = 1;
    using Value = PCM_SAMPLE;
    static Value decode( uint32_t code ) { return floats[code]; }
    static Words encode( Samples x )
    {
        Samples y = x * 0x1p15f;
        y = (Samples)( (Ints)y & ( y == y ) ); // NaN counts as 0
        Ints v = truncated( y, -0x1p15f, 32767.0f ), sign = v >> 31, magnitude = ( v ^ sign ) - sign;
        return (Words)( Rule::compress( magnitude >> 3 ) | ( ~sign & 0x80 ) );
    }
};

using Alaw = G711<alawFloats, AlawRule>;
using Mulaw = G711<mulawFloats, MulawRule>;

template <class Code> static void decodeTile( uint8_t *dest, const uint32_t *bits )
{
    if constexpr ( requires( Words words ) { Code::decode( words ); } ) {
        for ( int64_t i = 0; i < tile; i += 4 ) {
            Words words;
            std::memcpy( &words, bits + i, sizeof words );
            auto values = Code::decode( words );
            std::memcpy( dest + i * KIT_SIZEOF( PCM_SAMPLE ), &values, sizeof values );
        }
    } else {
        for ( int64_t i = 0; i < tile; ++i ) {
            auto value = Code::decode( bits[i] );
            std::memcpy( dest + i * KIT_SIZEOF( PCM_SAMPLE ), &value, sizeof value );
        }
    }
}

template <class Code> static void encodeTile( uint32_t *bits, const uint8_t *source )
{
    typedef typename Code::Value Values __attribute__( ( vector_size( 16 ) ) );
    for ( int64_t i = 0; i < tile; i += 4 ) {
        Values values;
        std::memcpy( &values, source + i * KIT_SIZEOF( PCM_SAMPLE ), sizeof values );
        Words words = Code::encode( values );
        std::memcpy( bits + i, &words, sizeof words );
    }
}

template <class Code, std::endian order> struct Format : Code {
    using At = Bytes<Code::width, order>;
};

template <class Code, class Use> static void withOrder( PCM_ENCODING encoding, Use use )
{
    if constexpr ( Code::width > 1 )
        if ( encoding & PCM_ENCODING_BIG_ENDIAN ) return use( Format<Code, std::endian::big>{} );
    use( Format<Code, std::endian::little>{} );
}

template <int width, class Use> static void withSign( PCM_ENCODING encoding, Use use )
{
    if ( encoding & PCM_ENCODING_UNSIGNED )
        withOrder<Unsigned<width>>( encoding, use );
    else
        withOrder<Signed<width>>( encoding, use );
}

// The whole map from words to types.
template <class Use> static void withFormat( PCM_ENCODING encoding, Use use )
{
    switch ( encoding & PCM_ENCODING_BASE_MASK ) {
    case 0: return use( Format<Pattern, std::endian::little>{} ); // whatever the byte order flags say
    case PCM_ENCODING_FLOAT_32: return withOrder<Pattern>( encoding, use );
    case PCM_ENCODING_G711_ALAW: return withOrder<Alaw>( encoding, use );
    case PCM_ENCODING_G711_MULAW: return withOrder<Mulaw>( encoding, use );
    case PCM_ENCODING_INT_8: return withSign<1>( encoding, use );
    case PCM_ENCODING_INT_16: return withSign<2>( encoding, use );
    case PCM_ENCODING_INT_24: return withSign<3>( encoding, use );
    case PCM_ENCODING_INT_32: return withSign<4>( encoding, use );
    }
    kit___Abort( nullptr, kit::sourcePath<__FILE__>, __LINE__, nullptr );
}

struct Slot {
    int64_t width, offset;
};

static Slot slotOf( PCM_ENCODING encoding )
{
    int64_t width = pcmEncodingSizeofSample( encoding );
    int64_t spare = width - pcmEncodingSizeofSample( encoding & PCM_ENCODING_BASE_MASK );
    if ( encoding & PCM_ENCODING_PAD_BEFORE ) return { width, spare };
    if ( encoding & PCM_ENCODING_PAD_AFTER ) return { width, 0 };
    return { width, encoding & PCM_ENCODING_BIG_ENDIAN ? spare : 0 };
}

// A slot without spare bytes has a stride that the compiler knows, and so has the commonest slot that has some.
template <class Form, class Run> static void withStride( int64_t width, Run run )
{
    if ( width == Form::width ) return run( std::integral_constant<int64_t, Form::width>{} );
    if constexpr ( Form::width == 3 )
        if ( width == 4 ) return run( std::integral_constant<int64_t, 4>{} );
    run( width );
}

template <class Form, class Stride>
static void loadTile( uint32_t *bits, const uint8_t *at, Stride stride, int64_t offset )
{
    if constexpr ( std::is_same_v<Stride, std::integral_constant<int64_t, Form::width>> )
        Form::At::loadTile( bits, at );
    else if constexpr ( std::is_same_v<Stride, std::integral_constant<int64_t, 4>> )
        Form::At::loadTileOfFour( bits, at, offset );
    else
        for ( int64_t i = 0; i < tile; ++i ) bits[i] = Form::At::load( at + offset + i * stride );
}

template <class Form, class Stride>
static void storeTile( uint8_t *at, const uint32_t *bits, Stride stride, int64_t offset )
{
    if constexpr ( std::is_same_v<Stride, std::integral_constant<int64_t, Form::width>> )
        Form::At::storeTile( at, bits );
    else if constexpr ( std::is_same_v<Stride, std::integral_constant<int64_t, 4>> )
        Form::At::storeTileOfFour( at, bits, offset );
    else
        for ( int64_t i = 0; i < tile; ++i ) Form::At::store( at + offset + i * stride, bits[i] );
}

static constexpr int64_t sampleSize = KIT_SIZEOF( PCM_SAMPLE );

// What is left of a run, less than a tile, is put into one and taken out sample by sample. One function for all
// strides: there are many formats.

template <class Form>
[[gnu::noinline]] static void decodeRest( uint8_t *dest, const uint8_t *source, int64_t stride, int64_t samples )
{
    uint32_t bits[tile] = {};
    uint8_t values[tile * sampleSize];
    for ( int64_t i = 0; i < samples; ++i ) bits[i] = Form::At::load( source + i * stride );
    decodeTile<Form>( values, bits );
    std::memcpy( dest, values, size_t( samples * sampleSize ) );
}

template <class Form>
[[gnu::noinline]] static void encodeRest( uint8_t *dest, const uint8_t *source, int64_t stride, int64_t samples )
{
    uint32_t bits[tile];
    uint8_t values[tile * sampleSize] = {};
    std::memcpy( values, source, size_t( samples * sampleSize ) );
    encodeTile<Form>( bits, values );
    for ( int64_t i = 0; i < samples; ++i ) Form::At::store( dest + i * stride, bits[i] );
}

static void pcm___ConvertToSamples( uint8_t *dest, const uint8_t *source, PCM_ENCODING encoding, int64_t samples )
{
    Slot slot = slotOf( encoding );
    int64_t rest = samples % tile, whole = samples - rest;
    withFormat( encoding, [=]( auto format ) {
        using Form = decltype( format );
        withStride<Form>( slot.width, [=]( auto stride ) {
            uint32_t bits[tile];
            for ( int64_t done = 0; done < whole; done += tile ) {
                loadTile<Form>( bits, source + done * stride, stride, slot.offset );
                decodeTile<Form>( dest + done * sampleSize, bits );
            }
        } );
        if ( rest )
            decodeRest<Form>(
                dest + whole * sampleSize, source + whole * slot.width + slot.offset, slot.width, rest );
    } );
}

static void pcm___ConvertFromSamples( uint8_t *dest, PCM_ENCODING encoding, const uint8_t *source, int64_t samples )
{
    Slot slot = slotOf( encoding );
    int64_t rest = samples % tile, whole = samples - rest;
    withFormat( encoding, [=]( auto format ) {
        using Form = decltype( format );
        if ( slot.width != Form::width ) kitMemSetN( dest, 0, samples, slot.width );
        withStride<Form>( slot.width, [=]( auto stride ) {
            uint32_t bits[tile];
            for ( int64_t done = 0; done < whole; done += tile ) {
                encodeTile<Form>( bits, source + done * sampleSize );
                storeTile<Form>( dest + done * stride, bits, stride, slot.offset );
            }
        } );
        if ( rest )
            encodeRest<Form>(
                dest + whole * slot.width + slot.offset, source + whole * sampleSize, slot.width, rest );
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
    pcm___Convert( bytes, destEncoding, kitBufferBacking( source ), sourceEncoding, samples );
    return kitBufferCreateFromBytesUse( bytes, destSampleSize * samples );
}

void pcm___Convert(
    void *dest, PCM_ENCODING destEncoding, const void *source, PCM_ENCODING sourceEncoding, int64_t samples )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( dest || samples == 0 );
    KIT_CHECK( source || samples == 0 );
    destEncoding = pcmEncodingNormalize( destEncoding );
    sourceEncoding = pcmEncodingNormalize( sourceEncoding );
    int64_t destSize = pcmEncodingSizeofSample( destEncoding );
    int64_t sourceSize = pcmEncodingSizeofSample( sourceEncoding );
    KIT_CHECK( KIT_INT_MUL_OK( destSize, samples ) );
    KIT_CHECK( KIT_INT_MUL_OK( sourceSize, samples ) );

    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const uint8_t *>( source );
    if ( destEncoding == 0 ) return pcm___ConvertToSamples( to, from, sourceEncoding, samples );
    if ( sourceEncoding == 0 ) return pcm___ConvertFromSamples( to, destEncoding, from, samples );

    constexpr int64_t blockSamples = 256;
    uint8_t block[blockSamples * sizeof( PCM_SAMPLE )];
    kit::forChunks( samples, blockSamples, [&]( int64_t done, int64_t n ) {
        pcm___ConvertToSamples( block, from + done * sourceSize, sourceEncoding, n );
        pcm___ConvertFromSamples( to + done * destSize, destEncoding, block, n );
    } );
}
