#include "reference.h"
#include "support.h"

#include <cfloat>

using reference::bytesOf;
using reference::Encoding;
using reference::floatOf;
using reference::inMemory;
using reference::patternOf;
using Bytes = std::vector<uint8_t>;

static constexpr PCM_ENCODING ALAW = PCM_ENCODING_G711_ALAW, MULAW = PCM_ENCODING_G711_MULAW, I8 = PCM_ENCODING_INT_8,
                              I16 = PCM_ENCODING_INT_16, I24 = PCM_ENCODING_INT_24, I32 = PCM_ENCODING_INT_32,
                              F32 = PCM_ENCODING_FLOAT_32, U = PCM_ENCODING_UNSIGNED, BIG = PCM_ENCODING_BIG_ENDIAN,
                              LITTLE = PCM_ENCODING_LITTLE_ENDIAN, BEFORE = PCM_ENCODING_PAD_BEFORE,
                              AFTER = PCM_ENCODING_PAD_AFTER, P16 = PCM_ENCODING_PACK_16, P24 = PCM_ENCODING_PACK_24,
                              P32 = PCM_ENCODING_PACK_32, P40 = PCM_ENCODING_PACK_40, P64 = PCM_ENCODING_PACK_64;

/// The integer and G.711 forms without spare bytes; the first ten are the rows' columns below.
static constexpr uint64_t dense[] = { I8, I8 | U, I16, I16 | U, I24, I24 | U, I32, I32 | U, ALAW, MULAW, I16 | BIG,
    I16 | U | BIG, I24 | BIG, I24 | U | BIG, I32 | BIG, I32 | U | BIG };

static std::vector<uint64_t> layouts()
{
    std::vector<uint64_t> words;
    for ( uint64_t word = 0; word < 1 << 19; ++word )
        if ( Encoding{ word }.normalized() == word ) words.push_back( word );
    return words;
}

/// Samples around which something changes, with their neighbours.
static std::vector<float> telling()
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
static float nearFullScale( test::Random &random ) { return float( int32_t( random() ) ) * 0x1.1p-31f; }

static Bytes randomBytes( test::Random &random, int64_t count )
{
    Bytes bytes( static_cast<size_t>( count ) );
    for ( uint8_t &byte : bytes ) byte = uint8_t( random() >> 32 );
    return bytes;
}

/// The library's conversion of bytes, little-endian ones for word 0, between guards and out of a block that ends with
/// the samples, `shift` bytes off alignment.
static Bytes convert( uint64_t dest, uint64_t source, const Bytes &bytes, int64_t shift = 0 )
{
    int64_t samples = int64_t( bytes.size() ) / Encoding{ source }.slot(), guard = 16 + shift;
    int64_t size = samples * Encoding{ dest }.slot();
    Bytes from( bytes.size() + size_t( shift ) ), to( size_t( 2 * guard + size ), 0xA7 );
    const Bytes given = Encoding{ dest }.normalized() ? inMemory( source, bytes ) : bytes;
    std::copy( given.begin(), given.end(), from.begin() + shift );
    pcm___Convert( to.data() + guard, dest, from.data() + shift, source, samples );
    Bytes result( to.begin() + guard, to.end() - guard );
    to.erase( to.begin() + guard, to.end() - guard );
    EXPECT_EQ( to, Bytes( size_t( 2 * guard ), 0xA7 ) ) << std::hex << source << " to " << dest;
    return inMemory( dest, result );
}

/// Whether these bytes are what the model makes of the source; if not, the first wrong slot.
static testing::AssertionResult matches( const Bytes &got, uint64_t dest, uint64_t source, const Bytes &given )
{
    const Bytes want = reference::convert( dest, source, given );
    if ( got == want ) return testing::AssertionSuccess();
    size_t at = 0, slot = size_t( Encoding{ dest }.slot() );
    while ( at < std::min( got.size(), want.size() ) && got[at] == want[at] ) ++at;
    return testing::AssertionFailure() << std::hex << source << " to " << dest << std::dec << ": " << got.size()
                                       << " bytes of " << want.size() << ", sample " << at / slot << " is wrong";
}

static testing::AssertionResult converts( uint64_t dest, uint64_t source, const Bytes &bytes, int64_t shift = 0 )
{
    return matches( convert( dest, source, bytes, shift ), dest, source, bytes );
}

/// The library's bits for one float.
static uint32_t encoded( uint64_t word, float x )
{
    return reference::read( Encoding{ word }, convert( word, 0, bytesOf( { x } ) ).data() );
}

TEST( Convert, EveryLayoutAndLengthOnEveryPath )
{
    test::Random random( 31 );
    auto words = layouts();
    ASSERT_EQ( words.size(), 8u * 2 * 3 * 3 * 8 );
    auto samples = telling();
    for ( int i = 0; i < 40; ++i ) samples.push_back( nearFullScale( random ) );
    for ( uint64_t word : words ) {
        uint64_t given = word | random() << 19, other = random.oneOf( words );
        Bytes slots = randomBytes( random, 67 * Encoding{ word }.slot() );
        ASSERT_TRUE( converts( 0, given, slots, random.upTo( 7 ) ) );
        ASSERT_TRUE( converts( given, 0, bytesOf( samples ), random.upTo( 7 ) ) );
        ASSERT_TRUE( converts( other, given, slots, random.upTo( 7 ) ) );
    }
    static constexpr uint64_t some[] = { 0, LITTLE, U, F32, F32 | BIG, I16, I24 | BIG | P40, I32 | U, MULAW,
        1 << 19 };
    for ( uint64_t dest : some )
        for ( uint64_t source : some ) {
            pcm___Convert( nullptr, dest, nullptr, source, 0 );
            for ( int64_t length : { 0, 1, 3, 255, 256, 257, 1000 } )
                ASSERT_TRUE( converts( dest, source, randomBytes( random, length * Encoding{ source }.slot() ) ) );
        }
}

