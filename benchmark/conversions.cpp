// Encodings: ours, plain loops, and the limit of what SSE2 does under the same rules.

#include "bench.h"

#include <array>
#include <cmath>
#ifdef __SSE2__
    #include <emmintrin.h>
#endif

using Loop = void ( * )( void *dest, const void *source, int64_t samples );

static void add( const char *name, PCM_ENCODING encoding, bool decodes, Loop naive, Loop limit )
{
    Conversion conversion{ name, encoding, decodes };
    addConversion( conversion, "ours", [=]( int64_t ) {
        PCM_ENCODING to = decodes ? 0 : encoding, from = decodes ? encoding : 0;
        return [=]( void *dest, const void *source, int64_t n ) { pcm___Convert( dest, to, source, from, n ); };
    } );
    addConversion( conversion, "naive", [=]( int64_t ) { return naive; } );
    if ( limit ) addConversion( conversion, "limit", [=]( int64_t ) { return limit; } );
    addCopy( conversion.job(), 4 + pcmEncodingSizeofSample( encoding ) );
}

struct Form {
    int width, slot, offset;
    bool isUnsigned, big;
};

template <Form f> static void decodeNaive( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<float *>( dest );
    auto *from = static_cast<const uint8_t *>( source ) + f.offset;
    for ( int64_t i = 0; i < samples; ++i ) {
        uint32_t bits = 0;
        for ( int b = 0; b < f.width; ++b )
            bits |= uint32_t{ from[i * f.slot + b] } << 8 * ( f.big ? 3 - b : 4 - f.width + b );
        to[i] = f.isUnsigned ? float( bits ) * 0x1p-31f - 1.0f : float( int32_t( bits ) ) * 0x1p-31f;
    }
}

template <Form f> static uint32_t encodeOne( float x )
{
    float y = x * 0x1p31f;
    if ( !f.isUnsigned ) return !( y > -0x1p31f ) ? 1u << 31 : y >= 0x1p31f ? ~0u >> 1 : uint32_t( int32_t( y ) );
    y += 0x1p31f;
    return !( y > 0.0f ) ? 0 : y >= 0x1p32f ? ~0u : uint32_t( y );
}

template <Form f> static void encodeNaive( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const float *>( source );
    for ( int64_t i = 0; i < samples; ++i ) {
        uint32_t bits = encodeOne<f>( from[i] );
        for ( int b = 0; b < f.slot; ++b ) {
            int at = b - f.offset;
            bool spare = at < 0 || at >= f.width;
            to[i * f.slot + b] = spare ? 0 : uint8_t( bits >> 8 * ( f.big ? 3 - at : 4 - f.width + at ) );
        }
    }
}

static void swapNaive( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const uint8_t *>( source );
    for ( int64_t i = 0; i < samples; ++i )
        for ( int b = 0; b < 4; ++b ) to[4 * i + b] = from[4 * i + 3 - b];
}

static void copyNaive( void *dest, const void *source, int64_t samples )
{
    std::memcpy( dest, source, size_t( samples ) * sizeof( float ) );
}

#ifdef __SSE2__

struct Bits {
    __m128i of[4]; // 16 samples, each at the top of its 32 bits
};

static __m128i swap16( __m128i v ) { return _mm_or_si128( _mm_slli_epi16( v, 8 ), _mm_srli_epi16( v, 8 ) ); }

static __m128i swap32( __m128i v ) { return swap16( _mm_shufflehi_epi16( _mm_shufflelo_epi16( v, 0xB1 ), 0xB1 ) ); }

// Four packed samples from sixteen bytes, each at the top of its word.
template <Form f> static __m128i spread24( __m128i v )
{
    __m128i a = _mm_unpacklo_epi32( v, _mm_srli_si128( v, 3 ) );
    __m128i b = _mm_unpacklo_epi32( _mm_srli_si128( v, 6 ), _mm_srli_si128( v, 9 ) );
    __m128i words = _mm_slli_epi32( _mm_unpacklo_epi64( a, b ), 8 );
    if ( f.big ) words = _mm_slli_epi32( swap32( words ), 8 );
    return f.isUnsigned ? _mm_xor_si128( words, _mm_set1_epi32( INT32_MIN ) ) : words;
}

// And back: six bytes of each half.
template <Form f> static __m128i gathered24( __m128i words )
{
    const __m128i first = _mm_set1_epi64x( 0xFFFFFF );
    if ( f.isUnsigned ) words = _mm_xor_si128( words, _mm_set1_epi32( INT32_MIN ) );
    words = f.big ? swap32( words ) : _mm_srli_epi32( words, 8 );
    return _mm_or_si128( _mm_and_si128( words, first ), _mm_slli_epi64( _mm_srli_epi64( words, 32 ), 24 ) );
}

