#ifndef BENCH_LIMIT_PACKET_H
#define BENCH_LIMIT_PACKET_H

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

/// A packet in a single allocation, with an atomic reference count.
struct LimitPacket {
    std::atomic<int64_t> refCount{ 1 };
    int64_t header[7];
    float samples[];

    static LimitPacket *create( int64_t samples )
    {
        return new ( std::malloc( sizeof( LimitPacket ) + size_t( samples ) * sizeof( float ) ) ) LimitPacket;
    }
    void release()
    {
        if ( refCount == 1 || --refCount == 0 ) std::free( this );
    }
};

#endif
