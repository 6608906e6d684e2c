#include "host.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace host {

static volatile std::sig_atomic_t receivedSignal;

struct Interrupted {};

extern "C" {
static void recordSignal( int number ) { receivedSignal = number; }
}

// The handlers are installed without SA_RESTART, so a blocked system call, such as a write to a full pipe, returns.
static void installSignalHandlers()
{
    struct sigaction action = {};
    action.sa_handler = recordSignal;
    for ( int number : { SIGINT, SIGTERM, SIGHUP, SIGPIPE } ) {
        struct sigaction previous;
        sigaction( number, nullptr, &previous );
        if ( previous.sa_handler != SIG_IGN ) sigaction( number, &action, nullptr );
    }
    std::signal( SIGXFSZ, SIG_IGN ); // report the file size limit as a write error
}

// A file that is opened must not get the number of a standard stream that the caller has closed.
static void openStandardStreams()
{
    for ( int number : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO } )
        if ( fcntl( number, F_GETFD ) < 0 && open( "/dev/null", O_RDWR ) != number ) std::abort();
}

static std::string programName;

void prepareProgram( const std::string &name )
{
    programName = name;
    openStandardStreams();
}

static void printError( const char *message ) { std::fprintf( stderr, "%s: %s\n", programName.c_str(), message ); }

void warn( const std::string &message ) { printError( ( "warning: " + message ).c_str() ); }

void fail( const std::string &message )
{
    stopIfInterrupted(); // the failure may only be an interrupted system call
    throw std::runtime_error( message );
}

void failWithErrno( const std::string &message, int error ) { fail( message + ": " + std::strerror( error ) ); }

void stopIfInterrupted()
{
    if ( receivedSignal ) throw Interrupted();
}

int reportErrors( const std::function<void()> &task )
{
    try {
        task();
        if ( std::fflush( stdout ) ) fail( "cannot write to standard output" );
        return 0;
    } catch ( const Interrupted & ) {
    } catch ( const std::exception &error ) {
        printError( error.what() );
    }
    return 1;
}

std::string libraryVersion()
{
    const KIT_MODULE_RECORD &record = pcm::Module::record();
    return std::to_string( record.productVersionMajor ) + "." + std::to_string( record.productVersionMinor ) + "." +
           std::to_string( record.productVersionPatch );
}

int runTask( const std::function<void()> &task )
{
    installSignalHandlers();
    int64_t liveObjects = kit___ObjDbgLiveObjects();
    int status;
    {
        pcm::Module module;
        status = reportErrors( task );
    }
    if ( kit___ObjDbgLiveObjects() != liveObjects ) { // only debug builds of the library count objects
        printError( "internal error: library objects were not released" );
        status = 1;
    }
    if ( receivedSignal ) { // terminate by the signal so that the parent process sees the cause
        std::signal( receivedSignal, SIG_DFL );
        std::raise( receivedSignal );
    }
    return status;
}

std::string lower( std::string text )
{
    std::transform( text.begin(), text.end(), text.begin(),
        []( char c ) { return c >= 'A' && c <= 'Z' ? char( c - 'A' + 'a' ) : c; } );
    return text;
}

// Plain decimals only. strtod also accepts "nan", "inf" and hexadecimal numbers.
bool parseNumber( const std::string &text, double &value )
{
    char *end;
    value = std::strtod( text.c_str(), &end );
    return !text.empty() && !*end && text.find_first_not_of( "0123456789.eE+-" ) == text.npos;
}

int64_t parseWhole( const std::string &option, const std::string &text, int64_t min, int64_t max )
{
    int64_t value;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars( text.data(), end, value );
    if ( parsed.ec != std::errc() || parsed.ptr != end || value < min || value > max )
        fail( option + ": \"" + text + "\" is not a whole number from " + std::to_string( min ) + " to " +
              std::to_string( max ) );
    return value;
}

double parseSeconds( const std::string &option, const std::string &text )
{
    double value;
    if ( !parseNumber( text, value ) || !( value >= 0 && value <= 1e9 ) )
        fail( option + ": \"" + text + "\" is not a time in seconds from 0 to 1e9" );
    return value;
}

int64_t parseFramePosition( const std::string &option, const std::string &text, int64_t rate )
{
    return std::llround( parseSeconds( option, text ) * double( rate ) );
}

double parseLevel( const std::string &option, const std::string &text, double max )
{
    double value;
    if ( !parseNumber( text, value ) || !( value >= -200 && value <= max ) )
        fail( option + ": \"" + text + "\" is not a level from -200 to " + formatFixed( max, 0 ) + " dB" );
    return value;
}

std::string formatFixed( double value, int decimals )
{
    char text[400];
    std::snprintf( text, sizeof text, "%.*f", decimals, value );
    return text;
}

std::string formatDecibels( double gain )
{
    return formatFixed( pcm::decibelFromGain( std::min( gain, DBL_MAX ) ), 2 ) + " dB";
}

} // namespace host