// Turns byte order and sign of a register of slots; its own inverse.
template <Form f> static __m128i turned( __m128i v )
{
    if ( f.big && f.slot == 2 ) v = swap16( v );
    if ( f.big && f.slot == 4 ) v = swap32( v );
    if ( f.isUnsigned && f.slot == 1 ) v = _mm_xor_si128( v, _mm_set1_epi8( -128 ) );
    if ( f.isUnsigned && f.slot == 2 ) v = _mm_xor_si128( v, _mm_set1_epi16( -32768 ) );
    return v;
}

template <Form f> static __m128 decode4( __m128i v )
{
    __m128 scale = _mm_set1_ps( 0x1p-31f );
    if ( !( f.isUnsigned && f.slot == 4 ) ) return _mm_mul_ps( _mm_cvtepi32_ps( v ), scale );
    __m128 high = _mm_mul_ps( _mm_cvtepi32_ps( _mm_srli_epi32( v, 16 ) ), _mm_set1_ps( 0x1p16f ) );
    __m128 low = _mm_cvtepi32_ps( _mm_and_si128( v, _mm_set1_epi32( 0xFFFF ) ) );
    return _mm_sub_ps( _mm_mul_ps( _mm_add_ps( high, low ), scale ), _mm_set1_ps( 1.0f ) );
}

template <Form f> static __m128i encode4( const float *x )
{
    __m128 full = _mm_set1_ps( 0x1p31f ), y = _mm_mul_ps( _mm_loadu_ps( x ), full );
    if ( f.isUnsigned ) y = _mm_sub_ps( _mm_add_ps( y, full ), full );
    __m128i v = _mm_xor_si128( _mm_cvttps_epi32( y ), _mm_castps_si128( _mm_cmpge_ps( y, full ) ) );
    return f.isUnsigned && f.slot == 4 ? _mm_xor_si128( v, _mm_set1_epi32( INT32_MIN ) ) : v;
}

template <Form f> static void decodeLimit( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<float *>( dest );
    auto *from = static_cast<const uint8_t *>( source );
    const __m128i zero = _mm_setzero_si128();
    int64_t i = 0;
    if constexpr ( f.slot == 3 )
        for ( ; i + 6 <= samples; i += 4 ) // which reads four bytes of what follows
            _mm_storeu_ps( to + i,
                decode4<f>( spread24<f>( _mm_loadu_si128( reinterpret_cast<const __m128i *>( from + i * 3 ) ) ) ) );
    else
        for ( ; i + 16 <= samples; i += 16 ) {
            auto load = [&]( int n ) {
                return turned<f>( _mm_loadu_si128( reinterpret_cast<const __m128i *>( from + i * f.slot ) + n ) );
            };
            Bits bits;
            if constexpr ( f.slot == 4 ) {
                for ( int r = 0; r < 4; ++r ) {
                    bits.of[r] = load( r );
                    if ( f.width == 3 )
                        bits.of[r] = f.offset ? _mm_and_si128( bits.of[r], _mm_set1_epi32( -256 ) )
                                              : _mm_slli_epi32( bits.of[r], 8 );
                }
            } else {
                __m128i low, high;
                if constexpr ( f.slot == 2 ) {
                    low = load( 0 ), high = load( 1 );
                } else {
                    __m128i all = load( 0 );
                    low = _mm_unpacklo_epi8( zero, all ), high = _mm_unpackhi_epi8( zero, all );
                }
                bits = { { _mm_unpacklo_epi16( zero, low ), _mm_unpackhi_epi16( zero, low ),
                    _mm_unpacklo_epi16( zero, high ), _mm_unpackhi_epi16( zero, high ) } };
            }
            for ( int r = 0; r < 4; ++r ) _mm_storeu_ps( to + i + 4 * r, decode4<f>( bits.of[r] ) );
        }
    decodeNaive<f>( to + i, from + i * f.slot, samples - i );
}

