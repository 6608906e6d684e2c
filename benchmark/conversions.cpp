// Conversions: the library, plain loops, and the fastest SSE2 code that follows the same rules.

#include "jobs.h"
#include "registry.h"

#include <array>
#include <cstdlib>
#include <cstring>
#ifdef __SSE2__
    #include <emmintrin.h>
#endif

using Convert = void ( * )( void *dest, const void *source, int64_t samples );

static void addImplementations( const Encoding &encoding, bool decoding, Convert naive, Convert limit )
{
    Conversion conversion{ encoding, decoding };
    PCM_ENCODING to = conversion.to(), from = conversion.from();
    addConversion( conversion, "ours",
        [=]( void *dest, const void *source, int64_t n ) { pcm___Convert( dest, to, source, from, n ); } );
    addConversion( conversion, "naive", naive );
    if ( limit ) addConversion( conversion, "limit", limit );
    addCopy( conversion.job(), 4 + pcmEncodingSizeofSample( encoding.word ) );
}

// Integers

/// Sizes and the offset of the sample in its slot are in bytes.
struct IntLayout {
    int width, slot, offset;
    bool isUnsigned, isBigEndian;
};

template <IntLayout layout> static void decodeNaive( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<float *>( dest );
    auto *from = static_cast<const uint8_t *>( source ) + layout.offset;
    for ( int64_t i = 0; i < samples; ++i ) {
        uint32_t bits = 0;
        for ( int b = 0; b < layout.width; ++b )
            bits |= uint32_t{ from[i * layout.slot + b] }
                    << 8 * ( layout.isBigEndian ? 3 - b : 4 - layout.width + b );
        to[i] = layout.isUnsigned ? float( bits ) * 0x1p-31f - 1.0f : float( int32_t( bits ) ) * 0x1p-31f;
    }
}

template <IntLayout layout> static uint32_t encodeSample( float x )
{
    float y = x * 0x1p31f;
    if ( !layout.isUnsigned )
        return !( y > -0x1p31f ) ? 1u << 31 : y >= 0x1p31f ? ~0u >> 1 : uint32_t( int32_t( y ) );
    y += 0x1p31f;
    return !( y > 0.0f ) ? 0 : y >= 0x1p32f ? ~0u : uint32_t( y );
}

template <IntLayout layout> static void encodeNaive( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const float *>( source );
    for ( int64_t i = 0; i < samples; ++i ) {
        uint32_t bits = encodeSample<layout>( from[i] );
        for ( int b = 0; b < layout.slot; ++b ) {
            int index = b - layout.offset;
            bool isPadding = index < 0 || index >= layout.width;
            int shift = 8 * ( layout.isBigEndian ? 3 - index : 4 - layout.width + index );
            to[i * layout.slot + b] = isPadding ? 0 : uint8_t( bits >> shift );
        }
    }
}

#ifdef __SSE2__

static __m128i load( const void *source ) { return _mm_loadu_si128( static_cast<const __m128i *>( source ) ); }

static void store( void *dest, __m128i v ) { _mm_storeu_si128( static_cast<__m128i *>( dest ), v ); }

static __m128i swap16( __m128i v ) { return _mm_or_si128( _mm_slli_epi16( v, 8 ), _mm_srli_epi16( v, 8 ) ); }

static __m128i swap32( __m128i v ) { return swap16( _mm_shufflehi_epi16( _mm_shufflelo_epi16( v, 0xB1 ), 0xB1 ) ); }

/// Expands four packed 24-bit samples to the most significant bytes of 32-bit words.
template <IntLayout layout> static __m128i unpack24( __m128i v )
{
    __m128i a = _mm_unpacklo_epi32( v, _mm_srli_si128( v, 3 ) );
    __m128i b = _mm_unpacklo_epi32( _mm_srli_si128( v, 6 ), _mm_srli_si128( v, 9 ) );
    __m128i words = _mm_slli_epi32( _mm_unpacklo_epi64( a, b ), 8 );
    if ( layout.isBigEndian ) words = _mm_slli_epi32( swap32( words ), 8 );
    return layout.isUnsigned ? _mm_xor_si128( words, _mm_set1_epi32( INT32_MIN ) ) : words;
}

