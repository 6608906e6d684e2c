// Any bytes as any encoding, between guards, off alignment and through all doors, beside the naive converter.

#include "../reference.h"
#include "../support.h"
#include "fuzz.h"

#include <cstring>
#include <memory>

using Bytes = std::vector<uint8_t>;
using reference::Encoding;

namespace {

/// A word of many flags or of few, at times with bits that have no meaning.
uint64_t someWord( fuzz::Reader &in )
{
    uint64_t word = in.word( 3 );
    if ( word >> 22 & 1 ) word &= in.word( 3 ) & in.word( 3 );
    return word >> 23 ? word | in.word( 8 ) : word & 0x7FFFF;
}

/// Blocks that end exactly with their bytes: the sanitizer watches what lies behind, the guard what lies before.
Bytes convert( uint64_t dest, uint64_t source, Bytes given, size_t destShift, size_t sourceShift )
{
    given = reference::inMemory( source, given );
    const size_t samples = given.size() / size_t( Encoding{ source }.slot() );
    const size_t size = samples * size_t( Encoding{ dest }.slot() );
    std::unique_ptr<uint8_t[]> to( new uint8_t[destShift + size] ), from( new uint8_t[sourceShift + given.size()] );
    std::memset( to.get(), 0xA7, destShift + size );
    std::copy( given.begin(), given.end(), from.get() + sourceShift );
    pcm___Convert( to.get() + destShift, dest, from.get() + sourceShift, source, int64_t( samples ) );
    for ( size_t i = 0; i < destShift; ++i ) EXPECT_EQ( to[i], 0xA7 );
    EXPECT_TRUE( std::equal( given.begin(), given.end(), from.get() + sourceShift ) );
    return reference::inMemory( dest, { to.get() + destShift, to.get() + destShift + size } );
}

void breakConvert( fuzz::Reader &in, uint64_t dest, uint64_t source )
{
    static uint8_t block[8];
    const int64_t samples = in.number( 0 ), choice = in.upTo( 3 );
    uint8_t *to = choice & 1 ? nullptr : block, *from = choice & 2 ? nullptr : block;
    auto tooMany = [&]( uint64_t word ) { return __int128( samples ) * Encoding{ word }.slot() > INT64_MAX; };
    const char *text = samples < 0         ? "samples >= 0"
                       : samples && !to    ? "dest || samples == 0"
                       : samples && !from  ? "source || samples == 0"
                       : tooMany( dest )   ? "KIT_INT_MUL_OK( destSize, samples )"
                       : tooMany( source ) ? "KIT_INT_MUL_OK( sourceSize, samples )"
                                           : nullptr;
    if ( text ) return test::mustBreak( text, [&] { pcm___Convert( to, dest, from, source, samples ); } );
    if ( samples < 2 ) pcm___Convert( to, dest, from, source, samples );
}

void measure( fuzz::Reader &in, uint64_t word )
{
    const Encoding e{ word };
    const int64_t channels = in.number( 4 );
    EXPECT_EQ( pcmEncodingNormalize( word ), e.normalized() );
    EXPECT_EQ( pcmEncodingSizeofSample( word ), e.slot() );
    EXPECT_EQ( pcmEncodingFromString( test::String( pcmEncodingToString( word ) ) ), e.normalized() );
    const char *text = channels <= 0                                 ? "channels > 0"
                       : __int128( channels ) * e.slot() > INT64_MAX ? "KIT_INT_MUL_OK( channels, s )"
                                                                     : nullptr;
    if ( text )
        test::mustBreak( text, [&] { pcmEncodingSizeofFrame( word, channels ); } );
    else
        EXPECT_EQ( pcmEncodingSizeofFrame( word, channels ), channels * e.slot() );
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t *data, size_t size )
{
    test::NoLeaks noLeaks;
    fuzz::Reader in( data, size );
    const uint64_t dest = someWord( in ), source = someWord( in );
    const auto shift = in.byte();
    const int64_t channels = 1 + in.upTo( 4 ), repeats = 1 + in.upTo( 63 );
    measure( in, source );
    if ( in.upTo( 7 ) == 7 ) breakConvert( in, dest, source );
    const Bytes part = in.bytes( in.left() );
    Bytes given;
    for ( int64_t i = 0; i < repeats && given.size() < 4000; ++i )
        given.insert( given.end(), part.begin(), part.end() );
    const auto slot = size_t( Encoding{ source }.slot() );

    test::Buffer buffer = test::buffer( given );
    test::Packet pkt = pcmPacketTryDecode( buffer, source, channels );
    test::Buffer made = pcmTryConvert( dest, buffer, source );
    EXPECT_TRUE( buffer.count() == 1 && test::bytes( buffer ) == given );
    buffer = nullptr; // the results have memory of their own
    EXPECT_EQ( pkt != nullptr, given.size() % ( slot * size_t( channels ) ) == 0 );
    EXPECT_EQ( made != nullptr, given.size() % slot == 0 && !given.empty() );
    given.resize( given.size() / slot * slot );
    const Bytes wanted = reference::convert( dest, source, given );
    EXPECT_TRUE( !made || ( made.count() == 1 && test::bytes( made ) == wanted ) );
    if ( pkt ) {
        const Bytes floats = reference::convert( 0, source, given );
        EXPECT_EQ( reference::bytesOf( test::samples( pkt ) ), floats );
        test::expectPacket( pkt, channels, test::samples( pkt ), 1, true );
        test::Buffer encoded = pcmPacketEncode( pkt, dest );
        EXPECT_TRUE( encoded.count() == 1 && test::bytes( encoded ) == reference::convert( dest, 0, floats ) );
    }
    EXPECT_EQ( convert( dest, source, given, shift % 8, shift / 8 % 8 ), wanted );
    return 0;
}
