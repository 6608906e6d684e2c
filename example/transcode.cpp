// Converts recordings, or a part of one, to another container, encoding, sample rate, channel count and level.
//
// Data flow: encoded bytes of the input -> Packet::tryDecode -> Packet::delLeading and delTrailing -> channel
// selection and Packet::expandWithDownmix -> Src::write -> Src::gather -> Packet::adjustLevel -> Packet::encode ->
// encoded bytes of the output, in packets of 20 ms.

#include "audio_file.h"
#include "command_line.h"
#include "plot.h"
#include "progress.h"
#include "report.h"
#include "resampler.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

using namespace host;

struct Options {
    std::vector<std::string> files;
    std::string directory, encoding, inputEncoding, container, range, plot, select, level = "0", quality = "medium";
    std::optional<int64_t> rate, inputRate, channels, inputChannels;
    bool strict = false, raw = false, round = false, dither = false;
    std::optional<bool> progress;
};

static const char notes[] = "Containers are wav, au, aiff, w64, rf64, caf and raw (no header). By default,\n"
                            "the output has the rate, the channels and the encoding of the input, or the\n"
                            "closest encoding that its container supports.\n"
                            "\n"
                            "Encodings are int8, uint8, int16, int24, int32, float32, alaw and mulaw, in the\n"
                            "byte order of the container, or any combination of encoding flags. Headerless\n"
                            "files support all encodings, other containers only some.\n"
                            "\n"
                            "All samples are converted to 32-bit floats, even if the encoding does not\n"
                            "change, so only 24 bits of int32 samples are preserved. Integers are truncated\n"
                            "unless --round or --dither is given.\n"
                            "\n";

static const char examples[] = "  pcm-transcode call.wav call.au --encoding mulaw\n"
                               "  pcm-transcode line.raw line.wav --raw --input-encoding alaw --rate 8000\n"
                               "  pcm-transcode line.raw speech.wav --raw --input-encoding alaw \\\n"
                               "            --input-rate 8000 --rate 16000\n"
                               "  pcm-transcode *.wav --to-directory out --encoding alaw --rate 8000\n"
                               "  ffmpeg -i speech.mkv -f wav - | pcm-transcode - - --rate 16000 | aplay\n"
                               "  pcm-transcode speech.flac part.wav --seconds-at 1.5:4 --level -6\n"
                               "  pcm-transcode speech.wav narrow.wav --rate 8000 --plot narrow.svg\n"
                               "  pcm-transcode speech.wav speech.raw \\\n"
                               "            --encoding \"PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32\"";

