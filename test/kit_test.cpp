#include "support.h"

#include "kit/kit_check.hh"

#include <algorithm>
#include <bitset>
#include <chrono>
#include <cmath>
#include <deque>
#include <limits>
#include <set>
#include <sstream>
#include <sys/random.h>

// Failed allocations return null with sanitizers too.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char *__tsan_default_options() { return "allocator_may_return_null=1"; }

// Replaces the system's source of seeds, so that a test can make it fail.
static bool noEntropy;
extern "C" int getentropy( void *to, size_t size )
{
    return noEntropy || getrandom( to, size, 0 ) != ssize_t( size );
}

namespace {

using pcm::adopt, pcm::String, test::Object;

constexpr int64_t max = INT64_MAX, min = INT64_MIN;

class Kit : public testing::Test {
    test::NoLeaks noLeaks;
};

TEST_F( Kit, AbortWritesOneLineAndEnds )
{
    auto aborts = testing::KilledBySignal( SIGABRT );
    EXPECT_EXIT( kit___Abort( "the context", "a/file", 4711, "a < b" ), aborts,
        "^[^\n]*a/file[^\n]*4711[^\n]*the context[^\n]*a < b[^\n]*\n$" );
    EXPECT_EXIT( kit___Abort( nullptr, "a/file", 4711, nullptr ), aborts, "^[^\n]*a/file[^\n]*4711[^\n]*\n$" );
    EXPECT_EXIT( kitMemAlloc( max ), aborts, "source/kit/kit_memory[^\n]*out of memory[^\n]*\n$" );
}

TEST_F( Kit, MemoryOfAnySize )
{
    for ( void *none : { kitMemAlloc( 0 ), kitMemAllocN( 0, max ), kitMemAllocN( max, 0 ),
              kitMemReallocN( nullptr, 0, 8 ), kitMemReallocN( kitMemAlloc( 9 ), 0, 8 ) } ) {
        EXPECT_NE( none, nullptr );
        kitMemFree( none );
    }
    kitMemCopy( nullptr, nullptr, 0 );
    kitMemMoveN( nullptr, nullptr, 0, 4 );
    kitMemSetN( nullptr, 1, 0, 4 );

    auto *block = static_cast<char *>( kitMemReallocN( nullptr, 2, 5 ) );
    kitMemCopyN( block, "0123456789", 5, 2 );
    block = static_cast<char *>( kitMemReallocN( block, 3, 5 ) );
    kitMemMoveN( block + 2, block, 4, 2 );
    kitMemSetN( block + 10, 'x', 2, 2 );
    EXPECT_EQ( std::string( block, 14 ), "0101234567xxxx" );
    kitMemFree( block );
}

TEST_F( Kit, StringsAndBuffersHoldTheirBytes )
{
    const char bytes[] = "with\0nul";
    const String whole( std::string_view( bytes, 8 ) ), end( adopt, kitStringCreateFromCstr( bytes, -1 ) );
    EXPECT_EQ( whole.str(), std::string( bytes, 8 ) );
    EXPECT_EQ( whole.view().data()[8], 0 );
    EXPECT_EQ( end.str(), "with" );
    EXPECT_EQ( String( std::string_view() ).str(), "" );
    EXPECT_EQ( to_string( whole ), whole.str() );
    EXPECT_GT( whole, end );
    EXPECT_LT( end, whole );
    EXPECT_EQ( end, String( "with" ) );
    EXPECT_LT( String( "longer" ), end );

    auto block = pcm::allocate<std::byte>( 3 );
    const void *address = block.get();
    const pcm::Buffer empty( adopt, kitBufferCreate() ), buffer = pcm::Buffer::use( std::move( block ), 3 );
    EXPECT_EQ( empty.length(), 0 );
    EXPECT_EQ( buffer.length(), 3 );
    EXPECT_EQ( buffer.bytes().data(), address );
    EXPECT_EQ( kit___ObjDbgAllocationSize( buffer.obj() ), 3 );
}

TEST_F( Kit, ObjectsOfOneTypeAreAdjacentInOrder )
{
    std::vector<Object<KIT_OBJ>> vectors, strings; // created alternately, and so are their addresses
    for ( int i = 0; i < 4; ++i ) {
        vectors.emplace_back( adopt, reinterpret_cast<KIT_OBJ *>( kitVectorCreate() ) );
        strings.emplace_back( adopt, reinterpret_cast<KIT_OBJ *>( String( std::to_string( i ) ).detach() ) );
    }
    EXPECT_EQ( vectors[0] > vectors[1], vectors[0].get() > vectors[1].get() );
    for ( auto &vector : vectors )
        for ( auto &string : strings ) {
            EXPECT_EQ( vector > string, vectors[0] > strings[0] );
            EXPECT_EQ( string<vector, vectors[0]> strings[0] );
        }
}

TEST_F( Kit, ObjectsWithoutATextPrintNameAndAddress )
{
    const std::string name( 300, 'N' );
    KIT_SORT sort = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, name.c_str(), nullptr, nullptr, nullptr };
    const Object<KIT_OBJ> obj( adopt, kit___ObjCreate( 40, &sort ) );
    std::ostringstream address;
    address << static_cast<void *>( obj.get() );
    EXPECT_EQ( to_string( obj ), name + " " + address.str() );
}