/// The inverse. The first six bytes of each half of the result are two packed samples.
template <IntLayout layout> static __m128i pack24( __m128i words )
{
    const __m128i firstSample = _mm_set1_epi64x( 0xFFFFFF );
    if ( layout.isUnsigned ) words = _mm_xor_si128( words, _mm_set1_epi32( INT32_MIN ) );
    words = layout.isBigEndian ? swap32( words ) : _mm_srli_epi32( words, 8 );
    return _mm_or_si128( _mm_and_si128( words, firstSample ), _mm_slli_epi64( _mm_srli_epi64( words, 32 ), 24 ) );
}

/// Converts a vector of slots between the encoding and native signed integers: swaps the bytes of big-endian slots
/// and flips the sign bit of unsigned ones. The function is its own inverse.
template <IntLayout layout> static __m128i swapAndFlipSign( __m128i v )
{
    if ( layout.isBigEndian && layout.slot == 2 ) v = swap16( v );
    if ( layout.isBigEndian && layout.slot == 4 ) v = swap32( v );
    if ( layout.isUnsigned && layout.slot == 1 ) v = _mm_xor_si128( v, _mm_set1_epi8( -128 ) );
    if ( layout.isUnsigned && layout.slot == 2 ) v = _mm_xor_si128( v, _mm_set1_epi16( -32768 ) );
    return v;
}

template <IntLayout layout> static __m128 decode4( __m128i v )
{
    __m128 scale = _mm_set1_ps( 0x1p-31f );
    if ( !( layout.isUnsigned && layout.slot == 4 ) ) return _mm_mul_ps( _mm_cvtepi32_ps( v ), scale );
    __m128 high = _mm_mul_ps( _mm_cvtepi32_ps( _mm_srli_epi32( v, 16 ) ), _mm_set1_ps( 0x1p16f ) );
    __m128 low = _mm_cvtepi32_ps( _mm_and_si128( v, _mm_set1_epi32( 0xFFFF ) ) );
    return _mm_sub_ps( _mm_mul_ps( _mm_add_ps( high, low ), scale ), _mm_set1_ps( 1.0f ) );
}

template <IntLayout layout> static __m128i encode4( const float *x )
{
    __m128 fullScale = _mm_set1_ps( 0x1p31f ), y = _mm_mul_ps( _mm_loadu_ps( x ), fullScale );
    if ( layout.isUnsigned ) y = _mm_sub_ps( _mm_add_ps( y, fullScale ), fullScale );
    __m128i v = _mm_xor_si128( _mm_cvttps_epi32( y ), _mm_castps_si128( _mm_cmpge_ps( y, fullScale ) ) );
    return layout.isUnsigned && layout.slot == 4 ? _mm_xor_si128( v, _mm_set1_epi32( INT32_MIN ) ) : v;
}

