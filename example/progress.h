#ifndef PROGRESS_H
#define PROGRESS_H

#include "host.h"

#include <chrono>
#include <optional>

namespace host {

/// A line on standard error that shows the progress, the remaining time and the peak so far.
class Progress {
public:
    /// Without a setting, the line is shown if standard error is a terminal and the stream is long. A negative
    /// `totalFrames` means that the length is unknown.
    Progress( std::optional<bool> setting, int64_t totalFrames, int64_t rate );

    /// Counts files instead of frames. Without a setting, the line is shown if standard error is a terminal.
    Progress( std::optional<bool> setting, int64_t totalFiles );
    Progress( const Progress & ) = delete;
    ~Progress();

    /// Redraws the line, but no more often than a few times per second until all is done.
    void update( int64_t done, double peak );

private:
    using Clock = std::chrono::steady_clock;

    std::string progressText( int64_t done ) const;

    bool enabled;
    bool drawn = false;
    int64_t total;
    std::string unit = " frames";
    Clock::time_point startTime = Clock::now();
    Clock::time_point nextUpdate = startTime;
};

} // namespace host

#endif
