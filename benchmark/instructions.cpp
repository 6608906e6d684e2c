// Counts the instructions that the library executes for a block of samples, next to those of a hand-written limit or,
// where there is none, of a plain loop. Runs under qemu-user with the plugin qemu_counter.cpp; see
// script/instructions.

#include "jobs.h"
#include "kit/kit.h"
#include "qemu_counter.h"
#include "registry.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <unistd.h>

struct Row {
    std::string job, samples;
    std::map<std::string, double> instructions; // of one call, by implementation
};
static std::vector<Row> rows;

static int64_t executedInstructions()
{
    static int ends[2];
    static const bool isOpen = pipe2( ends, O_NONBLOCK ) == 0;
    uint64_t count = 0;
    if ( isOpen ) (void)syscall( countCall, ends[1] );
    if ( !isOpen || read( ends[0], &count, sizeof count ) != sizeof count ) {
        std::fprintf( stderr, "no instruction count: run this program with script/instructions\n" );
        std::exit( 1 );
    }
    return int64_t( count );
}

static double instructionsPerCall( const Repeat &repeat )
{
    constexpr int64_t calls = 8;
    const int64_t start = executedInstructions();
    repeat( 1 );
    const int64_t middle = executedInstructions();
    repeat( 1 + calls );
    const int64_t end = executedInstructions();
    return double( ( end - middle ) - ( middle - start ) ) / double( calls );
}

void registerJob( const std::string &name, const std::function<void( const Measure & )> &job )
{
    const size_t last = name.rfind( '/' ), first = name.rfind( '/', last - 1 );
    const std::string samples = name.substr( first + 1, last - first - 1 ), implementation = name.substr( last + 1 );
    if ( ( samples != "160" && samples != "480" ) || implementation == "copy" ) return;
    const std::string jobName = name.substr( 0, first );
    auto isThis = [&]( const Row &row ) { return row.job == jobName && row.samples == samples; };
    auto row = std::find_if( rows.begin(), rows.end(), isThis );
    if ( row == rows.end() ) row = rows.insert( row, Row{ jobName, samples, {} } );
    job( [&]( const Repeat &repeat ) { row->instructions[implementation] = instructionsPerCall( repeat ); } );
}

int main()
{
    kitModuleStartup( pcmModule() );
    addConversions();
    addKernels();
    addFilters();
    addChannels();
    std::printf( "%-24s %7s %8s %8s  %-10s %s\n", "operation", "samples", "ours", "other", "", "other/ours" );
    for ( const Row &row : rows ) {
        const bool hasLimit = row.instructions.count( "limit" ) != 0;
        const char *other = hasLimit ? "limit" : "naive";
        const double ours = row.instructions.at( "ours" ), theirs = row.instructions.at( other );
        std::printf( "%-24s %7s %8.0f %8.0f  %-10s %.2f\n", row.job.c_str(), row.samples.c_str(), ours, theirs,
            hasLimit ? "limit" : "plain loop", theirs / ours );
    }
    kitModuleShutdown( pcmModule() );
}
