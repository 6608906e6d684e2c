#include "support.h"

#include <pcm/pcm.hpp>

#include <sstream>

// What the walks do not cover of pcm.hpp.

namespace {

using pcm::Encoding, pcm::adopt;
using Samples = std::vector<float>;

const Samples twelve = { 1, -2, 3, -4, 5, -6, 7, -8, 9, -10, 11, -12 };

Samples samplesOf( const pcm::Packet &pkt ) { return { pkt.samples().begin(), pkt.samples().end() }; }

template <class T> std::string printed( const T &value )
{
    std::ostringstream out;
    out << value;
    return out.str();
}

static_assert( sizeof( pcm::Packet ) == sizeof( PCM_PACKET * ) && sizeof( Encoding ) == sizeof( PCM_ENCODING ) );
static_assert( std::is_nothrow_move_constructible_v<pcm::Packet> && std::is_nothrow_move_assignable_v<pcm::Packet> );
static_assert( !std::is_copy_constructible_v<pcm::Module> );
static_assert( ( Encoding::int24 | Encoding::pack32 | Encoding::bigEndian ).word() == 0x4110 );

// Copies, moves, assigns and detaches a handle.
template <class T> void checkLifetime( T made )
{
    test::NoLeaks noLeaks;
    ASSERT_EQ( made.references(), 1 );
    T copy = made, empty;
    EXPECT_EQ( made.references(), 2 );
    EXPECT_TRUE( copy == made && copy && !empty && copy != empty );
    EXPECT_EQ( copy <=> empty, kitObjCompare( copy.obj(), nullptr ) <=> 0 );
    T moved = std::move( copy );
    EXPECT_FALSE( copy ); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ( moved.get(), made.get() );
    copy = moved;
    EXPECT_EQ( made.references(), 3 );
    T &same = copy;
    copy = same;
    copy = std::move( same );
    EXPECT_EQ( made.references(), 3 );
    empty = std::move( copy );
    copy = moved = T();
    EXPECT_EQ( made.references(), 2 );
    auto *raw = empty.detach();
    EXPECT_FALSE( empty );
    EXPECT_EQ( made.references(), 2 );
    empty = T( adopt, raw );
    EXPECT_EQ( *empty.address(), made.get() );
    EXPECT_EQ( to_string( made ), pcm::textOf( kitObjToString( made.obj() ) ) );
    EXPECT_EQ( printed( made ), to_string( made ) );
}

template <class T> void checkType( T made, KIT_SORT *sort )
{
    EXPECT_EQ( T::sort(), sort );
    EXPECT_EQ( T::from( made.obj() ), made );
    checkLifetime( std::move( made ) );
}

pcm::Coefficients mean() { return pcm::Coefficients( Samples{ 0.5, 0.25 } ); }

TEST( Wrapper, HandlesCountReferences )
{
    checkType( pcm::Packet( 2 ), pcmPacketSort() );
    checkType( pcm::Queue( 2 ), pcmPacketQueueSort() );
    checkType( mean(), pcmFilterCoefficientsSort() );
    checkType( pcm::Filter( mean(), 1 ), pcmFilterSort() );
    checkType( *pcm::Src::tryCreate( pcm::SrcType::linear, 2, 1, 1 ), pcmSrcSort() );
    checkType( pcm::Tone( 4 ), pcmToneSort() );
    checkLifetime( pcm::String( "text" ) );
    checkLifetime( pcm::Buffer( std::as_bytes( std::span( twelve ) ) ) );
    EXPECT_EQ( pcm::String( "te\0xt" ).view(), "te" );
    EXPECT_EQ( pcm::String( std::string_view( "te\0xt", 5 ) ).str().size(), 5 );
}

TEST( Wrapper, EncodingsComposeAndPrintThemselves )
{
    EXPECT_EQ( Encoding(), Encoding::samples );
    EXPECT_FALSE( Encoding::samples );
    EXPECT_EQ( printed( Encoding::int16 | Encoding::bigEndian ), "PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN" );
    EXPECT_EQ( to_string( Encoding::samples ), "0" );
    EXPECT_EQ( Encoding::fromString( "PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32" ), Encoding( 0x4010 ) );
    Encoding word = Encoding::int24;
    word |= Encoding::pack40;
    EXPECT_EQ( word.sizeofSample(), 5 );
    EXPECT_EQ( word.sizeofFrame( 3 ), 15 );
    EXPECT_EQ( word.base(), Encoding::int24 );
    word &= ~Encoding::pack40;
    EXPECT_EQ( word, Encoding::int24 );
    EXPECT_EQ( ( Encoding::int24 | Encoding::int8 ).normalized(), Encoding::int8 );
}

TEST( Wrapper, ConverterTypesHaveNames )
{
    using S = pcm::SrcType;
    const S converters[] = { S::sincBestQuality, S::sincMediumQuality, S::sincFastest, S::zeroOrderHold, S::linear };
    for ( size_t i = 0; i < std::size( converters ); ++i ) {
        EXPECT_EQ( printed( converters[i] ), pcm::textOf( pcmSrcTypeToString( int64_t( i ) ) ) );
        EXPECT_EQ( pcm::srcTypeFromString( to_string( converters[i] ) ), converters[i] );
        EXPECT_EQ( pcm::samplerateType( converters[i] ), pcm___SrcTypeToSamplerateConverterType( int64_t( i ) ) );
        EXPECT_EQ( pcm::Src::tryCreate( converters[i], 2, 1, 1 )->type(), converters[i] );
    }
    EXPECT_EQ( pcm::srcTypeFromString( "FAST" ), std::nullopt );
}

TEST( Wrapper, PacketsShowTheirSamples )
{
    pcm::Packet pkt( twelve, 3 );
    const pcm::Packet other = pkt;
    EXPECT_EQ( Samples( pkt.frame( 2 ).begin(), pkt.frame( 2 ).end() ), ( Samples{ 7, -8, 9 } ) );
    pkt.mutableSamples()[1] = 20;
    pkt.mutableFrame( 3 )[2] = 30;
    pkt.mutableBacking()[0] = 10;
    EXPECT_EQ( samplesOf( pkt ), ( Samples{ 10, 20, 3, -4, 5, -6, 7, -8, 9, -10, 11, 30 } ) );
    EXPECT_EQ( samplesOf( other ), twelve );
}

TEST( Wrapper, ConvertsSpans )
{
    const std::byte codes[] = { std::byte( 0x40 ), {}, std::byte( 0xE0 ), {} };
    Samples samples( 2 );
    pcm::convert( std::as_writable_bytes( std::span( samples ) ), Encoding::samples, codes,
        Encoding::int16 | Encoding::bigEndian, 2 );
    EXPECT_EQ( samples, ( Samples{ 0.5, -0.25 } ) );
}

TEST( Wrapper, TheModuleHasItsRecord )
{
    EXPECT_EQ( &pcm::Module::record(), &pcm___module_record );
    EXPECT_EQ( pcm::Module::version(), pcm___module_version_string );
}

} // namespace
