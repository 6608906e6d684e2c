// Conversions: the library, plain loops, and the fastest SSE2 or NEON code that follows the same rules.

#include "jobs.h"
#include "registry.h"

#include <array>
#include <cstdlib>
#include <cstring>
#if defined __SSE2__
    #include <emmintrin.h>
#elif defined __aarch64__
    #include <arm_neon.h>
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

#if defined __SSE2__

using Integers = __m128i;
using Floats = __m128;

static __m128i load( const void *source ) { return _mm_loadu_si128( static_cast<const __m128i *>( source ) ); }

static Floats loadFloats( const float *at ) { return _mm_loadu_ps( at ); }

static void store( void *dest, __m128i v ) { _mm_storeu_si128( static_cast<__m128i *>( dest ), v ); }

static void store( float *dest, Floats v ) { _mm_storeu_ps( dest, v ); }

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

/// Stores four packed samples and two bytes after them.
template <IntLayout layout> static void store24( uint8_t *dest, __m128i words )
{
    __m128d halves = _mm_castsi128_pd( pack24<layout>( words ) );
    _mm_storel_pd( reinterpret_cast<double *>( dest ), halves );
    _mm_storeh_pd( reinterpret_cast<double *>( dest + 6 ), halves );
}

template <int bytes> static __m128i flipSigns( __m128i v )
{
    if ( bytes == 1 ) return _mm_xor_si128( v, _mm_set1_epi8( -128 ) );
    return _mm_xor_si128( v, _mm_set1_epi16( -32768 ) );
}

/// Converts between a sample in the low three bytes of each word and one in the high three bytes.
static __m128i raised( __m128i words ) { return _mm_slli_epi32( words, 8 ); }
static __m128i lowered( __m128i words ) { return _mm_srli_epi32( words, 8 ); }
static __m128i withoutLowBytes( __m128i words ) { return _mm_and_si128( words, _mm_set1_epi32( -256 ) ); }

/// Moves each sample to the most significant bytes of an element twice as wide.
template <int bytes> static void widen( __m128i v, __m128i *wide )
{
    const __m128i zero = _mm_setzero_si128();
    wide[0] = bytes == 1 ? _mm_unpacklo_epi8( zero, v ) : _mm_unpacklo_epi16( zero, v );
    wide[1] = bytes == 1 ? _mm_unpackhi_epi8( zero, v ) : _mm_unpackhi_epi16( zero, v );
}

/// Narrows four vectors of integers to bytes. Values out of range become the nearest one in range.
static __m128i packBytes( const __m128i *v )
{
    return _mm_packs_epi16( _mm_packs_epi32( v[0], v[1] ), _mm_packs_epi32( v[2], v[3] ) );
}

