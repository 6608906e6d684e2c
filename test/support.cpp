#include "support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

// Stands before the library's own: one line that a death test can match whole.
extern "C" void kit___Abort( const char *context, const char *file, int64_t line, const char *condition )
{
    std::fprintf( stderr, "%s|%s|%s|%lld\n", context ? context : "", file, condition ? condition : "(null)",
        static_cast<long long>( line ) );
    std::abort();
}

namespace test {

Buffer buffer( const std::vector<uint8_t> &bytes )
{
    void *block = kitMemAlloc( int64_t( bytes.size() ) );
    if ( !bytes.empty() ) std::memcpy( block, bytes.data(), bytes.size() );
    return kitBufferCreateFromBytesUse( block, int64_t( bytes.size() ) );
}

std::vector<uint8_t> bytes( KIT_BUFFER *buffer )
{
    const uint8_t *backing = kitBufferBacking( buffer );
    return { backing, backing + kitBufferLength( buffer ) };
}

Packet packet( int64_t frames, int64_t channels, float first )
{
    std::vector<float> block( size_t( frames * channels ) );
    for ( float &sample : block ) sample = first++;
    return pcmPacketCreateFromSamplesCopy( block.data(), channels, frames );
}

std::vector<float> samples( PCM_PACKET *pkt )
{
    const float *backing = pcmPacketBacking( pkt );
    return { backing, backing + pcmPacketFrames( pkt ) * pcmPacketChannels( pkt ) };
}

std::string abortText( const std::string &context, const std::string &file, const std::string &condition )
{
    return context + "|source/pcm/" + file + "|" + condition + "|";
}

static uint64_t chosen( uint64_t seed )
{
    const char *given = std::getenv( "PCM_TEST_SEED" );
    return given ? std::strtoull( given, nullptr, 10 ) : seed;
}

Random::Random( uint64_t seed )
    : std::mt19937_64( chosen( seed ) ),
      trace( __FILE__, __LINE__, "PCM_TEST_SEED=" + std::to_string( chosen( seed ) ) )
{
}

struct Module : testing::Environment {
    void SetUp() override { kitModuleStartup( pcmModule() ); }
    void TearDown() override { kitModuleShutdown( pcmModule() ); }
};

static testing::Environment *const module = testing::AddGlobalTestEnvironment( new Module );

} // namespace test
