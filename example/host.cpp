#include "host.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace host {

static volatile std::sig_atomic_t signalSeen;

struct Interrupted {};

extern "C" {
static void noteSignal( int number ) { signalSeen = number; }
}

// Handlers do not restart calls of the system: one that waits, for instance for the reader of a pipe, returns.
static void handleSignals()
{
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    for ( int number : { SIGINT, SIGTERM, SIGHUP } ) {
        struct sigaction before;
        sigaction( number, nullptr, &before );
        if ( before.sa_handler != SIG_IGN ) sigaction( number, &action, nullptr );
    }
    std::signal( SIGXFSZ, SIG_IGN ); // a file that may grow no further is an error of writing
}

static void say( const CLI::App &app, const char *message )
{
    std::fprintf( stderr, "%s: %s\n", app.get_name().c_str(), message );
}

void fail( const std::string &message )
{
    stopIfInterrupted(); // what failed may only have been interrupted
    throw std::runtime_error( message );
}

void failSystem( const std::string &what, int error ) { fail( what + ": " + std::strerror( error ) ); }

void stopIfInterrupted()
{
    if ( signalSeen ) throw Interrupted();
}

static int guarded( const CLI::App &app, const std::function<void()> &work )
{
    try {
        work();
        if ( std::fflush( stdout ) ) fail( "cannot write to the standard output" );
        return 0;
    } catch ( const Interrupted & ) {
    } catch ( const std::exception &error ) {
        say( app, error.what() );
    }
    return 1;
}

static std::string version()
{
    const KIT_MODULE_RECORD &record = pcm::Module::record();
    return std::to_string( record.productVersionMajor ) + "." + std::to_string( record.productVersionMinor ) + "." +
           std::to_string( record.productVersionPatch );
}

int run( CLI::App &app, int argc, char **argv, const std::function<void()> &work )
{
    app.set_version_flag( "--version", app.get_name() + " " + version() );
    app.footer( app.get_footer() + "\n\nExit status: 0 if all went well, 1 for any failure, with a line on the "
                                   "standard error that names it; a signal\nends the program as such." );
    try {
        app.parse( argc, argv );
    } catch ( const CLI::Success &wish ) {
        return app.exit( wish ); // --help, --version
    } catch ( const std::exception &error ) {
        // CLI11 lets through that the value of a flag is too large.
        say( app, dynamic_cast<const std::out_of_range *>( &error ) ? "a number is too large" : error.what() );
        std::fprintf( stderr, "Try %s --help.\n", app.get_name().c_str() );
        return 1;
    }
    handleSignals();
    int64_t before = kit___ObjDbgLiveObjects();
    int status;
    {
        pcm::Module module;
        status = guarded( app, work );
    }
    if ( kit___ObjDbgLiveObjects() != before ) { // counted where the library was built for debugging
        say( app, "objects were left behind" );
        status = 1;
    }
    if ( signalSeen ) { // whoever waits for the program is to see what ended it
        std::signal( signalSeen, SIG_DFL );
        std::raise( signalSeen );
    }
    return status;
}

std::string lower( std::string text )
{
    std::transform( text.begin(), text.end(), text.begin(),
        []( char c ) { return c >= 'A' && c <= 'Z' ? char( c - 'A' + 'a' ) : c; } );
    return text;
}

// Plain decimals: what the standard library takes beyond these, such as "nan", is no number for the user.
bool parseNumber( const std::string &text, double &value )
{
    return text.find_first_not_of( "0123456789.eE+-" ) == text.npos && CLI::detail::lexical_cast( text, value );
}

double secondsFrom( const std::string &option, const std::string &text )
{
    double value;
    if ( !parseNumber( text, value ) || !( value >= 0 && value <= 1e9 ) )
        fail( option + ": \"" + text + "\" is no time in seconds" );
    return value;
}

int64_t frameAt( const std::string &option, const std::string &text, int64_t rate )
{
    return std::llround( secondsFrom( option, text ) * double( rate ) );
}

double levelFrom( const std::string &option, const std::string &text, double most )
{
    double value;
    if ( !parseNumber( text, value ) || !( value >= -200 && value <= most ) )
        fail( option + ": \"" + text + "\" is no level from -200 to " + fixed( most, 0 ) + " dB" );
    return value;
}

std::string fixed( double value, int decimals )
{
    char text[400];
    std::snprintf( text, sizeof text, "%.*f", decimals, value );
    return text;
}

std::string decibels( double gain ) { return fixed( pcm::decibelFromGain( std::min( gain, DBL_MAX ) ), 2 ) + " dB"; }

} // namespace host
