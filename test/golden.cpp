// Every operation of the library on input whose bits are the same everywhere, and the checksums of what comes out.
//
//     golden          the checksums that the models give: what is kept
//     golden KEPT     compares the library's with the kept ones; exit code 1 if any differs
//
// What hangs on the platform's `sin`, `log10` and `pow` or on libsamplerate is in groups named "platform/...". They
// may differ from what is kept, but not from their models, which call the same functions.

#include "operations.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <string>

using namespace operations;
using edits::framesOf;
using reference::bytesOf, reference::convert, reference::Encoding, reference::floatOf;
using test::packetOf, test::Ref;
using Bytes = std::vector<uint8_t>;

namespace {

/// Splitmix64: integers only, so the numbers are the same everywhere.
struct Random {
    uint64_t state;

    uint64_t operator()()
    {
        uint64_t z = state += 0x9E3779B97F4A7C15;
        z = ( z ^ z >> 30 ) * 0xBF58476D1CE4E5B9;
        z = ( z ^ z >> 27 ) * 0x94D049BB133111EB;
        return z ^ z >> 31;
    }
    int64_t upTo( int64_t highest ) { return int64_t( ( *this )() % ( uint64_t( highest ) + 1 ) ); }
    template <class T> auto &oneOf( T &list ) { return list[size_t( upTo( int64_t( std::size( list ) ) - 1 ) )]; }
    Bytes bytes( int64_t count )
    {
        Bytes all( static_cast<size_t>( count ) );
        for ( uint8_t &byte : all ) byte = uint8_t( ( *this )() >> 32 );
        return all;
    }
    /// Numbers within the scale, a power of two; one in four is any pattern or one of the special ones.
    Samples samples( int64_t count, float scale = 1 )
    {
        static const uint32_t special[] = { 0x80000000, 0, 1, 0x80200000, 0x3F800000, 0xBF800000, 0x3F800001,
            0x7F7FFFFF, 0x7F800000, 0xFF800000, 0x7FC00000, 0x7F800001, 0xFF812345, 0x4F000000, 0xCF000001 };
        Samples all( static_cast<size_t>( count ) );
        for ( float &x : all ) {
            x = float( int32_t( ( *this )() >> 32 ) ) * 0x1p-31f * scale;
            uint64_t choice = ( *this )() % 8;
            uint32_t pattern = choice ? uint32_t( ( *this )() ) : oneOf( special );
            if ( choice < 2 ) std::memcpy( &x, &pattern, sizeof x );
        }
        return all;
    }
};

int64_t patternOf( double x ) { return std::bit_cast<int64_t>( x ); }

/// What a group gave: bytes of the library's results and of the models'.
struct Results {
    Bytes got, wanted;

