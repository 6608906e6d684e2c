#include "pcm_convert.h"

#include "pcm_g711.hh"
#include "pcm_integer.hh"
#include "pcm_owned.hh"
#include "pcm_slot.hh"

#include "kit/kit_loop.hh"

#include <array>
#include <utility>

using namespace pcm;

static constexpr int64_t sampleSize = KIT_SIZEOF( PCM_SAMPLE );

// Layouts: no padding bytes, a 3-byte sample in a 4-byte slot, or any other slot with padding bytes.
enum Layout { dense, threeInFour, padded };

template <class Format, Layout layout>
static void decodeTile( uint8_t *dest, const uint8_t *source, int64_t width, int64_t offset )
{
    if constexpr ( layout == dense ) {
        Format::decode( dest, source );
    } else if constexpr ( layout == threeInFour ) {
        Format::decodeWords( dest, Format::At::loadSlots( source, offset ) );
    } else {
        uint8_t samples[tile * Format::width];
        for ( int i = 0; i < tile; ++i )
            std::memcpy( samples + i * Format::width, source + offset + i * width, Format::width );
        Format::decode( dest, samples );
    }
}

template <class Format, Layout layout>
static void encodeTile( uint8_t *dest, const uint8_t *source, int64_t width, int64_t offset )
{
    if constexpr ( layout == dense ) {
        Format::encode( dest, source );
    } else if constexpr ( layout == threeInFour ) {
        Format::At::storeSlots( dest, Format::encodeWords( source ), offset );
    } else {
        uint8_t samples[tile * Format::width];
        Format::encode( samples, source );
        for ( int i = 0; i < tile; ++i )
            std::memcpy( dest + offset + i * width, samples + i * Format::width, Format::width );
    }
}

using Run = void ( * )( uint8_t *dest, const uint8_t *source, int64_t samples, int64_t slotWidth, int64_t offset );

// Converts whole tiles, then the rest.
template <class Format, Layout layout, bool decodes>
[[gnu::flatten]] static void convertRun(
    uint8_t *dest, const uint8_t *source, int64_t samples, int64_t slotWidth, int64_t offset )
{
    constexpr int64_t width = layout == dense ? Format::width : layout == threeInFour ? 4 : 0;
    constexpr int64_t widest = width ? width : 8;
    const int64_t encoded = width ? width : slotWidth;
    const int64_t destWidth = decodes ? sampleSize : encoded, sourceWidth = decodes ? encoded : sampleSize;
    constexpr auto convertTile = decodes ? decodeTile<Format, layout> : encodeTile<Format, layout>;
    const int64_t rest = samples & ( tile - 1 ), whole = samples - rest;
    for ( int64_t done = 0; done < whole; done += tile )
        convertTile( dest + done * destWidth, source + done * sourceWidth, encoded, offset );
    if ( !rest ) return;
    const uint8_t *destEnd = dest + samples * destWidth, *sourceEnd = source + samples * sourceWidth;
    if ( whole && ( destEnd <= source || sourceEnd <= dest ) ) // convert the last tile of samples, some of them again
        return convertTile(
            dest + ( samples - tile ) * destWidth, source + ( samples - tile ) * sourceWidth, encoded, offset );
    uint8_t in[tile * ( decodes ? widest : sampleSize )] = {}, out[tile * ( decodes ? sampleSize : widest )] = {};
    std::memcpy( in, source + whole * sourceWidth, size_t( rest * sourceWidth ) );
    convertTile( out, in, encoded, offset );
    std::memcpy( dest + whole * destWidth, out, size_t( rest * destWidth ) );
}

static void copyRun( uint8_t *dest, const uint8_t *source, int64_t samples, int64_t, int64_t )
{
    if ( samples ) std::memmove( dest, source, size_t( samples * sampleSize ) );
}

// Maps encoding words to formats. `base` is the index of the base flag; 7 means that there is none.
template <int base, bool isUnsigned, std::endian order> static auto formatOf()
{
    if constexpr ( base == 0 ) return Alaw{};
    if constexpr ( base == 1 ) return Mulaw{};
    if constexpr ( base >= 2 && base <= 5 )
        return Linear<std::conditional_t<isUnsigned, Unsigned<base - 1>, Signed<base - 1>>, order>{};
    if constexpr ( base == 6 ) return Linear<Pattern, order>{};
    if constexpr ( base == 7 ) return Linear<Pattern, std::endian::little>{}; // the byte order flags have no effect
}

struct Runs {
    Run decode[3], encode[3]; // by layout
};

template <size_t index> static constexpr Runs runsOf()
{
    constexpr auto order = index & 1 ? std::endian::big : std::endian::little;
    using Format = decltype( formatOf<int( index >> 2 ), ( index & 2 ) != 0, order>() );
    constexpr auto four = Format::width == 3 ? threeInFour : padded;
    Runs runs = { { convertRun<Format, dense, true>, convertRun<Format, four, true>,
                      convertRun<Format, padded, true> },
        { convertRun<Format, dense, false>, convertRun<Format, four, false>, convertRun<Format, padded, false> } };
    if ( std::is_same_v<Format, Linear<Pattern, std::endian::native>> )
        runs.decode[dense] = runs.encode[dense] = copyRun;
    return runs;
}

static constexpr auto allRuns = []<size_t... index>( std::index_sequence<index...> )
{
    return std::array<Runs, sizeof...( index )>{ runsOf<index>()... };
}
( std::make_index_sequence<8 * 2 * 2>{} );

static const Runs &runsFor( int base, bool isUnsigned, bool isBigEndian )
{
    return allRuns[4 * size_t( base ) + 2 * size_t( isUnsigned ) + size_t( isBigEndian )];
}
static const Runs &runsFor( Slot slot ) { return runsFor( slot.base, slot.isUnsigned, slot.isBigEndian ); }

