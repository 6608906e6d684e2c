#ifndef RESAMPLER_H
#define RESAMPLER_H

#include "host.h"

#include <algorithm>
#include <memory>

namespace host {

/// Returns the number of frames in 20 ms, limited so that neither a packet nor its conversion to `otherRate` needs
/// much memory.
int64_t packetFrames( int64_t rate, int64_t otherRate, int64_t channels );

/// A method of rate conversion.
struct Quality {
    const char *name;
    std::optional<pcm::SrcType> type; ///< none: the filters of the library, for the rates of telephones
};

/// Parses the argument of --quality, such as "fast". Fails if it is unknown.
const Quality &parseQuality( const std::string &name );

/// Lines for the help text of --quality.
extern const char qualityTable[];

/// Converts the sample rate of a stream.
class RateConverter {
public:
    virtual ~RateConverter() = default;
    virtual void write( const pcm::Packet &pkt ) = 0;
    virtual int64_t frames() const = 0; ///< that can be gathered now
    virtual pcm::Packet gather( int64_t frames ) = 0;
    virtual void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames ) = 0;
};

/// Fails if the method does not support this ratio or this number of channels.
std::unique_ptr<RateConverter> createRateConverter(
    const Quality &quality, int64_t inRate, int64_t outRate, int64_t channels );

/// Converts the sample rate of a stream. Input packets and output packets may have any length. The output of a whole
/// stream has exactly the length of the input times the ratio of the rates, rounded to a frame. With equal rates,
/// this is just a queue.
class Resampler {
public:
    /// Fails if the method does not support this ratio or this number of channels.
    Resampler( const Quality &quality, int64_t inRate, int64_t outRate, int64_t channels );

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
    int64_t buffered() const { return converter ? converter->frames() : queue.frames(); }
    int64_t expectedFrames() const;
    void convert( int64_t frames );

    int64_t inRate, outRate;
    int64_t inPacketFrames;
    pcm::Queue queue;                         // input that is not converted yet
    std::unique_ptr<RateConverter> converter; // null if the rates are equal
    int64_t inFrames = 0, outFrames = 0;
};

} // namespace host

#endif
