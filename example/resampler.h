#ifndef RESAMPLER_H
#define RESAMPLER_H

#include "host.h"

#include <algorithm>

namespace host {

/// Frames of 20 ms, but no more samples than memory should be spent on, also where many come out for each that goes
/// in.
int64_t packetFrames( int64_t rate, int64_t otherRate, int64_t channels );

/// The converter of a name such as "fast"; fails if there is none.
pcm::SrcType converterType( const std::string &quality );

/// Takes packets of any length at one rate and gives any number of frames at another; a whole stream comes out at the
/// length that the ratio of the rates asks for, to the frame. With equal rates it is just a queue.
class Resampler {
public:
    /// Fails if there is no converter from one rate to the other, or none for so many channels.
    Resampler( pcm::SrcType type, int64_t inRate, int64_t outRate, int64_t channels );

    void write( const pcm::Packet &pkt );

    /// Frames that can be gathered.
    int64_t ready() const { return std::min( held(), left() ); }

    /// Frames that the input so far will give, less those that were gathered.
    int64_t left() const { return due() - outFrames; }

    /// Makes so many of the frames that are left ready, at the end of the input.
    void finish( int64_t frames );

    pcm::Packet gather( int64_t frames );
    void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames );

    int64_t written() const { return inFrames; }
    int64_t gathered() const { return outFrames; }

private:
    int64_t held() const { return src ? src->frames() : queue.frames(); }
    int64_t due() const;
    void convert( int64_t frames );

    int64_t inRate, outRate;
    int64_t inPacket;
    pcm::Queue queue;            // frames that wait for a whole packet
    std::optional<pcm::Src> src; // none if the rates are equal
    int64_t inFrames = 0, outFrames = 0;
};

} // namespace host

#endif
