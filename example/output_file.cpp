#include "output_file.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace host {

// Follows the links of the last component, also those that lead to nothing yet. Returns an absolute path.
static std::string resolveLinks( std::filesystem::path path )
{
    std::error_code error;
    constexpr int maxLinks = 40; // as in the kernel
    for ( int links = 0; links < maxLinks && std::filesystem::is_symlink( path, error ); ++links )
        path = path.parent_path() / std::filesystem::read_symlink( path, error );
    const std::filesystem::path resolved =
        std::filesystem::weakly_canonical( std::filesystem::absolute( path ), error );
    return error ? path.string() : resolved.string();
}

std::string fileIdentity( const std::string &path )
{
    struct stat info;
    return stat( path.c_str(), &info ) ? resolveLinks( path )
                                       : std::to_string( info.st_dev ) + ":" + std::to_string( info.st_ino );
}

bool isSameFile( const std::string &path1, const std::string &path2 )
{
    if ( path1 == standardStream || path2 == standardStream || path1.empty() || path2.empty() ) return false;
    return fileIdentity( path1 ) == fileIdentity( path2 );
}

bool isSpecialFile( const std::string &path )
{
    struct stat info;
    return !stat( path.c_str(), &info ) && !S_ISREG( info.st_mode ) && !S_ISDIR( info.st_mode );
}

// Gives the new file the owner, group, mode and access control list of the old one, as far as the process may. Where
// it may not, the new file grants no more than the old one.
static void copyAccess( int file, const std::string &oldPath, const struct stat &old )
{
    struct stat info;
    if ( fchown( file, old.st_uid, old.st_gid ) ) (void)!fchown( file, uid_t( -1 ), old.st_gid );
    mode_t mode = old.st_mode & 0777;
    char list[4096];
    const ssize_t length = getxattr( oldPath.c_str(), "system.posix_acl_access", list, sizeof list );
    const bool keepsGroup = !fstat( file, &info ) && info.st_gid == old.st_gid;
    const bool keepsList =
        length < 0 || ( keepsGroup && !fsetxattr( file, "system.posix_acl_access", list, size_t( length ), 0 ) );
    if ( !keepsGroup || !keepsList ) mode &= ~mode_t( 070 ) | ( mode & 7 ) << 3;
    (void)!fchmod( file, mode );
}

void OutputFile::openDirectly( bool seeks )
{
    const bool isStandard = requestedPath == standardStream;
    stream = isStandard ? fdopen( fcntl( STDOUT_FILENO, F_DUPFD_CLOEXEC, 3 ), "wb" )
                        : std::fopen( requestedPath.c_str(), "wbe" );
    if ( !stream ) failWriting( errno );
    // A regular file that is standard output may already have contents.
    if ( !seeks || ( !isStandard && ftello( stream ) >= 0 ) ) return;
    pipe = std::exchange( stream, std::tmpfile() );
    if ( !stream ) failWriting( errno );
}

OutputFile::OutputFile( const std::string &path, bool seeks ) : requestedPath( path ), targetPath( path )
{
    struct stat info;
    if ( path == standardStream ) {
        openDirectly( seeks );
        return;
    }
    const bool exists = !stat( path.c_str(), &info );
    if ( !exists && errno != ENOENT ) failWriting( errno );
    if ( exists && S_ISDIR( info.st_mode ) ) failWriting( EISDIR );
    if ( exists && access( path.c_str(), W_OK ) ) failWriting( errno );
    const std::string resolved = resolveLinks( path );
    // A link in /proc can lead to a file that has no name, or another file by now.
    const bool isNamed = !exists || isSameFile( path, resolved );
    if ( exists && ( !S_ISREG( info.st_mode ) || !isNamed ) ) {
        openDirectly( seeks );
        return;
    }
    targetPath = resolved;
    openTemporary();
    if ( exists ) copyAccess( fileno( stream ), targetPath, info );
}

void OutputFile::openTemporary()
{
    std::filesystem::path directory = std::filesystem::path( targetPath ).parent_path();
    for ( int number = 0; !stream; ++number ) {
        temporaryPath = directory / ( ".unfinished-" + std::to_string( getpid() ) + "-" + std::to_string( number ) );
        stream = std::fopen( temporaryPath.c_str(), "w+bxe" );
        if ( !stream && errno != EEXIST ) failWriting( errno );
    }
}

OutputFile::~OutputFile()
{
    if ( stream ) std::fclose( stream );
    if ( pipe ) std::fclose( pipe );
    if ( !temporaryPath.empty() ) unlink( temporaryPath.c_str() );
}

void OutputFile::failWriting( int error ) const { failWithErrno( "cannot write " + requestedPath, error ); }

void OutputFile::write( const void *bytes, int64_t length )
{
    if ( std::fwrite( bytes, 1, size_t( length ), stream ) != size_t( length ) ) failWriting( errno );
}

bool OutputFile::isRegular() const
{
    struct stat info;
    return !fstat( fileno( stream ), &info ) && S_ISREG( info.st_mode );
}

void copyStream( std::FILE *source, std::FILE *dest )
{
    char block[65536];
    for ( size_t length; ( length = std::fread( block, 1, sizeof block, source ) ); stopIfInterrupted() )
        if ( std::fwrite( block, 1, length, dest ) != length ) return;
}

void OutputFile::commit()
{
    if ( pipe ) {
        std::rewind( stream );
        copyStream( stream, pipe );
        if ( std::ferror( stream ) || std::ferror( pipe ) ) failWriting( errno );
        if ( std::fclose( std::exchange( pipe, nullptr ) ) ) failWriting( errno );
    }
    if ( std::fclose( std::exchange( stream, nullptr ) ) ) failWriting( errno );
    if ( temporaryPath.empty() ) return;
    stopIfInterrupted();
    if ( std::rename( temporaryPath.c_str(), targetPath.c_str() ) ) failWriting( errno );
    temporaryPath.clear();
}

} // namespace host
