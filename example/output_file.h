#ifndef OUTPUT_FILE_H
#define OUTPUT_FILE_H

#include "host.h"

#include <cstdio>

namespace host {

/// Returns a text that is the same for all paths that lead to the same file. The file need not exist.
std::string fileIdentity( const std::string &path );

/// Returns whether two paths lead to the same file, directly or through links. The file need not exist.
bool isSameFile( const std::string &path1, const std::string &path2 );

/// Returns whether a path leads to something that exists and is neither a regular file nor a directory: a device or a
/// pipe.
bool isSpecialFile( const std::string &path );

/// The name of standard input or standard output.
constexpr char standardStream[] = "-";

/// Copies the rest of a stream. Stops at an error, which the streams record.
void copyStream( std::FILE *source, std::FILE *dest );

/// A file that is replaced atomically. Data goes to a temporary file in the same directory. `commit` renames it to
/// its path; otherwise the destructor deletes it. Devices, pipes, sockets and standard output are written directly,
/// or by `commit` if `seeks` is set but they cannot seek.
class OutputFile {
public:
    explicit OutputFile( const std::string &path, bool seeks = false );
    OutputFile( const OutputFile & ) = delete;
    ~OutputFile();

    const std::string &path() const { return requestedPath; }
    std::FILE *file() const { return stream; }
    bool isRegular() const;
    void write( const void *bytes, int64_t length );
    [[noreturn]] void failWriting( int error ) const;
    void commit();

private:
    void openDirectly( bool seeks );
    void openTemporary();

    std::string requestedPath; // as given by the user
    std::string targetPath;    // with all symbolic links resolved
    std::string temporaryPath; // empty for a device or a pipe
    std::FILE *stream = nullptr;
    std::FILE *pipe = nullptr; // receives the contents of the stream
};

} // namespace host

#endif
