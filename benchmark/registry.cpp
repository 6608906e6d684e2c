#include "registry.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

static void *createBuffer( int index )
{
    constexpr size_t pageSize = 4096, offsetStep = 1088, size = maxSamples * 8 + 2 * pageSize;
    void *bytes = std::aligned_alloc( pageSize, size );
    std::memset( bytes, 0, size );
    return static_cast<uint8_t *>( bytes ) + size_t( index ) * offsetStep;
}

static Buffers createBuffers() noexcept
{
    Buffers created = { static_cast<float *>( createBuffer( 0 ) ), static_cast<float *>( createBuffer( 1 ) ),
        static_cast<uint8_t *>( createBuffer( 2 ) ), static_cast<uint8_t *>( createBuffer( 3 ) ) };
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): a fixed seed, so that every run measures the same samples
    std::minstd_rand random( 1 );
    std::uniform_real_distribution<float> fullScale( -1.0f, 1.0f );
    for ( int64_t i = 0; i < maxSamples; ++i ) {
        created.samples[i] = fullScale( random );
        created.signs[i] = fullScale( random ) < 0 ? -1.0f : 1.0f;
    }
    created.samples[5] = 1.0f; // integer encoders clamp it
    return created;
}

const Buffers buffers = createBuffers();

void Buffers::resetOutput() const { std::memcpy( output, samples, maxSamples * sizeof( float ) ); }

Handle<PCM_PACKET> inputPacket( int channels, int64_t samples )
{
    return Handle( pcmPacketCreateFromSamplesCopy( buffers.samples, channels, samples / channels ) );
}

void addCopy( const std::string &job, int64_t bytesPerSample )
{
    addJob( job, maxSamples, "copy", [=] {
        return [=] {
            std::memcpy( buffers.output, buffers.samples, size_t( bytesPerSample * maxSamples / 2 ) );
            return maxSamples;
        };
    } );
}

[[noreturn]] void failMismatch( const std::string &job, const std::string &implementation )
{
    std::fprintf(
        stderr, "%s: the output of \"%s\" differs from the library's\n", job.c_str(), implementation.c_str() );
    std::exit( 1 );
}

void checkOutput( const std::string &job, const std::string &implementation, const float *expected, int64_t samples )
{
    if ( std::memcmp( expected, buffers.output, size_t( samples ) * sizeof( float ) ) != 0 )
        failMismatch( job, implementation );
}

std::vector<float> firTaps( int taps )
{
    std::vector<float> coefficients( size_t( taps ), 0.0f );
    for ( size_t k = 0; k < coefficients.size(); ++k ) coefficients[k] = buffers.samples[k] / float( taps );
    return coefficients;
}

std::string firJob( int taps, int channels )
{
    return "FIR " + std::to_string( taps ) + ( channels == 1 ? "" : " x " + std::to_string( channels ) );
}

const void *Conversion::source() const
{
    if ( !decoding ) return buffers.samples;
    pcm___Convert( buffers.encoded, encoding.word, buffers.samples, 0, maxSamples );
    return buffers.encoded;
}

void Conversion::verify( const std::string &implementation, int64_t samples ) const
{
    if ( implementation == "ours" ) return;
    const void *source = decoding ? static_cast<const void *>( buffers.encoded ) : buffers.samples;
    std::vector<uint8_t> expected( size_t( pcmEncodingSizeofSample( to() ) * samples ) );
    pcm___Convert( expected.data(), to(), source, from(), samples );
    if ( std::memcmp( expected.data(), buffers.output, expected.size() ) == 0 ) return;
    if ( implementation == "naive" || implementation == "limit" ) failMismatch( job(), implementation );

    // Other libraries may differ by one step of the encoding, and the largest steps of G.711 are wide.
    std::vector<float> expectedSamples( size_t( samples ), 0.0f ), actualSamples = expectedSamples;
    pcm___Convert( expectedSamples.data(), 0, expected.data(), to(), samples );
    pcm___Convert( actualSamples.data(), 0, buffers.output, to(), samples );
    for ( size_t i = 0; i < expectedSamples.size(); ++i )
        if ( !( std::fabs( expectedSamples[i] - actualSamples[i] ) < 0.04f ) ) failMismatch( job(), implementation );
}
