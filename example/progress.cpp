#include "progress.h"

#include <cstdio>
#include <unistd.h>

namespace host {

static constexpr int64_t longSeconds = 60;

Progress::Progress( int wish, int64_t totalFrames, int64_t rate ) : total( totalFrames )
{
    shown = wish == 1 || ( wish != 0 && isatty( STDERR_FILENO ) && total / rate >= longSeconds );
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