TEST( Convert, CodesAndFloatsOfTheDenseForms )
{
    test::Random random( 32 );
    auto samples = telling();
    for ( int i = -65600; i <= 65600; ++i ) // around the steps of the forms up to 16 bits
        for ( float x : { -1.0f, float( i ) / 65536, 1.0f } )
            samples.push_back( std::nextafter( float( i ) / 65536, x ) );
    for ( int i = 0; i < 1 << 19; ++i )
        samples.insert( samples.end(), { floatOf( uint32_t( random() ) ), nearFullScale( random ) } );
    const Bytes given = bytesOf( samples );
    for ( uint64_t word : dense ) {
        Encoding e{ word };
        Bytes codes = randomBytes( random, e.width() > 2 ? e.width() << 19 : 0 );
        for ( uint32_t code : { 0x1000001u, 0x1000003u, 0x7FFFFFBFu, 0x7FFFFFC0u, 0xFFFFFF7Fu, 0xFFFFFF80u } )
            reference::append( e, code, codes );
        for ( uint32_t code = 0; code < 1 << 16; ++code ) reference::append( e, code, codes );
        EXPECT_TRUE( converts( 0, word, codes ) );
        EXPECT_TRUE( converts( word, 0, given ) );
    }
}

TEST( Convert, EdgesOfTheForms )
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
        EXPECT_EQ( convert( 0, word, slot ), bytesOf( { value } ) ) << std::hex << word << ' ' << code;
    }

    // What gets a code of G.711, on a 16-bit scale; a value and its negative differ in the top bit.
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
        EXPECT_EQ( convert( row.word, 0, bytesOf( { row.sample } ) ), row.bytes );
        EXPECT_EQ( convert( 0, row.word, row.bytes ), bytesOf( { row.sample } ) );
    }
}

/// Bytes of a source that make so many bytes of a buffer or frames of a packet; -1: none.
TEST( Convert, WholeSamplesOfBuffersAndWholeFramesOfPackets )
{
    test::NoLeaks noLeaks;
    test::Random random( 34 );
    static constexpr struct {
        uint64_t dest, source;
        int64_t length, channels, result;
    } rows[] = { { I8, I16, 0, 0, -1 }, { I8, I16, 5, 0, -1 }, { I8, I16, 4, 0, 2 }, { 0, I24, 6, 0, 8 },
        { I16 | P64, I32 | P40, 1500, 0, 2400 }, { I8, I8 | P64, 4, 0, -1 }, { 0, I24, 18, 3, 2 },
        { 0, I24, 18, 4, -1 }, { 0, I16, 5, 2, -1 }, { 0, I16, 0, 5, 0 }, { 0, 0, 13, 3, -1 },
        { 0, ALAW | P40, 30, 3, 2 } };
    for ( auto &row : rows ) {
        SCOPED_TRACE( testing::Message() << std::hex << row.source << std::dec << ", " << row.length << " bytes" );
        Bytes given = randomBytes( random, row.length );
        test::Buffer source = test::buffer( given ), buffer;
        test::Packet packet;
        if ( row.channels )
            packet = pcmPacketTryDecode( source, row.source, row.channels );
        else
            buffer = pcmTryConvert( row.dest, source, row.source );
        EXPECT_EQ( packet ? pcmPacketFrames( packet ) : buffer ? kitBufferLength( buffer ) : -1, row.result );
        EXPECT_EQ( packet ? pcmPacketChannels( packet ) : row.channels, row.channels );
        EXPECT_EQ( packet ? packet.count() : buffer ? buffer.count() : 1, 1 );
        EXPECT_TRUE( source.count() == 1 && test::bytes( source ) == given );
        source = nullptr; // the result has memory of its own
        EXPECT_TRUE( !buffer || matches( inMemory( row.dest, test::bytes( buffer ) ), row.dest, row.source, given ) );
    }
}

TEST( Convert, PacketsThereAndBack )
{
    test::NoLeaks noLeaks;
    auto samples = telling();
    samples.resize( samples.size() / 6 * 6 );
    const Bytes given = bytesOf( samples );
    test::Buffer raw = test::buffer( given );
    for ( uint64_t word : layouts() ) {
        int64_t channels = 1 + int64_t( word >> 7 ) % 3;
        test::Packet packet = pcmPacketTryDecode( raw, 0, channels ), empty = pcmPacketCreate( channels );
        test::Buffer buffer = pcmPacketEncode( packet, word ), nothing = pcmPacketEncode( empty, word );
        test::expectPacket( packet, channels, samples, 1, true );
        ASSERT_TRUE( nothing && nothing.count() == 1 && kitBufferLength( nothing ) == 0 );
        packet = nullptr;
        const Bytes slots = test::bytes( buffer );
        ASSERT_TRUE( matches( slots, word, 0, given ) );
        packet = pcmPacketTryDecode( buffer, word, channels );
        ASSERT_TRUE( buffer.count() == 1 && packet.count() == 1 && test::bytes( buffer ) == slots );
        ASSERT_EQ( pcmPacketChannels( packet ), channels );
        buffer = nullptr;
        ASSERT_TRUE( matches( bytesOf( test::samples( packet ) ), 0, word, slots ) );
        ASSERT_FALSE( HasFailure() ) << std::hex << word;
    }
}