    void add( const Bytes &g, const Bytes &w )
    {
        got.insert( got.end(), g.begin(), g.end() );
        wanted.insert( wanted.end(), w.begin(), w.end() );
    }
    /// Of two NaNs the processor chooses which survives; where samples are only moved, every bit counts.
    void add( Samples g, Samples w, bool moved = false )
    {
        for ( Samples *samples : { &g, &w } )
            for ( float &x : *samples )
                if ( std::isnan( x ) && !moved ) x = floatOf( 0x7FC00000 );
        add( bytesOf( g ), bytesOf( w ) );
    }
    void add( int64_t g, int64_t w )
    {
        for ( int shift = 0; shift < 64; shift += 8 )
            add( Bytes{ uint8_t( g >> shift ) }, Bytes{ uint8_t( w >> shift ) } );
    }
    void add( PCM_PACKET *g, int64_t channels, const Samples &w, bool moved = false )
    {
        add( pcmPacketChannels( g ), channels );
        add( pcmPacketFrames( g ), int64_t( w.size() ) / channels );
        add( test::samples( g ), w, moved );
    }
};

struct Group {
    std::string name;
    int rounds;
    std::function<void( Results &, Random & )> run;
};
std::vector<Group> groups;

void group( const std::string &name, int rounds, const std::function<void( Results &, Random & )> &run )
{
    groups.push_back( { name, rounds, run } );
}

void packetThereAndBack( Results &out, uint64_t word, int64_t channels, const Samples &given )
{
    const Bytes slots = convert( word, 0, bytesOf( given ) );
    test::Packet packet = packetOf( given, channels );
    test::Buffer encoded = pcmPacketEncode( packet, word ), source = test::buffer( slots );
    test::Buffer buffer = pcmTryConvert( PCM_ENCODING_G711_ALAW, source, word );
    packet = pcmPacketTryDecode( source, word, channels );
    out.add( test::bytes( encoded ), slots );
    out.add( pcmPacketChannels( packet ), channels );
    out.add( bytesOf( test::samples( packet ) ), convert( 0, word, slots ) );
    out.add( test::bytes( buffer ), convert( PCM_ENCODING_G711_ALAW, word, slots ) );
}

void addEncodings()
{
    static std::array<std::vector<uint64_t>, 8> layouts;
    for ( uint64_t word : reference::layouts() ) layouts[size_t( Encoding{ word }.base + 1 )].push_back( word );
    for ( auto &words : layouts ) {
        test::String text = pcmEncodingToString( words[0] );
        const std::string base = kitStringBacking( text );
        group( "from " + base, 1, [&]( auto &out, auto &random ) {
            for ( uint64_t word : words ) {
                const Bytes given = random.bytes( 67 * Encoding{ word }.slot() );
                for ( uint64_t dest : { uint64_t{ 0 }, random.oneOf( random.oneOf( layouts ) ) } )
                    out.add( converted( dest, word, given ), convert( dest, word, given ) );
            }
        } );
        group( "to " + base, 1, [&]( auto &out, auto &random ) {
            for ( uint64_t word : words ) {
                const Bytes given = bytesOf( random.samples( 131, 2 ) );
                out.add( converted( word, 0, given ), convert( word, 0, given ) );
            }
        } );
        group( "packets and buffers of " + base, 1, [&]( auto &out, auto &random ) {
            for ( uint64_t word : words ) {
                int64_t channels = 1 + random.upTo( 2 );
                packetThereAndBack( out, word, channels, random.samples( 24 ) );
            }
        } );
    }
    group( "samples in buffers", 20, []( auto &out, auto &random ) {
        for ( auto &words : layouts ) {
            const uint64_t word = random.oneOf( words );
            const Bytes given = random.bytes( 9 * Encoding{ word }.slot() );
            test::Buffer source = test::buffer( given ), samples = pcmTryConvert( 0, source, word );
            out.add( test::bytes( samples ), convert( 0, word, given ) );
        }
    } );
    group( "encoding words", 20000, []( auto &out, auto &random ) {
        Encoding e{ random() >> random.upTo( 63 ) };
        test::String text = pcmEncodingToString( e.word );
        out.add( int64_t( pcmEncodingNormalize( e.word ) ), int64_t( e.normalized() ) );
        out.add( int64_t( pcmEncodingFromString( text ) ), int64_t( e.normalized() ) );
        out.add( pcmEncodingSizeofFrame( e.word, 3 ), 3 * e.slot() );
    } );
}

void addKernels()
{
    for ( auto &kernel : kernels::all )
        group( kernel.name, 200, [&]( auto &out, auto &random ) {
            int64_t frames = random.upTo( 70 ), to = kernel.flat ? 1 : 1 + random.upTo( 5 ),
                    from = kernel.flat ? 1 : 1 + random.upTo( 5 ), apart = to * frames;
            kernels::Call call{ nullptr, random.upTo( to - 1 ), to, nullptr, random.upTo( from - 1 ), from, frames,
                random.oneOf( kernels::factors ) };
            Samples got = random.samples( apart + from * frames, 4 ), want = got;
            if ( kernel.op != kernels::copy && random.upTo( 1 ) ) apart = random.upTo( apart );
            call.dest = got.data(), call.source = got.data() + apart;
            kernel.run( call );
            call.dest = want.data(), call.source = want.data() + apart;
            kernels::model( kernel.op, call );
            out.add( got, want, kernel.op < kernels::add );
        } );
}

void addPackets()
{
    for ( auto &row : edits::rows )
        group( row.name, 100, [&]( auto &out, auto &random ) {
            int64_t channels = 1 + random.upTo( 3 ), frames = random.upTo( 8 );
            Samples given = random.samples( channels * frames ), other;
            test::Packet pkt = packetOf( given, channels ), source;
            edits::Model after;
            edits::Args a;
            do {
                bool self = random.upTo( 3 ) == 0;
                other = self ? given : random.samples( channels * random.upTo( 8 ) );
                source = self ? pkt : packetOf( other, channels );
                int64_t total = row.verb == edits::Del ? frames : int64_t( other.size() ) / channels;
                a = { random.upTo( frames ), random.upTo( total ), 0, 1 + random.upTo( 4 ), source };
                a.frames = random.upTo( row.word ? total - a.start : frames + 2 );
                after =
                    edits::after( row, { channels, framesOf( given, channels ) }, framesOf( other, channels ), a );
            } while ( !after.legal );
            row.call( &pkt, a );
            out.add( pkt, after.channels, after.samples(), true );
        } );
    static const char *const names[] = { "pcmPacketCreateFromWithChannels", "pcmPacketCreateFromWithChannelMask",
        "pcmChannelsAdjustReplaceWithDownmix", "pcmChannelsAdjustExpandWithDownmix", "pcmFramesExtend",
        "pcmFramesReduce" };
    for ( int call = 0; call < 6; ++call )
        group( names[call], 200, [=]( auto &out, auto &random ) {
            int64_t n = 2 + random.upTo( 6 ), width = 1 + random.upTo( 6 ),
                    frames = random.upTo( 9 ) * ( call == channels::reduce ? n : 1 );
            const Samples given = random.samples( width * frames, 4 );
            test::Packet pkt = packetOf( given, width );
            bool stays;
            auto after = channels::after( call, { size_t( width ), given }, uint64_t( n ), stays );
            channels::calls[call]( &pkt, n );
            out.add( pkt, int64_t( after.channels ), after.samples );
        } );
    group( "pcmPacketWriteChannels", 400, []( auto &out, auto &random ) {
        int64_t to = 1 + random.upTo( 5 ), from = 1 + random.upTo( 5 ), frames = random.upTo( 9 );
        channels::Block dest{ size_t( to ), random.samples( to * frames ) },
            source{ size_t( from ), random.samples( from * frames ) };
        test::Packet pkt = packetOf( dest.samples, to ), other = packetOf( source.samples, from );
        int64_t width = random.upTo( std::min( to, from ) ), height = random.upTo( frames ),
                dc = random.upTo( to - width ), df = random.upTo( frames - height ), sc = random.upTo( from - width ),
                sf = random.upTo( frames - height );
        channels::writeRectangle( dest, dc, df, source, sc, sf, width, height );
        if ( random.upTo( 1 ) )
            pcmPacketWriteChannels( &pkt, dc, df, other, sc, sf, width, height );
        else
            pcmPacketWriteChannelsSamples( &pkt, dc, df, source.samples.data(), sc, from, sf, width, height );
        out.add( pkt, to, dest.samples, true );
    } );
}

/// `write` gives the model a block.
template <class Handle, class Write>
void walk( Results &out, Random &random, const streams::Calls<Handle> &calls, Handle handle, streams::Model model,
    Write writeModel )
{
    const auto channels = int64_t( model.channels );
    for ( int i = 0; i < 40; ++i ) {
        Samples block = random.samples( ( 2 + random.upTo( i % 2 ? 400 / channels : 6 ) ) * channels );
        calls.write( handle, test::Packet( packetOf( block, channels ) ) );
        writeModel( model, block );
        int64_t n = random.upTo( int64_t( model.ready.size() ) / channels );
        Samples got = random.samples( n * channels ), wanted = i % 4 ? model.take( got.size() ) : model.read();
        for ( size_t s = 0; i % 4 == 3 && s < got.size(); ++s ) wanted[s] = got[s] + wanted[s];
        if ( i % 4 == 0 ) out.add( test::Packet( calls.read( handle ) ), channels, wanted );
        if ( i % 4 == 1 ) out.add( test::Packet( calls.gather( handle, n ) ), channels, wanted );
        if ( i % 4 < 2 ) continue;
        calls.into[i % 4 - 2]( handle, got.data(), n );
        out.add( got, wanted );
    }
}

void walkFilter( Results &out, Random &random, PCM_FILTER_COEFFICIENTS *set, const Samples &taps, size_t channels )
{
    Ref<PCM_FILTER_COEFFICIENTS> held = set;
    Ref<PCM_FILTER> filter = pcmFilterCreate( held, int64_t( channels ) );
    walk( out, random, streams::ofFilters, &filter, { taps, channels },
        []( auto &m, auto &block ) { m.write( block ); } );
}

void addStreams()
{
    group( "queue", 5, []( auto &out, auto &random ) {
        auto channels = size_t( 1 + random.upTo( 5 ) );
        test::Queue queue = pcmPacketQueueCreate( int64_t( channels ) );
        walk( out, random, streams::ofQueues, &queue, { {}, channels },
            []( auto &m, auto &block ) { m.put( block ); } );
    } );
    for ( auto &set : streams::sets )
        group( set.name, 3, [&]( auto &out, auto &random ) {
            walkFilter(
                out, random, pcmFilterCoefficientsCreate( set.type ), set.taps, size_t( 1 + random.upTo( 4 ) ) );
        } );
    for ( int64_t length : { 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 33, 64, 100, 257 } )
        group( "filter of taps: " + std::to_string( length ), length == 1 ? 40 : 2, [=]( auto &out, auto &random ) {
            Samples taps( static_cast<size_t>( length ) );
            for ( float &tap : taps ) tap = float( int32_t( random() >> 32 ) ) * 0x1p-33f;
            if ( length == 1 ) taps[0] = 1; // the limits themselves
            walkFilter( out, random, pcmFilterCoefficientsCreateFromSamplesCopy( taps.data(), length ), taps,
                length == 9 ? 64 : size_t( 1 + random.upTo( 8 ) ) );
        } );
    for ( int64_t type = 0; type < 5; ++type )
        group( "platform/rate conversion " + std::to_string( type ), 1, [=]( auto &out, auto &random ) {
            for ( int64_t rate : { 16000, 11025, 44100 } ) {
                int error;
                Ref<PCM_SRC> src = pcmSrcTryCreate( type, rate, 16000, 2 );
                streams::Direct state( src_new( streams::converters[type], 2, &error ), src_delete );
                walk( out, random, streams::ofConverters, (PCM_SRC *)src, { {}, 2 }, [&]( auto &m, auto &block ) {
                    m.put( streams::direct( state, block, 2, double( rate ) / 16000 ) );
                } );
            }
        } );
}

void addSignals()
{
    group( "gain", 100, []( auto &out, auto &random ) {
        const double gain = random.oneOf( kernels::factors );
        Samples got = random.samples( 20 ), wanted = got;
        test::Packet pkt = packetOf( got, 2 );
        for ( float &x : wanted ) x *= float( gain );
        pcmLevelAdjustLinearGain( &pkt, gain );
        pcmLevelAdjustLinearGainSamples( got.data(), 20, gain );
        out.add( pkt, 2, wanted );
        out.add( got, wanted );
    } );
    group( "platform/decibels", 2000, []( auto &out, auto &random ) {
        double decibel = double( random.upTo( 450000 ) ) / 1000 - 225, factor = signals::toGain( decibel ),
               gain = double( 1 + random.upTo( 1 << 30 ) ) / ( 1 << 20 );
        out.add( patternOf( pcmDecibelFromGain( gain ) ), patternOf( signals::toDecibel( gain ) ) );
        out.add( patternOf( pcmDecibelToGain( decibel ) ), patternOf( factor ) );
        Samples got = random.samples( 20 ), wanted = got;
        for ( float &x : wanted ) x *= float( factor );
        pcmLevelAdjustSamples( got.data(), 20, decibel );
        out.add( got, wanted );
    } );
    for ( auto &family : signals::families )
        group( "platform/tones " + std::to_string( &family - signals::families ), 40, [&]( auto &out, auto &random ) {
            const double periods[] = { 4, 0.3, 2.5, 8000 / 440.0, 8000 / 1336.0, 100, 48000 / 25.0 };
            signals::Wave a{ random.oneOf( periods ) }, b{ random.oneOf( periods ) };
            Ref<PCM_TONE> toneA = pcmToneCreate( a.period ), toneB = pcmToneCreate( b.period );
            for ( int64_t n : { 100, 333 } )
                out.add( test::Packet( family.gather( toneA, toneB, n ) ), 1, family.model( a, b, n ) );
        } );
    group( "silence", 1,
        []( auto &out, auto & ) { out.add( test::Packet( pcmSilenceGather( 1000 ) ), 1, Samples( 1000 ), true ); } );
    group( "shape of noise", 1, []( auto &out, auto & ) {
        test::Packet pkt = pcmNoiseGather( 20000 );
        Samples all = test::samples( pkt );
        auto [least, most] = std::minmax_element( all.begin(), all.end() );
        out.add( pcmPacketFrames( pkt ) * pcmPacketChannels( pkt ), 20000 );
        out.add( *least >= -1 && *least < -0.9f && *most > 0.9f && *most <= 1, 1 );
    } );
}

std::string checksum( const Bytes &bytes )
{
    char text[17];
    std::snprintf( text, sizeof text, "%016llx", (unsigned long long)XXH64( bytes.data(), bytes.size(), 0 ) );
    return text;
}

} // namespace

