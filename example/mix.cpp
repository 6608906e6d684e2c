// Mixes recordings into one file, for example both sides of a call, or an announcement over music.
//
// Data flow: encoded bytes of each file -> Packet::tryDecode -> Packet::adjustLevel -> Packet::expandWithDownmix ->
// Src::write -> Src::gatherAdd, which adds to a shared block of 20 ms -> Packet::encode -> encoded bytes of the
// output.

#include "audio_file.h"
#include "command_line.h"
#include "progress.h"
#include "report.h"
#include "resampler.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <optional>

using namespace host;

struct Options {
    std::string output, encoding = "int16", container, quality = "medium";
    std::vector<std::string> inputs;
    bool strict = false;
    std::optional<int64_t> rate, channels;
    std::optional<bool> progress;
};

static const char notes[] = "To change the level of an input, append \",level=DB\" to its name; to start it\n"
                            "later, append \",at=SECONDS\". The output ends when the last input ends.\n"
                            "\n"
                            "If an input has fewer channels than the output, each additional channel\n"
                            "receives the mean of its channels. If it has more, every output channel\n"
                            "receives the mean of its channels. Samples are added as 32-bit floats. Sums\n"
                            "that exceed full scale are clipped if the output encoding requires it; the\n"
                            "summary shows the peak before clipping.\n"
                            "\n";

static const char examples[] = "  pcm-mix call.wav caller.wav callee.wav\n"
                               "  pcm-mix announcement.wav music.flac,level=-20 speech.wav,at=2.5\n"
                               "  pcm-mix all.au a.wav,level=-6 b.wav,at=0.75 --rate 8000 --encoding alaw\n"
                               "  pcm-transcode line.raw - --raw --input-encoding alaw --rate 8000 |\n"
                               "            pcm-mix both.wav - b.wav";

static void addOptions( CommandLine &line, Options &options )
{
    line.addArgument(
        "OUTPUT", options.output, "output file; its extension selects the container; \"-\" is standard output" );
    line.addArguments( "INPUT...", options.inputs, 1,
        "input files, optionally with a level and a start time; \"-\" is standard input" );
    line.beginGroup( "Output" );
    line.addOption( "--container", "NAME", options.container, "container of the output (default: by its extension)" );
    line.addOption( "--encoding", "NAME", options.encoding, "encoding of the output (default: int16)" );
    line.addOption(
        "--rate", "HZ", options.rate, maxRate, "sample rate of the output (default: highest rate of the inputs)" );
    line.addOption( "--channels", "N", options.channels, maxChannels,
        "channels of the output (default: most channels of the inputs)" );
    line.beginGroup( "Conversion" );
    line.addOption(
        "--quality", "NAME", options.quality, "quality of rate conversion, see the table below (default: medium)" );
    line.addFlag( "--strict", options.strict, "fail if an input is truncated" );
    line.beginGroup( "Reports" );
    line.addProgressFlags( options.progress, "output" );
}

// An INPUT argument.
struct InputSpec {
    std::string path;
    std::string level = "0", startTime = "0";
};

// Splits settings off from the end, because file names can contain commas.
static InputSpec parseInputSpec( const std::string &text )
{
    InputSpec spec{ text };
    bool hasLevel = false, hasStartTime = false;
    for ( size_t comma; ( comma = spec.path.rfind( ',' ) ) != text.npos; spec.path.resize( comma ) ) {
        std::string setting = spec.path.substr( comma + 1 );
        bool isLevel = setting.starts_with( "level=" ), isStartTime = setting.starts_with( "at=" );
        if ( !isLevel && !isStartTime ) break;
        if ( std::exchange( isLevel ? hasLevel : hasStartTime, true ) )
            fail( text + ": " + ( isLevel ? "level" : "at" ) + " is given twice" );
        ( isLevel ? spec.level : spec.startTime ) = setting.substr( setting.find( '=' ) + 1 );
    }
    return spec;
}

// An input, converted to the channels and rate of the mix.
class Track {
public:
    explicit Track( const std::string &text )
        : spec( parseInputSpec( text ) ), level( parseLevel( text, spec.level, 200 ) ),
          startTime( parseSeconds( text, spec.startTime ) ), reader( spec.path )
    {
    }

    const std::string &path() const { return spec.path; }
    const AudioReader &source() const { return reader; }

    void start( Quality quality, const AudioFormat &mix )
    {
        channels = mix.channels;
        framesToStart = std::llround( startTime * double( mix.rate ) );
        framesPerRead =
            packetFrames( reader.format().rate, mix.rate, std::max( channels, reader.format().channels ) );
        resampler.emplace( quality, reader.format().rate, mix.rate, channels );
    }

    // The frame of the mix at which this track ends, according to the header of its file. Call before `add`.
    double end( int64_t rate ) const
    {
        return double( framesToStart ) + double( reader.frames() ) / double( reader.format().rate ) * double( rate );
    }

