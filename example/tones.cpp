// Writes the tones of telephone networks: dial, busy and ring-back tones, DTMF digits and modulated tones.
//
// pcm::Tone, DualTone and ModulatedTone give the tones in packets of 20 ms, pcm::silence the pauses between them.

#include "audio_file.h"
#include "national_tones.h"
#include "report.h"
#include "resampler.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

using namespace host;

struct Options {
    std::string output, encoding = "int16", container, level = "-10", seconds = "10", on = "0.1", off = "0.1";
    std::string country, digits;
    int64_t rate = 8000, carrier = 0, modulation = 0;
};

static std::string countryNames()
{
    std::string names;
    for ( const Country &each : countries ) names += ( names.empty() ? "" : ", " ) + std::string( each.name );
    return names;
}

static const Country &findCountry( const std::string &name )
{
    for ( const Country &each : countries )
        if ( lower( name ) == each.name ) return each;
    fail( "unknown country \"" + name + "\"; known are " + countryNames() );
}

// ITU-T Q.23.
static Tone dtmf( char key )
{
    static constexpr char keys[] = "123A456B789C*0#D";
    static constexpr int64_t rows[] = { 697, 770, 852, 941 }, columns[] = { 1209, 1336, 1477, 1633 };
    if ( key >= 'a' && key <= 'd' ) key = char( key - 'a' + 'A' );
    const char *found = key ? std::strchr( keys, key ) : nullptr;
    if ( !found ) fail( std::string( "no key \"" ) + key + "\"; the keys are 0 to 9, *, # and A to D" );
    return both( rows[( found - keys ) / 4], columns[( found - keys ) % 4] );
}

// A tone that sounds once, from phase 0 on and without a break.
class Sound {
public:
    Sound( const Tone &tone, int64_t rate ) : mix( tone.mix )
    {
        needRate( mix == Tone::modulated ? tone.a + tone.b : std::max( tone.a, tone.b ), rate );
        a = pcm::Tone::tryCreate( rate, tone.a ).value();
        if ( mix != Tone::single ) b = pcm::Tone::tryCreate( rate, tone.b ).value();
    }

    pcm::Packet gather( int64_t frames )
    {
        switch ( mix ) {
        case Tone::together: return pcm::DualTone{ a, b }.gather( frames );
        case Tone::modulated: return pcm::ModulatedTone{ a, b }.gather( frames );
        default: return a.gather( frames );
        }
    }

private:
    static void needRate( int64_t hertz, int64_t rate )
    {
        if ( hertz >= rate - hertz )
            fail( std::to_string( hertz ) + " Hz sound only at rates above " + std::to_string( 2 * hertz ) +
                  " Hz; the rate is " + std::to_string( rate ) );
    }

    Tone::Mix mix;
    pcm::Tone a, b;
};

// Writes sounds and pauses one after the other, up to a length.
class Player {
public:
    Player( AudioWriter &writer, int64_t length, double level )
        : writer( writer ), rate( writer.format().rate ), length( length ), level( level )
    {
    }

    void sound( const Tone &tone, double seconds )
    {
        Sound sound( tone, rate );
        write( seconds, [&]( int64_t frames ) {
            pcm::Packet pkt = sound.gather( frames );
            pkt.adjustLevel( level );
            return pkt;
        } );
    }

    void pause( double seconds )
    {
        write( seconds, []( int64_t frames ) { return pcm::silence::gather( frames ); } );
    }

    bool done() const { return position == length; }
    int64_t written() const { return position; }

private:
    // Ends are rounded to frames from the sum of the times, so that a cadence doesn't drift.
    template <class Gather> void write( double seconds, Gather gather )
    {
        time += seconds;
        int64_t end = int64_t( std::min( time * double( rate ) + 0.5, double( length ) ) );
        while ( position < end ) {
            stopIfInterrupted();
            int64_t frames = std::min( end - position, packetFrames( rate, rate, 1 ) );
            writer.write( gather( frames ).encode( writer.format().encoding ) );
            position += frames;
        }
    }

    AudioWriter &writer;
    int64_t rate, length, position = 0;
    double level, time = 0;
};

static void repeat( Player &player, const Signal &signal, double seconds )
{
    bool pauses = signal.cadence[1] > 0;
    for ( size_t i = 0; !player.done(); i = ( i + 2 ) % signal.cadence.size() ) {
        if ( pauses && signal.cadence[i] == 0 ) continue;
        player.sound( signal.tone, pauses ? signal.cadence[i] : seconds );
        player.pause( signal.cadence[i + 1] );
    }
}

struct Plan {
    double seconds;
    std::function<void( Player & )> play;
};

