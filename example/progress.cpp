#include "progress.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <unistd.h>

namespace host {

static constexpr int64_t longSeconds = 60;

void addProgress( CLI::App &app, std::optional<bool> &wish, const std::string &longWork )
{
    // By a function, since CLI11 gives an option that isn't there the value false.
    app.add_flag_function(
        "--progress,!--no-progress", [&]( int64_t shown ) { wish = shown > 0; },
        "show the progress, or don't; by default it is shown on a terminal if the " + longWork + " is long" );
}

Progress::Progress( std::optional<bool> wish, int64_t totalFrames, int64_t rate )
    : shown( wish.value_or( isatty( STDERR_FILENO ) && totalFrames / rate >= longSeconds ) ), total( totalFrames )
{
}

Progress::~Progress()
{
    if ( drawn ) std::fputc( '\n', stderr );
}

void Progress::update( int64_t done, double peak )
{
    if ( !shown || ( Clock::now() < next && done != total ) ) return;
    next = Clock::now() + std::chrono::milliseconds( 200 );
    drawn = true;
    std::fprintf( stderr, "\r%s  peak %s    ", timeLeft( done ).c_str(), decibels( peak ).c_str() );
}

std::string Progress::timeLeft( int64_t done ) const
{
    if ( total < 0 ) return std::to_string( done ) + " frames";
    double part = total ? double( done ) / double( total ) : 1;
    double passed = std::chrono::duration<double>( Clock::now() - start ).count();
    long left = part > 0 ? long( passed / part - passed + 0.5 ) : 0;
    char text[80];
    std::snprintf( text, sizeof text, "%5.1f %%  %ld:%02ld left", 100 * part, left / 60, left % 60 );
    return text;
}

} // namespace host
