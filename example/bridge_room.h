#ifndef BRIDGE_ROOM_H
#define BRIDGE_ROOM_H

// A conference room: the mix of bridge_mix.h with tones, a played file and a recording.

#include "audio_file.h"
#include "bridge_mix.h"

namespace host {

/// Like `warn`, but prints to `warningStream`, since the server discards what libre prints to standard error.
void warnOfCall( const std::string &message );
extern std::FILE *warningStream;

/// The interface of a caller to its room.
class Caller {
public:
    Caller() = default;
    Caller( const Caller & ) = delete;
    virtual ~Caller() = default;

    virtual Party &party() = 0;
    /// Passes received packets to the party until it has audio for a tick.
    virtual void receiveTick( int64_t frames ) = 0;
    /// Sends 20 ms to the caller.
    virtual void sendTick( const pcm::Buffer &payload ) = 0;
};

/// Records mono 16-bit samples. Warns about the first error and then discards the recording.
class Recorder {
public:
    Recorder( const std::string &path, int64_t rate );

    void write( const pcm::Packet &pkt );

    /// Completes the file unless nothing was recorded. Returns false if the recording failed.
    bool finish();

private:
    template <class Task> void attempt( Task task );

    std::string path;
    std::optional<AudioWriter> writer; // none after an error
    bool isEmpty = true;
};

/// Reads a file in blocks of any size, as mono at the rate of the room.
class Player {
public:
    Player( const std::string &path, int64_t rate );

    /// Returns the next frames. The packet is shorter at the end of the file, and empty after it.
    pcm::Packet read( int64_t frames );

private:
    AudioReader reader;
    Resampler resampler;
    bool ended = false;
};

class ConferenceRoom {
public:
    /// Plays the file `playPath`, unless it is empty, from the start of the room. `recorder` may be null.
    ConferenceRoom( int64_t rate, const std::string &playPath, Recorder *recorder );

    void join( Caller &caller );
    void leave( Caller &caller );
    bool isEmpty() const { return callers.empty(); }

    /// Receives, mixes and sends 20 ms.
    void tick() noexcept;

private:
    void play();

    int64_t rate;
    Room room;
    Recorder *recorder;
    std::optional<Player> player;
    std::vector<Caller *> callers;
    int64_t lonelyTicks = 0;
};

} // namespace host

#endif
