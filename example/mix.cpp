// Joins recordings into one: what a conference or a player of prompts does.
//
// The road of a sample: encoded bytes of each file -> Packet::tryDecode -> Packet::adjustLevel ->
// Packet::expandWithDownmix -> Src::write -> Src::gatherAdd onto the block of 20 ms that all share -> Packet::encode
// -> encoded bytes of the output.

#include "audio_file.h"
#include "progress.h"
#include "report.h"
#include "resampler.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <deque>
#include <optional>

using namespace host;

struct Options {
    std::string output, encoding = "int16", container, quality = "fast";
    std::vector<std::string> inputs;
    std::optional<int64_t> rate, channels;
    std::optional<bool> progress;
};

static void declare( CLI::App &app, Options &options )
{
    app.name( "mix" );
    app.footer(
        "Behind the name of an input, \",level=DB\" makes it louder or, if negative, softer, and \",at=SECONDS\" "
        "lets\n"
        "it begin later. The output lasts until the last input has ended.\n"
        "\n"
        "An input with fewer channels than the output fills the others with the mean of those it has; one with more\n"
        "becomes the mean of all its channels. Samples are summed as 32-bit floats; sums beyond full scale are\n"
        "clipped where the encoding needs that, and the peak that is told at the end shows how far they went.\n"
        "\n"
        "  mix call.wav caller.wav callee.wav\n"
        "  mix announcement.wav music.flac,level=-20 speech.wav,at=2.5\n"
        "  mix all.au a.wav,level=-6 b.wav,level=-6,at=0.75 --rate 8000 --channels 1 --encoding alaw\n"
        "  transcode line.raw line.wav --raw --input-encoding alaw --rate 8000 && mix both.wav line.wav b.wav" );
    app.add_option( "OUTPUT", options.output, "what to write; its extension names the container" )->required();
    app.add_option( "INPUT", options.inputs, "what to read, with a level and a start time where wanted" )->required();
    app.add_option( "--container", options.container, "the container, whatever the output's name" );
    app.add_option( "--rate", options.rate, "frames a second of the output; by default, the highest of the inputs" )
        ->check( CLI::Range( int64_t( 1 ), highestRate ) );
    app.add_option( "--channels", options.channels, "channels of the output; by default, the most of the inputs" )
        ->check( CLI::Range( int64_t( 1 ), mostChannels ) );
    app.add_option( "--encoding", options.encoding, "encoding of the output, int16 by default" );
    app.add_option(
        "--quality", options.quality, "of changes of rate: best, medium, fast (the default), hold, linear" );
    addProgress( app, options.progress, "output" );
}

// An input as the user tells it.
struct Wish {
    std::string path;
    std::string level = "0", at = "0";
};

// What stands behind the last commas, so that names may hold commas too.
static Wish wishFrom( const std::string &text )
{
    Wish wish{ text };
    bool hasLevel = false, hasAt = false;
    for ( size_t comma; ( comma = wish.path.rfind( ',' ) ) != text.npos; wish.path.resize( comma ) ) {
        std::string setting = wish.path.substr( comma + 1 );
        bool isLevel = setting.starts_with( "level=" ), isAt = setting.starts_with( "at=" );
        if ( !isLevel && !isAt ) break;
        if ( std::exchange( isLevel ? hasLevel : hasAt, true ) ) fail( text + ": " + setting + " is told twice" );
        ( isLevel ? wish.level : wish.at ) = setting.substr( setting.find( '=' ) + 1 );
    }
    return wish;
}

// An input on its way to the mix, in the mix's channels and rate.
class Track {
public:
    explicit Track( const std::string &text )
        : wish( wishFrom( text ) ), level( levelFrom( text, wish.level, 200 ) ), at( secondsFrom( text, wish.at ) ),
          reader( wish.path )
    {
    }

    const std::string &path() const { return wish.path; }
    const AudioReader &source() const { return reader; }

    void begin( pcm::SrcType converter, const AudioFormat &mix )
    {
        channels = mix.channels;
        start = std::llround( at * double( mix.rate ) );
        packet = packetFrames( reader.format().rate, mix.rate, std::max( channels, reader.format().channels ) );
        resampler.emplace( converter, reader.format().rate, mix.rate, channels );
    }

    // Frames of the mix up to the end of this track, if its file tells its length.
    double end( int64_t rate ) const
    {
        return double( start ) + double( reader.frames() ) / double( reader.format().rate ) * double( rate );
    }

