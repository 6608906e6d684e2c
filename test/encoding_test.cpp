#include "reference.h"
#include "support.h"

using reference::Encoding;

using E = pcm::Encoding;

/// In the order of test::flagNames.
static const E flags[] = { E::alaw, E::mulaw, E::int8, E::int16, E::int24, E::int32, E::float32, E::unsignedCodes,
    E::bigEndian, E::littleEndian, E::padBefore, E::padAfter, E::pack16, E::pack24, E::pack32, E::pack40, E::pack48,
    E::pack56, E::pack64 };

static uint64_t parse( const std::string &text ) { return pcm::Encoding::fromString( text ).word(); }

static std::string generate( uint64_t word ) { return to_string( pcm::Encoding( word ) ); }

TEST( Encoding, EveryWordNormalisesAndHasItsSize )
{
    test::Seeded random( test::seed( 21 ) );
    for ( uint64_t word = 0; word < 1 << 19; ++word ) {
        Encoding e{ word };
        uint64_t given = random.upTo( 1 ) ? word : word | random.word() << 19;
        int64_t channels = random.upTo( 3 ) ? 1 + random.upTo( 9 ) : INT64_MAX / e.slot();
        if ( pcmEncodingNormalize( given ) != e.normalized() || pcmEncodingSizeofSample( given ) != e.slot() ||
             pcmEncodingSizeofFrame( given, channels ) != channels * e.slot() )
            FAIL() << std::hex << given << ": " << pcmEncodingNormalize( given ) << " and "
                   << pcmEncodingSizeofSample( given ) << ", want " << e.normalized() << " and " << e.slot();
    }
}

TEST( Encoding, TextThereAndBack )
{
    test::NoLeaks noLeaks;
    test::Seeded random( test::seed( 22 ) );
    ASSERT_EQ( std::size( flags ), 19u );
    for ( int i = -1; i < 2000; ++i ) {
        uint64_t word = i < 0 ? 0 : i < 19 ? uint64_t{ 1 } << i : random.word() & random.word();
        uint64_t normal = Encoding{ word }.normalized();
        std::string joined;
        for ( size_t bit = 0; bit < std::size( flags ); ++bit )
            if ( normal >> bit & 1 ) joined += ( joined.empty() ? "" : " | " ) + test::flagNames[bit];
        ASSERT_EQ( generate( word ), normal ? joined : "0" ) << std::hex << word;
        ASSERT_EQ( parse( generate( word ) ), normal ) << joined;
        ASSERT_TRUE( i < 0 || i > 18 || flags[i].word() == word ) << joined;
    }
}

TEST( Encoding, TextOfAnySpacingOrderAndNames )
{
    test::NoLeaks noLeaks;
    test::Seeded random( test::seed( 23 ) );
    static const std::vector<std::string> spacings = { "", " ", "  ", "\t", " \r\n", "\v \f" };
    static const std::vector<std::string> strange = { "", "0", "1", "0x8", "NOISE", "pcm_encoding_int_16", "INT_16",
        "PCM_ENCODING_INT_", "PCM_ENCODING_INT_160", "PCM_ENCODING_INT_8 PCM_ENCODING_UNSIGNED" };
    for ( auto &name : strange ) EXPECT_EQ( parse( name ), 0u ) << name;
    for ( int i = 0; i < 2000; ++i ) {
        uint64_t word = 0;
        std::string given;
        for ( int64_t part = random.upTo( 6 ); part >= 0; --part ) {
            size_t bit = size_t( random.upTo( 24 ) );
            if ( bit < 19 ) word |= uint64_t{ 1 } << bit;
            given += random.oneOf( spacings ) + ( bit < 19 ? test::flagNames[bit] : random.oneOf( strange ) );
            given += random.oneOf( spacings ) + ( part ? "|" : "" );
        }
        ASSERT_EQ( parse( given ), Encoding{ word }.normalized() ) << given;
    }
}
