#include "command_line.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <sstream>

namespace host {

static constexpr size_t textWidth = 80, nameWidth = 26;
static const std::string information = "Options"; // the group of --help and --version in CLI11

/// Formats the help text. In contrast to the formatter of CLI11, it wraps lines.
class HelpFormatter : public CLI::FormatterBase {
public:
    std::string make_help( const CLI::App *app, std::string name, CLI::AppFormatMode ) const override
    {
        std::vector<const CLI::Option *> arguments = app->get_options( isArgument );
        std::vector<const CLI::App *> subcommands = app->get_subcommands( []( const CLI::App * ) { return true; } );
        std::ostringstream help;
        help << app->get_description() << "\nUsage: " << ( name.empty() ? app->get_name() : name ) << " [OPTIONS]";
        for ( const CLI::Option *argument : arguments )
            help << ( argument->get_required() ? " " : " [" ) << argument->get_type_name()
                 << ( argument->get_required() ? "" : "]" );
        help << ( subcommands.empty() ? "\n" : " SUBCOMMAND\n" ) << ( arguments.empty() ? "" : "\nArguments:\n" );
        for ( const CLI::Option *argument : arguments )
            help << entry( argument->get_type_name(), argument->get_description() );
        help << ( subcommands.empty() ? "" : "\nSubcommands:\n" );
        for ( const CLI::App *subcommand : subcommands )
            help << entry( subcommand->get_name(), subcommand->get_description() );
        for ( const std::string &group : app->get_groups() )
            if ( group != information ) help << formatGroup( *app, group );
        help << formatGroup( *app, information ) << "\n" << app->get_footer() << "\n";
        return help.str();
    }

private:
    static bool isArgument( const CLI::Option *option ) { return option->get_positional(); }

    static std::string formatGroup( const CLI::App &app, const std::string &group )
    {
        std::string text;
        for ( const CLI::Option *option :
            app.get_options( [&]( const CLI::Option *o ) { return !isArgument( o ) && o->get_group() == group; } ) ) {
            std::string names = option->get_name( false, true );
            for ( size_t comma = 0; ( comma = names.find( ',', comma ) ) != names.npos; comma += 2 )
                names.insert( comma + 1, 1, ' ' );
            text += entry(
                names + ( option->get_type_size() ? " " + option->get_type_name() : "" ), option->get_description() );
        }
        return text.empty() ? "" : "\n" + group + ":\n" + text;
    }

