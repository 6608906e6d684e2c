#include "pcm_frame_kernels.hh"

#include "pcm_lanes.hh"

#include "kit/kit_int.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

namespace pcm {

template <int64_t... values> struct Constants {
};
using CommonCounts = Constants<1, 2, 6, 8>;
using CommonWidths = Constants<1, 2, 3, 4, 6, 8, 12, 16>;

// Calls `run( a, b )`, with compile-time constants if both are in the lists.
template <int64_t... as, class Bs, class Run>
static void withConstants( Constants<as...>, Bs bs, int64_t a, int64_t b, Run run )
{
    auto withA = [&]<int64_t constantA, int64_t... bValues>( Constants<bValues...> )
    {
        return ( ( b == bValues && ( run( std::integral_constant<int64_t, constantA>(),
                                         std::integral_constant<int64_t, bValues>() ),
                                       true ) ) ||
                 ... );
    };
    if ( !( ( a == as && withA.template operator()<as>( bs ) ) || ... ) ) run( a, b );
}

// Each loop is a separate function, because `__restrict` has no effect on variables that a lambda captures.
// Samples are copied one by one, which compilers vectorize, unless their number is only known at run time.

static constexpr PCM_SAMPLE silence = 0;

static void copySample( PCM_SAMPLE *dest, const PCM_SAMPLE *source ) { std::memcpy( dest, source, sizeof *dest ); }

template <class Count> static void copyFrame( PCM_SAMPLE *dest, const PCM_SAMPLE *source, Count count )
{
    if constexpr ( std::is_same_v<Count, int64_t> )
        std::memcpy( dest, source, size_t( count ) * sizeof *dest );
    else
        for ( int64_t c = 0; c < count; ++c ) copySample( dest + c, source + c );
}

template <class To, class From>
static void resize(
    PCM_SAMPLE *__restrict dest, To to, const PCM_SAMPLE *__restrict source, From from, int64_t frames )
{
    for ( int64_t f = 0; f < frames; ++f ) {
        if constexpr ( std::is_same_v<To, int64_t> ) {
            copyFrame( dest + f * to, source + f * from, kitIntMin( from, to ) );
            if ( to > from ) std::memset( dest + f * to + from, 0, size_t( to - from ) * sizeof *dest );
        } else {
            copyFrame( dest + f * to, source + f * from,
                std::integral_constant<int64_t, std::min( From::value, To::value )>() );
            for ( int64_t c = from; c < to; ++c ) copySample( dest + f * to + c, &silence );
        }
    }
}

template <class To, class From, class Count>
static void copy(
    PCM_SAMPLE *__restrict dest, To to, const PCM_SAMPLE *__restrict source, From from, Count count, int64_t frames )
{
    for ( int64_t f = 0; f < frames; ++f ) copyFrame( dest + f * to, source + f * from, count );
}

template <class To, class From>
static void select( PCM_SAMPLE *__restrict dest, To to, const PCM_SAMPLE *__restrict source, From from,
    const int64_t *selected, int count, int64_t frames )
{
    for ( int64_t f = 0; f < frames; ++f )
        for ( int64_t c = 0; c < to; ++c )
            if ( c < count )
                copySample( dest + f * to + c, source + f * from + selected[c] );
            else
                copySample( dest + f * to + c, &silence );
}

// Returns the sums of four frames, each in the order of its channels. Adds a channel of all four frames at once.
template <int64_t channels> static Vector<PCM_SAMPLE, 4> sumsOfFour( const PCM_SAMPLE *source )
{
    using Four = Vector<PCM_SAMPLE, 4>;
    Four sums = {};
    unrolled<( channels + 3 ) / 4>( [&]( int group ) {
        // Transpose four channels. The last group may begin with channels of the group before, which are not added
        // again.
        const int64_t first = std::min<int64_t>( 4 * group, channels - 4 ), added = 4 * group - first;
        auto frame = [&]( int f ) { return loadAs<Four>( source + f * channels + first ); };
        const Four low01 = __builtin_shufflevector( frame( 0 ), frame( 1 ), 0, 4, 1, 5 ),
                   low23 = __builtin_shufflevector( frame( 2 ), frame( 3 ), 0, 4, 1, 5 ),
                   high01 = __builtin_shufflevector( frame( 0 ), frame( 1 ), 2, 6, 3, 7 ),
                   high23 = __builtin_shufflevector( frame( 2 ), frame( 3 ), 2, 6, 3, 7 );
        if ( added <= 0 ) sums += __builtin_shufflevector( low01, low23, 0, 1, 4, 5 );
        if ( added <= 1 ) sums += __builtin_shufflevector( low01, low23, 2, 3, 6, 7 );
        if ( added <= 2 ) sums += __builtin_shufflevector( high01, high23, 0, 1, 4, 5 );
        sums += __builtin_shufflevector( high01, high23, 2, 3, 6, 7 );
    } );
    return sums;
}

template <class To, class First, class From>
static void mix( PCM_SAMPLE *__restrict dest, To to, First first, const PCM_SAMPLE *__restrict source, From from,
    PCM_SAMPLE factor, int64_t frames )
{
    for ( int64_t f = 0; f < frames; ++f ) {
        PCM_SAMPLE sum = 0;
        for ( int64_t c = 0; c < from; ++c ) sum += source[f * from + c];
        sum *= factor;
        copyFrame( dest + f * to, source + f * from, first );
        for ( int64_t c = first; c < to; ++c ) copySample( dest + f * to + c, &sum );
    }
}

// The same for more than four channels: four frames at a time, then the rest.
template <class To, class First, class From>
static void mixWide( PCM_SAMPLE *__restrict dest, To to, First first, const PCM_SAMPLE *__restrict source, From from,
    PCM_SAMPLE factor, int64_t frames )
{
    int64_t f = 0;
    for ( ; f + 4 <= frames; f += 4 ) {
        PCM_SAMPLE mixed[4];
        storeAs( mixed, sumsOfFour<From::value>( source + f * from ) * factor );
        for ( int i = 0; i < 4; ++i ) {
            copyFrame( dest + ( f + i ) * to, source + ( f + i ) * from, first );
            for ( int64_t c = first; c < to; ++c ) copySample( dest + ( f + i ) * to + c, &mixed[i] );
        }
    }
    mix( dest + f * to, to, first, source + f * from, from, factor, frames - f );
}

template <class Channels> constexpr bool isWide = false;
template <int64_t channels> constexpr bool isWide<std::integral_constant<int64_t, channels>> = channels > 4;

void resizeFrames(
    PCM_SAMPLE *dest, int64_t destChannels, const PCM_SAMPLE *source, int64_t sourceChannels, int64_t frames )
{
    withConstants( CommonWidths(), CommonWidths(), destChannels, sourceChannels,
        [=]( auto to, auto from ) { resize( dest, to, source, from, frames ); } );
}

void copyChannels( PCM_SAMPLE *dest, int64_t destChannels, const PCM_SAMPLE *source, int64_t sourceChannels,
    int64_t count, int64_t frames )
{
    withConstants( CommonCounts(), CommonCounts(), destChannels, sourceChannels, [=]( auto to, auto from ) {
        if ( count == 1 )
            copy( dest, to, source, from, std::integral_constant<int64_t, 1>(), frames );
        else if ( count == 2 )
            copy( dest, to, source, from, std::integral_constant<int64_t, 2>(), frames );
        else if ( count == from )
            copy( dest, to, source, from, from, frames );
        else
            copy( dest, to, source, from, count, frames );
    } );
}

void selectChannels( PCM_SAMPLE *dest, int64_t destChannels, const PCM_SAMPLE *source, int64_t sourceChannels,
    uint64_t channelMask, int64_t frames )
{
    if ( !frames ) return;
    const int lowest = std::countr_zero( channelMask ), count = int( kitIntBitCount( channelMask ) );
    const bool isAdjacent = count && channelMask >> lowest == ~uint64_t{ 0 } >> ( 64 - count );
    if ( isAdjacent && count == destChannels )
        return resizeFrames( dest, destChannels, source + lowest, sourceChannels, frames );
    int64_t selected[64];
    for ( int i = 0; i < count; ++i, channelMask &= channelMask - 1 ) selected[i] = std::countr_zero( channelMask );
    withConstants( CommonCounts(), CommonCounts(), destChannels, sourceChannels,
        [&]( auto to, auto from ) { select( dest, to, source, from, selected, count, frames ); } );
}

void mixFrames( PCM_SAMPLE *dest, int64_t destChannels, const PCM_SAMPLE *source, int64_t sourceChannels,
    bool keepsChannels, PCM_SAMPLE factor, int64_t frames )
{
    withConstants( CommonCounts(), CommonCounts(), destChannels, sourceChannels, [=]( auto to, auto from ) {
        auto run = [=]( auto first ) {
            if constexpr ( isWide<decltype( from )> )
                mixWide( dest, to, first, source, from, factor, frames );
            else
                mix( dest, to, first, source, from, factor, frames );
        };
        if ( keepsChannels )
            run( from );
        else
            run( std::integral_constant<int64_t, 0>() );
    } );
}

} // namespace pcm
