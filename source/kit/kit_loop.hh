#ifndef KIT_LOOP_HH
#define KIT_LOOP_HH

// C++ only: work through fixed blocks on the stack, for the libraries' own sources.

#include "kit_int.h"

namespace kit {

/// Calls `step( done, n )` for pieces of at most `size`, in order, until all of `total` is done.
template <class Step> void forChunks( int64_t total, int64_t size, Step step )
{
    for ( int64_t done = 0, n; done < total; done += n ) {
        n = kitIntMin( size, total - done );
        step( done, n );
    }
}

} // namespace kit

#endif