TEST_F( Kit, VectorsAreCopiedOnWrite )
{
    const String item( "item" );
    Object<KIT_VECTOR> vector( adopt, kitVectorCreate() ), first = vector;
    EXPECT_EQ( kitVectorUnshift( vector.address() ), nullptr );
    kitVectorClear( vector.address() );
    EXPECT_EQ( vector, first );
    kitVectorAppendObj( vector.address(), item.obj() );
    Object<KIT_VECTOR> second = vector;
    kitVectorClear( vector.address() );
    EXPECT_EQ( item.references(), 2 );
    const String taken( adopt, reinterpret_cast<KIT_STRING *>( kitVectorUnshift( second.address() ) ) );
    EXPECT_EQ( taken.get(), item.get() );
    for ( auto &empty : { vector, first, second } ) EXPECT_EQ( kitVectorLength( empty.get() ), 0 );
}

TEST_F( Kit, VectorsGrowInOrder )
{
    Object<KIT_VECTOR> vector( adopt, kitVectorCreate() );
    std::deque<String> items;
    for ( int i = 0; i < 100; ++i ) {
        kitVectorAppendObj( vector.address(), items.emplace_back( "item" ).obj() );
        if ( i % 3 ) continue;
        const Object<KIT_OBJ> front( adopt, kitVectorUnshift( vector.address() ) );
        EXPECT_EQ( front.get(), items.front().obj() ) << i;
        items.pop_front();
    }
    EXPECT_EQ( kitVectorLength( vector.get() ), int64_t( items.size() ) );
}

TEST_F( Kit, VectorsRemoveTheirFrontInConstantTime )
{
    Object<KIT_VECTOR> vector( adopt, kitVectorCreate() );
    const String item( "item" );
    for ( int i = 0; i < 100000; ++i ) kitVectorAppendObj( vector.address(), item.obj() );
    auto start = std::chrono::steady_clock::now();
    for ( int i = 0; i < 1000000; ++i ) {
        kitVectorAppendObj( vector.address(), item.obj() );
        kitObjRelease( kitVectorUnshift( vector.address() ) );
    }
    EXPECT_LT( std::chrono::steady_clock::now() - start, std::chrono::seconds( 10 ) ); // minutes if all items moved
}

std::string flagsOf( const Object<KIT_FLAGSET> &set, uint64_t word )
{
    return pcm::textOf( kitFlagsetGenerate( set.get(), word ) );
}

