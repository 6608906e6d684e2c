#ifndef COMMAND_LINE_H
#define COMMAND_LINE_H

#include "host.h"

#include <memory>
#include <optional>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace host {

/// The command line of a program, and its help text of 80 columns. CLI11 parses it. Only command_line.cpp includes
/// CLI11, because that takes long to compile.
class CommandLine {
public:
    /// `purpose` is a sentence for the top of the help text. `footer` follows the options; its lines are printed as
    /// they are.
    CommandLine( const std::string &name, const std::string &purpose, const std::string &footer );
    CommandLine( const CommandLine & ) = delete;
    ~CommandLine();

    void addArgument( const std::string &name, std::string &value, const std::string &text, bool isRequired = true );

    /// Adds an argument that is given at least `minCount` times.
    void addArguments(
        const std::string &name, std::vector<std::string> &values, size_t minCount, const std::string &text );

    /// The following options appear under this title in the help text.
    void beginGroup( const std::string &title );

    void addOption(
        const std::string &name, const std::string &valueName, std::string &value, const std::string &text );

    /// The value is a whole number from 1 to `max`.
    void addOption( const std::string &name, const std::string &valueName, std::optional<int64_t> &value, int64_t max,
        const std::string &text );

    void addFlag( const std::string &name, bool &value, const std::string &text );

    /// Adds --progress and --no-progress. `stream` is "input" or "output", for the help text.
    void addProgressFlags( std::optional<bool> &setting, const std::string &stream );

    /// An option that is only valid together with another one.
    void require( const std::string &name, const std::string &requiredName );

    /// Adds a subcommand, whose arguments and options are then added to the result.
    CommandLine &addSubcommand( const std::string &name, const std::string &purpose );
    std::string selectedSubcommand() const;

    /// Parses the arguments, and runs `task` between start-up and shut-down of the library. Prints errors to standard
    /// error. Returns the exit status: 0, or 1 for any failure.
    int run( int argc, char **argv, const std::function<void()> &task );

private:
    explicit CommandLine( CLI::App &app );
    bool parse( int argc, char **argv );
    CLI::Option &addOptionText( const std::string &name, const std::string &valueName,
        const std::function<void( const std::string & )> &setValue, const std::string &text );

    std::unique_ptr<CLI::App> ownedApp; // null for a subcommand
    CLI::App &app;
    std::string group = "General";
    std::vector<std::unique_ptr<CommandLine>> subcommands;
};

} // namespace host

#endif
