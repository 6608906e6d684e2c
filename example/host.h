#ifndef HOST_H
#define HOST_H

// What the host programs share: errors, and the way a program runs.

#include <pcm/pcm.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace host {

/// Ends the program's work with a line for the user, printed behind the program's name, and exit status 1.
[[noreturn]] void fail( const std::string &message );

/// Ends it with the system's reason for the number of an error: "cannot write out.wav: No space left on device".
[[noreturn]] void failSystem( const std::string &what, int error );

/// Ends it, with all that it would leave behind, if the user or the system has asked for that by a signal.
void stopIfInterrupted();

/// Parses the command line, to which it adds --version, runs `work` between start-up and shut-down of the library,
/// and tells what went wrong. Returns the exit status: 0, or 1 for any failure.
int run( CLI::App &app, int argc, char **argv, const std::function<void()> &work );

/// Lower case, for ASCII letters.
std::string lower( std::string text );

/// Reads a decimal number; false if the text is none.
bool parseNumber( const std::string &text, double &value );

/// A time in seconds, as the user has typed it for an option, and the frame there; fail if it is none.
double secondsFrom( const std::string &option, const std::string &text );
int64_t frameAt( const std::string &option, const std::string &text, int64_t rate );

/// A level in dB, from -200 to `most`, as the user has typed it for an option; fails if it is none.
double levelFrom( const std::string &option, const std::string &text, double most );

/// A number with a fixed number of decimals.
std::string fixed( double value, int decimals );

/// The level of a gain as text in dB. Whatever came out of a file will do, infinities included.
std::string decibels( double gain );

} // namespace host

#endif
