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
    bool flat;
    void ( *run )( const Call & );
} kernels[] = { { "Zero", zero, true, []( const Call &c ) { pcm___SamplesZero( c.dest, c.frames ); } },
    { "Copy", copy, true, []( const Call &c ) { pcm___SamplesCopy( BLOCKS ); } },
    { "Move", move, true, []( const Call &c ) { pcm___SamplesMove( BLOCKS ); } },
    { "Add", add, true, []( const Call &c ) { pcm___SamplesAdd( BLOCKS ); } },
    { "Mul", mul, true, []( const Call &c ) { pcm___SamplesMul( BLOCKS ); } },
    { "Scale", scale, true, []( const Call &c ) { pcm___SamplesScale( c.dest, c.frames, c.factor ); } },
    { "ChannelZero", zero, false, []( const Call &c ) { pcm___SamplesChannelZero( DEST ); } },
    { "ChannelCopy", copy, false, []( const Call &c ) { pcm___SamplesChannelCopy( SIDES ); } },
    { "ChannelAdd", add, false, []( const Call &c ) { pcm___SamplesChannelAdd( SIDES ); } },
    { "ChannelMul", mul, false, []( const Call &c ) { pcm___SamplesChannelMul( SIDES ); } },
    { "ChannelScale", scale, false, []( const Call &c ) { pcm___SamplesChannelScale( DEST, c.factor ); } } };

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

TEST( Samples, KernelsAreTheLoopAtEveryLengthAndOverlap )
{
    test::Random random( 41 );
    for ( auto &kernel : kernels ) {
        kernel.run( { nullptr, 0, 1, nullptr, 0, 1, 0, 2.0 } );
        for ( int i = 0; i < 3000; ++i ) {
            int64_t frames = i % 100 ? random.upTo( 74 ) : 1000, to = kernel.flat ? 1 : 1 + random.upTo( 5 ),
                    from = kernel.flat || i % 4 == 0 ? to : 1 + random.upTo( 5 );
            Call call{ nullptr, random.upTo( to - 1 ), to, nullptr, random.upTo( from - 1 ), from, frames,
                random.oneOf( factors ) };
            // The first of the two sides stands at 0, the other one a little behind it, anywhere in it or after it.
            int64_t size = ( to + from ) * frames, ahead = to * frames, behind = from * frames;
            if ( i % 3 && !( kernel.flat && kernel.op == copy ) )
                ahead = random.upTo( i % 3 > 1 ? ahead : std::min<int64_t>( ahead, 9 ) ),
                behind = random.upTo( behind );
            ASSERT_TRUE( agrees( random, kernel, size, 0, ahead, call ) );
            ASSERT_TRUE( agrees( random, kernel, size, behind, 0, call ) );
        }
    }
}
