#ifndef REPORT_H
#define REPORT_H

#include "audio_file.h"

namespace host {

/// Where a program's words go, so that they don't mix with what it writes: to the standard error if the output goes
/// to the standard output.
std::FILE *wordsBeside( const std::string &output );

/// Tells, when all is done, what was read and written.
class Report {
public:
    explicit Report( const std::string &output ) : to( wordsBeside( output ) ) {}

    /// A line about a file. `side`: "in" or "out".
    void file( const char *side, int64_t frames, const AudioFormat &format, const std::string &encoding,
        const std::string &path ) const;

    /// The highest magnitude of the samples that were encoded.
    void peak( double highest, pcm::Encoding encoding ) const;

private:
    std::FILE *to;
};

/// The highest of a peak so far and the magnitudes in a packet.
float highestOf( const pcm::Packet &pkt, float peak );

} // namespace host

#endif