TEST_F( Kit, FlagSetsReadAndWriteTheirNames )
{
    constexpr uint64_t top = uint64_t{ 1 } << 63;
    Object<KIT_FLAGSET> set( adopt, kitFlagsetCreate() );
    kitFlagsetSetFlagCstr( set.address(), "ONE", -1, 1 );
    kitFlagsetSetFlagCstr( set.address(), "TOP!", 3, top );
    const Object<KIT_FLAGSET> old = set;
    kitFlagsetSetFlagCstr( set.address(), "TWO", -1, 2 );
    kitFlagsetSetFlagCstr( set.address(), "ONE", -1, 4 );
    EXPECT_EQ( old.references(), 1 );
    EXPECT_EQ( kitFlagsetParse( set.get(), String( " TOP\t|\r\n ONE |||TWO " ).get() ), top | 4 | 2 );
    EXPECT_EQ( kitFlagsetParse( old.get(), String( "TOP|TWO|ONE" ).get() ), top | 1 );
    EXPECT_EQ( flagsOf( set, ~uint64_t{ 0 } ), "ONE | TOP | TWO" );
    EXPECT_EQ( flagsOf( old, ~uint64_t{ 0 } ), "ONE | TOP" );
    EXPECT_EQ( flagsOf( set, 1 ), "0" );
    EXPECT_EQ( kitFlagsetHasFlagCstr( set.get(), "TWO!", 3 ), 1 );
    for ( int64_t length : { 0, 2 } ) EXPECT_EQ( kitFlagsetHasFlagCstr( set.get(), "TWO", length ), 0 );
}

TEST_F( Kit, EnumerationsReadAndWriteTheirNames )
{
    Object<KIT_ENUM> set( adopt, kitEnumCreate() );
    kitEnumSetEnumerantCstr( set.address(), "RED", -1, 0 );
    kitEnumSetEnumerantCstr( set.address(), "BLUE?", 4, min );
    const Object<KIT_ENUM> old = set;
    kitEnumSetEnumerantCstr( set.address(), "CYAN", -1, min );
    for ( auto [name, value] :
        { std::pair( "BLUE", min ), { "CYAN", min }, { "", -1 }, { " RED", -1 }, { "RE", -1 }, { "0", -1 } } )
        EXPECT_EQ( kitEnumParse( set.get(), String( name ).get() ), value ) << name;
    EXPECT_EQ( kitEnumParse( old.get(), String( "CYAN" ).get() ), -1 );
    for ( auto [value, name] : { std::pair( int64_t{ 0 }, "RED" ), { min, "BLUE" }, { 1, "" } } )
        EXPECT_EQ( pcm::textOf( kitEnumGenerate( set.get(), value ) ), name );
}

TEST_F( Kit, RealsCompareExactly )
{
    const double huge = std::numeric_limits<double>::max(), tiny = 5e-324, nan = NAN;
    const double ordered[] = { -HUGE_VAL, -huge, -1, std::nextafter( -1.0, 0.0 ), -tiny, 0, tiny, 1,
        std::nextafter( 1.0, 2.0 ), huge, HUGE_VAL };
    for ( auto &a : ordered ) {
        for ( auto &b : ordered ) {
            int64_t order = kitRealCompare( a, b );
            EXPECT_EQ( ( order > 0 ) - ( order < 0 ), ( &a > &b ) - ( &a < &b ) ) << a << " " << b;
            EXPECT_EQ( kitRealEquals( a, b ), &a == &b ) << a << " " << b;
        }
        EXPECT_FALSE( kitRealEquals( a, nan ) || kitRealEquals( nan, a ) || kitRealIsNan( a ) );
        EXPECT_EQ( kitRealIsFinite( a ), std::abs( a ) <= huge );
    }
    EXPECT_TRUE( kitRealEquals( 0.0, -0.0 ) && kitRealIsNan( nan ) && !kitRealIsFinite( nan ) );
}