template <IntLayout layout> static void decodeLimit( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<float *>( dest );
    auto *from = static_cast<const uint8_t *>( source );
    const __m128i zero = _mm_setzero_si128();
    int64_t i = 0;
    if constexpr ( layout.slot == 3 )
        for ( ; i + 6 <= samples; i += 4 ) // the load reads four bytes past the four samples
            _mm_storeu_ps( to + i, decode4<layout>( unpack24<layout>( load( from + i * 3 ) ) ) );
    else
        for ( ; i + 16 <= samples; i += 16 ) {
            auto loadSlots = [&]( int n ) {
                return swapAndFlipSign<layout>( load( from + i * layout.slot + 16 * n ) );
            };
            __m128i words[4]; // the samples, each in the most significant bytes of a 32-bit word
            if constexpr ( layout.slot == 4 ) {
                for ( int r = 0; r < 4; ++r ) {
                    words[r] = loadSlots( r );
                    if ( layout.width == 3 )
                        words[r] = layout.offset ? _mm_and_si128( words[r], _mm_set1_epi32( -256 ) )
                                                 : _mm_slli_epi32( words[r], 8 );
                }
            } else {
                __m128i low, high;
                if constexpr ( layout.slot == 2 ) {
                    low = loadSlots( 0 );
                    high = loadSlots( 1 );
                } else {
                    __m128i bytes = loadSlots( 0 );
                    low = _mm_unpacklo_epi8( zero, bytes );
                    high = _mm_unpackhi_epi8( zero, bytes );
                }
                words[0] = _mm_unpacklo_epi16( zero, low );
                words[1] = _mm_unpackhi_epi16( zero, low );
                words[2] = _mm_unpacklo_epi16( zero, high );
                words[3] = _mm_unpackhi_epi16( zero, high );
            }
            for ( int r = 0; r < 4; ++r ) _mm_storeu_ps( to + i + 4 * r, decode4<layout>( words[r] ) );
        }
    decodeNaive<layout>( to + i, from + i * layout.slot, samples - i );
}

template <IntLayout layout> static void encodeLimit( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const float *>( source );
    int64_t i = 0;
    if constexpr ( layout.slot == 3 )
        for ( ; i + 5 <= samples; i += 4 ) { // the second store writes two bytes past the four samples
            __m128d halves = _mm_castsi128_pd( pack24<layout>( encode4<layout>( from + i ) ) );
            _mm_storel_pd( reinterpret_cast<double *>( to + i * 3 ), halves );
            _mm_storeh_pd( reinterpret_cast<double *>( to + i * 3 + 6 ), halves );
        }
    else
        for ( ; i + 16 <= samples; i += 16 ) {
            auto storeSlots = [&]( int n, __m128i v ) {
                store( to + i * layout.slot + 16 * n, swapAndFlipSign<layout>( v ) );
            };
            __m128i words[4]; // the samples, each in the most significant bytes of a 32-bit word
            for ( int r = 0; r < 4; ++r ) words[r] = encode4<layout>( from + i + 4 * r );
            if constexpr ( layout.slot == 4 ) {
                for ( int r = 0; r < 4; ++r ) {
                    if ( layout.width == 3 )
                        words[r] = layout.offset ? _mm_and_si128( words[r], _mm_set1_epi32( -256 ) )
                                                 : _mm_srli_epi32( words[r], 8 );
                    storeSlots( r, words[r] );
                }
            } else {
                for ( __m128i &word : words ) word = _mm_srai_epi32( word, 32 - 8 * layout.width );
                __m128i low = _mm_packs_epi32( words[0], words[1] ), high = _mm_packs_epi32( words[2], words[3] );
                if constexpr ( layout.slot == 2 ) {
                    storeSlots( 0, low );
                    storeSlots( 1, high );
                } else {
                    storeSlots( 0, _mm_packs_epi16( low, high ) );
                }
            }
        }
    encodeNaive<layout>( to + i * layout.slot, from + i, samples - i );
}

#else
template <IntLayout layout> static constexpr Convert decodeLimit = nullptr;
template <IntLayout layout> static constexpr Convert encodeLimit = nullptr;
#endif

template <IntLayout layout> static void addIntegers( const Encoding &encoding )
{
    addImplementations( encoding, true, decodeNaive<layout>, decodeLimit<layout> );
    addImplementations( encoding, false, encodeNaive<layout>, encodeLimit<layout> );
}

// Floats

static void copyNaive( void *dest, const void *source, int64_t samples )
{
    std::memcpy( dest, source, size_t( samples ) * sizeof( float ) );
}

static void swapNaive( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const uint8_t *>( source );
    for ( int64_t i = 0; i < samples; ++i )
        for ( int b = 0; b < 4; ++b ) to[4 * i + b] = from[4 * i + 3 - b];
}

