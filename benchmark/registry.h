#ifndef BENCH_REGISTRY_H
#define BENCH_REGISTRY_H

// Registers jobs, and provides the data and the checks that they share.
//
// A job is registered as JOB/SAMPLES/IMPLEMENTATION, where IMPLEMENTATION is "ours", "naive" (a plain loop), "limit"
// (written by hand for this processor), "copy" (a memcpy that moves as many bytes) or the name of another library.

#include "pcm/pcm.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

constexpr int64_t maxSamples = 1 << 20;
constexpr int64_t blockSizes[] = { 160, 480, 4096, maxSamples };
constexpr int64_t streamBlockSizes[] = { 160, 480, 4096 };
constexpr int64_t conversionSizes[] = { 1, 8, 20, 160, 480, 4096, maxSamples };
constexpr int firLengths[] = { 16, 24, 48, 256 };

/// The buffers that all jobs use, so that the caches hold no other data. Each starts at a different offset within a
/// page, so that a load from one buffer never appears to depend on a store to another (4K aliasing).
struct Buffers {
    float *samples;   // random, within full scale
    float *signs;     // -1 or 1: repeated multiplication by them does not change the magnitude
    uint8_t *encoded; // the input of decoders
    uint8_t *output;

    float *outputSamples() const { return reinterpret_cast<float *>( output ); }
    /// Copies all `samples` to `output`, for jobs that work in place.
    void resetOutput() const;
};
extern const Buffers buffers;

/// Owns one reference to an object of the library.
template <class T> struct Handle {
    T *obj;
    explicit Handle( T *object ) : obj( object ) {}
    Handle( Handle &&other ) noexcept : obj( std::exchange( other.obj, nullptr ) ) {}
    ~Handle()
    {
        if ( obj ) kitObjRelease( reinterpret_cast<KIT_OBJ *>( obj ) );
    }
};

/// Creates a packet from the first `samples` samples of the input.
Handle<PCM_PACKET> inputPacket( int channels, int64_t samples );

/// Performs a job a number of times and returns the number of items that it processed.
using Repeat = std::function<int64_t( int64_t times )>;
using Measure = std::function<void( const Repeat &repeat )>;

/// Registers a job, which prepares itself and then calls `measure` once. Each program defines this function.
void registerJob( const std::string &name, const std::function<void( const Measure &measure )> &job );

/// Makes the compiler assume that all memory is read and written here.
inline void useMemory() { asm volatile( "" ::: "memory" ); }

/// Makes the compiler compute a value, and everything that a pointer points to.
template <class T> void useValue( const T &value ) { asm volatile( "" : : "r,m"( value ) : "memory" ); }

/// Registers a job. `prepare` returns the function to measure, which returns the number of items that it processed.
template <class Prepare>
void addJob( const std::string &job, int64_t samples, const std::string &implementation, Prepare prepare )
{
    std::string name = job + '/' + std::to_string( samples ) + '/' + implementation;
    registerJob( name, [prepare]( const Measure &measure ) {
        auto run = prepare();
        run(); // some libraries initialize themselves in the first call
        measure( [&]( int64_t times ) {
            int64_t items = 0;
            for ( ; times > 0; --times ) {
                items += run();
                useMemory();
            }
            return items;
        } );
    } );
}

/// Registers a `memcpy` of half the bytes that the job reads and writes, at the size where memory is the bottleneck.
void addCopy( const std::string &job, int64_t bytesPerSample );

/// Exits with an error message, because implementations with different results do not perform the same job.
[[noreturn]] void failMismatch( const std::string &job, const std::string &implementation );

/// Fails unless the output buffer holds the expected samples, bit for bit.
void checkOutput( const std::string &job, const std::string &implementation, const float *expected, int64_t samples );

/// Creates `taps` coefficients that cannot clip.
std::vector<float> firTaps( int taps );
std::string firJob( int taps, int channels );

struct Encoding {
    const char *name; // a part of the job's name
    PCM_ENCODING word;
};

namespace encodings {
constexpr Encoding int8 = { "int8", PCM_ENCODING_INT_8 };
constexpr Encoding uint8 = { "uint8", PCM_ENCODING_INT_8 | PCM_ENCODING_UNSIGNED };
constexpr Encoding int16 = { "int16", PCM_ENCODING_INT_16 };
constexpr Encoding uint16 = { "uint16", PCM_ENCODING_INT_16 | PCM_ENCODING_UNSIGNED };
constexpr Encoding int16BE = { "int16 BE", PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN };
constexpr Encoding int24 = { "int24", PCM_ENCODING_INT_24 };
constexpr Encoding uint24 = { "uint24", PCM_ENCODING_INT_24 | PCM_ENCODING_UNSIGNED };
constexpr Encoding int24BE = { "int24 BE", PCM_ENCODING_INT_24 | PCM_ENCODING_BIG_ENDIAN };
constexpr Encoding int24AfterPadding = { "int24 after pad",
    PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32 | PCM_ENCODING_PAD_BEFORE };
constexpr Encoding int24BeforePadding = { "int24 before pad",
    PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32 | PCM_ENCODING_PAD_AFTER };
constexpr Encoding int32 = { "int32", PCM_ENCODING_INT_32 };
constexpr Encoding uint32 = { "uint32", PCM_ENCODING_INT_32 | PCM_ENCODING_UNSIGNED };
constexpr Encoding int32BE = { "int32 BE", PCM_ENCODING_INT_32 | PCM_ENCODING_BIG_ENDIAN };
constexpr Encoding float32 = { "float32", PCM_ENCODING_FLOAT_32 };
constexpr Encoding float32BE = { "float32 BE", PCM_ENCODING_FLOAT_32 | PCM_ENCODING_BIG_ENDIAN };
constexpr Encoding alaw = { "A-law", PCM_ENCODING_G711_ALAW };
constexpr Encoding mulaw = { "mu-law", PCM_ENCODING_G711_MULAW };
} // namespace encodings

/// A conversion between 32-bit floats and an encoding.
struct Conversion {
    Encoding encoding;
    bool decoding;

    std::string job() const { return std::string( decoding ? "decode " : "encode " ) + encoding.name; }
    PCM_ENCODING from() const { return decoding ? encoding.word : 0; }
    PCM_ENCODING to() const { return decoding ? 0 : encoding.word; }
    const void *source() const;
    /// Fails if the output buffer differs from the library's result. "naive" and "limit" follow the library's rules
    /// and must match bit for bit. Other libraries have other rules for rounding and clamping.
    void verify( const std::string &implementation, int64_t samples ) const;
};

/// Registers an implementation of a conversion at all `conversionSizes`. `prepare` takes the number of samples and
/// returns a function of destination, source and number of samples.
template <class Prepare>
void addPreparedConversion( const Conversion &conversion, const std::string &implementation, Prepare prepare )
{
    for ( int64_t samples : conversionSizes )
        addJob( conversion.job(), samples, implementation, [=] {
            const void *source = conversion.source();
            auto convert = prepare( samples );
            convert( buffers.output, source, samples );
            conversion.verify( implementation, samples );
            return [=]() mutable {
                convert( buffers.output, source, samples );
                return samples;
            };
        } );
}

/// The same for a function that needs no preparation.
template <class Convert>
void addConversion( const Conversion &conversion, const std::string &implementation, Convert convert )
{
    addPreparedConversion( conversion, implementation, [=]( int64_t ) { return convert; } );
}

#endif
