#include "operations.h"
#include "support.h"

#include <cfloat>

using operations::converted;
using reference::bytesOf, reference::Encoding, reference::floatOf;
using Bytes = std::vector<uint8_t>;

static constexpr PCM_ENCODING ALAW = PCM_ENCODING_G711_ALAW, MULAW = PCM_ENCODING_G711_MULAW, I8 = PCM_ENCODING_INT_8,
                              I16 = PCM_ENCODING_INT_16, I24 = PCM_ENCODING_INT_24, I32 = PCM_ENCODING_INT_32,
                              F32 = PCM_ENCODING_FLOAT_32, U = PCM_ENCODING_UNSIGNED, BIG = PCM_ENCODING_BIG_ENDIAN,
                              BEFORE = PCM_ENCODING_PAD_BEFORE, AFTER = PCM_ENCODING_PAD_AFTER,
                              P16 = PCM_ENCODING_PACK_16, P24 = PCM_ENCODING_PACK_24, P32 = PCM_ENCODING_PACK_32,
                              P64 = PCM_ENCODING_PACK_64;

/// Integer and G.711 encodings without padding. The first ten are the columns of the table below.
static constexpr uint64_t dense[] = { I8, I8 | U, I16, I16 | U, I24, I24 | U, I32, I32 | U, ALAW, MULAW, I16 | BIG,
    I16 | U | BIG, I24 | BIG, I24 | U | BIG, I32 | BIG, I32 | U | BIG };

/// Samples at which a conversion changes its behavior, and their neighbors.
static std::vector<float> edges()
{
    std::vector<float> all;
    for ( uint32_t nan : { 0x7FC00000u, 0xFFC00000u, 0x7F800001u, 0xFF800001u, 0x7FFFFFFFu, 0xFFBFFFFFu } )
        all.push_back( floatOf( nan ) );
    for ( float x : { 0.0f, FLT_MIN, FLT_MAX, INFINITY, 2.0f, 1.0f, 0.5f, 32767.0f / 32768, 8.0f / 32768,
              1.0f / 32768, 1e-9f, 0x1p-7f, 0x1p-23f, 0x1p-24f, 0x1p-25f, 0x1p-31f, 0x1p-32f, 0x1p32f } )
        for ( float y : { x, std::nextafter( x, INFINITY ), std::nextafter( x, -INFINITY ) } )
            all.insert( all.end(), { y, -y } );
    return all;
}

/// A sample from a little below -1 to a little above 1.
static float nearFullScale( test::Choices &random ) { return float( int32_t( random.word() ) ) * 0x1.1p-31f; }

/// Compares a conversion with that of the model.
static testing::AssertionResult converts( uint64_t dest, uint64_t source, const Bytes &bytes )
{
    const Bytes got = converted( dest, source, bytes ), want = reference::convert( dest, source, bytes );
    if ( got == want ) return testing::AssertionSuccess();
    auto wrong = std::mismatch( got.begin(), got.end(), want.begin(), want.end() ).first - got.begin();
    return testing::AssertionFailure() << std::hex << source << " to " << dest << ": byte 0x" << wrong << " is wrong";
}

/// The code of one sample.
static uint32_t encoded( uint64_t word, float x )
{
    return reference::read( Encoding{ word }, converted( word, 0, bytesOf( { x } ) ).data() );
}

// In-place conversion requires a destination slot without padding that is not wider than the source slot. The random
// walks convert between different blocks.
TEST( Convert, InPlace )
{
    test::Seeded random( test::seed( 33 ) );
    const auto words = reference::layouts();
    for ( uint64_t dest : words )
        for ( int i = 0; i < 8; ++i ) {
            const uint64_t source = i ? random.oneOf( words ) : 0;
            const Encoding to{ dest }, from{ source };
            if ( to.slot() != to.width() || to.slot() > from.slot() ) continue;
            const int64_t samples = random.upTo( 700 );
            const Bytes given = random.bytes( samples * from.slot() );
            Bytes block = reference::inMemory( source, given );
            pcm___Convert( block.data(), dest, block.data(), source, samples );
            block.resize( size_t( samples * to.slot() ) );
            ASSERT_EQ( reference::inMemory( dest, block ), reference::convert( dest, source, given ) )
                << std::hex << source << " to " << dest;
        }
}

TEST( Convert, CodesAndFloatsWithoutPadding )
{
    test::Seeded random( test::seed( 32 ) );
    auto samples = edges();
    for ( int i = -65600; i <= 65600; ++i ) // around the steps of encodings up to 16 bits
        for ( float x : { -1.0f, float( i ) / 65536, 1.0f } )
            samples.push_back( std::nextafter( float( i ) / 65536, x ) );
    for ( int i = 0; i < 1 << 19; ++i )
        samples.insert( samples.end(), { floatOf( uint32_t( random.word() ) ), nearFullScale( random ) } );
    const Bytes given = bytesOf( samples );
    for ( uint64_t word : dense ) {
        Encoding e{ word };
        Bytes codes = random.bytes( e.width() > 2 ? e.width() << 19 : 0 );
        for ( uint32_t code : { 0x1000001u, 0x1000003u, 0x7FFFFFBFu, 0x7FFFFFC0u, 0xFFFFFF7Fu, 0xFFFFFF80u } )
            reference::append( e, code, codes );
        for ( uint32_t code = 0; code < 1 << 16; ++code ) reference::append( e, code, codes );
        EXPECT_TRUE( converts( 0, word, codes ) );
        EXPECT_TRUE( converts( word, 0, given ) );
    }
}

