#ifndef PCM_LANES_HH
#define PCM_LANES_HH

// Private to the library: vectors of samples.
//
// The compilers' vector types cover most operations on every processor. The few for which they produce poor code on
// x86 or arm64 use intrinsics, next to a portable form. All forms produce the same bits.

#include "pcm_api.h"

#include <bit>
#include <cstring>
#include <type_traits>
#include <utility>
#if defined __SSE2__
    #include <immintrin.h>
#elif defined __AARCH64EL__
    #include <arm_neon.h>
#endif
#if defined __i386__ && !defined __SSE2_MATH__
    #error "every step has to round to a float: build with -msse2 -mfpmath=sse"
#endif

namespace pcm {

// The vector size of the processor that the build targets.
#if defined __AVX512BW__
constexpr int laneBytes = 64;
#elif defined __AVX2__
constexpr int laneBytes = 32;
#else
constexpr int laneBytes = 16;
#endif
constexpr int lanes = laneBytes / int( sizeof( PCM_SAMPLE ) );

// Whether the processor shuffles bytes in one step.
#ifdef __AARCH64EL__
constexpr bool shufflesBytes = true;
#else
constexpr bool shufflesBytes = laneBytes > 16;
#endif

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

/// Calls `step` with each index. There is no loop, so the results stay in registers.
template <int count, class Step> inline void unrolled( Step step )
{
    [&]<int... i>( std::integer_sequence<int, i...> ) { ( step( i ), ... ); }
    ( std::make_integer_sequence<int, count>{} );
}

/// Returns the lower one in each lane, or NaN if b is NaN. `a` must be neither NaN nor 0.
inline Samples min( Samples a, Samples b )
{
#if defined __AVX512BW__
    return _mm512_maskz_min_ps( 0xFFFF, a, b );
#elif defined __AVX2__
    return _mm256_min_ps( a, b );
#elif defined __SSE2__
    return _mm_min_ps( a, b );
#elif defined __AARCH64EL__
    return (Samples)vminq_f32( (float32x4_t)a, (float32x4_t)b );
#else
    return a < b ? a : b;
#endif
}

/// Returns the higher one in each lane, or NaN if b is NaN. `a` must be neither NaN nor 0.
inline Samples max( Samples a, Samples b )
{
#if defined __AVX512BW__
    return _mm512_maskz_max_ps( 0xFFFF, a, b );
#elif defined __AVX2__
    return _mm256_max_ps( a, b );
#elif defined __SSE2__
    return _mm_max_ps( a, b );
#elif defined __AARCH64EL__
    return (Samples)vmaxq_f32( (float32x4_t)a, (float32x4_t)b );
#else
    return a > b ? a : b;
#endif
}

#ifdef __AARCH64EL__

/// Truncates towards zero. Values out of range become the nearest integer, and NaN the lowest one.
inline Ints truncated( Samples y )
{
    return (Ints)vcvtq_s32_f32( vmaxnmq_f32( (float32x4_t)y, vdupq_n_f32( -0x1p31f ) ) );
}

/// The same. Elsewhere, values above the range become the highest float in the range, whose low 7 bits are 0.
inline Ints truncatedToFloat( Samples y ) { return truncated( y ); }

#else

/// Truncates towards zero. Values below the range and NaN become the lowest integer. So do values above it on x86,
/// where elsewhere they are undefined.
inline Ints truncatedBelowLimit( Samples y )
{
    #if defined __AVX512BW__
    return (Ints)_mm512_maskz_cvttps_epi32( 0xFFFF, y );
    #elif defined __AVX2__
    return (Ints)_mm256_cvttps_epi32( y );
    #elif defined __SSE2__
    return (Ints)_mm_cvttps_epi32( y );
    #else
    return __builtin_convertvector( max( y, Samples{} - 0x1p31f ), Ints );
    #endif
}

/// The same for all values. Those above the range become the highest float in the range, whose low 7 bits are 0.
inline Ints truncatedToFloat( Samples y ) { return truncatedBelowLimit( min( Samples{} + 0x1.fffffep30f, y ) ); }

/// The same, but values above the range become the highest integer.
inline Ints truncated( Samples y )
{
    #ifdef __SSE2__
    return truncatedBelowLimit( y ) ^ ( y >= 0x1p31f );
    #else
    return truncatedToFloat( y ) | ( ( y >= 0x1p31f ) & 0x7F );
    #endif
}

#endif

/// Returns a vector whose element i is element `index( i )` of a and b, taken as one vector twice as long.
template <auto index, class Lanes> inline Lanes shuffled( Lanes a, Lanes b )
{
    return [=]<int... i>( std::integer_sequence<int, i...> )
    {
        return __builtin_shufflevector( a, b, index( i )... );
    }
    ( std::make_integer_sequence<int, laneBytes / int( sizeof( a[0] ) )>{} );
}

/// Returns the low half of each element of a, then of b.
template <class Narrow, class Wide> inline Narrow lowHalves( Wide a, Wide b )
{
    constexpr int low = std::endian::native == std::endian::big;
    return shuffled<[]( int i ) { return 2 * i + low; }>( (Narrow)a, (Narrow)b );
}

/// Returns the high half of each element of a, then of b.
template <class Narrow, class Wide> inline Narrow highHalves( Wide a, Wide b )
{
    constexpr int high = std::endian::native == std::endian::little;
    return shuffled<[]( int i ) { return 2 * i + high; }>( (Narrow)a, (Narrow)b );
}

template <class Signed> inline Signed clamped( Signed v, int low, int high )
{
    using Element = std::remove_reference_t<decltype( v[0] )>;
    Signed min = Signed{} + Element( low ), max = Signed{} + Element( high );
    v = v < min ? min : v;
    return v > max ? max : v;
}

/// Narrows integers to half their width. Values out of range become the nearest integer in range.
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
#elif defined __AARCH64EL__
    return (Vector<int16_t>)vqmovn_high_s32( vqmovn_s32( (int32x4_t)a ), (int32x4_t)b );
#else
    return lowHalves<Vector<int16_t>>( clamped( a, -32768, 32767 ), clamped( b, -32768, 32767 ) );
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
#elif defined __AARCH64EL__
    return (Vector<int8_t>)vqmovn_high_s16( vqmovn_s16( (int16x8_t)narrowed( a, b ) ), (int16x8_t)narrowed( c, d ) );
#else
    auto low = narrowed( a, b ), high = narrowed( c, d );
    return lowHalves<Vector<int8_t>>(
        clamped<Vector<int16_t>>( low, -128, 127 ), clamped<Vector<int16_t>>( high, -128, 127 ) );
#endif
}

