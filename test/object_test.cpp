#include "support.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

// clang-format off
#define TYPE( NAME, prefix, has_destructor, held_handles, make ) \
    struct Type_##NAME { \
        static constexpr auto name = #NAME; \
        static constexpr bool hasDestructor = has_destructor; \
        static constexpr int handles = held_handles; \
        static constexpr auto sort = prefix##Sort; \
        static constexpr auto obj = prefix##Obj; \
        static constexpr auto from = prefix##From; \
        static constexpr auto retain = prefix##Retain; \
        static constexpr auto release = prefix##Release; \
        static constexpr auto compare = prefix##Compare; \
        static constexpr auto equals = prefix##Equals; \
        static constexpr auto toString = prefix##ToString; \
        static NAME *create() { return make; } \
    };
// clang-format on

TYPE( PCM_PACKET, pcmPacket, true, 0, test::packet( 3, 2 ).detach() )
TYPE( PCM_PACKET_QUEUE, pcmPacketQueue, true, 2, pcmPacketQueueCreate( 2 ) )

TYPE( PCM_FILTER, pcmFilter, true, 2, pcm::Filter( pcm::Coefficients( pcm::FilterType( 0 ) ), 2 ).detach() )
TYPE( PCM_FILTER_COEFFICIENTS, pcmFilterCoefficients, true, 0,
    pcm::Coefficients( pcm::FilterType( 0 ) ).clone().detach() )
TYPE( PCM_TONE, pcmTone, false, 0, pcmToneCreate( 4 ) )

TYPE( PCM_SRC, pcmSrc, true, 1, pcmSrcTryCreate( PCM_SRC_TYPE_LINEAR, 2, 1, 2 ) )

template <class Type> class Object : public testing::Test {
};
using Types = testing::Types<Type_PCM_PACKET, Type_PCM_PACKET_QUEUE, Type_PCM_FILTER, Type_PCM_FILTER_COEFFICIENTS,
    Type_PCM_SRC, Type_PCM_TONE>;
TYPED_TEST_SUITE( Object, Types );

/// Replaces a destructor. Counts its calls and the fields that it poisons, and checks that no heap memory is left.
void ( *destructor )( KIT_OBJ * );
int destroyed, poisoned;
void countAndDestroy( KIT_OBJ *obj )
{
    ++destroyed;
    if ( destructor ) destructor( obj );
    auto *words = reinterpret_cast<intptr_t *>( obj + 1 ),
         *end = words + ( obj->storage - 40 ) / int64_t( sizeof *words );
    EXPECT_EQ( kit___ObjDbgAllocationSize( obj ), 0 );
    poisoned = int( std::count( words, end, -1 ) );
}

TYPED_TEST( Object, IsCountedAndEndsOnce )
{
    using T = TypeParam;
    test::NoLeaks noLeaks;
    auto *object = T::create();
    KIT_OBJ *obj = T::obj( object );
    EXPECT_EQ( static_cast<void *>( obj ), object );
    EXPECT_EQ( T::from( obj ), object );
    EXPECT_EQ( T::obj( nullptr ), nullptr );
    EXPECT_EQ( T::from( nullptr ), nullptr );
    EXPECT_EQ( kitObjSort( obj ), T::sort() );
    EXPECT_EQ( obj->refCount, 1 );
    EXPECT_EQ( T::retain( object ), object );
    EXPECT_EQ( obj->refCount, 2 );
    destroyed = 0;
    destructor = std::exchange( T::sort()->destructor, countAndDestroy );
    T::release( object );
    EXPECT_EQ( obj->refCount, 1 );
    EXPECT_EQ( destroyed, 0 );
    T::release( object );
    EXPECT_EQ( destroyed, 1 );
    EXPECT_EQ( poisoned, T::handles );
    T::sort()->destructor = destructor;
}

