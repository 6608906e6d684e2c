#include "kit_abort.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

void kit___Abort( const char *context, const char *file, int64_t line, const char *condition )
{
    std::fprintf( stderr, "%s:%" PRId64 ": contract broken%s%s: %s\n", file, line, context ? " in " : "",
        context ? context : "", condition ? condition : "(a place that cannot be reached)" );
    std::abort();
}
