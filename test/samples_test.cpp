#include "operations.h"
#include "support.h"

#include <cstring>

namespace kernels = operations::kernels;

/// Runs a kernel and the model on copies of one block of random samples, in which both sides lie, and compares all
/// of it. Sums and products get no NaN: which of two survives is the processor's choice.
static testing::AssertionResult agrees( test::Random &random, const kernels::Kernel &kernel, int64_t size,
    int64_t destAt, int64_t sourceAt, kernels::Call call )
{
    static constexpr float special[] = { 0.0f, -0.0f, 1.0f, 3e38f, -1e-40f, 1e-20f, 16777216.0f };
    std::vector<float> block( static_cast<size_t>( size ) );
    for ( float &sample : block ) {
        uint64_t bits = random();
        sample = bits % 8 ? float( int32_t( bits >> 32 ) ) * 0x1p-30f : special[bits / 8 % std::size( special )];
        if ( kernel.op < kernels::add ) std::memcpy( &sample, &bits, sizeof sample );
    }
    std::vector<float> got = block, want = block;
    call.dest = got.data() + destAt, call.source = got.data() + sourceAt;
    kernel.run( call );
    call.dest = want.data() + destAt, call.source = want.data() + sourceAt;
    kernels::model( kernel.op, call );
    for ( size_t i = 0; i < block.size(); ++i )
        if ( reference::patternOf( got[i] ) != reference::patternOf( want[i] ) )
            return testing::AssertionFailure()
                   << kernel.name << ", " << call.frames << " frames, dest " << destAt << '+' << call.destChannel
                   << '/' << call.destChannels << ", source " << sourceAt << '+' << call.sourceChannel << '/'
                   << call.sourceChannels << ": sample " << i << " got " << got[i] << ", want " << want[i];
    return testing::AssertionSuccess();
}

TEST( Samples, KernelsAreTheLoopAtEveryLengthAndOverlap )
{
    test::Random random( 41 );
    for ( auto &kernel : kernels::all ) {
        kernel.run( { nullptr, 0, 1, nullptr, 0, 1, 0, 2.0 } );
        for ( int i = 0; i < 3000; ++i ) {
            int64_t frames = i % 100 ? random.upTo( 74 ) : 1000, to = kernel.flat ? 1 : 1 + random.upTo( 5 ),
                    from = kernel.flat || i % 4 == 0 ? to : 1 + random.upTo( 5 );
            kernels::Call call{ nullptr, random.upTo( to - 1 ), to, nullptr, random.upTo( from - 1 ), from, frames,
                random.oneOf( kernels::factors ) };
            // The first of the two sides stands at 0, the other one a little behind it, anywhere in it or after it.
            int64_t size = ( to + from ) * frames, ahead = to * frames, behind = from * frames;
            if ( i % 3 && !( kernel.flat && kernel.op == kernels::copy ) )
                ahead = random.upTo( i % 3 > 1 ? ahead : std::min<int64_t>( ahead, 9 ) ),
                behind = random.upTo( behind );
            ASSERT_TRUE( agrees( random, kernel, size, 0, ahead, call ) );
            ASSERT_TRUE( agrees( random, kernel, size, behind, 0, call ) );
        }
    }
}
