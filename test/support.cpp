#include "support.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <latch>
#include <thread>

// With sanitizers, too, a failed allocation returns null.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char *__tsan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char *__lsan_default_options() { return "allocator_may_return_null=1"; }

// Replaces the library's own and writes one line that a death test can match as a whole.
extern "C" void kit___Abort( const char *context, const char *file, int64_t line, const char *condition )
{
    std::fprintf( stderr, "%s|%s|%s|%lld\n", context ? context : "", file, condition ? condition : "(null)",
        static_cast<long long>( line ) );
    std::abort();
}

namespace test {

pcm::Packet packet( int64_t frames, int64_t channels, float first )
{
    Samples block( size_t( frames * channels ) );
    for ( float &sample : block ) sample = first++;
    return pcm::Packet( block, channels );
}

Samples samples( const pcm::Packet &pkt ) { return { pkt.samples().begin(), pkt.samples().end() }; }

std::vector<uint32_t> bits( const Samples &samples )
{
    std::vector<uint32_t> all;
    for ( float x : samples ) all.push_back( std::isnan( x ) ? 0x7FC00000 : std::bit_cast<uint32_t>( x ) );
    return all;
}

void expectPacket( const pcm::Packet &pkt, int64_t channels, const Samples &wanted, int32_t references )
{
    EXPECT_EQ( pkt.channels(), channels );
    EXPECT_EQ( pkt.frames(), int64_t( wanted.size() ) / channels );
    EXPECT_EQ( pkt.backing() == nullptr, wanted.empty() );
    EXPECT_EQ( bits( samples( pkt ) ), bits( wanted ) );
    EXPECT_EQ( kit___ObjDbgAllocationSize( pkt.obj() ), int64_t( wanted.size() ) * 4 );
    EXPECT_EQ( pkt.references(), references );
}

uint64_t seed( uint64_t usual )
{
    const char *given = std::getenv( "PCM_TEST_SEED" );
    return given ? std::strtoull( given, nullptr, 10 ) : usual;
}

void together( int threads, const std::function<void( int )> &work )
{
    std::latch start( threads );
    std::vector<std::thread> running;
    running.reserve( size_t( threads ) );
    for ( int i = 0; i < threads; ++i )
        running.emplace_back( [&, i] {
            start.arrive_and_wait();
            work( i );
        } );
    for ( auto &thread : running ) thread.join();
}

struct Module : testing::Environment {
    void SetUp() override { kitModuleStartup( pcmModule() ); }
    void TearDown() override { kitModuleShutdown( pcmModule() ); }
};

static testing::Environment *const module = testing::AddGlobalTestEnvironment( new Module );

} // namespace test
