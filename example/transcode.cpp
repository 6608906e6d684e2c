// Converts a recording, or a part of it, to another container, encoding, sample rate and level.
//
// Data flow: encoded bytes of the input -> Packet::tryDecode -> Packet::delLeading and delTrailing -> Src::write ->
// Src::gather -> Packet::adjustLevel -> Packet::encode -> encoded bytes of the output, in packets of 20 ms.

#include "audio_file.h"
#include "plot.h"
#include "progress.h"
#include "report.h"
#include "resampler.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>

using namespace host;

struct Options {
    std::string input, output, encoding, inputEncoding, container, range, plot, quality = "fast";
    std::optional<int64_t> rate, inputRate;
    bool strict = false;
    int64_t channels = 1;
    double level = 0;
    bool raw = false;
    std::optional<bool> progress;
};

static void addOptions( CLI::App &app, Options &options )
{
    app.name( "transcode" );
    app.footer(
        "Containers are wav, au, aiff, w64, rf64, caf and raw (no header). By default, the output has the rate\n"
        "and the encoding of the input, or the closest encoding that its container supports.\n"
        "\n"
        "Encodings are int8, uint8, int16, int24, int32, float32, alaw and mulaw, in the byte order of the\n"
        "container, or any combination of encoding flags. Headerless files support all encodings, other\n"
        "containers only some.\n"
        "\n"
        "All samples are converted to 32-bit floats, even if the encoding does not change, so only 24 bits of\n"
        "int32 samples are preserved.\n"
        "\n"
        "  transcode call.wav call.au --encoding mulaw\n"
        "  transcode line.raw line.wav --raw --input-encoding alaw --rate 8000\n"
        "  transcode line.raw speech.wav --raw --input-encoding alaw --input-rate 8000 --rate 16000\n"
        "  ffmpeg -i speech.mkv -f wav - | transcode - - --rate 16000 | aplay\n"
        "  transcode speech.flac part.wav --seconds-at 1.5:4 --level -6\n"
        "  transcode speech.wav narrow.wav --rate 8000 --encoding mulaw --plot narrow.svg\n"
        "  transcode speech.wav speech.raw --encoding \"PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32\"" );
    app.add_option( "INPUT", options.input,
           "input file: WAV, AU, AIFF, W64, RF64, CAF, FLAC, Ogg, MP3 ...; \"-\" is standard input" )
        ->required();
    app.add_option(
           "OUTPUT", options.output, "output file; its extension selects the container; \"-\" is standard output" )
        ->required();
    app.add_option( "--container", options.container, "container of the output (default: by its extension)" );
    CLI::Range rates( int64_t( 1 ), maxRate );
    app.add_option( "--rate", options.rate,
           "sample rate of the output in Hz; with --raw and without --input-rate, also of the input" )
        ->check( rates );
    app.add_option( "--quality", options.quality,
        "quality of rate conversion: best, medium, fast, hold or linear (default: fast)" );
    app.add_option( "--encoding", options.encoding, "encoding of the output (default: that of the input)" );
    app.add_option( "--level", options.level, "change of level in dB; negative values attenuate" )
        ->check( CLI::Range( -200.0, 200.0 ) );
    app.add_option( "--seconds-at", options.range,
        "FROM:TO, the part of the input to convert, in seconds; FROM or TO may be omitted" );
    app.add_flag( "--strict", options.strict, "fail if the input is truncated" );
    CLI::Option *raw = app.add_flag( "--raw", options.raw, "the input has no header" );
    CLI::Option *encoding =
        app.add_option( "--input-encoding", options.inputEncoding, "encoding of headerless input" )->needs( raw );
    raw->needs( encoding );
    app.add_option( "--input-rate", options.inputRate, "sample rate of headerless input in Hz" )
        ->needs( raw )
        ->check( rates );
    app.add_option( "--channels", options.channels, "channels of headerless input (default: 1)" )
        ->needs( raw )
        ->check( CLI::Range( int64_t( 1 ), maxChannels ) );
    app.add_option(
        "--plot", options.plot, "SVG file for plots of the level and spectrum of input and output, side by side" );
    addProgressOption( app, options.progress, "input" );
}

