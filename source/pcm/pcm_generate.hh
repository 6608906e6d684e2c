#ifndef PCM_GENERATE_HH
#define PCM_GENERATE_HH

// Private to the library: code that the generators of tones and noise share.

#include "pcm_packet.h"

#include "kit/kit_loop.hh"

namespace pcm {

/// Combines samples of `source` into `dest`, for example pcm___SamplesAdd.
using Kernel = void ( * )( PCM_SAMPLE *dest, const PCM_SAMPLE *source, int64_t samples );

/// Creates a packet of one channel from a block that `generate( block, samples )` fills. Does not call `generate` for
/// 0 samples.
template <class Generate> PCM_PACKET *generatePacket( int64_t samples, Generate generate )
{
    PCM_SAMPLE *block = nullptr;
    if ( samples ) {
        block = static_cast<PCM_SAMPLE *>( kitMemAllocN( samples, int64_t( sizeof( PCM_SAMPLE ) ) ) );
        generate( block, samples );
    }
    return pcmPacketCreateFromSamplesUse( block, 1, samples );
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
