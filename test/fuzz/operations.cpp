// Fuzz target for the table of operations: the first byte selects an operation, the others are its choices and data.

#include "../operations.h"

#include <csignal>
#include <cstdio>

extern "C" int LLVMFuzzerInitialize( int *, char *** )
{
    kitModuleStartup( pcmModule() );
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput( const uint8_t *data, size_t size )
{
    test::FuzzInput in( data, size );
    const auto &operation = in.oneOf( operations::all() );
    operations::Results out;
    operation.run( out, in );
    if ( !out.areRight() ) {
        std::fprintf( stderr, "%s: the result %s its model\n%s", operation.name.c_str(),
            out.got == out.wanted ? "equals" : "differs from", out.failures.c_str() );
        std::abort();
    }
    return 0;
}