static Plan planDigits( const Options &options )
{
    double on = secondsFrom( "--on", options.on ), off = secondsFrom( "--off", options.off );
    std::vector<Tone> tones;
    for ( char key : options.digits ) tones.push_back( dtmf( key ) );
    if ( tones.empty() ) fail( "no keys" );
    return { double( tones.size() ) * ( on + off ), [=]( Player &player ) {
                for ( const Tone &tone : tones ) {
                    player.sound( tone, on );
                    player.pause( off );
                }
            } };
}

static Plan planSignal( const Options &options, const Signal &signal )
{
    double seconds = secondsFrom( "--seconds", options.seconds );
    return { seconds, [=]( Player &player ) { repeat( player, signal, seconds ); } };
}

static Plan plan( const Options &options, const std::string &kind )
{
    if ( kind == "dtmf" ) return planDigits( options );
    if ( kind == "am" ) return planSignal( options, { product( options.carrier, options.modulation ), {} } );
    const Country &country = findCountry( options.country );
    return planSignal( options, kind == "dial" ? country.dial : kind == "busy" ? country.busy : country.ringback );
}

static void writeTones( const Options &options, const std::string &kind )
{
    Plan work = plan( options, kind );
    AudioFormat format = { encodingFromName( options.encoding ), options.rate, 1 };
    double level = levelFrom( "--level", options.level, 0 ), frames = work.seconds * double( format.rate );
    AudioWriter writer( options.output, containerFor( options.output, options.container ), format );
    writer.needRoom( frames * double( format.encoding.sizeofSample() ) );
    if ( frames >= 1e18 ) fail( "so much time would never end" );
    Player player( writer, std::llround( frames ), level );
    work.play( player );
    writer.finish();
    Report( options.output )
        .file( "out", player.written(), writer.format(), encodingName( writer.format().encoding ), options.output );
}

static CLI::App *declareKind( CLI::App &app, Options &options, const char *kind, const char *description )
{
    CLI::App *sub = app.add_subcommand( kind, description );
    sub->add_option( "--rate", options.rate, "frames a second, 8000 by default" )
        ->check( CLI::Range( int64_t( 1 ), highestRate ) );
    sub->add_option( "--level", options.level, "the peak in dB below full scale, -10 by default" );
    sub->add_option( "--encoding", options.encoding, "int16 by default" );
    sub->add_option( "--container", options.container, "the container, whatever the output's name" );
    return sub;
}

static void declare( CLI::App &app, Options &options )
{
    app.name( "tones" );
    app.require_subcommand( 1 );
    app.footer( "Countries are " + countryNames() +
                ".\n\n"
                "  tones dial france dial.wav\n"
                "  tones ringback uk ring.wav --seconds 12 --rate 16000\n"
                "  tones dtmf \"0123456789*#ABCD\" keys.wav --on 0.06 --off 0.04 --encoding alaw\n"
                "  tones am 1000 10 pulsing.wav --level -3\n"
                "\n"
                "tones dial --help tells the options of a dial tone, and so on." );
    CLI::Range hertz( int64_t( 1 ), highestRate );
    std::vector<CLI::App *> lasting;
    for ( auto [kind, description] :
        { std::pair( "dial", "the dial tone of a country" ), std::pair( "busy", "its busy tone" ),
            std::pair( "ringback", "what a caller hears while it rings" ) } ) {
        lasting.push_back( declareKind( app, options, kind, description ) );
        lasting.back()->add_option( "COUNTRY", options.country, "one of " + countryNames() )->required();
    }
    CLI::App *am = declareKind( app, options, "am",
        "a tone times another: CARRIER - MODULATION and CARRIER + MODULATION hertz, half as high each" );
    am->add_option( "CARRIER", options.carrier, "hertz" )->required()->check( hertz );
    am->add_option( "MODULATION", options.modulation, "hertz" )->required()->check( hertz );
    lasting.push_back( am );
    for ( CLI::App *sub : lasting ) sub->add_option( "--seconds", options.seconds, "how long, 10 by default" );
    CLI::App *keys = declareKind( app, options, "dtmf", "the tones of a telephone's keys" );
    keys->add_option( "KEYS", options.digits, "of 0 to 9, *, # and A to D" )->required();
    keys->add_option( "--on", options.on, "seconds that each sounds, 0.1 by default" );
    keys->add_option( "--off", options.off, "seconds of silence behind each, 0.1 by default" );
    for ( CLI::App *sub : app.get_subcommands( {} ) )
        sub->add_option( "OUTPUT", options.output, "what to write; its extension names the container" )->required();
}

int main( int argc, char **argv )
{
    CLI::App app( "Writes the tones of telephone networks." );
    Options options;
    declare( app, options );
    return run( app, argc, argv, [&] { writeTones( options, app.get_subcommands().front()->get_name() ); } );
}