TYPED_TEST( Object, ComparesByIdentityAndHasAText )
{
    using T = TypeParam;
    test::NoLeaks noLeaks;
    auto *a = T::create(), *b = T::create(), *none = T::from( nullptr );
    static_assert( std::is_same_v<decltype( T::compare( a, b ) ), int64_t> );
    static_assert( std::is_same_v<decltype( T::equals( a, b ) ), int32_t> );
    for ( auto [x, y] : { std::pair( a, a ), { a, b }, { b, a }, { a, none }, { none, b }, { none, none } } ) {
        EXPECT_EQ( T::equals( x, y ), int32_t{ x == y } );
        EXPECT_TRUE( !x || !y || ( T::compare( x, y ) == 0 ) == ( x == y ) );
    }
    EXPECT_EQ( T::compare( a, b ) < 0, T::compare( b, a ) > 0 );
    const pcm::String text( pcm::adopt, T::toString( a ) );
    EXPECT_EQ( text.references(), 1 );
    EXPECT_NE( text.str().find( T::name ), std::string::npos );
    T::release( a );
    T::release( b );
}

/// Returns the fields after the header of a record, which retain and release do not change.
std::vector<const void *> fieldsOf( KIT_OBJ *record, int64_t kind, size_t size )
{
    struct {
        int64_t kind, sort, storage;
        int32_t refCount, unused;
        int64_t noted;
    } image, expected = { kind, 0, -1, 1, 0, 0 };
    static_assert( sizeof image == 40 && sizeof *record == 40 );
    for ( bool used : { false, true } ) {
        std::memcpy( &image, record, 40 );
        EXPECT_EQ( std::memcmp( &image, &expected, 40 ), 0 ) << used;
        EXPECT_EQ( kitObjRetain( record ), record );
        EXPECT_EQ( record->refCount, 2 );
        for ( int i = 0; i < 4; ++i ) kitObjRelease( record );
        EXPECT_EQ( kitObjCompare( record, record ), 0 );
        EXPECT_NE( kitObjCompare( record, pcm::String( "other" ).obj() ), 0 );
        EXPECT_FALSE( pcm::textOf( kitObjToString( record ) ).empty() );
    }
    auto *fields = reinterpret_cast<const void **>( record + 1 );
    return std::vector( fields, fields + ( size - sizeof *record ) / sizeof *fields );
}

TYPED_TEST( Object, HasASortRecordThatIsAnObject )
{
    KIT_SORT *sort = TypeParam::sort();
    auto fields = fieldsOf( &sort->header, 1, sizeof *sort );
    EXPECT_EQ( fields[0], pcmModule() );
    EXPECT_STREQ( static_cast<const char *>( fields[1] ), TypeParam::name );
    EXPECT_EQ( fields[2] != nullptr, TypeParam::hasDestructor );
    EXPECT_EQ( size_t( std::count( fields.begin() + 3, fields.end(), nullptr ) ), fields.size() - 3 );
}

TEST( Module, IsAnObjectWithItsRecordAndFunctions )
{
    EXPECT_EQ( pcmModule(), &pcm___module );
    auto fields = fieldsOf( &pcm___module.header, 2, sizeof pcm___module );
    ASSERT_EQ( fields.size(), 4u );
    EXPECT_EQ( fields[0], &pcm___module_record );
    for ( int i : { 1, 2, 3 } ) EXPECT_EQ( fields[i] == nullptr, i == 2 ) << i;
}

