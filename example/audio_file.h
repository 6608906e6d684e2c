#ifndef AUDIO_FILE_H
#define AUDIO_FILE_H

// Audio files as streams of encoded bytes. libsndfile knows the containers; the samples are left to the caller.

#include "encoding_name.h"
#include "output_file.h"

#include <memory>
#include <sndfile.h>

namespace host {

constexpr int64_t highestRate = 1000000000;
constexpr int64_t mostChannels = 1024;

/// What the bytes of a stream are.
struct AudioFormat {
    pcm::Encoding encoding; ///< 0: floats as libsndfile gives them
    int64_t rate;
    int64_t channels;
};

/// A kind of file that can be written.
struct Container {
    const char *name;
    const char *otherName; ///< another extension for the same, or null
    int major;             ///< libsndfile's format; 0: headerless
    int64_t mostBytes;     ///< that its size fields can tell
};

/// The container of a name such as "wav", or else the one that a file's name asks for; without an extension, devices
/// and pipes are headerless.
const Container &containerFor( const std::string &path, const std::string &name );

/// Whether files of a container hold samples of an encoding.
bool containerHolds( const Container &container, const AudioFormat &format );

/// The way of libsndfile to a stream, which may be a device. Keeps the first error of the system.
struct SoundStream {
    std::FILE *file;
    int error = 0;
};

struct SoundFileClose {
    void operator()( SNDFILE *file ) const { sf_close( file ); }
};
using SoundFile = std::unique_ptr<SNDFILE, SoundFileClose>;

class AudioReader {
public:
    /// Opens a file that tells what it holds.
    explicit AudioReader( const std::string &path );

    /// Opens a headerless file.
    AudioReader( const std::string &path, const AudioFormat &format );

    AudioReader( const AudioReader & ) = delete;

    bool isRaw() const { return !sound; }
    const AudioFormat &format() const { return layout; }

    /// Their number, or the largest number there is where a damaged file doesn't tell.
    int64_t frames() const { return length; }

    /// The encoding nearest to what the file holds, in no particular byte order; headerless files keep theirs.
    pcm::Encoding nearest() const { return near; }

    /// The name of the encoding, for the user.
    const std::string &encoding() const { return name; }

    /// Up to `wanted` frames, in the encoding of `format`; fewer only at the end, where the buffer is empty at last.
    pcm::Buffer read( int64_t wanted );

    /// Passes over frames where that can be done exactly without decoding; returns how many were passed over.
    int64_t skip( int64_t wanted );

private:
    void openFile();
    void describe( const SF_INFO &info );
    int64_t readBytes( void *dest, int64_t frames, int64_t bytes );

    std::string path;
    std::unique_ptr<std::FILE, int ( * )( std::FILE * )> file{ nullptr, std::fclose };
    SoundStream stream{};
    SoundFile sound;
    AudioFormat layout{};
    int64_t length = 0;
    int64_t position = 0;
    pcm::Encoding near;
    std::string name;
};

class AudioWriter {
public:
    /// Begins a file; fails, before anything is touched, if the container can't hold the format.
    AudioWriter( const std::string &path, const Container &container, const AudioFormat &format );

    /// The format with the byte order that the container has; what is written must be in this encoding.
    const AudioFormat &format() const { return layout; }

    /// Fails if the container has no room for so many bytes more.
    void needRoom( double bytes ) const;

    void write( const pcm::Buffer &bytes );

    /// Completes the file and gives it its name. Without this nothing is left of it.
    void finish();

private:
    void check( bool good );

    const Container &container;
    AudioFormat layout;
    OutputFile output;
    SoundStream stream{};
    SoundFile sound;
    int64_t written = 0;
};

} // namespace host

#endif
