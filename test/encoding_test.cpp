#include "reference.h"
#include "support.h"

using reference::Encoding;

#define FLAG( name ) std::pair( "PCM_ENCODING_" #name, PCM_ENCODING_##name )

/// Flag number i has bit i.
static const std::vector<std::pair<std::string, uint64_t>> flags = { FLAG( G711_ALAW ), FLAG( G711_MULAW ),
    FLAG( INT_8 ), FLAG( INT_16 ), FLAG( INT_24 ), FLAG( INT_32 ), FLAG( FLOAT_32 ), FLAG( UNSIGNED ),
    FLAG( BIG_ENDIAN ), FLAG( LITTLE_ENDIAN ), FLAG( PAD_BEFORE ), FLAG( PAD_AFTER ), FLAG( PACK_16 ),
    FLAG( PACK_24 ), FLAG( PACK_32 ), FLAG( PACK_40 ), FLAG( PACK_48 ), FLAG( PACK_56 ), FLAG( PACK_64 ) };

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
            FAIL() << std::hex << given << " gives " << pcmEncodingNormalize( given ) << " and "
                   << pcmEncodingSizeofSample( given ) << ", want " << e.normalized() << " and " << e.slot();
    }
}

TEST( Encoding, TextThereAndBack )
{
    test::NoLeaks noLeaks;
    test::Seeded random( test::seed( 22 ) );
    ASSERT_EQ( flags.size(), 19u );
    for ( int i = -1; i < 2000; ++i ) {
        uint64_t word = i < 0 ? 0 : i < 19 ? uint64_t{ 1 } << i : random.word() & random.word();
        uint64_t normal = Encoding{ word }.normalized();
        std::string joined;
        for ( size_t bit = 0; bit < flags.size(); ++bit )
            if ( normal >> bit & 1 ) joined += ( joined.empty() ? "" : " | " ) + flags[bit].first;
        ASSERT_EQ( generate( word ), normal ? joined : "0" ) << std::hex << word;
        ASSERT_EQ( parse( generate( word ) ), normal ) << joined;
        ASSERT_TRUE( i < 0 || i > 18 || flags[size_t( i )].second == word ) << joined;
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
            given += random.oneOf( spacings ) + ( bit < 19 ? flags[bit].first : random.oneOf( strange ) );
            given += random.oneOf( spacings ) + ( part ? "|" : "" );
        }
        ASSERT_EQ( parse( given ), Encoding{ word }.normalized() ) << given;
    }
}