template <Form f> static void encodeLimit( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const float *>( source );
    int64_t i = 0;
    if constexpr ( f.slot == 3 )
        for ( ; i + 5 <= samples; i += 4 ) { // which writes two bytes of what follows
            __m128d both = _mm_castsi128_pd( gathered24<f>( encode4<f>( from + i ) ) );
            _mm_storel_pd( reinterpret_cast<double *>( to + i * 3 ), both );
            _mm_storeh_pd( reinterpret_cast<double *>( to + i * 3 + 6 ), both );
        }
    else
        for ( ; i + 16 <= samples; i += 16 ) {
            auto store = [&]( int n, __m128i v ) {
                _mm_storeu_si128( reinterpret_cast<__m128i *>( to + i * f.slot ) + n, turned<f>( v ) );
            };
            Bits bits;
            for ( int r = 0; r < 4; ++r ) bits.of[r] = encode4<f>( from + i + 4 * r );
            if constexpr ( f.slot == 4 ) {
                for ( int r = 0; r < 4; ++r ) {
                    if ( f.width == 3 )
                        bits.of[r] = f.offset ? _mm_and_si128( bits.of[r], _mm_set1_epi32( -256 ) )
                                              : _mm_srli_epi32( bits.of[r], 8 );
                    store( r, bits.of[r] );
                }
            } else {
                for ( __m128i &each : bits.of ) each = _mm_srai_epi32( each, 32 - 8 * f.width );
                __m128i low = _mm_packs_epi32( bits.of[0], bits.of[1] ),
                        high = _mm_packs_epi32( bits.of[2], bits.of[3] );
                if constexpr ( f.slot == 2 )
                    store( 0, low ), store( 1, high );
                else
                    store( 0, _mm_packs_epi16( low, high ) );
            }
        }
    encodeNaive<f>( to + i * f.slot, from + i, samples - i );
}

static void swapLimit( void *dest, const void *source, int64_t samples )
{
    auto *to = static_cast<uint32_t *>( dest );
    auto *from = static_cast<const uint32_t *>( source );
    int64_t i = 0;
    for ( ; i + 16 <= samples; i += 16 )
        for ( int r = 0; r < 4; ++r )
            _mm_storeu_si128( reinterpret_cast<__m128i *>( to + i ) + r,
                swap32( _mm_loadu_si128( reinterpret_cast<const __m128i *>( from + i ) + r ) ) );
    swapNaive( to + i, from + i, samples - i );
}

#else
template <Form f> static constexpr Loop decodeLimit = nullptr;
template <Form f> static constexpr Loop encodeLimit = nullptr;
static constexpr Loop swapLimit = nullptr;
#endif

template <Form f> static void addIntegers( const char *name, PCM_ENCODING encoding )
{
    add( name, encoding, true, decodeNaive<f>, decodeLimit<f> );
    add( name, encoding, false, encodeNaive<f>, encodeLimit<f> );
}

template <PCM_ENCODING law> struct G711 {
    std::array<float, 256> floats;
    std::array<int16_t, 256> expanded;
    std::array<uint8_t, 4097> codes; // of magnitudes without their three low bits

    G711()
    {
        for ( int code = 0; code < 256; ++code ) {
            auto byte = uint8_t( code );
            pcm___Convert( &floats[byte], 0, &byte, law, 1 );
            expanded[byte] = int16_t( floats[byte] * 0x1p15f );
        }
        for ( int i = 0; i <= 4096; ++i ) {
            float magnitude = float( i ) * -0x1p-12f;
            pcm___Convert( &codes[size_t( i )], law, &magnitude, 0, 1 );
            codes[size_t( i )] &= 0x7F;
        }
    }
    static const G711 &tables()
    {
        static const G711 made;
        return made;
    }
    static void decodeNaive( void *dest, const void *source, int64_t samples )
    {
        const auto &expanded = tables().expanded;
        auto *codes = static_cast<const uint8_t *>( source );
        for ( int64_t i = 0; i < samples; ++i )
            static_cast<float *>( dest )[i] = float( expanded[codes[i]] ) * 0x1p-15f;
    }
    static void decodeLimit( void *dest, const void *source, int64_t samples )
    {
        typedef float Four __attribute__( ( vector_size( 16 ) ) ); // one store for four loads
        const auto &floats = tables().floats;
        auto *codes = static_cast<const uint8_t *>( source );
        auto *to = static_cast<float *>( dest );
        int64_t i = 0;
        for ( ; i + 4 <= samples; i += 4 ) {
            Four four = { floats[codes[i]], floats[codes[i + 1]], floats[codes[i + 2]], floats[codes[i + 3]] };
            std::memcpy( to + i, &four, sizeof four );
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
    // The segment is the exponent of the magnitude, or of one that begins where the segments do.
    static __m128i magnitudes( __m128 y )
    {
        __m128 m = _mm_and_ps( y, _mm_castsi128_ps( _mm_set1_epi32( 0x7FFFF000 ) ) );
        m = _mm_and_ps( m, _mm_cmpord_ps( y, y ) );
        if ( law == PCM_ENCODING_G711_MULAW ) {
            __m128i bits = _mm_castps_si128( _mm_add_ps( m, _mm_set1_ps( 128.0f ) ) );
            return _mm_sub_epi32( _mm_srli_epi32( bits, 19 ), _mm_set1_epi32( 134 << 4 ) );
        }
        __m128 low = _mm_cmplt_ps( m, _mm_set1_ps( 256.0f ) );
        __m128i bits = _mm_castps_si128( _mm_add_ps( m, _mm_and_ps( low, _mm_set1_ps( 256.0f ) ) ) );
        __m128i above = _mm_sub_epi32( _mm_srli_epi32( bits, 19 ), _mm_set1_epi32( 134 << 4 ) );
        return _mm_add_epi32( above, _mm_slli_epi32( _mm_castps_si128( low ), 4 ) );
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
                codes[r] = magnitudes( y );
                signs[r] = _mm_castps_si128( _mm_cmple_ps( y, _mm_set1_ps( -1.0f ) ) );
            }
            auto packed = []( const __m128i *v ) {
                return _mm_packs_epi16( _mm_packs_epi32( v[0], v[1] ), _mm_packs_epi32( v[2], v[3] ) );
            };
            constexpr int flip = law == PCM_ENCODING_G711_MULAW ? 0xFF : 0xD5;
            __m128i sign = _mm_and_si128( packed( signs ), _mm_set1_epi8( char( 0x80 ) ) );
            __m128i bytes = _mm_xor_si128( _mm_xor_si128( packed( codes ), sign ), _mm_set1_epi8( char( flip ) ) );
            _mm_storeu_si128( reinterpret_cast<__m128i *>( to + i ), bytes );
        }
        encodeNaive( to + i, from + i, samples - i );
    }
#else
    static constexpr Loop encodeLimit = nullptr;
#endif
};

