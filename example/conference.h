#ifndef CONFERENCE_H
#define CONFERENCE_H

#include "resampler.h"

#include <vector>

namespace host {

/// The mix of a telephone conference runs in ticks of 20 ms.
constexpr int64_t ticksPerSecond = 50;

/// A caller: two streams of encoded bytes and the buffers between them and the room.
class Party {
public:
    /// Rates are in hertz.
    Party( pcm::Encoding encoding, int64_t rate, int64_t roomRate );

    /// Queues received bytes, of any length. Returns false if they are not whole samples.
    bool write( std::span<const std::byte> bytes );

    /// Queues a replacement for 20 ms that were lost: the last 20 ms, attenuated.
    void conceal();

    /// Whether 20 ms are queued.
    bool isReady() const { return input.frames() >= framesIn; }

    /// The bytes of the last tick to send: 20 ms of the mix without this caller.
    std::span<const std::byte> output() const { return encoded; }

    bool isMuted = false;

private:
    friend class Conference;
    void encode( std::span<const PCM_SAMPLE> heard );

    pcm::Encoding encoding;
    int64_t framesIn, framesOut;                     // per tick, at the rates of the room and of the caller
    std::unique_ptr<RateConverter> toRoom, fromRoom; // null if the rates are equal
    pcm::Queue input{ 1 };
    pcm::Packet last; // what the room got from the caller in the last tick
    std::vector<std::byte> encoded;
};

/// A room. The caller owns the parties and runs tick() every 20 ms.
class Conference {
public:
    explicit Conference( int64_t rate )
        : rate( rate ), mix( size_t( rate / ticksPerSecond ) ), heard( size_t( rate / ticksPerSecond ) )
    {
    }

    std::vector<Party *> parties;

    /// Sound that all parties hear, such as an announcement, at the rate of the room.
    pcm::Queue announcements{ 1 };

    /// Reads 20 ms from each party, mixes them, and encodes what each party hears.
    void tick();

    /// The sum of all parties in the last tick.
    std::span<const PCM_SAMPLE> sum() const { return mix; }

private:
    int64_t rate;
    std::vector<PCM_SAMPLE> mix, heard; // 20 ms
};

} // namespace host

#endif