    // Makes the track's part of the next block available. Returns the length of that part, including the silence
    // before the start of the track.
    int64_t prepare( int64_t frames )
    {
        silentFrames = std::min( framesToStart, frames );
        audioFrames = frames - silentFrames;
        while ( !ended && resampler->available() < audioFrames ) read();
        if ( !ended ) return frames;
        audioFrames = std::min( audioFrames, resampler->remaining() );
        resampler->flush( audioFrames );
        return silentFrames + audioFrames;
    }

    // Adds the prepared part to the block.
    void add( std::span<PCM_SAMPLE> block )
    {
        resampler->gatherAdd( block.subspan( size_t( silentFrames * channels ) ), audioFrames );
        framesToStart -= silentFrames;
    }

    int64_t framesRead() const { return resampler->framesIn(); }

private:
    void read()
    {
        auto pkt = pcm::Packet::tryDecode(
            reader.read( framesPerRead ), reader.format().encoding, reader.format().channels );
        ended = !pkt || !pkt->frames();
        if ( ended ) return;
        if ( level != 0 ) pkt->levelAdjust( level );
        pkt->channelsAdjustExpandWithDownmix( channels );
        resampler->write( *pkt );
    }

    InputSpec spec;
    double level, startTime;
    AudioReader reader;
    std::optional<Resampler> resampler;
    int64_t channels = 0, framesPerRead = 0;
    int64_t framesToStart = 0;                 // frames of the mix before the track starts
    int64_t silentFrames = 0, audioFrames = 0; // the track's part of the next block
    bool ended = false;
};

using Tracks = std::deque<Track>;

static Tracks openTracks( const Options &options )
{
    Tracks tracks;
    for ( const std::string &input : options.inputs ) {
        tracks.emplace_back( input );
        tracks.back().source().checkLength( options.strict );
        if ( isSameFile( tracks.back().path(), options.output ) )
            fail( "cannot write " + options.output + ": it is also an input" );
    }
    return tracks;
}

static AudioFormat outputFormat( const Options &options, const Tracks &tracks )
{
    int64_t rate = 0, channels = 0;
    for ( const Track &track : tracks ) {
        rate = std::max( rate, track.source().format().rate );
        channels = std::max( channels, track.source().format().channels );
    }
    return { parseEncoding( options.encoding ), options.rate.value_or( rate ),
        options.channels.value_or( channels ) };
}

// Returns the next block, which is empty when all tracks have ended.
static pcm::Packet nextBlock( Tracks &tracks, int64_t maxFrames, int64_t channels )
{
    int64_t frames = 0;
    for ( Track &track : tracks ) frames = std::max( frames, track.prepare( maxFrames ) );
    pcm::Packet block( channels );
    block.setFrames( frames ); // silence
    if ( !frames ) return block;
    std::span<PCM_SAMPLE> samples = block.mutableSamples();
    for ( Track &track : tracks ) track.add( samples );
    return block;
}

static void mix( const Options &options )
{
    const Quality quality = parseQuality( options.quality );
    const Container &container = selectContainer( options.output, options.container );
    Tracks tracks = openTracks( options );
    AudioFormat format = outputFormat( options, tracks );
    double end = 0;
    for ( Track &track : tracks ) {
        track.start( quality, format );
        end = std::max( end, track.end( format.rate ) );
    }

    AudioWriter writer( options.output, container, format );
    writer.checkSpace( end * double( format.encoding.sizeofFrame( format.channels ) ) );
    int64_t framesWritten = 0;
    float peak = 0;
    {
        Progress progress( options.progress, end < 1e18 ? std::llround( end ) : -1, format.rate );
        int64_t frames = packetFrames( format.rate, format.rate, format.channels );
        for ( pcm::Packet block; block = nextBlock( tracks, frames, format.channels ), block.frames(); ) {
            stopIfInterrupted();
            peak = updatedPeak( peak, block );
            writer.write( block.encode( writer.format().encoding ) );
            progress.update( framesWritten += block.frames(), peak );
        }
    }
    writer.finish();

    Report report( options.output );
    for ( const Track &track : tracks )
        report.printFile(
            "in", track.framesRead(), track.source().format(), track.source().encodingDescription(), track.path() );
    report.printFile(
        "out", framesWritten, writer.format(), encodingName( writer.format().encoding ), options.output );
    report.printPeak( peak, writer.format().encoding );
}

int main( int argc, char **argv )
{
    CommandLine line( "pcm-mix", "Mixes recordings of any sample rate, channel count and encoding into one.",
        notes + std::string( qualityTable ) + examples );
    Options options;
    addOptions( line, options );
    return line.run( argc, argv, [&] { mix( options ); } );
}
