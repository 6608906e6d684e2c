// Measures the speed of the library's jobs and of the implementations that they are compared with.

#include "jobs.h"
#include "kit/kit.h"
#include "pcm/pcm.h"
#include "registry.h"

#include <benchmark/benchmark.h>

void registerJob( const std::string &name, const std::function<void( const Measure & )> &job )
{
    benchmark::RegisterBenchmark( name.c_str(), [job]( benchmark::State &state ) {
        job( [&]( const Repeat &repeat ) {
            int64_t items = 0;
            while ( state.KeepRunningBatch( state.max_iterations ) ) items += repeat( state.max_iterations );
            state.SetItemsProcessed( items );
        } );
    } );
}

int main( int argc, char **argv )
{
    benchmark::Initialize( &argc, argv );
    if ( benchmark::ReportUnrecognizedArguments( argc, argv ) ) return 1;
    kitModuleStartup( pcmModule() );
    addChannels();
    addConferences();
    addConversions();
    addKernels();
    addFilters();
    addPackets();
    addResamplers();
    addTones();
    addOthers();
    benchmark::RunSpecifiedBenchmarks();
    kitModuleShutdown( pcmModule() );
}
