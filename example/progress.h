#ifndef PROGRESS_H
#define PROGRESS_H

#include "host.h"

#include <chrono>
#include <optional>

namespace host {

/// The option for it. `longWork` is what may be long.
void addProgress( CLI::App &app, std::optional<bool> &wish, const std::string &longWork );

/// One line on the standard error that tells how far the work is, how long it will take and the peak so far.
class Progress {
public:
    /// Without a wish it is shown on a terminal if the work is long.
    /// Unknown totals are negative.
    Progress( std::optional<bool> wish, int64_t totalFrames, int64_t rate );
    Progress( const Progress & ) = delete;
    ~Progress();

    /// Draws the line anew, a few times a second at most and when all is done.
    void update( int64_t doneFrames, double peak );

private:
    using Clock = std::chrono::steady_clock;

    std::string timeLeft( int64_t done ) const;

    bool shown;
    bool drawn = false;
    int64_t total;
    Clock::time_point start = Clock::now();
    Clock::time_point next = start;
};

} // namespace host

#endif
