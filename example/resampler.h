#ifndef RESAMPLER_H
#define RESAMPLER_H

#include "host.h"

#include <algorithm>

namespace host {

/// Returns the number of frames in 20 ms, limited so that neither a packet nor its conversion to `otherRate` needs
/// much memory.
int64_t packetFrames( int64_t rate, int64_t otherRate, int64_t channels );

/// Parses the argument of --quality, such as "fast". Fails if it is unknown.
pcm::SrcType parseQuality( const std::string &quality );

/// Converts the sample rate of a stream. Input packets and output packets may have any length. The output of a whole
/// stream has exactly the length of the input times the ratio of the rates, rounded to a frame. With equal rates,
/// this is just a queue.
class Resampler {
public:
    /// Fails if libsamplerate does not support this ratio or this number of channels.
    Resampler( pcm::SrcType type, int64_t inRate, int64_t outRate, int64_t channels );

    void write( const pcm::Packet &pkt );

    /// The number of frames that can be gathered now.
    int64_t available() const { return std::min( buffered(), remaining() ); }

    /// The number of output frames for the input so far that have not been gathered yet.
    int64_t remaining() const { return expectedFrames() - outFrames; }

    /// At the end of the input, makes `frames` of the remaining frames available.
    void flush( int64_t frames );

    pcm::Packet gather( int64_t frames );
    void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames );

    int64_t framesIn() const { return inFrames; }
    int64_t framesOut() const { return outFrames; }

private:
    int64_t buffered() const { return src ? src->frames() : queue.frames(); }
    int64_t expectedFrames() const;
    void convert( int64_t frames );

    int64_t inRate, outRate;
    int64_t inPacketFrames;
    pcm::Queue queue;            // input that is not converted yet
    std::optional<pcm::Src> src; // none if the rates are equal
    int64_t inFrames = 0, outFrames = 0;
};

} // namespace host

#endif