#ifdef __SIZEOF_INT128__
TEST_F( Kit, IntegersFitWhereTheWideResultDoes )
{
    static_assert( !KIT_INT_MUL_OK( min, -1 ) && kit::saturatedMul( max, 2 ) == max && KIT_SIZEOF( float ) == 4 );
    const int64_t edges[] = { min, min + 1, min / 2, INT32_MIN - int64_t{ 1 }, INT32_MIN, -3037000500, -1, 0, 1, 2,
        INT32_MAX, INT32_MAX + int64_t{ 1 }, 3037000499, 3037000500, max / 2, max - 1, max };
    auto fits = []( __int128 wide ) { return wide >= min && wide <= max; };
    for ( int64_t a : edges ) {
        for ( int64_t b : edges ) {
            __int128 wide = a, product = wide * b;
            EXPECT_EQ( KIT_INT_ADD_OK( a, b ), fits( wide + b ) ) << a << " + " << b;
            EXPECT_EQ( KIT_INT_SUB_OK( a, b ), fits( wide - b ) ) << a << " - " << b;
            EXPECT_EQ( KIT_INT_MUL_OK( a, b ), fits( product ) ) << a << " * " << b;
            EXPECT_EQ( kit::saturatedMul( a, b ), fits( product ) ? int64_t( product ) : max ) << a << " * " << b;
            EXPECT_EQ( kitIntMin( a, b ), std::min( a, b ) );
            EXPECT_EQ( kitIntMax( a, b ), std::max( a, b ) );
        }
        EXPECT_EQ( KIT_INT_TO_SIGNED_INT_CONV_OK( a ), a >= INT32_MIN && a <= INT32_MAX ) << a;
        EXPECT_EQ( KIT_INT_TO_SIGNED_LONG_CONV_OK( a ), a >= INT32_MIN && a <= INT32_MAX ) << a;
        EXPECT_EQ( kitIntBitCount( uint64_t( a ) ), int64_t( std::bitset<64>( uint64_t( a ) ).count() ) ) << a;
    }
}
#endif

/// The state of the generator: reverses the mixing of a number.
uint64_t unmixed( int64_t number )
{
    auto unshifted = []( uint64_t mixed, int places ) {
        uint64_t z = mixed;
        for ( int done = places; done < 64; done += places ) z = mixed ^ z >> places;
        return z;
    };
    uint64_t z = unshifted( uint64_t( number ), 31 ) * 0x319642B2D24D8EC3;
    return unshifted( unshifted( z, 27 ) * 0x96DE1B173F119089, 30 );
}

/// Matches a text that was not seen before.
struct IsNew {
    using is_gtest_matcher = void;
    bool MatchAndExplain( const std::string &text, std::ostream * ) const { return seen->insert( text ).second; }
    void DescribeTo( std::ostream *out ) const { *out << "is new"; }
    void DescribeNegationTo( std::ostream *out ) const { *out << "was seen before"; }
    std::set<std::string> *seen;
};

TEST_F( Kit, RandomNumbersStartFromTheSystemsSeed )
{
    GTEST_FLAG_SET( death_test_style, "threadsafe" ); // a process that runs from its start
    std::set<std::string> first;
    auto printFirst = [] {
        std::fprintf( stderr, "%llx", static_cast<unsigned long long>( kitRandomInt() ) );
        std::_Exit( 0 );
    };
    for ( int i = 0; i < 5; ++i ) EXPECT_EXIT( printFirst(), testing::ExitedWithCode( 0 ), IsNew{ &first } );
    EXPECT_EXIT( noEntropy = true; kitRandomInt(), testing::KilledBySignal( SIGABRT ), "kit_random.*: seeded\n$" );
}

TEST_F( Kit, RandomNumbersCoverTheirRangeEvenly )
{
    uint64_t before = unmixed( kitRandomInt() );
    EXPECT_EQ( unmixed( kitRandomInt() ) - before, 0x9E3779B97F4A7C15u );

    uint64_t set = 0, clear = 0;
    for ( int i = 0; i < 1000; ++i ) {
        uint64_t random = uint64_t( kitRandomInt() );
        set |= random;
        clear |= ~random;
    }
    EXPECT_EQ( set & clear, ~uint64_t{ 0 } );

    // Thirds of the range. Plain remainders of 64 bits would give only a quarter to the last third of the last row.
    for ( auto [low, high] : { std::pair( int64_t{ 5 }, int64_t{ 8 } ), { 0, 3 }, { max - 3, max }, { 0, max },
              { 0, int64_t{ 3 } << 61 } } ) {
        int hits[3] = {};
        for ( int i = 0; i < 30000; ++i ) {
            int64_t random = kitRandomNonNegativeIntRange( low, high );
            ASSERT_TRUE( random >= low && random < high ) << random;
            ++hits[std::min<int64_t>( ( random - low ) / ( ( high - low ) / 3 ), 2 )];
        }
        for ( int hit : hits ) EXPECT_NEAR( hit, 10000, 600 ) << low << " to " << high;
    }
}

} // namespace
