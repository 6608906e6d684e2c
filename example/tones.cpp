// Writes the tones of telephone networks: dial, busy and ring-back tones, DTMF digits and modulated tones.
//
// pcm::Tone, DualTone and ModulatedTone generate the tones in packets of 20 ms, and pcm::silence the pauses.

#include "audio_file.h"
#include "command_line.h"
#include "national_tones.h"
#include "report.h"
#include "resampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

using namespace host;

struct Options {
    std::string output, encoding = "int16", container, level = "-10", duration = "10", on = "0.1", off = "0.1";
    std::string country, digits, carrier, modulation;
    std::optional<int64_t> rate;
};

static std::string countryNames()
{
    std::string names;
    for ( const Country &country : countries ) names += ( names.empty() ? "" : ", " ) + std::string( country.name );
    return names;
}

static const Country &findCountry( const std::string &name )
{
    for ( const Country &country : countries )
        if ( lower( name ) == country.name ) return country;
    fail( "unknown country \"" + name + "\"; use one of " + countryNames() );
}

// ITU-T Q.23.
static Tone dtmfTone( char digit )
{
    static constexpr char digits[] = "123A456B789C*0#D";
    static constexpr int64_t rows[] = { 697, 770, 852, 941 }, columns[] = { 1209, 1336, 1477, 1633 };
    if ( digit >= 'a' && digit <= 'd' ) digit = char( digit - 'a' + 'A' );
    const char *found = digit ? std::strchr( digits, digit ) : nullptr;
    if ( !found ) fail( std::string( "unknown digit \"" ) + digit + "\"; digits are 0 to 9, *, # and A to D" );
    return dual( rows[( found - digits ) / 4], columns[( found - digits ) % 4] );
}

// Generates one continuous tone that starts at phase 0.
class ToneGenerator {
public:
    ToneGenerator( const Tone &tone, int64_t rate ) : mix( tone.mix )
    {
        checkRate( mix == Tone::modulated ? tone.f1 + tone.f2 : std::max( tone.f1, tone.f2 ), rate );
        first = pcm::Tone::tryCreate( rate, tone.f1 ).value();
        if ( mix != Tone::single ) second = pcm::Tone::tryCreate( rate, tone.f2 ).value();
    }

    pcm::Packet gather( int64_t frames )
    {
        switch ( mix ) {
        case Tone::dual: return pcm::DualTone{ first, second }.gather( frames );
        case Tone::modulated: return pcm::ModulatedTone{ first, second }.gather( frames );
        default: return first.gather( frames );
        }
    }

private:
    static void checkRate( int64_t hertz, int64_t rate )
    {
        if ( hertz >= rate - hertz )
            fail( "a tone of " + std::to_string( hertz ) + " Hz requires a --rate above " +
                  std::to_string( 2 * hertz ) + " Hz, not " + std::to_string( rate ) );
    }

    Tone::Mix mix;
    pcm::Tone first, second;
};

// Writes a sequence of tones and pauses, up to a total length.
class SequenceWriter {
public:
    SequenceWriter( AudioWriter &writer, int64_t maxFrames, double level )
        : writer( writer ), rate( writer.format().rate ), maxFrames( maxFrames ), level( level )
    {
    }

    void writeTone( const Tone &tone, double seconds )
    {
        ToneGenerator generator( tone, rate );
        write( seconds, [&]( int64_t frames ) {
            pcm::Packet pkt = generator.gather( frames );
            pkt.levelAdjust( level );
            return pkt;
        } );
    }

    void writePause( double seconds )
    {
        write( seconds, []( int64_t frames ) { return pcm::silence::gather( frames ); } );
    }

    bool isComplete() const { return framesDone == maxFrames; }
    int64_t framesWritten() const { return framesDone; }

private:
    // Rounds the sum of the durations to a frame, not each duration, so that a cadence does not drift.
    template <class Gather> void write( double seconds, Gather gather )
    {
        endTime += seconds;
        int64_t end = int64_t( std::min( endTime * double( rate ) + 0.5, double( maxFrames ) ) );
        while ( framesDone < end ) {
            stopIfInterrupted();
            int64_t frames = std::min( end - framesDone, packetFrames( rate, rate, 1 ) );
            writer.write( gather( frames ).encode( writer.format().encoding ) );
            framesDone += frames;
        }
    }

    AudioWriter &writer;
    int64_t rate, maxFrames, framesDone = 0;
    double level, endTime = 0;
};

static void writeSignal( SequenceWriter &writer, const Signal &signal, double duration )
{
    bool isContinuous = signal.cadence[1] == 0;
    for ( size_t i = 0; !writer.isComplete(); i = ( i + 2 ) % signal.cadence.size() ) {
        if ( !isContinuous && signal.cadence[i] == 0 ) continue;
        writer.writeTone( signal.tone, isContinuous ? duration : signal.cadence[i] );
        writer.writePause( signal.cadence[i + 1] );
    }
}

// What to write: the duration in seconds, and a function that writes the tones.
struct Sequence {
    double duration;
    std::function<void( SequenceWriter & )> write;
};

