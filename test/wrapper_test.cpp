#include "support.h"

#include <pcm/pcm.hpp>

#include <cstring>
#include <sstream>

// pcm.hpp beside the C functions that it stands for: both do the same work on equal objects.

namespace {

using pcm::Encoding, pcm::adopt;
using Samples = std::vector<float>;

const Samples twelve = { 1, -2, 3, -4, 5, -6, 7, -8, 9, -10, 11, -12 }, six = { 0.5, 0.25, 0.125, -0.5, -0.25, 2 };

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

// The objects of one class in the life of a host: copied, moved, assigned, handed to C and back.
template <class T> void livesAndEnds( T made )
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

template <class T> void isOfASort( T made, KIT_SORT *sort )
{
    EXPECT_EQ( T::sort(), sort );
    EXPECT_EQ( T::from( made.obj() ), made );
    livesAndEnds( std::move( made ) );
}

pcm::Coefficients mean() { return pcm::Coefficients( Samples{ 0.5, 0.25 } ); }

TEST( Wrapper, ObjectsAreValues )
{
    isOfASort( pcm::Packet( 2 ), pcmPacketSort() );
    isOfASort( pcm::Queue( 2 ), pcmPacketQueueSort() );
    isOfASort( mean(), pcmFilterCoefficientsSort() );
    isOfASort( pcm::Filter( mean(), 1 ), pcmFilterSort() );
    isOfASort( *pcm::Src::tryCreate( pcm::SrcType::linear, 2, 1, 1 ), pcmSrcSort() );
    isOfASort( pcm::Tone( 4 ), pcmToneSort() );
    livesAndEnds( pcm::String( "text" ) );
    livesAndEnds( pcm::Buffer( std::as_bytes( std::span( twelve ) ) ) );
    EXPECT_EQ( pcm::String( "te\0xt" ).view(), "te" );
    EXPECT_EQ( pcm::String( std::string_view( "te\0xt", 5 ) ).str().size(), 5 );
}

TEST( Wrapper, EncodingsComposeAndPrintThemselves )
{
    const Encoding all[] = { Encoding::alaw, Encoding::mulaw, Encoding::int8, Encoding::int16, Encoding::int24,
        Encoding::int32, Encoding::float32, Encoding::unsignedCodes, Encoding::bigEndian, Encoding::littleEndian,
        Encoding::padBefore, Encoding::padAfter, Encoding::pack16, Encoding::pack24, Encoding::pack32,
        Encoding::pack40, Encoding::pack48, Encoding::pack56, Encoding::pack64 };
    for ( size_t i = 0; i < std::size( all ); ++i ) EXPECT_EQ( all[i].word(), PCM_ENCODING( 1 ) << i );
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

TEST( Wrapper, NamesOfTypesAreOptional )
{
    using F = pcm::FilterType;
    const F filters[] = { F::lowpass4000At16000, F::lowpass4000At24000, F::lowpass4000At48000, F::lowpass6000At24000,
        F::lowpass6000At48000, F::lowpass8000At48000, F::lowpass12000At48000 };
    for ( size_t i = 0; i < std::size( filters ); ++i ) {
        EXPECT_EQ( printed( filters[i] ), pcm::textOf( pcmFilterTypeToString( int64_t( i ) ) ) );
        EXPECT_EQ( pcm::filterTypeFromString( to_string( filters[i] ) ), filters[i] );
        EXPECT_EQ( pcm::Coefficients( filters[i] ),
            pcm::Coefficients( adopt, pcmFilterCoefficientsCreate( int64_t( i ) ) ) );
    }
    EXPECT_EQ( pcm::filterTypeFromString( "LOWPASS" ), std::nullopt );
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
    test::NoLeaks noLeaks;
    pcm::Packet pkt( twelve, 3 ), other = pkt;
    EXPECT_EQ( pkt.frames(), 4 );
    EXPECT_EQ( pkt.channels(), 3 );
    EXPECT_EQ( pkt.backing(), pcmPacketBacking( pkt.get() ) );
    EXPECT_EQ( Samples( pkt.frame( 2 ).begin(), pkt.frame( 2 ).end() ), ( Samples{ 7, -8, 9 } ) );
    pkt.mutableSamples()[1] = 20;
    pkt.mutableFrame( 3 )[2] = 30;
    pkt.mutableBacking()[0] = 10;
    EXPECT_EQ( samplesOf( pkt ), ( Samples{ 10, 20, 3, -4, 5, -6, 7, -8, 9, -10, 11, 30 } ) );
    EXPECT_EQ( samplesOf( other ), twelve );
    pcm::Packet copy = other.clone();
    EXPECT_NE( copy, other );
    EXPECT_EQ( samplesOf( copy ), twelve );
    EXPECT_EQ( samplesOf( other.withChannels( 1 ) ), ( Samples{ 2, -5, 8, -11 } ) );
    EXPECT_EQ( samplesOf( other.withChannelMask( 5 ) ), ( Samples{ 1, 3, -4, -6, 7, 9, -10, -12 } ) );
    auto block = pcm::allocate<PCM_SAMPLE>( 6 );
    std::copy( six.begin(), six.end(), block.get() );
    float *address = block.get();
    pcm::Packet used = pcm::Packet::use( std::move( block ), 3, 2 );
    EXPECT_EQ( used.backing(), address );
    EXPECT_EQ( samplesOf( used ), six );
    EXPECT_EQ( used.frames(), 2 );
    (void)pcm::allocate<float>( 5 ); // frees itself
}

TEST( Wrapper, BytesComeAndGo )
{
    test::NoLeaks noLeaks;
    const Samples codes = { 0.5, -0.25 };
    pcm::Packet pkt( codes, 1 );
    pcm::Buffer bytes = pkt.encode( Encoding::int16 | Encoding::bigEndian );
    const std::byte expected[] = { std::byte( 0x40 ), {}, std::byte( 0xE0 ), {} };
    ASSERT_EQ( bytes.length(), 4 );
    EXPECT_EQ( std::memcmp( bytes.bytes().data(), expected, 4 ), 0 );
    EXPECT_EQ( samplesOf( *pcm::Packet::tryDecode( bytes, Encoding::int16 | Encoding::bigEndian, 1 ) ), codes );
    EXPECT_EQ( pcm::Packet::tryDecode( bytes, Encoding::int24, 1 ), std::nullopt );
    auto swapped = pcm::tryConvert( Encoding::int16, bytes, Encoding::int16 | Encoding::bigEndian );
    ASSERT_TRUE( swapped );
    EXPECT_EQ( swapped->bytes()[1], std::byte( 0x40 ) );
    EXPECT_EQ(
        pcm::tryConvert( Encoding::int16, pcm::Buffer( std::span<std::byte>() ), Encoding::int16 ), std::nullopt );
    Samples back( 2 );
    pcm::convert( std::as_writable_bytes( std::span( back ) ), Encoding::samples, bytes.bytes(),
        Encoding::int16 | Encoding::bigEndian, 2 );
    EXPECT_EQ( back, codes );
    auto block = pcm::allocate<std::byte>( 3 );
    void *address = block.get();
    EXPECT_EQ( pcm::Buffer::use( std::move( block ), 3 ).bytes().data(), address );
}

// What a queue, a filter and a converter have in common: everything that comes out of the stream, by all ways.
template <class Stream> Samples flow( Stream &stream )
{
    for ( int i = 0; i < 3; ++i ) stream.write( pcm::Packet( twelve, 2 ) );
    const int64_t frames = stream.frames();
    EXPECT_EQ( stream.packets(), 3 );
    EXPECT_EQ( stream.channels(), 2 );
    Samples out = samplesOf( stream.gather( 1 ) ), block( 8, 1 );
    stream.gather( std::span( block ).first( 4 ), 2 );
    stream.gatherAdd( std::span( block ).last( 4 ), 2 );
    for ( size_t i = 4; i < 8; ++i ) block[i] -= 1;
    out.insert( out.end(), block.begin(), block.end() );
    for ( ; stream.packets(); ) {
        const Samples rest = samplesOf( stream.read() );
        out.insert( out.end(), rest.begin(), rest.end() );
    }
    EXPECT_EQ( stream.frames(), 0 );
    EXPECT_EQ( int64_t( out.size() ), 2 * frames );
    stream.write( pcm::Packet( twelve, 2 ) );
    return out;
}

TEST( Wrapper, StreamsFlow )
{
    test::NoLeaks noLeaks;
    Samples thrice, halves;
    for ( int i = 0; i < 3; ++i ) thrice.insert( thrice.end(), twelve.begin(), twelve.end() );
    for ( float x : thrice ) halves.push_back( x / 16 );
    pcm::Queue queue( 2 );
    EXPECT_EQ( flow( queue ), thrice );
    pcm::Queue copy = queue, clone = queue.clone();
    EXPECT_NE( clone, queue );
    queue.clear();
    EXPECT_EQ( queue.packets(), 0 );
    EXPECT_EQ( copy.packets() + clone.packets(), 2 );

    pcm::Coefficients taps( Samples{ 0.0625 } );
    pcm::Filter filter( taps, 2 );
    EXPECT_EQ( filter.coefficients(), taps );
    EXPECT_EQ( flow( filter ), halves );
    pcm::Filter twin = filter.clone();
    EXPECT_NE( twin, filter );
    filter.reset();
    EXPECT_EQ( filter.packets(), 0 );
    EXPECT_EQ( twin.packets(), 1 );
    EXPECT_NE( taps.clone(), taps );
    EXPECT_EQ( taps.clone().taps()[0], 0.0625f );
    auto block = pcm::allocate<PCM_SAMPLE>( 2 );
    float *address = block.get();
    EXPECT_EQ( pcm::Coefficients::use( std::move( block ), 2 ).taps().data(), address );
    EXPECT_EQ( pcm::Coefficients( pcm::FilterType::lowpass4000At16000 ).length(), 16 );

    pcm::Src src = *pcm::Src::tryCreate( pcm::SrcType::zeroOrderHold, 2000, 1000, 2 ), same = src;
    pcm::Src whole = *pcm::Src::tryCreate( pcm::SrcType::zeroOrderHold, 2000, 1000, 2 );
    whole.write( pcm::Packet( thrice, 2 ) );
    EXPECT_EQ( flow( src ), samplesOf( whole.read() ) );
    EXPECT_EQ( same.packets(), 1 ); // one stream with two holders
    src.reset();
    EXPECT_EQ( same.packets(), 0 );
    EXPECT_EQ( src.readFrameRate(), 2000 );
    EXPECT_EQ( src.writeFrameRate(), 1000 );
    EXPECT_EQ( src.type(), pcm::SrcType::zeroOrderHold );
    EXPECT_TRUE( pcm::Src::isCompatible( 2000, 1000 ) );
    EXPECT_FALSE( pcm::Src::isCompatible( 1000000, 1 ) );
    EXPECT_EQ( pcm::Src::tryCreate( pcm::SrcType::linear, 1000000, 1, 1 ), std::nullopt );
}

TEST( Wrapper, TheModuleTellsItsBuild )
{
    EXPECT_EQ( &pcm::Module::record(), &pcm___module_record );
    EXPECT_EQ( pcm::Module::version(), pcm___module_version_string );
}

} // namespace
