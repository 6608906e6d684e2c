#ifndef PCM_OWNED_HH
#define PCM_OWNED_HH

// Private to the library: objects that take ownership of blocks.

#include "pcm_packet.h"

#include "kit/kit_ref.hh"

namespace pcm {

/// pcmPacketCreateFromSamplesUse() for a block that is freed if the call throws.
PCM_PACKET *packetOf( kit::Block<PCM_SAMPLE> block, int64_t channels, int64_t frames );

/// kitBufferCreateFromBytesUse() for a block that is freed if the call throws.
inline KIT_BUFFER *bufferOf( kit::Block<uint8_t> block, int64_t bytes )
{
    KIT_BUFFER *buffer = kitBufferCreateFromBytesUse( block.get(), bytes );
    (void)block.release();
    return buffer;
}

} // namespace pcm

#endif