// A range of frames of the input. `end` is exclusive.
struct FrameRange {
    int64_t begin = 0, end = INT64_MAX;
};

static int64_t parsePosition( const std::string &seconds, int64_t rate, int64_t defaultFrame )
{
    return seconds.empty() ? defaultFrame : parseFramePosition( "--seconds-at", seconds, rate );
}

static FrameRange parseRange( const std::string &text, int64_t rate )
{
    if ( text.empty() ) return {};
    size_t colon = text.find( ':' );
    if ( colon == text.npos ) fail( "--seconds-at: \"" + text + "\" is not of the form FROM:TO" );
    FrameRange range = { parsePosition( text.substr( 0, colon ), rate, 0 ),
        parsePosition( text.substr( colon + 1 ), rate, INT64_MAX ) };
    if ( range.begin > range.end ) fail( "--seconds-at: \"" + text + "\" ends before it begins" );
    return range;
}

// Reads a range of a file in packets.
class RangeReader {
public:
    RangeReader( AudioReader &reader, FrameRange range, int64_t framesPerRead )
        : reader( reader ), range( range ), framesPerRead( framesPerRead )
    {
        position = reader.skip( range.begin - range.begin % framesPerRead );
    }

    // Returns the next packet, which can be empty, or nothing at the end of the range.
    std::optional<pcm::Packet> next()
    {
        if ( position >= range.end ) return std::nullopt;
        auto pkt = pcm::Packet::tryDecode(
            reader.read( framesPerRead ), reader.format().encoding, reader.format().channels );
        if ( !pkt || !pkt->frames() ) return std::nullopt;
        int64_t start = position;
        position += pkt->frames();
        if ( position > range.end ) pkt->delTrailing( position - range.end );
        if ( start < range.begin ) pkt->delLeading( std::min( range.begin - start, pkt->frames() ) );
        return pkt;
    }

private:
    AudioReader &reader;
    FrameRange range;
    int64_t framesPerRead;
    int64_t position;
};

// Takes packets of any length at the input rate and writes packets of 20 ms at the output rate.
class Transcoder {
public:
    Transcoder( AudioWriter &writer, Resampler resampler, int64_t inRate, double level, Plot *plot )
        : writer( writer ), resampler( std::move( resampler ) ),
          framesPerWrite( packetFrames( writer.format().rate, inRate, writer.format().channels ) ), level( level ),
          plot( plot )
    {
    }

    void write( const pcm::Packet &pkt )
    {
        if ( plot ) plot->input.add( pkt );
        resampler.write( pkt );
        while ( resampler.available() >= framesPerWrite ) writePacket( framesPerWrite );
    }

    void finish()
    {
        for ( int64_t frames; ( frames = std::min( resampler.remaining(), framesPerWrite ) ) > 0; ) {
            resampler.flush( frames );
            writePacket( frames );
        }
    }

    int64_t framesRead() const { return resampler.framesIn(); }
    int64_t framesWritten() const { return resampler.framesOut(); }
    double peak() const { return outputPeak; }

private:
    void writePacket( int64_t frames )
    {
        pcm::Packet pkt = resampler.gather( frames );
        if ( level != 0 ) pkt.adjustLevel( level );
        outputPeak = updatedPeak( outputPeak, pkt );
        AudioFormat format = writer.format();
        pcm::Buffer bytes = pkt.encode( format.encoding );
        if ( plot ) // plot what a reader of the file will decode
            if ( auto decoded = pcm::Packet::tryDecode( bytes, format.encoding, format.channels ) )
                plot->output.add( *decoded );
        writer.write( bytes );
    }

    AudioWriter &writer;
    Resampler resampler;
    int64_t framesPerWrite;
    double level;
    Plot *plot; // or null
    float outputPeak = 0;
};

static AudioReader openInput( const Options &options )
{
    if ( !options.raw ) return AudioReader( options.input );
    std::optional<int64_t> rate = options.inputRate ? options.inputRate : options.rate;
    if ( !rate ) fail( "--raw requires --input-rate, or --rate for both input and output" );
    return { options.input, { parseEncoding( options.inputEncoding ), *rate, options.channels } };
}

