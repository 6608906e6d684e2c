#ifndef BENCH_H
#define BENCH_H

// What the measured jobs share. A benchmark's name is JOB/SAMPLES/WHO: "ours", "naive" (a plain loop), "limit" (by
// hand, for this processor), "copy" (memcpy of as many bytes), or the name of another library.

#include "pcm/pcm.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

constexpr int64_t mostSamples = 1 << 20;
constexpr int64_t blockSizes[] = { 160, 480, 4096, mostSamples };
constexpr int firLengths[] = { 16, 24, 48, 256 };
constexpr int64_t conversionSizes[] = { 1, 8, 20, 160, 480, 4096, mostSamples };

/// Blocks that all jobs use, so that the caches hold nothing else. They begin at different places of a page: stores
/// to one are never taken for loads of another.
struct Blocks {
    float *samples;   // random within full scale
    float *signs;     // -1 or 1: a block that is multiplied by them again and again keeps its size
    uint8_t *encoded; // what a decoder reads
    uint8_t *out;
};
extern const Blocks blocks;

template <class T> struct Own {
    T *obj;
    explicit Own( T *taken ) : obj( taken ) {}
    Own( Own &&other ) : obj( std::exchange( other.obj, nullptr ) ) {}
    ~Own()
    {
        if ( obj ) kitObjRelease( reinterpret_cast<KIT_OBJ *>( obj ) );
    }
};

/// `make` gives what is measured, a function that returns how many items a call of it did.
template <class Make> void add( const std::string &job, int64_t samples, const std::string &who, Make make )
{
    std::string name = job + '/' + std::to_string( samples ) + '/' + who;
    benchmark::RegisterBenchmark( name.c_str(), [make]( benchmark::State &state ) {
        auto run = make();
        run(); // some libraries set themselves up in a first call
        int64_t items = 0;
        for ( auto _ : state ) {
            items += run();
            benchmark::ClobberMemory();
        }
        state.SetItemsProcessed( items );
    } );
}

/// A `memcpy` of half the bytes that the job reads and writes, where memory is what bounds it.
void addCopy( const std::string &job, int64_t bytesPerSample );

/// Ends the program with a message, since two that differ do not do the same job.
[[noreturn]] void failDiffering( const std::string &job, const std::string &who );

/// As many taps as told, whose filter never clips.
std::vector<float> firTaps( int taps );
std::string firJob( int taps, int channels );

struct Conversion {
    std::string name; // of the encoding
    PCM_ENCODING encoding;
    bool decodes;

    std::string job() const { return ( decodes ? "decode " : "encode " ) + name; }
    const void *source() const;
    void ours( void *dest, int64_t samples ) const;
    /// Naive loops and limits keep all our rules. Others round and clamp by their own.
    void verify( const std::string &who, int64_t samples ) const;
};

/// `make` gives a function of destination, source and samples.
template <class Make> void addConversion( const Conversion &conversion, const std::string &who, Make make )
{
    for ( int64_t samples : conversionSizes )
        add( conversion.job(), samples, who, [=] {
            const void *source = conversion.source();
            auto convert = make( samples );
            convert( blocks.out, source, samples );
            conversion.verify( who, samples );
            return [=]() mutable {
                convert( blocks.out, source, samples );
                return samples;
            };
        } );
}

void addConversions();
void addOthers();

#endif
