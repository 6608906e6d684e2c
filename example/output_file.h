#ifndef OUTPUT_FILE_H
#define OUTPUT_FILE_H

#include "host.h"

#include <cstdio>

namespace host {

/// Whether two names stand for one file that is there, also by way of links.
bool sameFile( const std::string &a, const std::string &b );

/// Whether a name stands for something that is there and is neither file nor directory: a device or a pipe.
bool isSpecialFile( const std::string &path );

/// A file that is there as a whole or not at all: what is written goes to a temporary file beside it, which takes its
/// name in `commit` and otherwise vanishes with the object. Only devices and pipes are written to directly.
class OutputFile {
public:
    explicit OutputFile( const std::string &path );
    OutputFile( const OutputFile & ) = delete;
    ~OutputFile();

    const std::string &path() const { return name; }
    std::FILE *file() const { return stream; }
    void write( const void *bytes, int64_t length );
    [[noreturn]] void failWriting( int error ) const;
    void commit();

private:
    void openTemporary();

    std::string name;
    std::string target;    // behind all symbolic links
    std::string temporary; // empty for a device or a pipe
    std::FILE *stream = nullptr;
};

} // namespace host

#endif
