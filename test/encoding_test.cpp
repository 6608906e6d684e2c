#include "reference.h"
#include "support.h"

using reference::Encoding;

#define FLAG( name ) std::pair( #name, name )

/// Flag number i has bit i.
static const std::vector<std::pair<std::string, uint64_t>> flags = { FLAG( PCM_ENCODING_G711_ALAW ),
    FLAG( PCM_ENCODING_G711_MULAW ), FLAG( PCM_ENCODING_INT_8 ), FLAG( PCM_ENCODING_INT_16 ),
    FLAG( PCM_ENCODING_INT_24 ), FLAG( PCM_ENCODING_INT_32 ), FLAG( PCM_ENCODING_FLOAT_32 ),
    FLAG( PCM_ENCODING_UNSIGNED ), FLAG( PCM_ENCODING_BIG_ENDIAN ), FLAG( PCM_ENCODING_LITTLE_ENDIAN ),
    FLAG( PCM_ENCODING_PAD_BEFORE ), FLAG( PCM_ENCODING_PAD_AFTER ), FLAG( PCM_ENCODING_PACK_16 ),
    FLAG( PCM_ENCODING_PACK_24 ), FLAG( PCM_ENCODING_PACK_32 ), FLAG( PCM_ENCODING_PACK_40 ),
    FLAG( PCM_ENCODING_PACK_48 ), FLAG( PCM_ENCODING_PACK_56 ), FLAG( PCM_ENCODING_PACK_64 ) };

static uint64_t parse( const std::string &text ) { return pcmEncodingFromString( test::string( text ) ); }

static std::string generate( uint64_t word ) { return test::text( pcmEncodingToString( word ) ); }

TEST( Encoding, EveryWordNormalisesAndHasItsSize )
{
    test::Random random( 21 );
    for ( uint64_t word = 0; word < 1 << 19; ++word ) {
        Encoding e{ word };
        for ( uint64_t given : { word, word | random() << 19 } )
            if ( pcmEncodingNormalize( given ) != e.normalized() || pcmEncodingSizeofSample( given ) != e.slot() )
                FAIL() << std::hex << given << " gives " << pcmEncodingNormalize( given ) << " and "
                       << pcmEncodingSizeofSample( given ) << ", want " << e.normalized() << " and " << e.slot();
    }
}

TEST( Encoding, SizesOfFrames )
{
    static constexpr struct {
        uint64_t word;
        int64_t channels, bytes;
    } rows[] = { { 0, 1, 4 }, { 0x80, 1, 4 }, { 0x80000, 3, 12 }, { PCM_ENCODING_INT_24, 2, 6 },
        { PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_16, 1, 3 }, { PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32, 1, 4 },
        { PCM_ENCODING_INT_16 | PCM_ENCODING_INT_24, 1, 2 }, { PCM_ENCODING_G711_ALAW | PCM_ENCODING_FLOAT_32, 5, 5 },
        { PCM_ENCODING_INT_32 | PCM_ENCODING_PACK_16 | PCM_ENCODING_PACK_64, 1, 4 },
        { PCM_ENCODING_PACK_64, 700, 5600 }, { 0, 0x1FFFFFFFFFFFFFFF, 0x7FFFFFFFFFFFFFFC },
        { PCM_ENCODING_INT_8, INT64_MAX, INT64_MAX }, { PCM_ENCODING_PACK_56, INT64_MAX / 7, INT64_MAX } };
    for ( auto &row : rows )
        EXPECT_EQ( pcmEncodingSizeofFrame( row.word, row.channels ), row.bytes ) << std::hex << row.word;
}

TEST( Encoding, TextThereAndBack )
{
    test::NoLeaks noLeaks;
    test::Random random( 22 );
    ASSERT_EQ( flags.size(), 19u );
    for ( int i = -1; i < 2000; ++i ) {
        uint64_t word = i < 0 ? 0 : i < 19 ? uint64_t{ 1 } << i : random() & random();
        uint64_t normal = Encoding{ word }.normalized();
        std::string joined;
        for ( size_t bit = 0; bit < flags.size(); ++bit )
            if ( normal >> bit & 1 ) joined += ( joined.empty() ? "" : " | " ) + flags[bit].first;
        ASSERT_EQ( generate( word ), normal ? joined : "0" ) << std::hex << word;
        ASSERT_EQ( parse( generate( word ) ), normal ) << joined;
        ASSERT_TRUE( i < 0 || i > 18 || flags[size_t( i )].second == word ) << joined;
    }
    pcm___EncodingShutdown();
    pcm___EncodingStartup();
    EXPECT_EQ( generate( PCM_ENCODING_PACK_40 ), "PCM_ENCODING_PACK_40" );
}

TEST( Encoding, TextOfAnySpacingOrderAndNames )
{
    test::NoLeaks noLeaks;
    test::Random random( 23 );
    static const std::vector<std::string> spacings = { "", " ", "  ", "\t", " \r\n", "\v \f" };
    static const std::vector<std::string> strange = { "", "0", "1", "0x8", "NOISE", "pcm_encoding_int_16", "INT_16",
        "PCM_ENCODING_INT_", "PCM_ENCODING_INT_160", "PCM_ENCODING_INT_8 PCM_ENCODING_UNSIGNED" };
    auto any = [&random]( auto &list ) { return list[size_t( random.upTo( int64_t( list.size() ) - 1 ) )]; };
    for ( auto &name : strange ) EXPECT_EQ( parse( name ), 0u ) << name;
    for ( int i = 0; i < 2000; ++i ) {
        uint64_t word = 0;
        std::string given;
        for ( int64_t part = random.upTo( 6 ); part >= 0; --part ) {
            size_t bit = size_t( random.upTo( 24 ) );
            if ( bit < 19 ) word |= uint64_t{ 1 } << bit;
            given += any( spacings ) + ( bit < 19 ? flags[bit].first : any( strange ) ) + any( spacings );
            if ( part ) given += '|';
        }
        ASSERT_EQ( parse( given ), Encoding{ word }.normalized() ) << given;
    }
}
