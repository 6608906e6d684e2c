#ifndef REPORT_H
#define REPORT_H

#include "audio_file.h"

namespace host {

/// Returns the stream for messages: standard error if the output file is standard output, otherwise standard output.
std::FILE *messageStream( const std::string &outputPath );

/// Prints a summary of what was read and written.
class Report {
public:
    explicit Report( const std::string &outputPath ) : stream( messageStream( outputPath ) ) {}

    /// Prints a line about a file. `direction` is "in" or "out".
    void printFile( const char *direction, int64_t frames, const AudioFormat &format, const std::string &encoding,
        const std::string &path ) const;

    /// Prints the peak of the samples before they were encoded.
    void printPeak( double peak, pcm::Encoding encoding ) const;

private:
    std::FILE *stream;
};

/// Returns the larger of `peak` and the largest magnitude in the packet.
float updatedPeak( float peak, const pcm::Packet &pkt );

} // namespace host

#endif