/// Returns the most significant byte of each word, or its two most significant bytes.
static void highBytes( const __m128i *words, __m128i *bytes )
{
    __m128i shifted[4];
    for ( int r = 0; r < 4; ++r ) shifted[r] = _mm_srai_epi32( words[r], 24 );
    *bytes = packBytes( shifted );
}
static void highHalves( const __m128i *words, __m128i *halves )
{
    for ( int r = 0; r < 4; r += 2 )
        halves[r / 2] = _mm_packs_epi32( _mm_srai_epi32( words[r], 16 ), _mm_srai_epi32( words[r + 1], 16 ) );
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

#elif defined __aarch64__

using Integers = uint32x4_t;
using Floats = float32x4_t;

static Integers load( const void *source )
{
    return vreinterpretq_u32_u8( vld1q_u8( static_cast<const uint8_t *>( source ) ) );
}

static Floats loadFloats( const float *at ) { return vld1q_f32( at ); }

static void store( void *dest, Integers v ) { vst1q_u8( static_cast<uint8_t *>( dest ), vreinterpretq_u8_u32( v ) ); }

static void store( float *dest, Floats v ) { vst1q_f32( dest, v ); }

static Integers swap16( Integers v ) { return vreinterpretq_u32_u8( vrev16q_u8( vreinterpretq_u8_u32( v ) ) ); }

static Integers swap32( Integers v ) { return vreinterpretq_u32_u8( vrev32q_u8( vreinterpretq_u8_u32( v ) ) ); }

/// Orders the bytes of a vector. An index of 255 produces a zero.
static Integers ordered( Integers v, const uint8_t ( &indexes )[16] )
{
    return vreinterpretq_u32_u8( vqtbl1q_u8( vreinterpretq_u8_u32( v ), vld1q_u8( indexes ) ) );
}

template <IntLayout layout> static Integers unpack24( Integers v )
{
    static constexpr uint8_t little[] = { 255, 0, 1, 2, 255, 3, 4, 5, 255, 6, 7, 8, 255, 9, 10, 11 };
    static constexpr uint8_t big[] = { 255, 2, 1, 0, 255, 5, 4, 3, 255, 8, 7, 6, 255, 11, 10, 9 };
    const Integers words = ordered( v, layout.isBigEndian ? big : little );
    return layout.isUnsigned ? veorq_u32( words, vdupq_n_u32( 1u << 31 ) ) : words;
}

/// Stores four packed samples and four bytes after them.
template <IntLayout layout> static void store24( uint8_t *dest, Integers words )
{
    static constexpr uint8_t little[] = { 1, 2, 3, 5, 6, 7, 9, 10, 11, 13, 14, 15, 255, 255, 255, 255 };
    static constexpr uint8_t big[] = { 3, 2, 1, 7, 6, 5, 11, 10, 9, 15, 14, 13, 255, 255, 255, 255 };
    if ( layout.isUnsigned ) words = veorq_u32( words, vdupq_n_u32( 1u << 31 ) );
    store( dest, ordered( words, layout.isBigEndian ? big : little ) );
}

template <int bytes> static Integers flipSigns( Integers v )
{
    return veorq_u32( v, vdupq_n_u32( bytes == 1 ? 0x80808080 : 0x80008000 ) );
}

static Integers raised( Integers words ) { return vshlq_n_u32( words, 8 ); }
static Integers lowered( Integers words ) { return vshrq_n_u32( words, 8 ); }
static Integers withoutLowBytes( Integers words ) { return vandq_u32( words, vdupq_n_u32( ~0xFFu ) ); }

template <int bytes> static void widen( Integers v, Integers *wide )
{
    if constexpr ( bytes == 1 ) {
        const uint8x16_t from = vreinterpretq_u8_u32( v );
        wide[0] = vreinterpretq_u32_u16( vshll_n_u8( vget_low_u8( from ), 8 ) );
        wide[1] = vreinterpretq_u32_u16( vshll_high_n_u8( from, 8 ) );
    } else {
        const uint16x8_t from = vreinterpretq_u16_u32( v );
        wide[0] = vshll_n_u16( vget_low_u16( from ), 16 );
        wide[1] = vshll_high_n_u16( from, 16 );
    }
}

static Integers packBytes( const Integers *v )
{
    int16x8_t halves[2];
    for ( int r = 0; r < 2; ++r )
        halves[r] =
            vqmovn_high_s32( vqmovn_s32( vreinterpretq_s32_u32( v[2 * r] ) ), vreinterpretq_s32_u32( v[2 * r + 1] ) );
    return vreinterpretq_u32_s8( vqmovn_high_s16( vqmovn_s16( halves[0] ), halves[1] ) );
}

static void highHalves( const Integers *words, Integers *halves )
{
    for ( int r = 0; r < 4; r += 2 )
        halves[r / 2] = vreinterpretq_u32_u16(
            vuzp2q_u16( vreinterpretq_u16_u32( words[r] ), vreinterpretq_u16_u32( words[r + 1] ) ) );
}
static void highBytes( const Integers *words, Integers *bytes )
{
    Integers halves[2];
    highHalves( words, halves );
    *bytes =
        vreinterpretq_u32_u8( vuzp2q_u8( vreinterpretq_u8_u32( halves[0] ), vreinterpretq_u8_u32( halves[1] ) ) );
}

template <IntLayout layout> static Floats decode4( Integers v )
{
    if ( !( layout.isUnsigned && layout.slot == 4 ) ) return vcvtq_n_f32_s32( vreinterpretq_s32_u32( v ), 31 );
    return vsubq_f32( vcvtq_n_f32_u32( v, 31 ), vdupq_n_f32( 1.0f ) );
}

/// The conversion clamps to the range of integers. Only NaN needs an extra step: it becomes the lowest integer.
template <IntLayout layout> static Integers encode4( const float *x )
{
    const Floats fullScale = vdupq_n_f32( 0x1p31f );
    Floats y = vmulq_f32( vld1q_f32( x ), fullScale );
    if ( layout.isUnsigned ) y = vsubq_f32( vaddq_f32( y, fullScale ), fullScale );
    const Integers v = vreinterpretq_u32_s32( vcvtq_s32_f32( vmaxnmq_f32( y, vdupq_n_f32( -0x1p31f ) ) ) );
    return layout.isUnsigned && layout.slot == 4 ? veorq_u32( v, vdupq_n_u32( 1u << 31 ) ) : v;
}

#endif

#if defined __SSE2__ || defined __aarch64__

/// Converts a vector of slots between the encoding and native signed integers: swaps the bytes of big-endian slots
/// and flips the sign bit of unsigned ones. The function is its own inverse.
template <IntLayout layout> static Integers swapAndFlipSign( Integers v )
{
    if ( layout.isBigEndian && layout.slot == 2 ) v = swap16( v );
    if ( layout.isBigEndian && layout.slot == 4 ) v = swap32( v );
    if ( layout.isUnsigned && layout.slot < 4 ) v = flipSigns<layout.slot>( v );
    return v;
}

template <IntLayout layout> static void decodeLimit( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<float *>( dest );
    auto *from = static_cast<const uint8_t *>( source );
    int64_t i = 0;
    if constexpr ( layout.slot == 3 )
        for ( ; i + 6 <= samples; i += 4 ) // the load reads four bytes past the four samples
            store( to + i, decode4<layout>( unpack24<layout>( load( from + i * 3 ) ) ) );
    else
        for ( ; i + 16 <= samples; i += 16 ) {
            auto loadSlots = [&]( int n ) {
                return swapAndFlipSign<layout>( load( from + i * layout.slot + 16 * n ) );
            };
            Integers words[4]; // the samples, each in the most significant bytes of a 32-bit word
            if constexpr ( layout.slot == 4 ) {
                for ( int r = 0; r < 4; ++r ) {
                    words[r] = loadSlots( r );
                    if ( layout.width == 3 )
                        words[r] = layout.offset ? withoutLowBytes( words[r] ) : raised( words[r] );
                }
            } else {
                Integers halves[2];
                if constexpr ( layout.slot == 2 ) {
                    halves[0] = loadSlots( 0 );
                    halves[1] = loadSlots( 1 );
                } else {
                    widen<1>( loadSlots( 0 ), halves );
                }
                widen<2>( halves[0], words );
                widen<2>( halves[1], words + 2 );
            }
            for ( int r = 0; r < 4; ++r ) store( to + i + 4 * r, decode4<layout>( words[r] ) );
        }
    decodeNaive<layout>( to + i, from + i * layout.slot, samples - i );
}

template <IntLayout layout> static void encodeLimit( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const float *>( source );
    int64_t i = 0;
    if constexpr ( layout.slot == 3 )
        for ( ; i + 6 <= samples; i += 4 ) // a store writes up to four bytes past the four samples
            store24<layout>( to + i * 3, encode4<layout>( from + i ) );
    else
        for ( ; i + 16 <= samples; i += 16 ) {
            auto storeSlots = [&]( int n, Integers v ) {
                store( to + i * layout.slot + 16 * n, swapAndFlipSign<layout>( v ) );
            };
            Integers words[4]; // the samples, each in the most significant bytes of a 32-bit word
            for ( int r = 0; r < 4; ++r ) words[r] = encode4<layout>( from + i + 4 * r );
            if constexpr ( layout.slot == 4 ) {
                for ( int r = 0; r < 4; ++r ) {
                    if ( layout.width == 3 )
                        words[r] = layout.offset ? withoutLowBytes( words[r] ) : lowered( words[r] );
                    storeSlots( r, words[r] );
                }
            } else if constexpr ( layout.slot == 2 ) {
                Integers halves[2];
                highHalves( words, halves );
                storeSlots( 0, halves[0] );
                storeSlots( 1, halves[1] );
            } else {
                Integers bytes;
                highBytes( words, &bytes );
                storeSlots( 0, bytes );
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

#if defined __SSE2__ || defined __aarch64__
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
#if defined __SSE2__ || defined __aarch64__
    /// Computes the segment and the step, which are the low seven bits of a code. The segment is the exponent of the
    /// magnitude, after an offset is added where segments do not begin at powers of two.
    #if defined __SSE2__
    static Integers encodeMagnitudes( Floats y )
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
    static Floats scaled( Floats x ) { return _mm_mul_ps( x, _mm_set1_ps( 0x1p15f ) ); }
    static Integers isNegative( Floats y ) { return _mm_castps_si128( _mm_cmple_ps( y, _mm_set1_ps( -1.0f ) ) ); }
    static Integers codeBytes( const Integers *codes, const Integers *signs )
    {
        constexpr int inversion = law == PCM_ENCODING_G711_MULAW ? 0xFF : 0xD5;
        __m128i sign = _mm_and_si128( packBytes( signs ), _mm_set1_epi8( char( 0x80 ) ) );
        __m128i bytes = _mm_xor_si128( packBytes( codes ), sign );
        return _mm_xor_si128( bytes, _mm_set1_epi8( char( inversion ) ) );
    }
    #else
    static Integers encodeMagnitudes( Floats y )
    {
        const Integers magnitude = vandq_u32( vreinterpretq_u32_f32( y ), vdupq_n_u32( 0x7FFFF000 ) );
        const Floats m = vreinterpretq_f32_u32( vandq_u32( magnitude, vceqq_f32( y, y ) ) );
        const Integers base = vdupq_n_u32( 134 << 4 );
        if ( law == PCM_ENCODING_G711_MULAW )
            return vsubq_u32(
                vshrq_n_u32( vreinterpretq_u32_f32( vaddq_f32( m, vdupq_n_f32( 128.0f ) ) ), 19 ), base );
        // The codes of the lowest segment are less by 16.
        const Floats lowest = vdupq_n_f32( 256.0f );
        const Integers isLow = vcltq_f32( m, lowest );
        const Floats offset = vreinterpretq_f32_u32( vandq_u32( isLow, vreinterpretq_u32_f32( lowest ) ) );
        const Integers codes = vsubq_u32( vshrq_n_u32( vreinterpretq_u32_f32( vaddq_f32( m, offset ) ), 19 ), base );
        return vmlaq_u32( codes, isLow, vdupq_n_u32( 16 ) );
    }
    static Floats scaled( Floats x ) { return vmulq_f32( x, vdupq_n_f32( 0x1p15f ) ); }
    static Integers isNegative( Floats y ) { return vcleq_f32( y, vdupq_n_f32( -1.0f ) ); }
    static Integers codeBytes( const Integers *codes, const Integers *signs )
    {
        // The sign is inserted into the magnitude.
        Integers high[1];
        highBytes( signs, high );
        const uint8x16_t bytes =
            vsliq_n_u8( vreinterpretq_u8_u32( packBytes( codes ) ), vreinterpretq_u8_u32( high[0] ), 7 );
        return vreinterpretq_u32_u8( veorq_u8( bytes, vdupq_n_u8( law == PCM_ENCODING_G711_MULAW ? 0xFF : 0xD5 ) ) );
    }
    #endif
    static void encodeLimit( void *dest, const void *source, int64_t samples )
    {
        auto *from = static_cast<const float *>( source );
        auto *to = static_cast<uint8_t *>( dest );
        int64_t i = 0;
        for ( ; i + 16 <= samples; i += 16 ) {
            Integers codes[4], signs[4];
            for ( int r = 0; r < 4; ++r ) {
                const Floats y = scaled( loadFloats( from + i + 4 * r ) );
                codes[r] = encodeMagnitudes( y );
                signs[r] = isNegative( y );
            }
            store( to + i, codeBytes( codes, signs ) );
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
