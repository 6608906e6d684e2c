#include "pcm_convert.h"

#include "kit/kit_check.h"
#include "kit/kit_loop.h"

#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

// The bytes of a sample, as the low bits of a word. A whole-word access and a swap are what compilers make wide.
template <int size, std::endian order> struct Bytes {
    using Word = std::conditional_t<size == 1, uint8_t, std::conditional_t<size == 2, uint16_t, uint32_t>>;

    static Word ordered( Word word )
    {
        if constexpr ( order == std::endian::native || size == 1 ) return word;
        if constexpr ( size == 2 ) return __builtin_bswap16( word );
        return Word( __builtin_bswap32( word ) );
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
};

template <std::endian order> struct Bytes<3, order> {
    static constexpr int first = order == std::endian::little ? 0 : 2, last = 2 - first;

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
};

// A code turns the bits of one sample into what the float side holds, and back. An integer of any width is taken at
// the top of a 32-bit word: then one scale serves all widths, and narrowing is a shift.

struct Pattern {
    static constexpr int width = 4;
    using Value = uint32_t; // not a float: no NaN may change on its way
    static Value decode( uint32_t bits ) { return bits; }
    static uint32_t encode( Value bits ) { return bits; }
};

static constexpr uint32_t topBit = 0x80000000;

// Truncates; a value that is out of range is clamped, and NaN counts as low.
static uint32_t truncate( PCM_SAMPLE y )
{
    bool low = !( y > -0x1p31f ), high = y >= 0x1p31f;
    auto bits = uint32_t( int32_t( low || high ? 0.0f : y ) );
    return low ? topBit : high ? ~topBit : bits;
}

template <int bytes> struct Signed {
    static constexpr int width = bytes, spare = 32 - 8 * bytes;
    using Value = PCM_SAMPLE;
    static Value decode( uint32_t bits ) { return PCM_SAMPLE( int32_t( bits << spare ) ) * 0x1p-31f; }
    static uint32_t encode( Value x ) { return truncate( x * 0x1p31f ) >> spare; }
};

template <int bytes> struct Unsigned {
    static constexpr int width = bytes, spare = 32 - 8 * bytes;
    using Value = PCM_SAMPLE;
    static Value decode( uint32_t bits )
    {
        // Up to 24 bits every step is exact, so the signed code with its top bit turned gives the same.
        if constexpr ( spare > 0 ) return Signed<bytes>::decode( bits ^ ( topBit >> spare ) );
        return PCM_SAMPLE( bits ) * 0x1p-31f - 1.0f;
    }
    static uint32_t encode( Value x )
    {
        // The sum rounds. It is a whole multiple of 128 wherever it is in range, so the difference is exact: the
        // conversion of the unsigned value, made by the signed one that every processor has.
        PCM_SAMPLE sum = x * 0x1p31f + 0x1p31f;
        return ( truncate( sum - 0x1p31f ) ^ topBit ) >> spare;
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

template <const auto &expand, const auto &compress> struct G711 {
    static constexpr int width = 1;
    using Value = PCM_SAMPLE;
    static Value decode( uint32_t code ) { return PCM_SAMPLE( expand[code] ) * 0x1p-15f; }
    static uint32_t encode( Value x )
    {
        PCM_SAMPLE y = x * 0x1p15f;
        bool low = y <= -0x1p15f, high = y >= 32767.0f, inside = !low && !high && y == y;
        int32_t v = low ? -32768 : high ? 32767 : int32_t( inside ? y : 0.0f );
        return compress[size_t( v < 0 ? -v : v ) >> 3] | ( v < 0 ? 0u : 0x80u );
    }
};

using Alaw = G711<pcm___AlawExpandTable, pcm___AlawCompressTable>;
using Mulaw = G711<pcm___MulawExpandTable, pcm___MulawCompressTable>;

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

// A slot without spare bytes has a stride that the compiler knows; then the loops run many samples at a time.
template <class Format, class Run> static void withStride( int64_t width, Run run )
{
    if ( width == Format::width )
        run( std::integral_constant<int64_t, Format::width>{} );
    else
        run( width );
}

static void pcm___ConvertToSamples( uint8_t *dest, const uint8_t *source, PCM_ENCODING encoding, int64_t samples )
{
    Slot slot = slotOf( encoding );
    withFormat( encoding, [=]( auto format ) {
        using Form = decltype( format );
        withStride<Form>( slot.width, [=]( auto stride ) {
            for ( int64_t i = 0; i < samples; ++i ) {
                auto value = Form::decode( Form::At::load( source + slot.offset + i * stride ) );
                std::memcpy( dest + i * KIT_SIZEOF( PCM_SAMPLE ), &value, sizeof value );
            }
        } );
    } );
}

static void pcm___ConvertFromSamples( uint8_t *dest, PCM_ENCODING encoding, const uint8_t *source, int64_t samples )
{
    Slot slot = slotOf( encoding );
    withFormat( encoding, [=]( auto format ) {
        using Form = decltype( format );
        if ( slot.width != Form::width ) kitMemSetN( dest, 0, samples, slot.width );
        withStride<Form>( slot.width, [=]( auto stride ) {
            for ( int64_t i = 0; i < samples; ++i ) {
                typename Form::Value value;
                std::memcpy( &value, source + i * KIT_SIZEOF( PCM_SAMPLE ), sizeof value );
                Form::At::store( dest + slot.offset + i * stride, Form::encode( value ) );
            }
        } );
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