static void addOptions( CommandLine &line, Options &options )
{
    line.addArguments( "INPUT... OUTPUT", options.files, 1,
        "input file (WAV, AU, AIFF, W64, RF64, CAF, FLAC, Ogg, MP3 ...) and output file, whose extension selects the "
        "container; \"-\" is standard input or output; with --to-directory, only input files" );
    line.beginGroup( "Output" );
    line.addOption( "--to-directory", "DIRECTORY", options.directory,
        "convert each input to a file of the same base name in this directory; if one fails, the others are still "
        "converted" );
    line.addOption( "--container", "NAME", options.container, "container of the output (default: by its extension)" );
    line.addOption( "--encoding", "NAME", options.encoding, "encoding of the output (default: that of the input)" );
    line.addOption( "--rate", "HZ", options.rate, maxRate,
        "sample rate of the output; with --raw and without --input-rate, also of the input" );
    line.addOption( "--channels", "N", options.channels, maxChannels,
        "channels of the output: with fewer channels, each is the mean of all input channels; added channels are "
        "that mean; with --raw and without --input-channels, also of the input" );
    line.beginGroup( "Conversion" );
    line.addOption( "--seconds-at", "FROM:TO", options.range,
        "the part of the input to convert, in seconds; FROM or TO may be omitted" );
    line.addOption( "--select", "C,C...", options.select,
        "input channels to keep, in this order, counted from 0; --channels applies to the result" );
    line.addOption(
        "--quality", "NAME", options.quality, "quality of rate conversion, see the table below (default: medium)" );
    line.addOption( "--level", "DB", options.level, "change of level; negative values attenuate" );
    line.addFlag( "--round", options.round, "round to the nearest integer code instead of truncating" );
    line.addFlag( "--dither", options.dither,
        "round, and add triangular noise of up to one step, which turns distortion of quiet passages into noise" );
    line.beginGroup( "Input" );
    line.addFlag( "--strict", options.strict, "fail if the input is truncated" );
    line.addFlag( "--raw", options.raw, "the input has no header" );
    line.addOption( "--input-encoding", "NAME", options.inputEncoding, "encoding of headerless input" );
    line.addOption( "--input-rate", "HZ", options.inputRate, maxRate, "sample rate of headerless input" );
    line.addOption(
        "--input-channels", "N", options.inputChannels, maxChannels, "channels of headerless input (default: 1)" );
    for ( const char *name : { "--input-encoding", "--input-rate", "--input-channels" } )
        line.require( name, "--raw" );
    line.require( "--raw", "--input-encoding" );
    line.beginGroup( "Reports" );
    line.addOption( "--plot", "FILE", options.plot,
        "SVG file for plots of the level and spectrum of input and output, side by side" );
    line.addProgressFlags( options.progress, "input" );
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

// Returns the channels that a list such as "0,2" selects, or none for an empty list.
static std::vector<int64_t> parseSelection( const std::string &text, int64_t channels )
{
    std::vector<int64_t> selected;
    for ( size_t begin = 0; !text.empty() && begin <= text.size(); ) {
        const size_t end = std::min( text.find( ',', begin ), text.size() );
        selected.push_back( parseWhole( "--select", text.substr( begin, end - begin ), 0, channels - 1 ) );
        begin = end + 1;
    }
    return selected;
}

static void selectChannels( pcm::Packet &pkt, const std::vector<int64_t> &selected )
{
    const int64_t channels = int64_t( selected.size() ), frames = pkt.frames();
    pcm::Packet dest( channels );
    dest.setFrames( frames );
    PCM_SAMPLE *block = dest.mutableBacking();
    for ( int64_t c = 0; c < channels; ++c )
        pcm::samples::copy( { block, c, channels }, { pkt.backing(), selected[c], pkt.channels() }, frames );
    pkt = dest;
}

// Encoding truncates. Adds half a step of the integer codes, so that the result is rounded, and optionally TPDF
// dither: the sum of two uniform random values of up to half a step each.
static void addHalfStep( pcm::Packet &pkt, pcm::Encoding encoding, bool dither )
{
    const double step = std::exp2( 1 - 8 * double( encoding.base().sizeofSample() ) );
    std::span<PCM_SAMPLE> samples = pkt.mutableSamples();
    std::vector<PCM_SAMPLE> noise( dither ? samples.size() : 0 );
    pcm::noise::gather( noise );
    pcm::noise::gatherAdd( noise );
    pcm::samples::scale( noise, step / 2 );
    pcm::samples::add( samples.first( noise.size() ), noise );
    for ( PCM_SAMPLE &sample : samples ) sample += PCM_SAMPLE( step / 2 );
}

// Processing other than rate conversion.
struct Treatment {
    std::vector<int64_t> selected; // the channels to keep, or none for all
    double level;
    bool round, dither;
};

// Takes packets of any length at the input rate and writes packets of 20 ms at the output rate.
class Transcoder {
public:
    Transcoder( AudioWriter &writer, Resampler resampler, int64_t inRate, Treatment treatment, Plot *plot )
        : writer( writer ), resampler( std::move( resampler ) ),
          framesPerWrite( packetFrames( writer.format().rate, inRate, writer.format().channels ) ),
          treatment( std::move( treatment ) ), plot( plot )
    {
    }

    void write( pcm::Packet pkt )
    {
        if ( plot ) plot->input.add( pkt );
        if ( !treatment.selected.empty() ) selectChannels( pkt, treatment.selected );
        pkt.channelsAdjustExpandWithDownmix( writer.format().channels );
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
        if ( treatment.level != 0 ) pkt.levelAdjust( treatment.level );
        outputPeak = updatedPeak( outputPeak, pkt );
        AudioFormat format = writer.format();
        if ( treatment.round || treatment.dither ) addHalfStep( pkt, format.encoding, treatment.dither );
        pcm::Buffer bytes = pkt.encode( format.encoding );
        if ( plot ) // plot what a reader of the file will decode
            if ( auto decoded = pcm::Packet::tryDecode( bytes, format.encoding, format.channels ) )
                plot->output.add( *decoded );
        writer.write( bytes );
    }

    AudioWriter &writer;
    Resampler resampler;
    int64_t framesPerWrite;
    Treatment treatment;
    Plot *plot; // or null
    float outputPeak = 0;
};

static AudioReader openInput( const Options &options, const std::string &path )
{
    if ( !options.raw ) return AudioReader( path );
    std::optional<int64_t> rate = options.inputRate ? options.inputRate : options.rate;
    if ( !rate ) fail( "--raw requires --input-rate, or --rate for both input and output" );
    const int64_t channels = options.inputChannels.value_or( options.channels.value_or( 1 ) );
    return { path, { parseEncoding( options.inputEncoding ), *rate, channels } };
}

// Returns the format of the output. Its encoding is the requested one, or the one closest to that of the input that
// the container supports.
static AudioFormat outputFormat(
    const Options &options, const AudioReader &reader, int64_t selectedChannels, const Container &container )
{
    const int64_t channels = selectedChannels ? selectedChannels : reader.format().channels;
    AudioFormat format = { reader.nearestEncoding(), options.rate.value_or( reader.format().rate ),
        options.channels.value_or( channels ) };
    if ( !options.encoding.empty() )
        format.encoding = parseEncoding( options.encoding );
    else if ( container.majorFormat ) {
        format.encoding = format.encoding.base() | ( format.encoding & pcm::Encoding::unsignedCodes );
        if ( !supportsFormat( container, format ) ) format.encoding = format.encoding.word() ^ PCM_ENCODING_UNSIGNED;
    }
    return format;
}

static bool isInteger( pcm::Encoding encoding )
{
    static const pcm::Encoding integers[] = { pcm::Encoding::int8, pcm::Encoding::int16, pcm::Encoding::int24,
        pcm::Encoding::int32 };
    return std::find( std::begin( integers ), std::end( integers ), encoding.normalized().base() ) !=
           std::end( integers );
}

static Treatment parseTreatment( const Options &options, const AudioFormat &in )
{
    return { parseSelection( options.select, in.channels ), parseLevel( "--level", options.level, 200 ),
        options.round, options.dither };
}

static void printReport( const Report &report, const AudioReader &reader, const AudioWriter &writer,
    const Transcoder &transcoder, const std::string &input, const std::string &output )
{
    report.printFile( "in", transcoder.framesRead(), reader.format(), reader.encodingDescription(), input );
    report.printFile(
        "out", transcoder.framesWritten(), writer.format(), encodingName( writer.format().encoding ), output );
    report.printPeak( transcoder.peak(), writer.format().encoding );
}

static void convert( Transcoder &transcoder, RangeReader source, Progress *progress )
{
    while ( auto pkt = source.next() ) {
        stopIfInterrupted();
        transcoder.write( *pkt );
        if ( progress ) progress->update( transcoder.framesRead(), transcoder.peak() );
    }
    transcoder.finish();
}

static void checkPlotPath( const std::string &plot, const std::string &input, const std::string &output )
{
    if ( isSameFile( input, plot ) || isSameFile( plot, output ) )
        fail( "cannot write " + plot + ": --plot needs a file other than the input and the output" );
    if ( lower( std::filesystem::path( plot ).extension() ) != ".svg" )
        fail( "cannot write " + plot + ": the extension of a --plot file must be .svg" );
}

// Converts a file. Prints its progress and a report unless it is one of many. Returns the peak.
static double transcode(
    const Options &options, const std::string &input, const std::string &output, bool isOnlyFile )
{
    const Quality quality = parseQuality( options.quality );
    const Container &container = selectContainer( output, options.container );
    AudioReader reader = openInput( options, input );
    reader.checkLength( options.strict );
    if ( isSameFile( input, output ) ) fail( "cannot write " + output + ": it is also the input" );
    Treatment treatment = parseTreatment( options, reader.format() );
    AudioFormat in = reader.format(),
                out = outputFormat( options, reader, int64_t( treatment.selected.size() ), container );
    if ( ( treatment.round || treatment.dither ) && !isInteger( out.encoding ) )
        fail( "--round and --dither require an integer encoding, not " + encodingName( out.encoding ) );
    Resampler resampler( quality, in.rate, out.rate, out.channels );
    FrameRange range = parseRange( options.range, in.rate );
    if ( range.begin > reader.frames() )
        fail( "--seconds-at: \"" + options.range + "\" begins after the end of " + input );

    std::optional<Plot> plot;
    if ( !options.plot.empty() ) {
        checkPlotPath( options.plot, input, output );
        plot.emplace( options.plot, in.rate, out.rate );
    }

    AudioWriter writer( output, container, out );
    Transcoder transcoder( writer, std::move( resampler ), in.rate, std::move( treatment ), plot ? &*plot : nullptr );
    int64_t total = std::min( range.end, reader.frames() );
    total = total == INT64_MAX ? -1 : total - range.begin; // the length of a damaged file can be unknown
    writer.checkSpace( double( total ) / double( in.rate ) * double( out.rate ) *
                       double( out.encoding.sizeofFrame( out.channels ) ) );
    std::optional<Progress> progress;
    if ( isOnlyFile ) progress.emplace( options.progress, total, in.rate );
    convert( transcoder, RangeReader( reader, range, packetFrames( in.rate, out.rate, in.channels ) ),
        progress ? &*progress : nullptr );
    progress.reset();
    if ( transcoder.framesRead() < total ) {
        const std::string message = input + " is damaged: " + std::to_string( transcoder.framesRead() ) + " of " +
                                    std::to_string( total ) + " frames can be decoded";
        if ( options.strict ) fail( message );
        warn( message );
    }
    if ( plot ) plot->draw();
    writer.finish();
    if ( plot ) plot->finish();
    if ( isOnlyFile ) printReport( Report( output ), reader, writer, transcoder, input, output );
    return transcoder.peak();
}

struct Job {
    std::string input, output;
};

// Returns a job for each input. Fails if an output would replace an input or another output.
static std::vector<Job> planJobs( const Options &options )
{
    std::vector<Job> jobs;
    std::set<std::string> inputs;               // identities
    std::map<std::string, std::string> outputs; // the inputs of outputs, by identity
    for ( const std::string &input : options.files ) {
        if ( input == standardStream ) fail( "\"-\" cannot be combined with --to-directory" );
        inputs.insert( fileIdentity( input ) );
    }
    for ( const std::string &input : options.files ) {
        std::filesystem::path name = std::filesystem::path( input ).filename();
        if ( !options.container.empty() )
            name.replace_extension( options.container );
        else if ( !hasContainer( input ) )
            name.replace_extension( "wav" );
        jobs.push_back( { input, ( options.directory / name ).string() } );
        const std::string identity = fileIdentity( jobs.back().output );
        const std::string message = "cannot write " + jobs.back().output + " for " + input;
        if ( inputs.contains( identity ) ) fail( message + ": it is also an input" );
        const auto [output, isNew] = outputs.emplace( identity, input );
        if ( !isNew ) fail( message + ": it is also the output for " + output->second );
    }
    return jobs;
}

// Converts many files, with one thread per processor.
static void transcodeToDirectory( const Options &options )
{
    if ( !options.plot.empty() ) fail( "--plot cannot be combined with --to-directory" );
    const std::vector<Job> jobs = planJobs( options );
    std::error_code error;
    std::filesystem::create_directories( options.directory, error );
    if ( error ) failWithErrno( "cannot create " + options.directory, error.value() );

    std::optional<Progress> progress( std::in_place, options.progress, int64_t( jobs.size() ) );
    std::mutex mutex;
    std::vector<std::string> failures;
    int64_t doneFiles = 0;
    double peak = 0;
    std::atomic<size_t> next = 0;
    const auto work = [&] {
        for ( size_t index; ( index = next++ ) < jobs.size(); ) {
            const Job &job = jobs[index];
            std::string failure;
            double filePeak = 0;
            try {
                filePeak = transcode( options, job.input, job.output, false );
            } catch ( const std::exception &error ) {
                failure = error.what();
                if ( failure.find( job.input ) == failure.npos ) failure.insert( 0, job.input + ": " );
            } catch ( ... ) { // interrupted by a signal
                next = jobs.size();
                return;
            }
            const std::lock_guard lock( mutex );
            if ( !failure.empty() ) failures.push_back( failure );
            peak = std::max( peak, filePeak );
            progress->update( ++doneFiles, peak );
        }
    };
    std::vector<std::thread> threads;
    for ( size_t count = std::clamp<size_t>( std::thread::hardware_concurrency(), 1, jobs.size() ); count; --count )
        threads.emplace_back( work );
    for ( std::thread &thread : threads ) thread.join();
    progress.reset();
    stopIfInterrupted();
    std::printf(
        "%zu of %zu files converted to %s\n", jobs.size() - failures.size(), jobs.size(), options.directory.c_str() );
    if ( failures.empty() ) return;
    std::string list = std::to_string( failures.size() ) + " of " + std::to_string( jobs.size() ) + " files failed:";
    for ( const std::string &failure : failures ) list += "\n  " + failure;
    fail( list );
}

int main( int argc, char **argv )
{
    CommandLine line( "pcm-transcode", "Converts recordings to another container, encoding, sample rate and level.",
        notes + std::string( qualityTable ) + examples );
    Options options;
    addOptions( line, options );
    return line.run( argc, argv, [&] {
        if ( !options.directory.empty() ) return transcodeToDirectory( options );
        if ( options.files.size() < 2 ) fail( "OUTPUT is required" );
        if ( options.files.size() > 2 ) fail( "more than one INPUT requires --to-directory" );
        transcode( options, options.files[0], options.files[1], true );
    } );
}
