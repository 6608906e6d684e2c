#include "gnuplot.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

static pid_t startGnuplot( int input, int output )
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init( &actions );
    posix_spawn_file_actions_adddup2( &actions, input, STDIN_FILENO );
    posix_spawn_file_actions_adddup2( &actions, output, STDOUT_FILENO );
    char name[] = "gnuplot", plain[] = "--default-settings", *arguments[] = { name, plain, nullptr };
    pid_t child;
    int error = posix_spawnp( &child, name, &actions, nullptr, arguments, environ );
    posix_spawn_file_actions_destroy( &actions );
    if ( error == ENOENT ) fail( "drawing needs gnuplot, which is not there; Debian's package is gnuplot-nox" );
    if ( error ) failSystem( "cannot run gnuplot", error );
    return child;
}

// gnuplot reads the script from a file without a name; the picture comes through a pipe.
void runGnuplot( const std::string &script, OutputFile &output )
{
    using File = std::unique_ptr<std::FILE, int ( * )( std::FILE * )>;
    File input( std::tmpfile(), std::fclose );
    int ends[2];
    if ( !input || std::fwrite( script.data(), 1, script.size(), input.get() ) != script.size() ||
         std::fflush( input.get() ) || std::fseek( input.get(), 0, SEEK_SET ) || pipe2( ends, O_CLOEXEC ) )
        failSystem( "cannot hand the curve to gnuplot", errno );
    File from( fdopen( ends[0], "rb" ), std::fclose ), to( fdopen( ends[1], "wb" ), std::fclose );
    pid_t child = startGnuplot( fileno( input.get() ), ends[1] );
    to.reset();
    char part[4096];
    while ( size_t length = std::fread( part, 1, sizeof part, from.get() ) ) output.write( part, int64_t( length ) );
    int status;
    while ( waitpid( child, &status, 0 ) < 0 && errno == EINTR )
        ;
    if ( status ) fail( "gnuplot could not draw " + output.path() );
}

} // namespace host
