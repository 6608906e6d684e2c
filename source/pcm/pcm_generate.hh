#ifndef PCM_GENERATE_HH
#define PCM_GENERATE_HH

// Private to the library: code that the generators of tones and noise share.

#include "pcm_owned.hh"

#include "kit/kit_loop.hh"

namespace pcm {

/// Combines samples of `source` into `dest`, for example pcm___SamplesAdd.
using Kernel = void ( * )( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/// Creates a packet of one channel from a block that `generate( block, samples )` fills. Does not call `generate` for
/// 0 samples.
template <class Generate> PCM_PACKET *generatePacket( int64_t samples, Generate generate )
{
    kit::Block<PCM_SAMPLE> block;
    if ( samples ) block = kit::allocate<PCM_SAMPLE>( samples );
    PCM_SAMPLE *dest = block.get();
    kit::Owned pkt( packetOf( std::move( block ), 1, samples ) );
    if ( samples ) generate( dest, samples );
    return pkt.take();
}

/// Generates samples with `generate( block, n )`, up to 128 at a time, and combines them into dest with the kernel.
template <class Generate> void generateInto( PCM_SAMPLE *dest, int64_t samples, Kernel kernel, Generate generate )
{
    constexpr int64_t blockSamples = 128;
    PCM_SAMPLE block[blockSamples];
    kit::forChunks( samples, blockSamples, [&]( int64_t done, int64_t n ) {
        generate( block, n );
        kernel( dest + done, block, n );
    } );
}

} // namespace pcm

#endif
