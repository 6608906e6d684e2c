#include "kit_abort.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

void kit___Abort( const char *context, const char *file, int64_t line, const char *condition )
{
    std::fprintf( stderr, "%s:%" PRId64 ": %s: %s\n", file, line, context ? context : "contract broken",
        condition ? condition : "a place that cannot be reached" );
    std::abort();
}
