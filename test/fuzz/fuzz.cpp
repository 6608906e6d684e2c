#include "fuzz.h"

#include "../support.h"

#include <bit>
#include <cmath>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sanitizer/allocator_interface.h>

static const std::string *awaited;
static std::jmp_buf broken;
static bool tracking;
static const volatile void *taken[1000];

static void noteMalloc( const volatile void *block, size_t )
{
    if ( !tracking ) return;
    size_t i = 0;
    while ( taken[i] ) ++i;
    taken[i] = block;
}

static void noteFree( const volatile void *block )
{
    for ( size_t i = 0; tracking && block && i < std::size( taken ); ++i )
        if ( taken[i] == block ) taken[i] = nullptr;
}

extern "C" void kit___Abort( const char *, const char *file, int64_t line, const char *condition )
{
    tracking = false;
    if ( awaited && *awaited == condition ) std::longjmp( broken, 1 );
    std::fprintf( stderr, "%s:%lld: broken: %s; awaited: %s\n", file, (long long)line, condition,
        awaited ? awaited->c_str() : "nothing" );
    std::abort();
}

extern "C" int LLVMFuzzerInitialize( int *, char *** )
{
    GTEST_FLAG_SET( break_on_failure, true ); // an expectation that fails is a fault that the fuzzer keeps
    std::signal( SIGTRAP, []( int ) { std::abort(); } );
    __sanitizer_install_malloc_and_free_hooks( noteMalloc, noteFree );
    kitModuleStartup( pcmModule() );
    return 0;
}

namespace fuzz {

int64_t leftBehind;

void mustBreak( const std::string &condition, const std::function<void()> &call )
{
    int64_t before = kit___ObjDbgLiveObjects();
    awaited = &condition;
    tracking = true;
    if ( !setjmp( broken ) ) {
        call();
        tracking = false;
        std::fprintf( stderr, "not broken: %s\n", condition.c_str() );
        std::abort();
    }
    awaited = nullptr;
    for ( auto &block : taken ) std::free( const_cast<void *>( std::exchange( block, nullptr ) ) );
    leftBehind += kit___ObjDbgLiveObjects() - before;
}

float Reader::sample()
{
    static const float unusual[] = { -0.0f, 1e-45f, 3e38f, -INFINITY, NAN, std::bit_cast<float>( 0xFF812345 ) };
    uint8_t choice = byte();
    return choice < 250 ? float( choice - 125 ) / 64 : unusual[choice - 250];
}

} // namespace fuzz