// Returns the requested encoding, or the one closest to that of the input that the container supports.
static AudioFormat outputFormat( const Options &options, const AudioReader &reader, const Container &container )
{
    AudioFormat format = { reader.nearestEncoding(), options.rate.value_or( reader.format().rate ),
        reader.format().channels };
    if ( !options.encoding.empty() )
        format.encoding = parseEncoding( options.encoding );
    else if ( container.majorFormat ) {
        format.encoding = format.encoding.base() | ( format.encoding & pcm::Encoding::unsignedCodes );
        if ( !supportsFormat( container, format ) ) format.encoding = format.encoding.word() ^ PCM_ENCODING_UNSIGNED;
    }
    return format;
}

static void printReport(
    const Options &options, const AudioReader &reader, const AudioWriter &writer, const Transcoder &transcoder )
{
    Report report( options.output );
    report.printFile( "in", transcoder.framesRead(), reader.format(), reader.encodingDescription(), options.input );
    report.printFile( "out", transcoder.framesWritten(), writer.format(), encodingName( writer.format().encoding ),
        options.output );
    report.printPeak( transcoder.peak(), writer.format().encoding );
}

static void convert( Transcoder &transcoder, RangeReader source, Progress progress )
{
    for ( ; auto pkt = source.next(); progress.update( transcoder.framesRead(), transcoder.peak() ) ) {
        stopIfInterrupted();
        transcoder.write( *pkt );
    }
    transcoder.finish();
}

static void checkPlotPath( const Options &options )
{
    if ( isSameFile( options.input, options.plot ) || isSameFile( options.plot, options.output ) )
        fail( "cannot write " + options.plot + ": --plot needs a file other than the input and the output" );
    if ( lower( std::filesystem::path( options.plot ).extension() ) != ".svg" )
        fail( "cannot write " + options.plot + ": the extension of a --plot file must be .svg" );
}

static void transcode( const Options &options )
{
    pcm::SrcType quality = parseQuality( options.quality );
    const Container &container = selectContainer( options.output, options.container );
    AudioReader reader = openInput( options );
    reader.checkLength( options.strict );
    if ( isSameFile( options.input, options.output ) )
        fail( "cannot write " + options.output + ": it is also the input" );
    AudioFormat in = reader.format(), out = outputFormat( options, reader, container );
    Resampler resampler( quality, in.rate, out.rate, in.channels );
    if ( !std::isfinite( options.level ) ) fail( "--level: not a number" );
    FrameRange range = parseRange( options.range, in.rate );
    if ( range.begin > reader.frames() )
        fail( "--seconds-at: \"" + options.range + "\" begins after the end of " + options.input );

    std::optional<Plot> plot;
    if ( !options.plot.empty() ) {
        checkPlotPath( options );
        plot.emplace( options.plot, in.rate, out.rate );
    }

    AudioWriter writer( options.output, container, out );
    Transcoder transcoder( writer, std::move( resampler ), in.rate, options.level, plot ? &*plot : nullptr );
    int64_t total = std::min( range.end, reader.frames() );
    total = total == INT64_MAX ? -1 : total - range.begin; // the length of a damaged file can be unknown
    writer.checkSpace( double( total ) / double( in.rate ) * double( out.rate ) *
                       double( out.encoding.sizeofFrame( out.channels ) ) );
    convert( transcoder, RangeReader( reader, range, packetFrames( in.rate, out.rate, in.channels ) ),
        Progress( options.progress, total, in.rate ) );
    if ( transcoder.framesRead() < total ) {
        const std::string message = options.input + " is damaged: " + std::to_string( transcoder.framesRead() ) +
                                    " of " + std::to_string( total ) + " frames can be decoded";
        if ( options.strict ) fail( message );
        warn( message );
    }
    if ( plot ) plot->draw();
    writer.finish();
    if ( plot ) plot->finish();
    printReport( options, reader, writer, transcoder );
}

int main( int argc, char **argv )
{
    CLI::App app( "Converts a recording to another container, encoding, sample rate and level." );
    Options options;
    addOptions( app, options );
    return run( app, argc, argv, [&] { transcode( options ); } );
}
