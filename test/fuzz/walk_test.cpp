#include "../support.h"

#include <sys/resource.h>

// What the fuzz targets foretell, broken contracts included, on scripts of random bytes.

extern "C" int fuzz_edits( const uint8_t *data, size_t size );
extern "C" int fuzz_conversion( const uint8_t *data, size_t size );

namespace {

// Sanitizers need more room than there is, and refuse by themselves what is larger.
#if defined( __SANITIZE_ADDRESS__ ) || defined( __SANITIZE_THREAD__ )
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

void walk( int ( *target )( const uint8_t *, size_t ), int rounds, size_t longest )
{
    rlimit before;
    getrlimit( RLIMIT_AS, &before );
    const rlimit much = { rlim_t{ 1 } << 40, before.rlim_max };
    if ( !sanitized ) setrlimit( RLIMIT_AS, &much );
    test::Random random( 1 );
    for ( int round = 0; round < rounds && !testing::Test::HasFailure(); ++round ) {
        std::vector<uint8_t> script( size_t( random.upTo( int64_t( longest ) ) ) );
        for ( uint8_t &byte : script ) byte = uint8_t( random() >> 32 );
        SCOPED_TRACE( round );
        target( script.data(), script.size() );
    }
    if ( !sanitized ) setrlimit( RLIMIT_AS, &before );
}

} // namespace

TEST( Walk, PacketsQueuesAndFilters ) { walk( fuzz_edits, 2000, 1200 ); }

TEST( Walk, EncodingsAndBytes ) { walk( fuzz_conversion, 10000, 300 ); }
