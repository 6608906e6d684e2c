#ifndef AUDIO_FILE_H
#define AUDIO_FILE_H

// Reads and writes audio files as streams of encoded bytes. libsndfile parses the containers; the caller decodes and
// encodes the samples.

#include "encoding_name.h"
#include "output_file.h"

#include <memory>
#include <sndfile.h>

namespace host {

constexpr int64_t maxRate = 1000000000;
constexpr int64_t maxChannels = 1024;

/// The format of a stream of encoded bytes.
struct AudioFormat {
    pcm::Encoding encoding; ///< 0: floats, as decoded by libsndfile
    int64_t rate;
    int64_t channels;
};

/// A file format for output.
struct Container {
    const char *name;
    const char *alias; ///< another extension of the same format, or null
    int majorFormat;   ///< the SF_FORMAT_* constant of libsndfile; 0: headerless
    int64_t maxBytes;  ///< the largest size of the audio data that its header can express
};

/// Returns the container called `name`, such as "wav". If `name` is empty, selects it by the extension of `path`;
/// devices and pipes without an extension are headerless. Fails if there is no such container.
const Container &selectContainer( const std::string &path, const std::string &name );

/// Returns whether the extension of a path is that of a container.
bool hasContainer( const std::string &path );

/// Returns whether the container can store audio in this format.
bool supportsFormat( const Container &container, const AudioFormat &format );

/// The user data of libsndfile's virtual I/O functions. `file` may be a device.
struct VirtualIo {
    std::FILE *file;
    int error = 0; ///< errno of the first failed operation
};

struct SndfileCloser {
    void operator()( SNDFILE *file ) const { sf_close( file ); }
};
using SndfilePtr = std::unique_ptr<SNDFILE, SndfileCloser>;

using FilePtr = std::unique_ptr<std::FILE, int ( * )( std::FILE * )>;

class AudioReader {
public:
    /// Opens a file whose header describes its format.
    explicit AudioReader( const std::string &path );

    /// Opens a headerless file.
    AudioReader( const std::string &path, const AudioFormat &format );

    AudioReader( const AudioReader & ) = delete;

    const AudioFormat &format() const { return fileFormat; }

    /// The number of frames, or the largest int64_t if a damaged file does not specify it.
    int64_t frames() const { return frameCount; }

    /// Warns if the header promises more frames than the file contains, or fails if `strict` is set.
    void checkLength( bool strict ) const;

    /// The encoding that is closest to that of the file, without a byte order. For headerless files, the encoding
    /// itself.
    pcm::Encoding nearestEncoding() const { return nearest; }

    /// The name of the file's encoding, for messages.
    const std::string &encodingDescription() const { return description; }

    /// Reads up to `maxFrames` frames in the encoding of `format()`. Returns fewer only at the end of the file, and
    /// an empty buffer after that.
    pcm::Buffer read( int64_t maxFrames );

    /// Skips up to `maxFrames` frames and returns how many were skipped. Returns 0 if libsndfile decodes the file,
    /// because seeking can be inexact there.
    int64_t skip( int64_t maxFrames );

private:
    int64_t openFile();
    void readHeader( const SF_INFO &info );
    int64_t readBytes( void *dest, int64_t frames, int64_t bytes );

    std::string path;
    FilePtr file{ nullptr, std::fclose };
    VirtualIo io{};
    SndfilePtr sndfile; // null for headerless files
    AudioFormat fileFormat{};
    int64_t frameCount = 0;
    int64_t position = 0;
    pcm::Encoding nearest;
    std::string description;
};

class AudioWriter {
public:
    /// Starts a file. Fails before it creates anything if the container does not support the format.
    AudioWriter( const std::string &path, const Container &container, const AudioFormat &format );

    /// The requested format, with the byte order of the container. Data passed to `write` must be in this encoding.
    const AudioFormat &format() const { return fileFormat; }

    /// Fails if the container cannot store this many more bytes.
    void checkSpace( double bytes ) const;

    void write( const pcm::Buffer &bytes );

    /// Completes the file and moves it to its path. If `finish` is not called, the file is discarded.
    void finish();

private:
    void check( bool success );
    bool correctHeader();

    const Container &container;
    AudioFormat fileFormat;
    OutputFile output;
    VirtualIo io{};
    SndfilePtr sndfile; // null for headerless files
    int64_t bytesWritten = 0;
};

} // namespace host

#endif
