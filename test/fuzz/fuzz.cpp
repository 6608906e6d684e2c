#include "fuzz.h"

#include "../support.h"

#include <csignal>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize( int *, char *** )
{
    GTEST_FLAG_SET( break_on_failure, true ); // an expectation that fails is a fault that the fuzzer keeps
    std::signal( SIGTRAP, []( int ) { std::abort(); } );
    kitModuleStartup( pcmModule() );
    return 0;
}
