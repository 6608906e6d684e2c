#ifndef RESAMPLER_H
#define RESAMPLER_H

#include "host.h"

#include <algorithm>
#include <variant>

namespace host {

/// Returns the number of frames in 20 ms, limited so that neither a packet nor its conversion to `otherRate` needs
/// much memory.
int64_t packetFrames( int64_t rate, int64_t otherRate, int64_t channels );

/// The quality of rate conversion: a converter of libsamplerate, or none for the telephone filters.
using Quality = std::optional<pcm::SrcType>;

/// Parses the argument of --quality, such as "fast". Fails if it is unknown.
Quality parseQuality( const std::string &quality );

/// Lines for the help text of --quality.
extern const char qualityTable[];

/// Converts between 8, 12, 16, 24 and 48 kHz in integer ratios with the low-pass filters of the library. The output
/// is limited to full scale. The filter delays it by half of its length, which is less than 0.6 ms.
class TelephoneConverter {
public:
    /// Returns whether there is a filter for these rates.
    static bool supports( int64_t inRate, int64_t outRate );

    /// Fails if there is no filter for these rates.
    TelephoneConverter( int64_t inRate, int64_t outRate, int64_t channels );

    /// Drops the delay from the start of the output, except half a frame of the higher rate. Call before `write`.
    void align() { framesToDrop = filter.coefficients().length() / 2 - 1; }

    void write( pcm::Packet pkt );
    int64_t frames() const { return queue.frames(); }
    pcm::Packet gather( int64_t frames ) { return queue.gather( frames ); }
    void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames ) { queue.gatherAdd( dest, frames ); }

private:
    int64_t extendFactor, reduceFactor;
    pcm::Filter filter;
    int64_t framesToDrop = 0; // of the filter's output
    pcm::Queue queue;         // output
};

/// Converts the sample rate of a stream. Input packets and output packets may have any length. The output of a whole
/// stream has exactly the length of the input times the ratio of the rates, rounded to a frame. With equal rates,
/// this is just a queue.
class Resampler {
public:
    /// Fails if the quality does not support this ratio or this number of channels.
    Resampler( Quality quality, int64_t inRate, int64_t outRate, int64_t channels );

    /// Prepares for live audio: every 20 ms of input make 20 ms of output available at once. The start of the output
    /// is then up to 20 ms late. Call before `write`.
    void startLive();

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
    using Converter = std::variant<pcm::Queue, pcm::Src, TelephoneConverter>;

    static Converter createConverter( Quality quality, int64_t inRate, int64_t outRate, int64_t channels );
    int64_t buffered() const;
    int64_t expectedFrames() const;
    void convert( int64_t frames );

    int64_t inRate, outRate;
    int64_t inPacketFrames;
    pcm::Queue queue; // input that is not converted yet
    Converter converter;
    int64_t inFrames = 0, outFrames = 0;
};

} // namespace host

#endif
