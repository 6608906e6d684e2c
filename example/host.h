#ifndef HOST_H
#define HOST_H

// Shared by all example programs: error handling, program start and end, and parsing and formatting of numbers.

#include <pcm/pcm.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace host {

/// Aborts the program's task. `run` then prints "program: message" and returns exit status 1.
[[noreturn]] void fail( const std::string &message );

/// Like `fail`, with the text of an errno value: "cannot write out.wav: No space left on device".
[[noreturn]] void failWithErrno( const std::string &message, int error );

/// Prints "program: warning: message" to standard error.
void warn( const std::string &message );

/// If a signal has asked the program to stop, aborts its task and discards unfinished output.
void stopIfInterrupted();

/// Sets the name of the program for messages, and opens the standard streams that the caller has closed.
void prepareProgram( const std::string &name );

/// Runs `task` and prints an error to standard error. Returns the exit status: 0, or 1 for any failure.
int reportErrors( const std::function<void()> &task );

/// Like `reportErrors`, between start-up and shut-down of the library. Signals end the task.
int runTask( const std::function<void()> &task );

/// Returns the version of the library.
std::string libraryVersion();

/// Converts ASCII letters to lower case.
std::string lower( std::string text );

/// Parses a decimal number. Returns false if the text is not a number.
bool parseNumber( const std::string &text, double &value );

/// Parses a whole number from `min` to `max`. Fails with a message about `option` if the text is not such a number.
int64_t parseWhole( const std::string &option, const std::string &text, int64_t min, int64_t max );

/// Parses a time in seconds. Fails with a message about `option` if the text is not a time.
double parseSeconds( const std::string &option, const std::string &text );

/// Like `parseSeconds`, but returns the nearest frame.
int64_t parseFramePosition( const std::string &option, const std::string &text, int64_t rate );

/// Parses a level from -200 dB to `max` dB. Fails with a message about `option` if the text is not such a level.
double parseLevel( const std::string &option, const std::string &text, double max );

/// Formats a number with a fixed number of decimals.
std::string formatFixed( double value, int decimals );

/// Formats a gain in dB. Accepts any sample value that a file can contain, including infinity.
std::string formatDecibels( double gain );

} // namespace host

#endif