TEST( Convert, EdgesOfEachEncoding )
{
    static const struct {
        std::vector<float> samples;
        uint32_t codes[10];
    } rows[] = { { { 1.0f, 1.0000001f, 2.0f, FLT_MAX, INFINITY },
                     { 0x7F, 0xFF, 0x7FFF, 0xFFFF, 0x7FFFFF, 0xFFFFFF, 0x7FFFFFFF, 0xFFFFFFFF, 0xAA, 0x80 } },
        { { -1.0f, -1.0000001f, -2.0f, -FLT_MAX, -INFINITY },
            { 0x80, 0, 0x8000, 0, 0x800000, 0, 0x80000000, 0, 0x2A, 0 } },
        { { 0.0f, -0.0f, 1e-45f }, { 0, 0x80, 0, 0x8000, 0, 0x800000, 0, 0x80000000, 0xD5, 0xFF } },
        { { 0.5f }, { 0x40, 0xC0, 0x4000, 0xC000, 0x400000, 0xC00000, 0x40000000, 0xC0000000, 0xA5, 0x8F } },
        { { -0.5f }, { 0xC0, 0x40, 0xC000, 0x4000, 0xC00000, 0x400000, 0xC0000000, 0x40000000, 0x25, 0x0F } },
        { { NAN, -NAN, floatOf( 0x7F800001 ) }, { 0x80, 0, 0x8000, 0, 0x800000, 0, 0x80000000, 0, 0xD5, 0xFF } },
        { { 0.99999994f }, { 0x7F, 0xFF, 0x7FFF, 0xFFFF, 0x7FFFFF, 0xFFFFFF, 0x7FFFFF80, 0xFFFFFFFF, 0xAA, 0x80 } },
        { { -1e-9f }, { 0xFF, 0x80, 0xFFFF, 0x8000, 0xFFFFFF, 0x800000, 0xFFFFFFFE, 0x80000000, 0xD5, 0xFF } } };
    for ( auto &row : rows )
        for ( float x : row.samples )
            for ( size_t i = 0; i < 10; ++i )
                EXPECT_EQ( encoded( dense[i], x ), row.codes[i] ) << x << " as " << std::hex << dense[i];

    struct Entry {
        uint64_t word;
        uint32_t code;
        float value;
    };
    for ( auto &[word, code, value] : std::initializer_list<Entry>{ { I16, 0x7FFF, 0.999969482421875f },
              { I24 | U, 0xFFFFFF, 0.99999988079071044921875f }, { I32, 0x7FFFFFFF, 1 }, { I32 | U, 0x7FFFFFFF, 0 },
              { I32 | U, 0x80000001, 0 }, { ALAW, 0xD5, 0x8p-15f }, { ALAW, 0x2A, -0.984375f },
              { MULAW, 0x80, 32120 / 32768.0f }, { MULAW, 0x0F, -16768 / 32768.0f }, { MULAW, 0x7F, 0 } } ) {
        Bytes slot;
        reference::append( Encoding{ word }, code, slot );
        EXPECT_EQ( converted( 0, word, slot ), bytesOf( { value } ) ) << std::hex << word << ' ' << code;
    }

    // Values with these G.711 codes, on a 16-bit scale. The code of the negated value differs in the top bit.
    for ( auto &[law, code, value] : std::initializer_list<Entry>{ { ALAW, 0x55, 8 }, { ALAW, 0x54, 16 },
              { ALAW, 0x5A, 248 }, { ALAW, 0x45, 256 }, { ALAW, 0x2A, 31744 }, { MULAW, 0x70, 120 },
              { MULAW, 0x6F, 128 }, { MULAW, 0x01, 31615 }, { MULAW, 0x00, 31616 }, { MULAW, 0x7F, 6.55f } } )
        for ( float sign : { 1.0f, -1.0f } )
            EXPECT_EQ( encoded( law | U, sign * value / 32768 ), sign > 0 ? code | 0x80 : code )
                << law << ' ' << value;
}

TEST( Convert, BytesOfSlots )
{
    static constexpr float x = 0x1234 / 32768.0f;
    static const float y = floatOf( 0x11223344 );
    static const struct {
        uint64_t word;
        float sample;
        Bytes bytes;
    } rows[] = { { I16 | P32, x, { 0x34, 0x12, 0, 0 } }, { I16 | P32 | BIG, x, { 0, 0, 0x12, 0x34 } },
        { I16 | P32 | BEFORE, x, { 0, 0, 0x34, 0x12 } }, { I16 | P24 | U | BIG | AFTER, x, { 0x92, 0x34, 0 } },
        { I24 | P16 | BIG, x, { 0x12, 0x34, 0 } }, { MULAW | P64, 0.0f, { 0xFF, 0, 0, 0, 0, 0, 0, 0 } },
        { F32 | BIG, y, { 0x11, 0x22, 0x33, 0x44 } }, { BIG | P64, y, { 0, 0, 0, 0, 0x44, 0x33, 0x22, 0x11 } } };
    for ( auto &row : rows ) {
        SCOPED_TRACE( testing::PrintToString( row.bytes ) );
        EXPECT_EQ( converted( row.word, 0, bytesOf( { row.sample } ) ), row.bytes );
        EXPECT_EQ( converted( 0, row.word, row.bytes ), bytesOf( { row.sample } ) );
    }
}
