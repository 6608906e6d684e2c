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
    posix_spawn_file_actions_addclosefrom_np( &actions, STDERR_FILENO + 1 );
    char program[] = "gnuplot", option[] = "--default-settings", *arguments[] = { program, option, nullptr };
    pid_t child;
    int error = posix_spawnp( &child, program, &actions, nullptr, arguments, environ );
    posix_spawn_file_actions_destroy( &actions );
    if ( error == ENOENT ) fail( "drawing needs gnuplot, which is not installed; the Debian package is gnuplot-nox" );
    if ( error ) failWithErrno( "cannot run gnuplot", error );
    return child;
}

// gnuplot reads the script from an unnamed temporary file and writes the image to a pipe.
void runGnuplot( const std::string &script, OutputFile &output )
{
    using File = std::unique_ptr<std::FILE, int ( * )( std::FILE * )>;
    File scriptFile( std::tmpfile(), std::fclose );
    int pipeEnds[2];
    if ( !scriptFile || std::fwrite( script.data(), 1, script.size(), scriptFile.get() ) != script.size() ||
         std::fflush( scriptFile.get() ) || std::fseek( scriptFile.get(), 0, SEEK_SET ) ||
         pipe2( pipeEnds, O_CLOEXEC ) )
        failWithErrno( "cannot pass the script to gnuplot", errno );
    File readEnd( fdopen( pipeEnds[0], "rb" ), std::fclose ), writeEnd( fdopen( pipeEnds[1], "wb" ), std::fclose );
    pid_t child = startGnuplot( fileno( scriptFile.get() ), pipeEnds[1] );
    writeEnd.reset();
    char chunk[4096];
    while ( size_t length = std::fread( chunk, 1, sizeof chunk, readEnd.get() ) )
        output.write( chunk, int64_t( length ) );
    int status;
    while ( waitpid( child, &status, 0 ) < 0 && errno == EINTR )
        ;
    if ( status ) fail( "cannot write " + output.path() + ": gnuplot failed" );
}

} // namespace host
