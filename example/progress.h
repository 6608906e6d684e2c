#ifndef PROGRESS_H
#define PROGRESS_H

#include "host.h"

#include <chrono>
#include <optional>

namespace host {

/// Adds --progress and --no-progress, which set `setting`. `stream` is "input" or "output", for the help text.
void addProgressOption( CLI::App &app, std::optional<bool> &setting, const std::string &stream );

/// A line on standard error that shows the progress, the remaining time and the peak so far.
class Progress {
public:
    /// Without a setting, the line is shown if standard error is a terminal and the stream is long. A negative
    /// `totalFrames` means that the length is unknown.
    Progress( std::optional<bool> setting, int64_t totalFrames, int64_t rate );
    Progress( const Progress & ) = delete;
    ~Progress();

    /// Redraws the line, but no more often than a few times per second until all frames are done.
    void update( int64_t doneFrames, double peak );

private:
    using Clock = std::chrono::steady_clock;

    std::string progressText( int64_t doneFrames ) const;

    bool enabled;
    bool drawn = false;
    int64_t totalFrames;
    Clock::time_point startTime = Clock::now();
    Clock::time_point nextUpdate = startTime;
};

} // namespace host

#endif
