#include "support.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <thread>

// A refused allocation goes back to the caller, as it does without sanitizers.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char *__tsan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char *__lsan_default_options() { return "allocator_may_return_null=1"; }

static const std::string *awaited;
static std::jmp_buf broken;
static bool tracking;
static const volatile void *taken[1000];

static void noteMalloc( const volatile void *block, size_t )
{
    if ( tracking ) *std::find( taken, std::end( taken ), nullptr ) = block;
}

static void noteFree( const volatile void *block )
{
    if ( tracking && block ) std::replace( taken, std::end( taken ), block, (const volatile void *)nullptr );
}

// Of the address sanitizer, whose search for leaks must not find what broken calls have left.
extern "C" __attribute__( ( weak ) ) int __sanitizer_install_malloc_and_free_hooks(
    decltype( noteMalloc ) *, decltype( noteFree ) * );

// Stands before the library's own: one line that a death test can match whole.
extern "C" void kit___Abort( const char *context, const char *file, int64_t line, const char *condition )
{
    tracking = false;
    if ( awaited && condition && *awaited == condition ) std::longjmp( broken, 1 );
    std::fprintf( stderr, "%s|%s|%s|%lld\n", context ? context : "", file, condition ? condition : "(null)",
        static_cast<long long>( line ) );
    std::abort();
}

namespace test {

Packet packet( int64_t frames, int64_t channels, float first )
{
    Samples block( size_t( frames * channels ) );
    for ( float &sample : block ) sample = first++;
    return packetOf( block, channels );
}

std::vector<uint32_t> bits( const Samples &samples, bool moved )
{
    std::vector<uint32_t> all;
    for ( float x : samples ) all.push_back( std::isnan( x ) && !moved ? 0x7FC00000 : std::bit_cast<uint32_t>( x ) );
    return all;
}

void expectPacket( const Packet &pkt, int64_t channels, const Samples &wanted, int32_t count, bool moved )
{
    EXPECT_EQ( pcmPacketChannels( pkt ), channels );
    EXPECT_EQ( pcmPacketFrames( pkt ), int64_t( wanted.size() ) / channels );
    EXPECT_EQ( pcmPacketBacking( pkt ) == nullptr, wanted.empty() );
    EXPECT_EQ( bits( samples( pkt ), moved ), bits( wanted, moved ) );
    EXPECT_EQ( kit___ObjDbgAllocationSize( pkt.header() ), int64_t( wanted.size() ) * 4 );
    EXPECT_EQ( pkt.count(), count );
}

void mustBreak( const std::string &condition, const std::function<void()> &call )
{
    static const bool hooked = __sanitizer_install_malloc_and_free_hooks &&
                               __sanitizer_install_malloc_and_free_hooks( noteMalloc, noteFree );
    const int64_t before = kit___ObjDbgLiveObjects();
    awaited = &condition;
    tracking = hooked;
    if ( !setjmp( broken ) ) {
        call();
        tracking = false;
        ADD_FAILURE() << "not broken: " << condition;
    }
    awaited = nullptr;
    for ( auto &block : taken ) std::free( const_cast<void *>( std::exchange( block, nullptr ) ) );
    NoLeaks::leftBehind += kit___ObjDbgLiveObjects() - before;
}

void together( int threads, const std::function<void( int )> &work )
{
    std::latch start( threads );
    std::vector<std::thread> running;
    for ( int i = 0; i < threads; ++i )
        running.emplace_back( [&, i] {
            start.arrive_and_wait();
            work( i );
        } );
    for ( auto &thread : running ) thread.join();
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

Samples Random::samples( size_t count, float scale, int64_t rare )
{
    static const float unusual[] = { -0.0f, 0.0f, 1e-45f, -3e-39f, 1.5e-23f, 3e38f, -1.0f, INFINITY, -INFINITY, NAN,
        std::bit_cast<float>( 0xFF812345 ) };
    Samples samples( count );
    for ( float &x : samples )
        x = rare && !upTo( rare - 1 ) ? oneOf( unusual ) : scale * ( float( upTo( 1 << 24 ) ) / ( 1 << 23 ) - 1 );
    return samples;
}

struct Module : testing::Environment {
    void SetUp() override { kitModuleStartup( pcmModule() ); }
    void TearDown() override { kitModuleShutdown( pcmModule() ); }
};

static testing::Environment *const module = testing::AddGlobalTestEnvironment( new Module );

} // namespace test