// The word must have a base flag or no pack flag.
static const Runs &runsFor( PCM_ENCODING encoding )
{
    const PCM_ENCODING word = samplesIn( std::endian::native, encoding );
    return runsFor( flagIndex( word, PCM_ENCODING_G711_ALAW, PCM_ENCODING_FLOAT_32 ), word & PCM_ENCODING_UNSIGNED,
        word & PCM_ENCODING_BIG_ENDIAN );
}

static bool isThreeInFour( PCM_ENCODING encoding )
{
    constexpr PCM_ENCODING baseGroup = 2 * PCM_ENCODING_FLOAT_32 - PCM_ENCODING_G711_ALAW;
    return ( encoding & ( baseGroup | packGroup ) ) == ( PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32 );
}

static Layout layoutOf( Slot slot )
{
    if ( slot.width == slot.sampleWidth ) return dense;
    return slot.width == 4 && slot.sampleWidth == 3 ? threeInFour : padded;
}

static void pcm___ConvertToSamples( uint8_t *dest, const uint8_t *source, Slot slot, int64_t samples )
{
    runsFor( slot ).decode[layoutOf( slot )]( dest, source, samples, slot.width, slot.offset );
}

static void pcm___ConvertFromSamples( uint8_t *dest, Slot slot, const uint8_t *source, int64_t samples )
{
    if ( layoutOf( slot ) == padded )
        kitMemSetN( dest, 0, samples, slot.width ); // the other layouts write whole slots
    runsFor( slot ).encode[layoutOf( slot )]( dest, source, samples, slot.width, slot.offset );
}

// Not inlined, so that only this path reserves stack space for the block.
[[gnu::noinline]] static void convertThroughSamples(
    uint8_t *dest, Slot destSlot, const uint8_t *source, Slot sourceSlot, int64_t samples )
{
    constexpr int64_t blockSamples = 256;
    uint8_t block[blockSamples * sizeof( PCM_SAMPLE )];
    kit::forChunks( samples, blockSamples, [&]( int64_t done, int64_t n ) {
        pcm___ConvertToSamples( block, source + done * sourceSlot.width, sourceSlot, n );
        pcm___ConvertFromSamples( dest + done * destSlot.width, destSlot, block, n );
    } );
}

KIT_BUFFER *pcmTryConvert( PCM_ENCODING destEncoding, KIT_BUFFER *source, PCM_ENCODING sourceEncoding )
{
    int64_t destSampleSize = pcmEncodingSizeofSample( destEncoding );
    int64_t sourceSampleSize = pcmEncodingSizeofSample( sourceEncoding );
    int64_t length = kitBufferLength( source ), samples = length / sourceSampleSize;
    if ( length % sourceSampleSize || !samples ) return nullptr;
    KIT_CHECK( KIT_INT_MUL_OK( destSampleSize, samples ) );
    kit::Block<uint8_t> bytes = kit::allocate<uint8_t>( destSampleSize * samples );
    pcm___Convert( bytes.get(), samplesIn( std::endian::little, destEncoding ), kitBufferBacking( source ),
        samplesIn( std::endian::little, sourceEncoding ), samples );
    return bufferOf( std::move( bytes ), destSampleSize * samples );
}

// The general case of pcm___Convert: checks the arguments and accepts any words.
[[gnu::noinline]] static void convertWords(
    uint8_t *dest, PCM_ENCODING destEncoding, const uint8_t *source, PCM_ENCODING sourceEncoding, int64_t samples )
{
    KIT_CHECK( samples >= 0 );
    KIT_CHECK( dest || samples == 0 );
    KIT_CHECK( source || samples == 0 );
    Slot destSlot = slotOf( samplesIn( std::endian::native, destEncoding ) ),
         sourceSlot = slotOf( samplesIn( std::endian::native, sourceEncoding ) );
    int64_t destSize = destSlot.width, sourceSize = sourceSlot.width;
    KIT_CHECK( KIT_INT_MUL_OK( destSize, samples ) );
    KIT_CHECK( KIT_INT_MUL_OK( sourceSize, samples ) );

    if ( isSamples( destEncoding ) ) return pcm___ConvertToSamples( dest, source, sourceSlot, samples );
    if ( isSamples( sourceEncoding ) ) return pcm___ConvertFromSamples( dest, destSlot, source, samples );
    convertThroughSamples( dest, destSlot, source, sourceSlot, samples );
}

void pcm___Convert(
    void *dest, PCM_ENCODING destEncoding, const void *source, PCM_ENCODING sourceEncoding, int64_t samples )
{
    auto *to = static_cast<uint8_t *>( dest );
    auto *from = static_cast<const uint8_t *>( source );
    // Fast paths: for short blocks with common words, the computation of a Slot would take most of the time.
    const PCM_ENCODING destFlags = destEncoding & allFlags, sourceFlags = sourceEncoding & allFlags,
                       flags = destFlags | sourceFlags;
    if ( to && from && samples >= 0 && samples <= INT64_MAX / sampleSize && !( destFlags && sourceFlags ) ) {
        if ( flags < PCM_ENCODING_PACK_16 )
            return destFlags ? runsFor( destFlags ).encode[dense]( to, from, samples, 0, 0 )
                             : runsFor( sourceFlags ).decode[dense]( to, from, samples, 0, 0 );
        if ( isThreeInFour( flags ) ) {
            const Runs &runs = runsFor( flags );
            return ( destFlags ? runs.encode : runs.decode )[threeInFour](
                to, from, samples, 4, padsBefore( flags ) );
        }
    }
    convertWords( to, destEncoding, from, sourceEncoding, samples );
}
