#ifndef PCM_LANES_H
#define PCM_LANES_H

// C++ only: many samples in one register, for the library's own sources. The compilers' vector types say most of it
// on any processor. The few steps that they can't say well on x86 have their portable form beside the processor's
// own, and both give the same bits.

#include "pcm_api.h"

#include <bit>
#include <cstring>
#include <type_traits>
#include <utility>
#ifdef __SSE2__
    #include <immintrin.h>
#endif
#if defined __i386__ && !defined __SSE2_MATH__
    #error "every step has to round to a float: build with -msse2 -mfpmath=sse"
#endif

namespace pcm {

// As wide as the build's processor has them.
#if defined __AVX512BW__
constexpr int laneBytes = 64;
#elif defined __AVX2__
constexpr int laneBytes = 32;
#else
constexpr int laneBytes = 16;
#endif
constexpr int lanes = laneBytes / int( sizeof( PCM_SAMPLE ) );

template <class T, int count> struct VectorOf {
    typedef T Type __attribute__( ( vector_size( count * sizeof( T ) ) ) );
};
template <class T, int count = laneBytes / int( sizeof( T ) )> using Vector = typename VectorOf<T, count>::Type;

using Samples = Vector<PCM_SAMPLE>;
using Ints = Vector<int32_t>;
using Words = Vector<uint32_t>;
using Halves = Vector<uint16_t>;
using Bytes = Vector<uint8_t>;
using Longs = Vector<uint64_t>;

template <class T> inline T loadAs( const void *at )
{
    T value;
    std::memcpy( &value, at, sizeof value );
    return value;
}

template <class T> inline void storeAs( void *at, T value ) { std::memcpy( at, &value, sizeof value ); }

/// Calls `step` with each index, without a loop, so that what it makes stays in registers.
template <int count, class Step> inline void unrolled( Step step )
{
    [&]<int... i>( std::integer_sequence<int, i...> ) { ( step( i ), ... ); }
    ( std::make_integer_sequence<int, count>{} );
}

/// `a < b ? a : b` in each lane: b where one of them is NaN.
inline Samples lesser( Samples a, Samples b )
{
#if defined __AVX512BW__
    return _mm512_maskz_min_ps( 0xFFFF, a, b );
#elif defined __AVX2__
    return _mm256_min_ps( a, b );
#elif defined __SSE2__
    return _mm_min_ps( a, b );
#else
    return a < b ? a : b;
#endif
}

/// `a > b ? a : b` in each lane.
inline Samples greater( Samples a, Samples b )
{
#if defined __AVX512BW__
    return _mm512_maskz_max_ps( 0xFFFF, a, b );
#elif defined __AVX2__
    return _mm256_max_ps( a, b );
#elif defined __SSE2__
    return _mm_max_ps( a, b );
#else
    return a > b ? a : b;
#endif
}

/// Truncates towards zero. What is out of range gives the nearest integer, NaN the lowest.
inline Ints truncated( Samples y )
{
#if defined __AVX512BW__
    return (Ints)_mm512_maskz_cvttps_epi32( 0xFFFF, y ) ^ ( y >= 0x1p31f );
#elif defined __AVX2__
    return (Ints)_mm256_cvttps_epi32( y ) ^ ( y >= 0x1p31f );
#elif defined __SSE2__
    return (Ints)_mm_cvttps_epi32( y ) ^ ( y >= 0x1p31f ); // out of range it gives the lowest
#else
    Samples in = lesser( greater( y, Samples{} - 0x1p31f ), Samples{} + 0x1.fffffep30f );
    return __builtin_convertvector( in, Ints ) | ( ( y >= 0x1p31f ) & 0x7F );
#endif
}

template <class Narrow, class Wide> inline Narrow lowParts( Wide a, Wide b )
{
    constexpr int last = std::endian::native == std::endian::big;
    return [=]<int... i>( std::integer_sequence<int, i...> )
    {
        return (Narrow)__builtin_shufflevector( (Narrow)a, (Narrow)b, ( 2 * i + last )... );
    }
    ( std::make_integer_sequence<int, laneBytes / int( sizeof( Narrow{}[0] ) )>{} );
}

template <class Signed> inline Signed clamped( Signed v, int low, int high )
{
    using Element = std::remove_reference_t<decltype( v[0] )>;
    Signed least = Signed{} + Element( low ), most = Signed{} + Element( high );
    v = v < least ? least : v;
    return v > most ? most : v;
}

/// Integers in halves of their width, those out of range as the nearest in range.
inline Vector<int16_t> narrowed( Ints a, Ints b )
{
#if defined __AVX512BW__
    __m512i order = _mm512_setr_epi64( 0, 2, 4, 6, 1, 3, 5, 7 );
    return (Vector<int16_t>)_mm512_maskz_permutexvar_epi64(
        0xFF, order, _mm512_packs_epi32( (__m512i)a, (__m512i)b ) );
#elif defined __AVX2__
    return (Vector<int16_t>)_mm256_permute4x64_epi64( _mm256_packs_epi32( (__m256i)a, (__m256i)b ), 0xD8 );
#elif defined __SSE2__
    return (Vector<int16_t>)_mm_packs_epi32( (__m128i)a, (__m128i)b );
#else
    return lowParts<Vector<int16_t>>( clamped( a, -32768, 32767 ), clamped( b, -32768, 32767 ) );
#endif
}

inline Vector<int8_t> narrowed( Ints a, Ints b, Ints c, Ints d )
{
#if defined __AVX512BW__
    __m512i order = _mm512_setr_epi32( 0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15 );
    __m512i low = _mm512_packs_epi32( (__m512i)a, (__m512i)b ), high = _mm512_packs_epi32( (__m512i)c, (__m512i)d );
    return (Vector<int8_t>)_mm512_maskz_permutexvar_epi32( 0xFFFF, order, _mm512_packs_epi16( low, high ) );
#elif defined __AVX2__
    __m256i order = _mm256_setr_epi32( 0, 4, 1, 5, 2, 6, 3, 7 );
    __m256i low = _mm256_packs_epi32( (__m256i)a, (__m256i)b ), high = _mm256_packs_epi32( (__m256i)c, (__m256i)d );
    return (Vector<int8_t>)_mm256_permutevar8x32_epi32( _mm256_packs_epi16( low, high ), order );
#elif defined __SSE2__
    return (Vector<int8_t>)_mm_packs_epi16( (__m128i)narrowed( a, b ), (__m128i)narrowed( c, d ) );
#else
    auto low = narrowed( a, b ), high = narrowed( c, d );
    return lowParts<Vector<int8_t>>(
        clamped<Vector<int16_t>>( low, -128, 127 ), clamped<Vector<int16_t>>( high, -128, 127 ) );
#endif
}

/// As many numbers of one or two bytes as there are lanes, each in a word.
template <class Narrow> inline Words widened( const void *at )
{
#if defined __AVX512BW__
    if constexpr ( sizeof( Narrow ) == 1 )
        return (Words)_mm512_maskz_cvtepu8_epi32( 0xFFFF, loadAs<__m128i>( at ) );
    else
        return (Words)_mm512_maskz_cvtepu16_epi32( 0xFFFF, loadAs<__m256i>( at ) );
#elif defined __AVX2__
    if constexpr ( sizeof( Narrow ) == 1 )
        return (Words)_mm256_cvtepu8_epi32( _mm_loadl_epi64( static_cast<const __m128i *>( at ) ) );
    else
        return (Words)_mm256_cvtepu16_epi32( loadAs<__m128i>( at ) );
#else
    return __builtin_convertvector( loadAs<Vector<Narrow, lanes>>( at ), Words );
#endif
}

/// Turns the bytes of each element round.
template <class Vector16> inline Vector16 swapped16( Vector16 v ) { return v << 8 | v >> 8; }

inline Words swapped32( Words v )
{
    if constexpr ( laneBytes > 16 ) // a processor with such lanes shuffles bytes in one step
        return [=]<int... i>( std::integer_sequence<int, i...> )
        {
            return (Words)__builtin_shufflevector( (Bytes)v, (Bytes)v, ( i ^ 3 )... );
        }
    ( std::make_integer_sequence<int, laneBytes>{} );
    else return [=]<int... i>( std::integer_sequence<int, i...> )
    {
        Halves turned = swapped16( (Halves)v );
        return (Words)__builtin_shufflevector( turned, turned, ( i ^ 1 )... );
    }
    ( std::make_integer_sequence<int, laneBytes / 2>{} );
}

/// Every vector of a low or a high half of elements, each as the top of an element twice as wide.
template <class Wide, bool highHalf, class Narrow> inline Wide tops( Narrow v )
{
    constexpr int count = laneBytes / int( sizeof( v[0] ) ), from = highHalf ? count / 2 : 0;
    constexpr int place = std::endian::native == std::endian::little; // of the top in the wide element
    return [=]<int... i>( std::integer_sequence<int, i...> )
    {
        return (Wide)__builtin_shufflevector( v, Narrow{}, ( ( i % 2 == place ? 0 : count ) + from + i / 2 )... );
    }
    ( std::make_integer_sequence<int, count>{} );
}

} // namespace pcm

#endif