TEST( Module, RecordNamesProductAndBuild )
{
#if INTPTR_MAX == INT64_MAX // words of 8 bytes, all of them
    ASSERT_EQ( sizeof pcm___module_record, 14 * sizeof( void * ) );
    auto *numbers = reinterpret_cast<const int64_t *>( &pcm___module_record );
    auto *texts = reinterpret_cast<const char *const *>( &pcm___module_record );
    for ( auto [index, number] : { std::pair( 0, 2 ), { 3, 4 }, { 4, 14 }, { 5, 19 } } )
        EXPECT_EQ( numbers[index], number ) << index;
    for ( auto [index, text] : { std::pair( 1, "velmorix" ), { 2, "velmorix suite" }, { 9, "pcm" },
              { 10, "Pulse Code Modulated Audio Data" }, { 11, "0.0" }, { 12, "kit" }, { 13, "" } } )
        EXPECT_STREQ( texts[index], text ) << index;
    for ( int index : { 7, 8 } ) EXPECT_STRNE( texts[index], "" ) << index; // maker and notice
#endif
    // The C library computes the same day of the week.
    std::tm time = {};
    char text[64];
    ASSERT_TRUE( strptime( pcm___module_record.buildTime, "UTC %Y-%m-%d %H:%M:%S (", &time ) );
    time.tm_wday = -1;
    EXPECT_LE( timegm( &time ), std::time( nullptr ) );
    std::strftime( text, sizeof text, "UTC %Y-%m-%d %H:%M:%S (%A)", &time );
    EXPECT_STREQ( pcm___module_record.buildTime, text );
}

TEST( Module, VersionStringHasItsForm )
{
    const std::string version = pcm___module_version_string,
                      start = "###QM_VERSION### velmorix-" PCM_TEST_VERSION " (";
    char place[64] = {}, bits[3] = {}, flavour[32] = {};
    std::sscanf( version.c_str() + start.size(), "%63[^()] (%2[0-9] bit), %31[A-Za-z]", place, bits, flavour );
    if ( place[0] ) place[std::strlen( place ) - 1] = 0; // the blank before the width
    EXPECT_EQ( version, start + place + " (" + bits + " bit), " + flavour + "), pcm 0.0" );
#if defined( __linux__ ) && defined( __x86_64__ )
    EXPECT_EQ( std::string( place ) + bits, "Linux, x8664" );
#endif
#ifdef NDEBUG
    EXPECT_STRNE( flavour, "Debug" );
#else
    EXPECT_STREQ( flavour, "Debug" );
#endif
}

TEST( Module, StartsAndStopsAgainAndAgain )
{
    test::NoLeaks noLeaks;
    for ( int i = 0; i < 100; ++i ) {
        kitModuleShutdown( pcmModule() );
        EXPECT_EQ( pcmModule()->startup(), 1 );
    }
    EXPECT_EQ( pcm::srcTypeFromString( "PCM_SRC_TYPE_LINEAR" ), pcm::SrcType::linear );
}

TEST( Module, StartsAreCounted )
{
    test::NoLeaks noLeaks;
    const pcm::Coefficients before( pcm::FilterType::lowpass4000At16000 );
    {
        pcm::Module outer;
        pcm::Module inner;
        kitModuleStartup( pcmModule() );
        kitModuleShutdown( pcmModule() );
    }
    EXPECT_EQ( pcm::Coefficients( pcm::FilterType::lowpass4000At16000 ), before );
    EXPECT_EQ( pcm::noise::gather( 10 ).frames(), 10 );
    EXPECT_EXIT( ( kitModuleShutdown( pcmModule() ), (void)pcm::noise::gather( 10 ) ),
        testing::KilledBySignal( SIGABRT ), "pcm_noise\\|pcm::moduleIsStarted\\(\\)" );
    EXPECT_EXIT( ( kitModuleShutdown( pcmModule() ), kitModuleShutdown( pcmModule() ) ),
        testing::KilledBySignal( SIGABRT ), "pcm_module\\|starts > 0" );
}

TEST( AllocationSize, NotesAnyProduct )
{
    test::NoLeaks noLeaks;
    const pcm::Packet pkt = test::packet( 1, 1 );
    for ( int64_t n : { INT64_MAX, int64_t{ 1 } << 61, int64_t{ 1 } << 32 } ) {
        kit___ObjDbgSetAllocationSizeN( pkt.obj(), n, n );
        EXPECT_EQ( kit___ObjDbgAllocationSize( pkt.obj() ), INT64_MAX );
        EXPECT_EQ( pcm::Packet::use( pcm::allocate<float>( 4 ), n, 1 ).channels(), n );
    }
}

} // namespace
