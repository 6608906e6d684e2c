#ifndef KIT_LOOP_HH
#define KIT_LOOP_HH

// C++ only, private to the libraries: processing in blocks of limited size.

#include "kit_int.h"

namespace kit {

/// Calls `step( done, n )` for consecutive blocks of at most `size` items until `total` items are done.
template <class Step> void forChunks( int64_t total, int64_t size, Step step )
{
    for ( int64_t done = 0, n; done < total; done += n ) {
        n = kitIntMin( size, total - done );
        step( done, n );
    }
}

} // namespace kit

#endif