static Sequence digitSequence( const Options &options )
{
    double on = parseSeconds( "--on", options.on ), off = parseSeconds( "--off", options.off );
    std::vector<Tone> tones;
    for ( char digit : options.digits ) tones.push_back( dtmfTone( digit ) );
    if ( tones.empty() ) fail( "DIGITS is empty" );
    return { double( tones.size() ) * ( on + off ), [=]( SequenceWriter &writer ) {
                for ( const Tone &tone : tones ) {
                    writer.writeTone( tone, on );
                    writer.writePause( off );
                }
            } };
}

static Sequence signalSequence( const Options &options, const Signal &signal )
{
    double duration = parseSeconds( "--seconds", options.duration );
    return { duration, [=]( SequenceWriter &writer ) { writeSignal( writer, signal, duration ); } };
}

static Sequence selectSequence( const Options &options, const std::string &subcommand )
{
    if ( subcommand == "dtmf" ) return digitSequence( options );
    if ( subcommand == "am" )
        return signalSequence( options, { modulated( parseWhole( "CARRIER", options.carrier, 1, maxRate ),
                                              parseWhole( "MODULATION", options.modulation, 1, maxRate ) ),
                                            {} } );
    const Country &country = findCountry( options.country );
    return signalSequence( options, subcommand == "dial"   ? country.dial
                                    : subcommand == "busy" ? country.busy
                                                           : country.ringback );
}

static void writeTones( const Options &options, const std::string &subcommand )
{
    Sequence sequence = selectSequence( options, subcommand );
    AudioFormat format = { parseEncoding( options.encoding ), options.rate.value_or( 8000 ), 1 };
    double level = parseLevel( "--level", options.level, 0 ), frames = sequence.duration * double( format.rate );
    AudioWriter writer( options.output, selectContainer( options.output, options.container ), format );
    writer.checkSpace( frames * double( format.encoding.sizeofSample() ) );
    if ( frames >= 1e18 ) fail( "cannot write " + options.output + ": more than 1e18 frames" );
    SequenceWriter sequenceWriter( writer, std::llround( frames ), level );
    sequence.write( sequenceWriter );
    writer.finish();
    Report( options.output )
        .printFile( "out", sequenceWriter.framesWritten(), writer.format(), encodingName( writer.format().encoding ),
            options.output );
}

static std::string footer()
{
    return "  pcm-tones dial france dial.wav\n"
           "  pcm-tones ringback uk ring.wav --seconds 12 --rate 16000\n"
           "  pcm-tones dtmf \"0123456789*#ABCD\" keys.wav --on 0.06 --off 0.04\n"
           "  pcm-tones am 1000 10 pulsing.wav --level -3\n"
           "\n"
           "Run a subcommand with --help to list its options, for example:\n"
           "  pcm-tones dial --help";
}

static void addCommonOptions( CommandLine &line, Options &options )
{
    line.addArgument(
        "OUTPUT", options.output, "output file; its extension selects the container; \"-\" is standard output" );
    line.beginGroup( "Output" );
    line.addOption( "--container", "NAME", options.container, "container (default: by the extension of the output)" );
    line.addOption( "--encoding", "NAME", options.encoding, "encoding (default: int16)" );
    line.addOption( "--rate", "HZ", options.rate, maxRate, "sample rate (default: 8000)" );
    line.addOption( "--level", "DB", options.level, "peak level relative to full scale (default: -10)" );
    line.beginGroup( "Timing" );
}

static void addDuration( CommandLine &line, Options &options )
{
    line.addOption( "--seconds", "SECONDS", options.duration, "duration (default: 10)" );
}

static void addOptions( CommandLine &line, Options &options )
{
    for ( auto [name, purpose] :
        { std::pair( "dial", "dial tone of a country" ), std::pair( "busy", "busy tone of a country" ),
            std::pair( "ringback", "ring-back tone of a country, which a caller hears while the phone rings" ) } ) {
        CommandLine &national = line.addSubcommand( name, purpose );
        national.addArgument( "COUNTRY", options.country, "one of " + countryNames() );
        addCommonOptions( national, options );
        addDuration( national, options );
    }
    CommandLine &am = line.addSubcommand(
        "am", "product of two tones: CARRIER - MODULATION Hz and CARRIER + MODULATION Hz at half the amplitude" );
    am.addArgument( "CARRIER", options.carrier, "carrier frequency in Hz" );
    am.addArgument( "MODULATION", options.modulation, "modulation frequency in Hz" );
    addCommonOptions( am, options );
    addDuration( am, options );
    CommandLine &dtmf = line.addSubcommand( "dtmf", "DTMF tones of a sequence of digits" );
    dtmf.addArgument( "DIGITS", options.digits, "digits: 0 to 9, *, # and A to D" );
    addCommonOptions( dtmf, options );
    dtmf.addOption( "--on", "SECONDS", options.on, "duration of each digit (default: 0.1)" );
    dtmf.addOption( "--off", "SECONDS", options.off, "duration of the pause after each digit (default: 0.1)" );
}

int main( int argc, char **argv )
{
    CommandLine line( "pcm-tones", "Writes the tones of telephone networks.", footer() );
    Options options;
    addOptions( line, options );
    return line.run( argc, argv, [&] { writeTones( options, line.selectedSubcommand() ); } );
}
