#include "output_file.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

bool sameFile( const std::string &a, const std::string &b )
{
    struct stat statA, statB;
    return !stat( a.c_str(), &statA ) && !stat( b.c_str(), &statB ) && statA.st_dev == statB.st_dev &&
           statA.st_ino == statB.st_ino;
}

bool isSpecialFile( const std::string &path )
{
    struct stat info;
    return !stat( path.c_str(), &info ) && !S_ISREG( info.st_mode ) && !S_ISDIR( info.st_mode );
}

static std::string behindLinks( const std::string &path )
{
    std::error_code error;
    std::filesystem::path real = std::filesystem::canonical( path, error );
    return error ? path : real.string();
}

OutputFile::OutputFile( const std::string &path ) : name( path ), target( behindLinks( path ) )
{
    struct stat info;
    bool exists = !stat( target.c_str(), &info );
    if ( exists && S_ISDIR( info.st_mode ) ) failWriting( EISDIR );
    if ( exists && access( target.c_str(), W_OK ) ) failWriting( errno );
    if ( exists && !S_ISREG( info.st_mode ) ) {
        stream = std::fopen( target.c_str(), "wb" );
        if ( !stream ) failWriting( errno );
        return;
    }
    openTemporary();
    if ( exists ) (void)!fchmod( fileno( stream ), info.st_mode & 07777 );
}

void OutputFile::openTemporary()
{
    std::filesystem::path folder = std::filesystem::path( target ).parent_path();
    for ( int number = 0; !stream; ++number ) {
        temporary = folder / ( ".unfinished-" + std::to_string( getpid() ) + "-" + std::to_string( number ) );
        stream = std::fopen( temporary.c_str(), "wbx" );
        if ( !stream && errno != EEXIST ) failWriting( errno );
    }
}

OutputFile::~OutputFile()
{
    if ( stream ) std::fclose( stream );
    if ( !temporary.empty() ) unlink( temporary.c_str() );
}

void OutputFile::failWriting( int error ) const { failSystem( "cannot write " + name, error ); }

void OutputFile::write( const void *bytes, int64_t length )
{
    if ( std::fwrite( bytes, 1, size_t( length ), stream ) != size_t( length ) ) failWriting( errno );
}

void OutputFile::commit()
{
    if ( std::fclose( std::exchange( stream, nullptr ) ) ) failWriting( errno );
    if ( temporary.empty() ) return;
    stopIfInterrupted();
    if ( std::rename( temporary.c_str(), target.c_str() ) ) failWriting( errno );
    temporary.clear();
}

} // namespace host
