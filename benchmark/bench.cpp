// Measures the speed of the library's jobs and of the implementations that they are compared with.

#include "jobs.h"
#include "kit/kit.h"
#include "pcm/pcm.h"

#include <benchmark/benchmark.h>

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