#ifdef __SSE2__
static void swapLimit( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint32_t *>( dest );
    auto *from = static_cast<const uint32_t *>( source );
    int64_t i = 0;
    for ( ; i + 16 <= samples; i += 16 )
        for ( int r = 0; r < 4; ++r ) store( to + i + 4 * r, swap32( load( from + i + 4 * r ) ) );
    swapNaive( to + i, from + i, samples - i );
}
#else
static constexpr Convert swapLimit = nullptr;
#endif

// G.711

template <PCM_ENCODING law> struct G711 {
    std::array<float, 256> floats;
    std::array<int16_t, 256> integers;
    std::array<uint8_t, 4097> codes; // without sign bits; the index is the 16-bit magnitude divided by 8

    G711()
    {
        for ( int code = 0; code < 256; ++code ) {
            auto byte = uint8_t( code );
            pcm___Convert( &floats[byte], 0, &byte, law, 1 );
            integers[byte] = int16_t( floats[byte] * 0x1p15f );
        }
        for ( int i = 0; i <= 4096; ++i ) {
            float sample = float( i ) * -0x1p-12f;
            pcm___Convert( &codes[size_t( i )], law, &sample, 0, 1 );
            codes[size_t( i )] &= 0x7F;
        }
    }
    static const G711 &tables()
    {
        static const G711 instance;
        return instance;
    }
    static void decodeNaive( void *dest, const void *source, int64_t samples )
    {
        const auto &integers = tables().integers;
        auto *codes = static_cast<const uint8_t *>( source );
        for ( int64_t i = 0; i < samples; ++i )
            static_cast<float *>( dest )[i] = float( integers[codes[i]] ) * 0x1p-15f;
    }
    static void decodeLimit( void *dest, const void *source, int64_t samples )
    {
        typedef float Float4 __attribute__( ( vector_size( 16 ) ) ); // one store for each four loads
        const auto &floats = tables().floats;
        auto *codes = static_cast<const uint8_t *>( source );
        auto *to = static_cast<float *>( dest );
        int64_t i = 0;
        for ( ; i + 4 <= samples; i += 4 ) {
            Float4 decoded = { floats[codes[i]], floats[codes[i + 1]], floats[codes[i + 2]], floats[codes[i + 3]] };
            std::memcpy( to + i, &decoded, sizeof decoded );
        }
        for ( ; i < samples; ++i ) to[i] = floats[codes[i]];
    }
    static void encodeNaive( void *dest, const void *source, int64_t samples )
    {
        const auto &codes = tables().codes;
        for ( int64_t i = 0; i < samples; ++i ) {
            float y = static_cast<const float *>( source )[i] * 0x1p15f;
            int v = y <= -0x1p15f ? -32768 : y >= 32767.0f ? 32767 : y == y ? int( y ) : 0;
            static_cast<uint8_t *>( dest )[i] = codes[size_t( std::abs( v ) >> 3 )] | ( v < 0 ? 0 : 0x80 );
        }
    }
#ifdef __SSE2__
    /// Computes the segment and the step, which are the low seven bits of a code. The segment is the exponent of the
    /// magnitude, after an offset is added where segments do not begin at powers of two.
    static __m128i encodeMagnitudes( __m128 y )
    {
        __m128 m = _mm_and_ps( y, _mm_castsi128_ps( _mm_set1_epi32( 0x7FFFF000 ) ) );
        m = _mm_and_ps( m, _mm_cmpord_ps( y, y ) );
        if ( law == PCM_ENCODING_G711_MULAW ) {
            __m128i bits = _mm_castps_si128( _mm_add_ps( m, _mm_set1_ps( 128.0f ) ) );
            return _mm_sub_epi32( _mm_srli_epi32( bits, 19 ), _mm_set1_epi32( 134 << 4 ) );
        }
        __m128 isLow = _mm_cmplt_ps( m, _mm_set1_ps( 256.0f ) );
        __m128i bits = _mm_castps_si128( _mm_add_ps( m, _mm_and_ps( isLow, _mm_set1_ps( 256.0f ) ) ) );
        __m128i codes = _mm_sub_epi32( _mm_srli_epi32( bits, 19 ), _mm_set1_epi32( 134 << 4 ) );
        return _mm_add_epi32( codes, _mm_slli_epi32( _mm_castps_si128( isLow ), 4 ) );
    }
    static void encodeLimit( void *dest, const void *source, int64_t samples )
    {
        auto *from = static_cast<const float *>( source );
        auto *to = static_cast<uint8_t *>( dest );
        int64_t i = 0;
        for ( ; i + 16 <= samples; i += 16 ) {
            __m128i codes[4], signs[4];
            for ( int r = 0; r < 4; ++r ) {
                __m128 y = _mm_mul_ps( _mm_loadu_ps( from + i + 4 * r ), _mm_set1_ps( 0x1p15f ) );
                codes[r] = encodeMagnitudes( y );
                signs[r] = _mm_castps_si128( _mm_cmple_ps( y, _mm_set1_ps( -1.0f ) ) );
            }
            auto packBytes = []( const __m128i *v ) {
                return _mm_packs_epi16( _mm_packs_epi32( v[0], v[1] ), _mm_packs_epi32( v[2], v[3] ) );
            };
            constexpr int inversion = law == PCM_ENCODING_G711_MULAW ? 0xFF : 0xD5;
            __m128i sign = _mm_and_si128( packBytes( signs ), _mm_set1_epi8( char( 0x80 ) ) );
            __m128i bytes = _mm_xor_si128( packBytes( codes ), sign );
            store( to + i, _mm_xor_si128( bytes, _mm_set1_epi8( char( inversion ) ) ) );
        }
        encodeNaive( to + i, from + i, samples - i );
    }
#else
    static constexpr Convert encodeLimit = nullptr;
#endif
};

