#include "progress.h"

#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace host {

static constexpr int64_t longStreamSeconds = 60;

Progress::Progress( std::optional<bool> setting, int64_t totalFrames, int64_t rate )
    : enabled( setting.value_or( isatty( STDERR_FILENO ) && totalFrames / rate >= longStreamSeconds ) ),
      total( totalFrames )
{
}

Progress::Progress( std::optional<bool> setting, int64_t totalFiles )
    : enabled( setting.value_or( isatty( STDERR_FILENO ) ) ), total( totalFiles ), unit( " files" )
{
}

Progress::~Progress()
{
    if ( drawn ) std::fputc( '\n', stderr );
}

void Progress::update( int64_t done, double peak )
{
    if ( !enabled || ( Clock::now() < nextUpdate && done != total ) ) return;
    nextUpdate = Clock::now() + std::chrono::milliseconds( 200 );
    drawn = true;
    std::fprintf( stderr, "\r%s  peak %s    ", progressText( done ).c_str(), formatDecibels( peak ).c_str() );
}

std::string Progress::progressText( int64_t done ) const
{
    if ( total < 0 ) return std::to_string( done ) + unit;
    double fraction = total ? double( done ) / double( total ) : 1;
    double elapsed = std::chrono::duration<double>( Clock::now() - startTime ).count();
    long secondsLeft = fraction > 0 ? std::lround( elapsed / fraction - elapsed ) : 0;
    char text[80];
    std::snprintf(
        text, sizeof text, "%5.1f %%  %ld:%02ld left", 100 * fraction, secondsLeft / 60, secondsLeft % 60 );
    return text;
}

} // namespace host