int main( int argc, char **argv )
{
    kitModuleStartup( pcmModule() );
    addEncodings();
    addKernels();
    addPackets();
    addStreams();
    addSignals();
    std::map<std::string, std::string> kept;
    std::ifstream file( argc > 1 ? argv[1] : "" );
    for ( std::string sum, name; file >> sum && std::getline( file >> std::ws, name ); ) kept[name] = sum;

    int counts[2][2] = {}; // of those that are promised and of the platform's: different, same
    for ( auto &[name, rounds, run] : groups ) {
        Results out;
        Random random{ XXH64( name.data(), name.size(), 0 ) };
        for ( int i = 0; i < rounds; ++i ) run( out, random );
        const std::string got = checksum( out.got ), wanted = checksum( out.wanted );
        if ( argc == 1 ) {
            std::printf( "%s %s\n", wanted.c_str(), name.c_str() );
            continue;
        }
        bool same = kept[name] == got;
        ++counts[name.starts_with( "platform/" ) && got == wanted][same];
        std::printf( "%s %s%s%s\n", got.c_str(), name.c_str(), same ? "" : ", DIFFERS from what is kept",
            got == wanted ? "" : ", DIFFERS from its model" );
        kept.erase( name );
    }
    kitModuleShutdown( pcmModule() );
    if ( argc == 1 ) return 0;
    for ( auto &[name, sum] : kept )
        std::printf( "%s %s is kept, but DIFFERS: not made\n", sum.c_str(), name.c_str() );
    counts[0][0] += int( kept.size() );
    std::printf( "%d same, %d differ; of the platform's: %d same, %d differ\n", counts[0][1], counts[0][0],
        counts[1][1], counts[1][0] );
    return counts[0][0] != 0;
}