template <PCM_ENCODING law> static void addG711( const Encoding &encoding )
{
    addImplementations( encoding, true, G711<law>::decodeNaive, G711<law>::decodeLimit );
    addImplementations( encoding, false, G711<law>::encodeNaive, G711<law>::encodeLimit );
}

void addConversions()
{
    addIntegers<IntLayout{ 1, 1, 0, false, false }>( encodings::int8 );
    addIntegers<IntLayout{ 1, 1, 0, true, false }>( encodings::uint8 );
    addIntegers<IntLayout{ 2, 2, 0, false, false }>( encodings::int16 );
    addIntegers<IntLayout{ 2, 2, 0, true, false }>( encodings::uint16 );
    addIntegers<IntLayout{ 2, 2, 0, false, true }>( encodings::int16BE );
    addIntegers<IntLayout{ 3, 3, 0, false, false }>( encodings::int24 );
    addIntegers<IntLayout{ 3, 3, 0, true, false }>( encodings::uint24 );
    addIntegers<IntLayout{ 3, 3, 0, false, true }>( encodings::int24BE );
    addIntegers<IntLayout{ 3, 4, 1, false, false }>( encodings::int24AfterPadding );
    addIntegers<IntLayout{ 3, 4, 0, false, false }>( encodings::int24BeforePadding );
    addIntegers<IntLayout{ 4, 4, 0, false, false }>( encodings::int32 );
    addIntegers<IntLayout{ 4, 4, 0, true, false }>( encodings::uint32 );
    addIntegers<IntLayout{ 4, 4, 0, false, true }>( encodings::int32BE );
    for ( bool decoding : { true, false } ) {
        addImplementations( encodings::float32, decoding, copyNaive, nullptr );
        addImplementations( encodings::float32BE, decoding, swapNaive, swapLimit );
    }
    addG711<PCM_ENCODING_G711_ALAW>( encodings::alaw );
    addG711<PCM_ENCODING_G711_MULAW>( encodings::mulaw );
}