template <PCM_ENCODING law> static void addG711( const char *name )
{
    add( name, law, true, G711<law>::decodeNaive, G711<law>::decodeLimit );
    add( name, law, false, G711<law>::encodeNaive, G711<law>::encodeLimit );
}

void addConversions()
{
    constexpr PCM_ENCODING isUnsigned = PCM_ENCODING_UNSIGNED, big = PCM_ENCODING_BIG_ENDIAN;
    constexpr PCM_ENCODING in32 = PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32;
    addIntegers<Form{ 1, 1, 0, false, false }>( "int8", PCM_ENCODING_INT_8 );
    addIntegers<Form{ 1, 1, 0, true, false }>( "uint8", PCM_ENCODING_INT_8 | isUnsigned );
    addIntegers<Form{ 2, 2, 0, false, false }>( "int16", PCM_ENCODING_INT_16 );
    addIntegers<Form{ 2, 2, 0, true, false }>( "uint16", PCM_ENCODING_INT_16 | isUnsigned );
    addIntegers<Form{ 2, 2, 0, false, true }>( "int16 BE", PCM_ENCODING_INT_16 | big );
    addIntegers<Form{ 3, 3, 0, false, false }>( "int24", PCM_ENCODING_INT_24 );
    addIntegers<Form{ 3, 3, 0, true, false }>( "uint24", PCM_ENCODING_INT_24 | isUnsigned );
    addIntegers<Form{ 3, 3, 0, false, true }>( "int24 BE", PCM_ENCODING_INT_24 | big );
    addIntegers<Form{ 3, 4, 1, false, false }>( "int24 behind pad", in32 | PCM_ENCODING_PAD_BEFORE );
    addIntegers<Form{ 3, 4, 0, false, false }>( "int24 before pad", in32 | PCM_ENCODING_PAD_AFTER );
    addIntegers<Form{ 4, 4, 0, false, false }>( "int32", PCM_ENCODING_INT_32 );
    addIntegers<Form{ 4, 4, 0, true, false }>( "uint32", PCM_ENCODING_INT_32 | isUnsigned );
    addIntegers<Form{ 4, 4, 0, false, true }>( "int32 BE", PCM_ENCODING_INT_32 | big );
    for ( bool decodes : { true, false } ) {
        add( "float32", PCM_ENCODING_FLOAT_32, decodes, copyNaive, nullptr );
        add( "float32 BE", PCM_ENCODING_FLOAT_32 | big, decodes, swapNaive, swapLimit );
    }
    addG711<PCM_ENCODING_G711_ALAW>( "A-law" );
    addG711<PCM_ENCODING_G711_MULAW>( "mu-law" );
}