/// Returns the two most significant bytes of each word.
inline Halves narrowedHigh( Words a, Words b )
{
#ifdef __SSE2__
    return (Halves)narrowed( (Ints)a >> 16, (Ints)b >> 16 );
#else
    return highHalves<Halves>( a, b );
#endif
}

/// Returns the most significant byte of each word.
inline Bytes narrowedHigh( Words a, Words b, Words c, Words d )
{
#ifdef __SSE2__
    return (Bytes)narrowed( (Ints)a >> 24, (Ints)b >> 24, (Ints)c >> 24, (Ints)d >> 24 );
#else
    return highHalves<Bytes>( narrowedHigh( a, b ), narrowedHigh( c, d ) );
#endif
}

/// Loads one unsigned number of one or two bytes for each lane.
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

/// Reverses the bytes of each element.
inline Halves swapped16( Halves v )
{
#ifdef __AARCH64EL__
    return (Halves)shuffled<[]( int i ) { return i ^ 1; }>( (Bytes)v, (Bytes)v );
#else
    return v << 8 | v >> 8;
#endif
}

inline Words swapped32( Words v )
{
    if constexpr ( shufflesBytes ) {
        return (Words)shuffled<[]( int i ) { return i ^ 3; }>( (Bytes)v, (Bytes)v );
    } else {
        Halves swapped = swapped16( (Halves)v );
        return (Words)shuffled<[]( int i ) { return i ^ 1; }>( swapped, swapped );
    }
}

#ifdef __AARCH64EL__
/// Returns a vector whose byte i is byte `index( i )` of v, or 0 if the index is negative.
template <auto index> inline Bytes picked( Bytes v )
{
    return [=]<int... i>( std::integer_sequence<int, i...> )
    {
        return (Bytes)vqtbl1q_u8( (uint8x16_t)v, uint8x16_t{ uint8_t( index( i ) )... } );
    }
    ( std::make_integer_sequence<int, laneBytes>{} );
}
#endif

/// Returns elements twice as wide, from the lower or upper half of both vectors. As the processors do, takes these
/// halves from each 16 bytes of longer vectors.
template <class Wide, bool upperHalf, class Narrow> inline Wide paired( Narrow highHalves, Narrow lowHalves )
{
    constexpr int size = sizeof( highHalves[0] ), count = laneBytes / size, part = 16 / size;
    constexpr int high = std::endian::native == std::endian::little; // position of the high half in an element
    return (Wide)shuffled<[]( int i ) {
        return ( i % 2 == high ? 0 : count ) + i / part * part + upperHalf * part / 2 + i % part / 2;
    }>( highHalves, lowHalves );
}

/// Orders 4-byte groups so that bytes are in order again after they are widened twice.
inline Bytes spread( Bytes v )
{
    return (Bytes)shuffled<[]( int i ) { return i % 4 * ( laneBytes / 16 ) + i / 4; }>( (Words)v, (Words)v );
}

/// Returns the lower or upper half of the elements, each as the high half of an element twice as wide.
template <class Wide, bool upperHalf, class Narrow> inline Wide widenedHigh( Narrow v )
{
    return paired<Wide, upperHalf>( v, Narrow{} );
}

} // namespace pcm

#endif