    // Makes the track's part of the next block ready; returns how many frames the track has for it, with the silence
    // before its start.
    int64_t prepare( int64_t frames )
    {
        lead = std::min( start, frames );
        part = frames - lead;
        while ( !ended && resampler->ready() < part ) read();
        if ( !ended ) return frames;
        part = std::min( part, resampler->left() );
        resampler->finish( part );
        return lead + part;
    }

    // Adds the part that was prepared.
    void add( std::span<PCM_SAMPLE> block )
    {
        resampler->gatherAdd( block.subspan( size_t( lead * channels ) ), part );
        start -= lead;
    }

    int64_t written() const { return resampler->written(); }

private:
    void read()
    {
        auto pkt =
            pcm::Packet::tryDecode( reader.read( packet ), reader.format().encoding, reader.format().channels );
        ended = !pkt || !pkt->frames();
        if ( ended ) return;
        if ( level != 0 ) pkt->adjustLevel( level );
        pkt->expandWithDownmix( channels );
        resampler->write( *pkt );
    }

    Wish wish;
    double level, at;
    AudioReader reader;
    std::optional<Resampler> resampler;
    int64_t channels = 0, packet = 0;
    int64_t start = 0; // frames of the mix that are still to pass before the track begins
    int64_t lead = 0, part = 0;
    bool ended = false;
};

using Tracks = std::deque<Track>;

static Tracks openTracks( const Options &options )
{
    Tracks tracks;
    for ( const std::string &input : options.inputs ) {
        tracks.emplace_back( input );
        if ( sameFile( tracks.back().path(), options.output ) ) fail( options.output + " is one of the inputs" );
    }
    return tracks;
}

static AudioFormat outputFormat( const Options &options, const Tracks &tracks )
{
    AudioFormat most = { encodingFromName( options.encoding ), 0, 0 };
    for ( const Track &track : tracks ) {
        most.rate = std::max( most.rate, track.source().format().rate );
        most.channels = std::max( most.channels, track.source().format().channels );
    }
    return { most.encoding, options.rate.value_or( most.rate ), options.channels.value_or( most.channels ) };
}

// The next block; without frames when all tracks have ended.
static pcm::Packet nextBlock( Tracks &tracks, int64_t frames, int64_t channels )
{
    int64_t reach = 0;
    for ( Track &track : tracks ) reach = std::max( reach, track.prepare( frames ) );
    pcm::Packet block( channels );
    block.setFrames( reach ); // of silence
    if ( !reach ) return block;
    std::span<PCM_SAMPLE> samples = block.mutableSamples();
    for ( Track &track : tracks ) track.add( samples );
    return block;
}

static void mix( const Options &options )
{
    pcm::SrcType converter = converterType( options.quality );
    const Container &container = containerFor( options.output, options.container );
    Tracks tracks = openTracks( options );
    AudioFormat out = outputFormat( options, tracks );
    double end = 0;
    for ( Track &track : tracks ) {
        track.begin( converter, out );
        end = std::max( end, track.end( out.rate ) );
    }

    AudioWriter writer( options.output, container, out );
    writer.needRoom( end * double( out.encoding.sizeofFrame( out.channels ) ) );
    int64_t done = 0;
    float peak = 0;
    {
        Progress progress( options.progress, end < 1e18 ? int64_t( end + 0.5 ) : -1, out.rate );
        int64_t frames = packetFrames( out.rate, out.rate, out.channels );
        for ( pcm::Packet block; block = nextBlock( tracks, frames, out.channels ), block.frames(); ) {
            stopIfInterrupted();
            peak = highestOf( block, peak );
            writer.write( block.encode( writer.format().encoding ) );
            progress.update( done += block.frames(), peak );
        }
    }
    writer.finish();

    Report report( options.output );
    for ( const Track &track : tracks )
        report.file( "in", track.written(), track.source().format(), track.source().encoding(), track.path() );
    report.file( "out", done, writer.format(), encodingName( writer.format().encoding ), options.output );
    report.peak( peak, writer.format().encoding );
}

int main( int argc, char **argv )
{
    CLI::App app( "Joins recordings of any rates, channels and encodings into one." );
    Options options;
    declare( app, options );
    return run( app, argc, argv, [&] { mix( options ); } );
}
