#include "output_file.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

bool isSameFile( const std::string &path1, const std::string &path2 )
{
    struct stat info1, info2;
    return !stat( path1.c_str(), &info1 ) && !stat( path2.c_str(), &info2 ) && info1.st_dev == info2.st_dev &&
           info1.st_ino == info2.st_ino;
}

bool isSpecialFile( const std::string &path )
{
    struct stat info;
    return !stat( path.c_str(), &info ) && !S_ISREG( info.st_mode ) && !S_ISDIR( info.st_mode );
}

static std::string resolveLinks( const std::string &path )
{
    std::error_code error;
    std::filesystem::path resolved = std::filesystem::canonical( path, error );
    return error ? path : resolved.string();
}

OutputFile::OutputFile( const std::string &path ) : requestedPath( path ), targetPath( resolveLinks( path ) )
{
    struct stat info;
    bool exists = !stat( targetPath.c_str(), &info );
    if ( exists && S_ISDIR( info.st_mode ) ) failWriting( EISDIR );
    if ( exists && access( targetPath.c_str(), W_OK ) ) failWriting( errno );
    if ( exists && !S_ISREG( info.st_mode ) ) {
        stream = std::fopen( targetPath.c_str(), "wb" );
        if ( !stream ) failWriting( errno );
        return;
    }
    openTemporary();
    if ( exists ) (void)!fchmod( fileno( stream ), info.st_mode & 07777 );
}

void OutputFile::openTemporary()
{
    std::filesystem::path directory = std::filesystem::path( targetPath ).parent_path();
    for ( int number = 0; !stream; ++number ) {
        temporaryPath = directory / ( ".unfinished-" + std::to_string( getpid() ) + "-" + std::to_string( number ) );
        stream = std::fopen( temporaryPath.c_str(), "wbx" );
        if ( !stream && errno != EEXIST ) failWriting( errno );
    }
}

OutputFile::~OutputFile()
{
    if ( stream ) std::fclose( stream );
    if ( !temporaryPath.empty() ) unlink( temporaryPath.c_str() );
}

void OutputFile::failWriting( int error ) const { failWithErrno( "cannot write " + requestedPath, error ); }

void OutputFile::write( const void *bytes, int64_t length )
{
    if ( std::fwrite( bytes, 1, size_t( length ), stream ) != size_t( length ) ) failWriting( errno );
}

void OutputFile::commit()
{
    if ( std::fclose( std::exchange( stream, nullptr ) ) ) failWriting( errno );
    if ( temporaryPath.empty() ) return;
    stopIfInterrupted();
    if ( std::rename( temporaryPath.c_str(), targetPath.c_str() ) ) failWriting( errno );
    temporaryPath.clear();
}

} // namespace host
