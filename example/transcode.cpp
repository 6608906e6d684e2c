// Converts a recording: from one container, encoding and sample rate to another, louder or softer, whole or in part.
//
// The road of a sample: encoded bytes of the file -> Packet::tryDecode -> cut -> Src::write -> Src::gather ->
// Packet::adjustLevel -> Packet::encode -> encoded bytes of the other file, in packets of 20 ms.

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
    std::string input, output, encoding, inputEncoding, container, cut, plot, quality = "fast";
    std::optional<int64_t> rate, inputRate;
    int64_t channels = 1;
    double level = 0;
    bool raw = false;
    std::optional<bool> progress;
};

static void declare( CLI::App &app, Options &options )
{
    app.name( "transcode" );
    app.footer(
        "Containers are wav, au, aiff, w64, rf64, caf and raw, which has no header. The output has the rate and\n"
        "the encoding of the input, or the nearest encoding that its container holds, unless told otherwise.\n"
        "\n"
        "Encodings are int8, uint8, int16, int24, int32, float32, alaw and mulaw, in the byte order of the\n"
        "container, or any set of flags; containers take what they can hold, headerless files take all.\n"
        "\n"
        "All samples go through 32-bit floats, also where nothing is to be changed: int32 keeps 24 bits.\n"
        "\n"
        "  transcode call.wav call.au --encoding mulaw\n"
        "  transcode line.raw line.wav --raw --input-encoding alaw --rate 8000\n"
        "  transcode line.raw speech.wav --raw --input-encoding alaw --input-rate 8000 --rate 16000\n"
        "  transcode speech.flac part.wav --seconds-at 1.5:4 --level -6\n"
        "  transcode speech.wav narrow.wav --rate 8000 --encoding mulaw --plot narrow.svg\n"
        "  transcode speech.wav speech.raw --encoding \"PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32\"" );
    app.add_option( "INPUT", options.input, "what to read: WAV, AU, AIFF, W64, RF64, CAF, FLAC, Ogg, MP3 ..." )
        ->required();
    app.add_option( "OUTPUT", options.output, "what to write; its extension names the container" )->required();
    app.add_option( "--container", options.container, "the container, whatever the output's name" );
    CLI::Range rates( int64_t( 1 ), highestRate );
    app.add_option( "--rate", options.rate,
           "frames a second of the output; for --raw without --input-rate, of input and output" )
        ->check( rates );
    app.add_option(
        "--quality", options.quality, "of the change of rate: best, medium, fast (the default), hold, linear" );
    app.add_option( "--encoding", options.encoding, "encoding of the output" );
    app.add_option( "--level", options.level, "louder by so many dB, or softer if negative" )
        ->check( CLI::Range( -200.0, 200.0 ) );
    app.add_option( "--seconds-at", options.cut,
        "FROM:TO, only the input from one time to another, in seconds; one may be left out" );
    CLI::Option *raw = app.add_flag( "--raw", options.raw, "the input has no header" );
    CLI::Option *encoding =
        app.add_option( "--input-encoding", options.inputEncoding, "encoding of headerless input" )->needs( raw );
    raw->needs( encoding );
    app.add_option( "--input-rate", options.inputRate, "frames a second of headerless input" )
        ->needs( raw )
        ->check( rates );
    app.add_option( "--channels", options.channels, "channels of headerless input, 1 unless told otherwise" )
        ->needs( raw )
        ->check( CLI::Range( int64_t( 1 ), mostChannels ) );
    app.add_option( "--plot", options.plot, "an SVG to draw: level and spectrum of input and output, side by side" );
    addProgress( app, options.progress, "input" );
}

// The frames of the input from one on and up to another.
struct Cut {
    int64_t from = 0, to = INT64_MAX;
};

static int64_t cutFrame( const std::string &seconds, int64_t rate, int64_t byDefault )
{
    return seconds.empty() ? byDefault : frameAt( "--seconds-at", seconds, rate );
}

static Cut cutAt( const std::string &text, int64_t rate )
{
    if ( text.empty() ) return {};
    size_t colon = text.find( ':' );
    if ( colon == text.npos ) fail( "--seconds-at: \"" + text + "\" is not FROM:TO" );
    Cut cut = { cutFrame( text.substr( 0, colon ), rate, 0 ), cutFrame( text.substr( colon + 1 ), rate, INT64_MAX ) };
    if ( cut.from > cut.to ) fail( "--seconds-at: \"" + text + "\" ends before it begins" );
    return cut;
}

// Reads the packets of a part of a file.
class CutReader {
public:
    CutReader( AudioReader &reader, Cut cut, int64_t packet ) : reader( reader ), cut( cut ), packet( packet )
    {
        position = reader.skip( cut.from - cut.from % packet );
    }

    // The next packet, which may be empty; none at the end.
    std::optional<pcm::Packet> next()
    {
        if ( position >= cut.to ) return std::nullopt;
        auto pkt =
            pcm::Packet::tryDecode( reader.read( packet ), reader.format().encoding, reader.format().channels );
        if ( !pkt || !pkt->frames() ) return std::nullopt;
        int64_t start = position;
        position += pkt->frames();
        if ( position > cut.to ) pkt->delTrailing( position - cut.to );
        if ( start < cut.from ) pkt->delLeading( std::min( cut.from - start, pkt->frames() ) );
        return pkt;
    }

private:
    AudioReader &reader;
    Cut cut;
    int64_t packet;
    int64_t position;
};

