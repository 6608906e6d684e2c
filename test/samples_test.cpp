#include "reference.h"
#include "support.h"

#include <pcm/pcm_samples_stdc.h>

#include <cstring>

enum Op { zero, copy, move, add, mul, scale };

/// What a kernel is told. A flat kernel walks channel 0 of 1.
struct Call {
    float *dest;
    int64_t destChannel, destChannels;
    const float *source;
    int64_t sourceChannel, sourceChannels, frames;
    double factor;
};

#define BLOCKS c.dest, c.source, c.frames
#define DEST c.dest, c.destChannel, c.destChannels, c.frames
#define SIDES c.dest, c.destChannel, c.destChannels, c.source, c.sourceChannel, c.sourceChannels, c.frames

static const struct Kernel {
    const char *name;
    Op op;
    void ( *run )( const Call & );
} flat[] = { { "Zero", zero, []( const Call &c ) { pcm___SamplesZero( c.dest, c.frames ); } },
    { "Copy", copy, []( const Call &c ) { pcm___SamplesCopy( BLOCKS ); } },
    { "Move", move, []( const Call &c ) { pcm___SamplesMove( BLOCKS ); } },
    { "Add", add, []( const Call &c ) { pcm___SamplesAdd( BLOCKS ); } },
    { "Mul", mul, []( const Call &c ) { pcm___SamplesMul( BLOCKS ); } },
    { "Scale", scale, []( const Call &c ) { pcm___SamplesScale( c.dest, c.frames, c.factor ); } } },
  channelwise[] = { { "ChannelZero", zero, []( const Call &c ) { pcm___SamplesChannelZero( DEST ); } },
      { "ChannelCopy", copy, []( const Call &c ) { pcm___SamplesChannelCopy( SIDES ); } },
      { "ChannelAdd", add, []( const Call &c ) { pcm___SamplesChannelAdd( SIDES ); } },
      { "ChannelMul", mul, []( const Call &c ) { pcm___SamplesChannelMul( SIDES ); } },
      { "ChannelScale", scale, []( const Call &c ) { pcm___SamplesChannelScale( DEST, c.factor ); } } };

static void model( Op op, const Call &c )
{
    std::vector<float> before;
    if ( op == move ) before.assign( c.source, c.source + c.frames );
    for ( int64_t f = 0; f < c.frames; ++f ) {
        float *d = c.dest + f * c.destChannels + c.destChannel, narrowed = float( c.factor );
        const float *s = op == move ? &before[size_t( f )] : c.source + f * c.sourceChannels + c.sourceChannel;
        if ( op == zero ) *d = 0;
        if ( op == copy || op == move ) std::memcpy( d, s, sizeof *d );
        if ( op == add ) *d = *d + *s;
        if ( op == mul ) *d = *d * *s;
        if ( op == scale ) *d = *d * narrowed;
    }
}

/// Runs a kernel and the model on copies of one block of random samples, in which both sides lie, and compares all
/// of it. Sums and products get no NaN: which of two survives is the processor's choice.
static testing::AssertionResult agrees(
    test::Random &random, const Kernel &kernel, int64_t size, int64_t destAt, int64_t sourceAt, Call call )
{
    static constexpr float special[] = { 0.0f, -0.0f, 1.0f, 3e38f, -1e-40f, 1e-20f, 16777216.0f };
    std::vector<float> block( static_cast<size_t>( size ) );
    for ( float &sample : block ) {
        uint64_t bits = random();
        sample = bits % 8 ? float( int32_t( bits >> 32 ) ) * 0x1p-30f : special[bits / 8 % std::size( special )];
        if ( kernel.op < add ) std::memcpy( &sample, &bits, sizeof sample );
    }
    std::vector<float> got = block, want = block;
    call.dest = got.data() + destAt, call.source = got.data() + sourceAt;
    kernel.run( call );
    call.dest = want.data() + destAt, call.source = want.data() + sourceAt;
    model( kernel.op, call );
    for ( size_t i = 0; i < block.size(); ++i )
        if ( reference::patternOf( got[i] ) != reference::patternOf( want[i] ) )
            return testing::AssertionFailure()
                   << kernel.name << ", " << call.frames << " frames, dest " << destAt << '+' << call.destChannel
                   << '/' << call.destChannels << ", source " << sourceAt << '+' << call.sourceChannel << '/'
                   << call.sourceChannels << ": sample " << i << " got " << got[i] << ", want " << want[i];
    return testing::AssertionSuccess();
}

static constexpr double factors[] = { 0.1, 1.0 / 3, -0.0, -1.0, 1e-50, 1e-44, 1 + 0x1p-25, 3e38, INFINITY, NAN };

TEST( Samples, FlatKernelsAreTheLoopAtEveryLengthAndOverlap )
{
    test::Random random( 41 );
    for ( auto &kernel : flat ) {
        kernel.run( { nullptr, 0, 1, nullptr, 0, 1, 0, 2.0 } );
        for ( int64_t i = 0; i < 75; ++i ) {
            int64_t n = i > 70 ? std::array{ 127, 128, 1000, 4099 }[size_t( i - 71 )] : i, size = 2 * n + 18;
            Call call{ nullptr, 0, 1, nullptr, 0, 1, n, factors[size_t( i ) % std::size( factors )] };
            ASSERT_TRUE( agrees( random, kernel, size, 9, n + 9, call ) );
            ASSERT_TRUE( agrees( random, kernel, size, n + 9, 9, call ) );
            for ( int64_t shift = -9; kernel.op != copy && shift <= 9; ++shift )
                ASSERT_TRUE( agrees( random, kernel, size, 9, 9 + shift, call ) );
        }
    }
}

TEST( Samples, ChannelKernelsAreTheLoopForAnyChannelsOfOneBlockOrTwo )
{
    test::Random random( 42 );
    for ( auto &kernel : channelwise ) {
        kernel.run( { nullptr, 1, 2, nullptr, 4, 5, 0, 2.0 } );
        for ( int i = 0; i < 3000; ++i ) {
            int64_t frames = random.upTo( i % 9 * 8 ), to = 1 + random.upTo( 5 ),
                    from = i % 4 ? 1 + random.upTo( 5 ) : to;
            Call call{ nullptr, random.upTo( to - 1 ), to, nullptr, random.upTo( from - 1 ), from, frames,
                factors[size_t( i ) % std::size( factors )] };
            int64_t ahead = i % 4 < 2 ? 0 : random.upTo( to * frames ), behind = random.upTo( from * frames );
            ASSERT_TRUE( agrees( random, kernel, ( to + from ) * frames, 0, ahead, call ) );
            ASSERT_TRUE( agrees( random, kernel, ( to + from ) * frames, behind, 0, call ) );
            ASSERT_TRUE( agrees( random, kernel, ( to + from ) * frames, 0, to * frames, call ) );
        }
    }
}