    // Formats a name and its text in two columns. Puts a long name on a separate line.
    static std::string entry( const std::string &name, const std::string &text )
    {
        std::ostringstream result;
        result << "  " << name;
        size_t column = 2 + name.size();
        std::istringstream words( text );
        for ( std::string word; words >> word; column += 1 + word.size() ) {
            const bool isFull = column + 1 + word.size() > textWidth;
            if ( isFull || ( column <= 2 + name.size() && column >= nameWidth ) ) {
                result << "\n";
                column = 0;
            }
            result << std::string( column < nameWidth ? nameWidth - column : 1, ' ' ) << word;
            column = std::max( column, nameWidth - 1 );
        }
        result << "\n";
        return result.str();
    }
};

CommandLine::CommandLine( const std::string &name, const std::string &purpose, const std::string &footer )
    : ownedApp( std::make_unique<CLI::App>( purpose, name ) ), app( *ownedApp )
{
    app.formatter( std::make_shared<HelpFormatter>() );
    app.footer( footer + "\n\nExit status: 0 if successful, 1 for any failure, with a message on standard\n"
                         "error. A program that is interrupted by a signal terminates by that signal." );
    app.set_help_flag( "-h,--help", "print this help text" );
    app.set_version_flag( "--version", name + " " + libraryVersion(), "print the version" );
}

CommandLine::CommandLine( CLI::App &subcommand ) : app( subcommand ) { app.footer( "" ); }

CommandLine::~CommandLine() = default;

void CommandLine::beginGroup( const std::string &title ) { group = title; }

CLI::Option &CommandLine::addOptionText( const std::string &name, const std::string &valueName,
    const std::function<void( const std::string & )> &setValue, const std::string &text )
{
    return *app.add_option_function<std::string>( name, setValue, text )->type_name( valueName )->group( group );
}

void CommandLine::addArgument( const std::string &name, std::string &value, const std::string &text, bool isRequired )
{
    app.add_option( name, value, text )->type_name( name )->required( isRequired );
}

void CommandLine::addArguments(
    const std::string &name, std::vector<std::string> &values, size_t minCount, const std::string &text )
{
    app.add_option( name, values, text )->type_name( name )->required()->expected( int( minCount ), -1 );
}

void CommandLine::addOption(
    const std::string &name, const std::string &valueName, std::string &value, const std::string &text )
{
    addOptionText(
        name, valueName, [&]( const std::string &given ) { value = given; }, text );
}

void CommandLine::addOption( const std::string &name, const std::string &valueName, std::optional<int64_t> &value,
    int64_t max, const std::string &text )
{
    const auto setValue = [&value, name, max](
                              const std::string &given ) { value = parseWhole( name, given, 1, max ); };
    addOptionText( name, valueName, setValue, text );
}

void CommandLine::addFlag( const std::string &name, bool &value, const std::string &text )
{
    app.add_flag( name, value, text )->group( group );
}

void CommandLine::addProgressFlags( std::optional<bool> &setting, const std::string &stream )
{
    // Uses callbacks, because add_flag sets the value to false if the option is absent.
    const std::string text = " progress (default: show it on a terminal if the " + stream + " is long)";
    CLI::Option *show = app.add_flag_callback(
        "--progress", [&] { setting = true; }, "show" + text );
    CLI::Option *hide = app.add_flag_callback(
        "--no-progress", [&] { setting = false; }, "do not show progress" );
    show->group( group )->excludes( hide->group( group ) );
}

void CommandLine::require( const std::string &name, const std::string &requiredName )
{
    app.get_option( name )->needs( app.get_option( requiredName ) );
}

CommandLine &CommandLine::addSubcommand( const std::string &name, const std::string &purpose )
{
    CLI::App *subcommand = app.add_subcommand( name, purpose );
    app.require_subcommand( 1 );
    subcommands.emplace_back( new CommandLine( *subcommand ) );
    return *subcommands.back();
}

std::string CommandLine::selectedSubcommand() const
{
    return app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name();
}

// CLI11 treats an option with an empty value like one that is not given.
static void checkEmptyArguments( int argc, char **argv )
{
    for ( int i = 1; i < argc; ++i ) {
        const std::string argument = argv[i];
        if ( argument.empty() ) fail( "argument " + std::to_string( i ) + " is empty" );
        if ( argument.starts_with( "--" ) && argument.find( '=' ) == argument.size() - 1 )
            fail( argument.substr( 0, argument.size() - 1 ) + ": the value is empty" );
    }
}

// Returns false for --help and --version.
bool CommandLine::parse( int argc, char **argv )
{
    checkEmptyArguments( argc, argv );
    try {
        app.parse( argc, argv );
    } catch ( const CLI::Success &request ) {
        app.exit( request );
        return false;
    } catch ( const CLI::ExtrasError & ) {
        fail( "unknown option or extra argument \"" + app.remaining( true ).front() + "\"" );
    } catch ( const CLI::ArgumentMismatch &error ) {
        const std::string text = error.what();
        fail( text.substr( 0, text.find( ':' ) ) + ": the value is missing, or there are too many values" );
    }
    return true;
}

int CommandLine::run( int argc, char **argv, const std::function<void()> &task )
{
    prepareProgram( app.get_name() );
    bool isParsed = false;
    const int status = reportErrors( [&] { isParsed = parse( argc, argv ); } );
    if ( status ) std::fprintf( stderr, "Try %s --help.\n", app.get_name().c_str() );
    return isParsed ? runTask( task ) : status;
}

} // namespace host