// Takes packets of any length at one rate and writes packets of 20 ms at the other.
class Transcoder {
public:
    Transcoder( AudioWriter &writer, Resampler resampler, int64_t inRate, double level, Plot *plot )
        : writer( writer ), resampler( std::move( resampler ) ),
          packet( packetFrames( writer.format().rate, inRate, writer.format().channels ) ), level( level ),
          plot( plot )
    {
    }

    void write( const pcm::Packet &pkt )
    {
        if ( plot ) plot->in.add( pkt );
        resampler.write( pkt );
        while ( resampler.ready() >= packet ) emit( packet );
    }

    void finish()
    {
        for ( int64_t frames; ( frames = std::min( resampler.left(), packet ) ) > 0; ) {
            resampler.finish( frames );
            emit( frames );
        }
    }

    int64_t read() const { return resampler.written(); }
    int64_t written() const { return resampler.gathered(); }
    double highest() const { return peak; }

private:
    void emit( int64_t frames )
    {
        pcm::Packet pkt = resampler.gather( frames );
        if ( level != 0 ) pkt.adjustLevel( level );
        peak = highestOf( pkt, peak );
        AudioFormat format = writer.format();
        pcm::Buffer bytes = pkt.encode( format.encoding );
        if ( plot ) // what whoever reads the file will hear
            if ( auto heard = pcm::Packet::tryDecode( bytes, format.encoding, format.channels ) )
                plot->out.add( *heard );
        writer.write( bytes );
    }

    AudioWriter &writer;
    Resampler resampler;
    int64_t packet;
    double level;
    Plot *plot; // or null
    float peak = 0;
};

static AudioReader openInput( const Options &options )
{
    if ( !options.raw ) return AudioReader( options.input );
    std::optional<int64_t> rate = options.inputRate ? options.inputRate : options.rate;
    if ( !rate ) fail( "--raw needs the rate of the input: --input-rate, or --rate for both" );
    return { options.input, { encodingFromName( options.inputEncoding ), *rate, options.channels } };
}

// The encoding that was asked for, or the nearest to the input's that the container holds.
static AudioFormat outputFormat( const Options &options, const AudioReader &reader, const Container &container )
{
    AudioFormat format = { reader.nearest(), options.rate.value_or( reader.format().rate ),
        reader.format().channels };
    if ( !options.encoding.empty() )
        format.encoding = encodingFromName( options.encoding );
    else if ( container.major ) {
        format.encoding = format.encoding.base() | ( format.encoding & pcm::Encoding::unsignedCodes );
        if ( !containerHolds( container, format ) ) format.encoding = format.encoding.word() ^ PCM_ENCODING_UNSIGNED;
    }
    return format;
}

static void report(
    const Options &options, const AudioReader &reader, const AudioWriter &writer, const Transcoder &job )
{
    Report report( options.output );
    report.file( "in", job.read(), reader.format(), reader.encoding(), options.input );
    report.file( "out", job.written(), writer.format(), encodingName( writer.format().encoding ), options.output );
    report.peak( job.highest(), writer.format().encoding );
}

static void convert( Transcoder &job, CutReader source, Progress progress )
{
    for ( ; auto pkt = source.next(); progress.update( job.read(), job.highest() ) ) {
        stopIfInterrupted();
        job.write( *pkt );
    }
    job.finish();
}

static void transcode( const Options &options )
{
    pcm::SrcType type = converterType( options.quality );
    const Container &container = containerFor( options.output, options.container );
    AudioReader reader = openInput( options );
    if ( sameFile( options.input, options.output ) ) fail( options.output + " is the input itself" );
    AudioFormat in = reader.format(), out = outputFormat( options, reader, container );
    Resampler resampler( type, in.rate, out.rate, in.channels );
    if ( !std::isfinite( options.level ) ) fail( "--level: not a number of dB" );
    Cut cut = cutAt( options.cut, in.rate );
    if ( cut.from > reader.frames() ) fail( "--seconds-at: begins behind the end of " + options.input );

    if ( sameFile( options.input, options.plot ) || ( !options.plot.empty() && options.plot == options.output ) )
        fail( "--plot: " + options.plot + " is the input or the output itself" );
    if ( !options.plot.empty() && lower( std::filesystem::path( options.plot ).extension() ) != ".svg" )
        fail( "--plot: " + options.plot + " is no .svg" );
    std::optional<Plot> plot;
    if ( !options.plot.empty() ) plot.emplace( options.plot, in.rate, out.rate );

    AudioWriter writer( options.output, container, out );
    Transcoder job( writer, std::move( resampler ), in.rate, options.level, plot ? &*plot : nullptr );
    int64_t total = std::min( cut.to, reader.frames() );
    total = total == INT64_MAX ? -1 : total - cut.from; // a damaged file may have no end that is known
    writer.needRoom( double( total ) / double( in.rate ) * double( out.rate ) *
                     double( out.encoding.sizeofFrame( out.channels ) ) );
    convert( job, CutReader( reader, cut, packetFrames( in.rate, out.rate, in.channels ) ),
        Progress( options.progress, total, in.rate ) );
    if ( job.read() < total )
        std::fprintf( stderr, "transcode: warning: %s ends %lld frames early\n", options.input.c_str(),
            (long long)( total - job.read() ) );
    if ( plot ) plot->draw();
    writer.finish();
    if ( plot ) plot->finish();
    report( options, reader, writer, job );
}

int main( int argc, char **argv )
{
    CLI::App app( "Converts a recording to another container, encoding, sample rate and level." );
    Options options;
    declare( app, options );
    return run( app, argc, argv, [&] { transcode( options ); } );
}
