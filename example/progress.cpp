#include "progress.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace host {

static constexpr int64_t longStreamSeconds = 60;

void addProgressOption( CLI::App &app, std::optional<bool> &setting, const std::string &stream )
{
    // Uses a callback, because add_flag sets the value to false if the option is absent.
    app.add_flag_function(
        "--progress,!--no-progress", [&]( int64_t value ) { setting = value > 0; },
        "show or hide progress (default: show it on a terminal if the " + stream + " is long)" );
}

Progress::Progress( std::optional<bool> setting, int64_t totalFrames, int64_t rate )
    : enabled( setting.value_or( isatty( STDERR_FILENO ) && totalFrames / rate >= longStreamSeconds ) ),
      totalFrames( totalFrames )
{
}

Progress::~Progress()
{
    if ( drawn ) std::fputc( '\n', stderr );
}

void Progress::update( int64_t doneFrames, double peak )
{
    if ( !enabled || ( Clock::now() < nextUpdate && doneFrames != totalFrames ) ) return;
    nextUpdate = Clock::now() + std::chrono::milliseconds( 200 );
    drawn = true;
    std::fprintf( stderr, "\r%s  peak %s    ", progressText( doneFrames ).c_str(), formatDecibels( peak ).c_str() );
}

std::string Progress::progressText( int64_t doneFrames ) const
{
    if ( totalFrames < 0 ) return std::to_string( doneFrames ) + " frames";
    double fraction = totalFrames ? double( doneFrames ) / double( totalFrames ) : 1;
    double elapsed = std::chrono::duration<double>( Clock::now() - startTime ).count();
    long secondsLeft = fraction > 0 ? std::lround( elapsed / fraction - elapsed ) : 0;
    char text[80];
    std::snprintf(
        text, sizeof text, "%5.1f %%  %ld:%02ld left", 100 * fraction, secondsLeft / 60, secondsLeft % 60 );
    return text;
}

} // namespace host
