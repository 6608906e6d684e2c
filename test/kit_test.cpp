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

// A refused allocation goes back to the caller, as it does without sanitizers.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char *__tsan_default_options() { return "allocator_may_return_null=1"; }

// The system's source of seeds, which can fail.
static bool noEntropy;
extern "C" int getentropy( void *to, size_t size )
{
    return noEntropy || getrandom( to, size, 0 ) != ssize_t( size );
}

namespace {

using test::Ref, test::String, test::string, test::text;

constexpr int64_t most = INT64_MAX, least = INT64_MIN;

class Kit : public testing::Test {
    test::NoLeaks noLeaks;
};

TEST_F( Kit, AbortWritesOneLineAndEnds )
{
    auto aborts = testing::KilledBySignal( SIGABRT );
    EXPECT_EXIT( kit___Abort( "the context", "a/file", 4711, "a < b" ), aborts,
        "^[^\n]*a/file[^\n]*4711[^\n]*the context[^\n]*a < b[^\n]*\n$" );
    EXPECT_EXIT( kit___Abort( nullptr, "a/file", 4711, nullptr ), aborts, "^[^\n]*a/file[^\n]*4711[^\n]*\n$" );
    EXPECT_EXIT( kitMemAlloc( most ), aborts, "source/kit/kit_memory[^\n]*out of memory[^\n]*\n$" );
}

TEST_F( Kit, MemoryServesAnySizeAndKeepsWhatFits )
{
    for ( void *none : { kitMemAlloc( 0 ), kitMemAllocN( 0, most ), kitMemAllocN( most, 0 ),
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
    String whole = kitStringCreateFromCstr( bytes, 8 ), end = kitStringCreateFromCstr( bytes, -1 );
    EXPECT_EQ( text( whole ), std::string( bytes, 8 ) );
    EXPECT_EQ( kitStringBacking( whole )[8], 0 );
    EXPECT_EQ( text( end ), "with" );
    EXPECT_EQ( text( kitStringCreateFromCstr( nullptr, 0 ) ), "" );
    EXPECT_EQ( text( kitObjToString( whole.header() ) ), text( whole ) );
    EXPECT_GT( kitObjCompare( whole.header(), end.header() ), 0 );
    EXPECT_LT( kitObjCompare( end.header(), whole.header() ), 0 );
    EXPECT_EQ( kitObjCompare( end.header(), string( "with" ).header() ), 0 );
    EXPECT_LT( kitObjCompare( string( "longer" ).header(), end.header() ), 0 );

    void *block = kitMemAlloc( 3 );
    Ref<KIT_BUFFER> empty = kitBufferCreate(), buffer = kitBufferCreateFromBytesUse( block, 3 );
    EXPECT_EQ( kitBufferLength( empty ), 0 );
    EXPECT_EQ( kitBufferLength( buffer ), 3 );
    EXPECT_EQ( kitBufferBacking( buffer ), block );
    EXPECT_EQ( kit___ObjDbgAllocationSize( buffer.header() ), 3 );
}

TEST_F( Kit, ObjectsOfOneSortStandTogether )
{
    std::vector<Ref<KIT_OBJ>> objects; // in turns, so that their addresses tell another order
    for ( int i = 0; i < 8; ++i )
        objects.emplace_back( i % 2 ? reinterpret_cast<KIT_OBJ *>( string( std::to_string( i ) ).release() )
                                    : reinterpret_cast<KIT_OBJ *>( kitVectorCreate() ) );
    int64_t order = kitObjCompare( objects[0], objects[1] );
    EXPECT_EQ( kitObjCompare( objects[0], objects[2] ) > 0, objects[0].header() > objects[2].header() );
    for ( size_t i = 0; i < 8; i += 2 )
        for ( size_t j = 1; j < 8; j += 2 ) {
            EXPECT_EQ( kitObjCompare( objects[i], objects[j] ) > 0, order > 0 ) << i << " " << j;
            EXPECT_EQ( kitObjCompare( objects[j], objects[i] ) < 0, order > 0 ) << i << " " << j;
        }
}

TEST_F( Kit, ObjectsWithoutATextShowNameAndAddress )
{
    const std::string name( 300, 'N' );
    KIT_SORT sort = { KIT_STATIC_HEADER( KIT_KIND_SORT ), nullptr, name.c_str(), nullptr, nullptr, nullptr };
    Ref<KIT_OBJ> obj = kit___ObjCreate( 40, &sort );
    std::ostringstream address;
    address << static_cast<void *>( obj.header() );
    EXPECT_EQ( text( kitObjToString( obj ) ), name + " " + address.str() );
}

// Packet queues walk through the rest of what vectors do, but for long ones.
TEST_F( Kit, VectorsKeepWhatTheirOtherHoldersHave )
{
    String item = string( "item" );
    Ref<KIT_VECTOR> vector = kitVectorCreate(), first = vector;
    EXPECT_EQ( kitVectorUnshift( &vector ), nullptr );
    kitVectorClear( &vector );
    EXPECT_EQ( vector, first );
    kitVectorAppendObj( &vector, item.header() );
    Ref<KIT_VECTOR> second = vector;
    kitVectorClear( &vector );
    EXPECT_EQ( item.count(), 2 );
    Ref<KIT_OBJ> got = kitVectorUnshift( &second );
    EXPECT_EQ( got, item.header() );
    for ( auto &empty : { vector, first, second } ) EXPECT_EQ( kitVectorLength( empty ), 0 );
}

TEST_F( Kit, VectorsGrowInOrder )
{
    Ref<KIT_VECTOR> vector = kitVectorCreate();
    std::deque<String> items;
    for ( int i = 0; i < 100; ++i ) {
        kitVectorAppendObj( &vector, items.emplace_back( string( "item" ) ).header() );
        if ( i % 3 ) continue;
        EXPECT_EQ( Ref<KIT_OBJ>( kitVectorUnshift( &vector ) ), items.front().header() ) << i;
        items.pop_front();
    }
    EXPECT_EQ( kitVectorLength( vector ), int64_t( items.size() ) );
}

TEST_F( Kit, VectorsGiveTheirFrontInConstantTime )
{
    Ref<KIT_VECTOR> vector = kitVectorCreate();
    String item = string( "item" );
    for ( int i = 0; i < 100000; ++i ) kitVectorAppendObj( &vector, item.header() );
    auto start = std::chrono::steady_clock::now();
    for ( int i = 0; i < 1000000; ++i ) {
        kitVectorAppendObj( &vector, item.header() );
        kitObjRelease( kitVectorUnshift( &vector ) );
    }
    EXPECT_LT( std::chrono::steady_clock::now() - start, std::chrono::seconds( 10 ) ); // minutes if all would move
}

TEST_F( Kit, FlagSetsReadAndWriteTheirNames )
{
    constexpr uint64_t top = uint64_t{ 1 } << 63;
    Ref<KIT_FLAGSET> set = kitFlagsetCreate();
    kitFlagsetSetFlagCstr( &set, "ONE", -1, 1 );
    kitFlagsetSetFlagCstr( &set, "TOP!", 3, top );
    Ref<KIT_FLAGSET> old = set;
    kitFlagsetSetFlagCstr( &set, "TWO", -1, 2 );
    kitFlagsetSetFlagCstr( &set, "ONE", -1, 4 );
    EXPECT_EQ( old.count(), 1 );
    EXPECT_EQ( kitFlagsetParse( set, string( " TOP\t|\r\n ONE |||TWO " ) ), top | 4 | 2 );
    EXPECT_EQ( kitFlagsetParse( old, string( "TOP|TWO|ONE" ) ), top | 1 );
    EXPECT_EQ( text( kitFlagsetGenerate( set, ~uint64_t{ 0 } ) ), "ONE | TOP | TWO" );
    EXPECT_EQ( text( kitFlagsetGenerate( old, ~uint64_t{ 0 } ) ), "ONE | TOP" );
    EXPECT_EQ( text( kitFlagsetGenerate( set, 1 ) ), "0" );
    EXPECT_EQ( kitFlagsetHasFlagCstr( set, "TWO!", 3 ), 1 );
    for ( int64_t length : { 0, 2 } ) EXPECT_EQ( kitFlagsetHasFlagCstr( set, "TWO", length ), 0 );
}

TEST_F( Kit, EnumerationsReadAndWriteTheirNames )
{
    Ref<KIT_ENUM> set = kitEnumCreate();
    kitEnumSetEnumerantCstr( &set, "RED", -1, 0 );
    kitEnumSetEnumerantCstr( &set, "BLUE?", 4, least );
    Ref<KIT_ENUM> old = set;
    kitEnumSetEnumerantCstr( &set, "CYAN", -1, least );
    for ( auto [name, value] :
        { std::pair( "BLUE", least ), { "CYAN", least }, { "", -1 }, { " RED", -1 }, { "RE", -1 }, { "0", -1 } } )
        EXPECT_EQ( kitEnumParse( set, string( name ) ), value ) << name;
    EXPECT_EQ( kitEnumParse( old, string( "CYAN" ) ), -1 );
    for ( auto [value, name] : { std::pair( int64_t{ 0 }, "RED" ), { least, "BLUE" }, { 1, "" } } )
        EXPECT_EQ( text( kitEnumGenerate( set, value ) ), name );
}

TEST_F( Kit, RealsCompareExactly )
{
    const double huge = std::numeric_limits<double>::max(), tiny = 5e-324, nan = NAN;
    const double ordered[] = { -INFINITY, -huge, -1, std::nextafter( -1.0, 0.0 ), -tiny, 0, tiny, 1,
        std::nextafter( 1.0, 2.0 ), huge, INFINITY };
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
    static_assert( !KIT_INT_MUL_OK( least, -1 ) && kit::saturatedMul( most, 2 ) == most && KIT_SIZEOF( float ) == 4 );
    const int64_t edges[] = { least, least + 1, least / 2, INT32_MIN - int64_t{ 1 }, INT32_MIN, -3037000500, -1, 0, 1,
        2, INT32_MAX, INT32_MAX + int64_t{ 1 }, 3037000499, 3037000500, most / 2, most - 1, most };
    auto fits = []( __int128 wide ) { return wide >= least && wide <= most; };
    for ( int64_t a : edges ) {
        for ( int64_t b : edges ) {
            __int128 wide = a, product = wide * b;
            EXPECT_EQ( KIT_INT_ADD_OK( a, b ), fits( wide + b ) ) << a << " + " << b;
            EXPECT_EQ( KIT_INT_SUB_OK( a, b ), fits( wide - b ) ) << a << " - " << b;
            EXPECT_EQ( KIT_INT_MUL_OK( a, b ), fits( product ) ) << a << " * " << b;
            EXPECT_EQ( kit::saturatedMul( a, b ), fits( product ) ? int64_t( product ) : most ) << a << " * " << b;
            EXPECT_EQ( kitIntMin( a, b ), std::min( a, b ) );
            EXPECT_EQ( kitIntMax( a, b ), std::max( a, b ) );
        }
        EXPECT_EQ( KIT_INT_TO_SIGNED_INT_CONV_OK( a ), a >= INT32_MIN && a <= INT32_MAX ) << a;
        EXPECT_EQ( KIT_INT_TO_SIGNED_LONG_CONV_OK( a ), a >= INT32_MIN && a <= INT32_MAX ) << a;
        EXPECT_EQ( kitIntBitCount( uint64_t( a ) ), int64_t( std::bitset<64>( uint64_t( a ) ).count() ) ) << a;
    }
}
#endif

/// Where the generator stood: takes back the mixing of a number.
uint64_t unmixed( int64_t number )
{
    auto unshifted = []( uint64_t mixed, int places ) {
        uint64_t z = mixed;
        for ( int known = places; known < 64; known += places ) z = mixed ^ z >> places;
        return z;
    };
    uint64_t z = unshifted( uint64_t( number ), 31 ) * 0x319642B2D24D8EC3;
    return unshifted( unshifted( z, 27 ) * 0x96DE1B173F119089, 30 );
}

/// Takes a text that did not come before.
struct IsNew {
    using is_gtest_matcher = void;
    bool MatchAndExplain( const std::string &text, std::ostream * ) const { return seen->insert( text ).second; }
    void DescribeTo( std::ostream *out ) const { *out << "is new"; }
    void DescribeNegationTo( std::ostream *out ) const { *out << "came before"; }
    std::set<std::string> *seen;
};

TEST_F( Kit, RandomNumbersBeginWhereTheSystemSays )
{
    GTEST_FLAG_SET( death_test_style, "threadsafe" ); // a process that runs from its start
    std::set<std::string> first;
    auto say = [] {
        std::fprintf( stderr, "%llx", static_cast<unsigned long long>( kitRandomInt() ) );
        std::_Exit( 0 );
    };
    for ( int i = 0; i < 5; ++i ) EXPECT_EXIT( say(), testing::ExitedWithCode( 0 ), IsNew{ &first } );
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
    for ( auto [low, high] : { std::pair( int64_t{ 5 }, int64_t{ 8 } ), { 0, 3 }, { most - 3, most }, { 0, most },
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
