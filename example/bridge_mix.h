#ifndef BRIDGE_MIX_H
#define BRIDGE_MIX_H

// The core of a conference bridge: each party of a room hears all others, but not itself. See docs/guide.md.

#include "resampler.h"

namespace host {
/// The mono format of a party's audio on the line.
struct LineFormat {
    pcm::Encoding encoding;
    int64_t rate;
};

/// One caller. Use a room and its parties from only one thread at a time.
class Party {
public:
    Party( const LineFormat &line, Quality quality, int64_t roomRate );

    /// Takes a packet from the line. Returns false if it is empty, longer than 200 ms or not a whole number of
    /// samples.
    bool receive( std::span<const std::byte> payload );

    /// Replaces a lost packet: repeats the last one, 6 dB lower each time. Returns false after ten times.
    bool conceal();

    /// The number of frames, at the rate of the room, that are received and not mixed yet.
    int64_t queuedFrames() const { return toRoom.available(); }

    bool isMuted = false;

    /// Adds 20 ms to the sum of the parties.
    void speak( std::span<PCM_SAMPLE> sum );

    /// Returns 20 ms for the line: everything except the party itself.
    pcm::Buffer hear( const pcm::Packet &all );

private:
    LineFormat line;
    Resampler toRoom, toLine;
    std::optional<pcm::Packet> own; // what the party said in this tick
    pcm::Buffer lastPayload;
    int concealedPackets = 0; // since lastPayload
};

class Room {
public:
    explicit Room( int64_t rate ) : frames( rate / 50 ), upcoming( 1 ) {}

    /// Mixes audio at the rate of the room into what all parties hear from now on.
    void announce( const pcm::Packet &pkt );

    /// Mixes 20 ms. Calls `send` with each party and what it hears. Returns the sum of the parties alone.
    template <class Send> pcm::Packet tick( std::span<Party *const> parties, Send send )
    {
        pcm::Packet sum = pcm::silence::gather( frames );
        for ( Party *party : parties ) party->speak( sum.mutableSamples() );
        pcm::Packet all = sum; // shares the samples of `sum` until one of the two changes
        addAnnouncements( all );
        for ( Party *party : parties ) send( *party, party->hear( all ) );
        return sum;
    }

private:
    void addAnnouncements( pcm::Packet &all );

    int64_t frames;       // of a tick
    pcm::Packet upcoming; // announcements, from the next tick on
};

} // namespace host

#endif
