// Measures the magnitude and the phase of an FIR filter and draws them: an impulse goes through pcm::Filter, and what
// comes out is taken apart into frequencies.

#include "gnuplot.h"
#include "report.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <complex>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <optional>

using namespace host;

using Taps = pcm::Coefficients;

static constexpr size_t mostTaps = 4096, mostBytes = 1 << 20;

struct Options {
    std::string type, taps, output, script;
    std::optional<int64_t> rate, cutoff;
};

// What is measured, at which rate, and the frequency that is marked if there is one.
struct Subject {
    std::string name;
    Taps taps;
    int64_t rate, cutoff;
};

static void declare( CLI::App &app, Options &options )
{
    app.name( "response" );
    app.footer(
        "Types are LOWPASS_4000_AT_16000, LOWPASS_4000_AT_24000, LOWPASS_4000_AT_48000, LOWPASS_6000_AT_24000,\n"
        "LOWPASS_6000_AT_48000, LOWPASS_8000_AT_48000 and LOWPASS_12000_AT_48000, by cut-off and rate in hertz.\n"
        "\n"
        "A file of taps holds one number a line; from a # on a line is a comment.\n"
        "\n"
        "Drawing needs gnuplot.\n"
        "\n"
        "  response LOWPASS_4000_AT_16000\n"
        "  response LOWPASS_4000_AT_16000 lowpass.svg --script lowpass.gp\n"
        "  response --taps mean.txt mean.png --rate 8000 --cutoff 2000" );
    app.add_option( "TYPE", options.type, "one of the built-in sets; not with --taps" );
    app.add_option( "OUTPUT", options.output, "the picture to draw, .svg or .png" );
    CLI::Option *taps = app.add_option( "--taps", options.taps, "a file of taps instead of a built-in set" );
    CLI::Range rates( int64_t( 1 ), highestRate );
    app.add_option( "--rate", options.rate, "frames a second for which the taps are meant, 48000 by default" )
        ->needs( taps )
        ->check( rates );
    app.add_option( "--cutoff", options.cutoff, "the frequency to mark, in hertz" )->needs( taps )->check( rates );
    app.add_option( "--script", options.script, "where to keep what gnuplot draws from" );
}

static std::string tapCount( const Taps &taps )
{
    int64_t count = taps.length();
    return std::to_string( count ) + ( count == 1 ? " tap" : " taps" );
}

static Subject builtIn( std::string name )
{
    static const std::string prefix = "PCM_FILTER_TYPE_";
    if ( name.starts_with( prefix ) ) name.erase( 0, prefix.size() );
    auto type = pcm::filterTypeFromString( prefix + name );
    if ( !type ) fail( "unknown type \"" + name + "\"; --help lists the types" );
    Subject subject{ "", Taps( *type ), 0, 0 };
    if ( std::sscanf( name.c_str(), "LOWPASS_%ld_AT_%ld", &subject.cutoff, &subject.rate ) != 2 )
        fail( name + " tells no cut-off and rate" );
    subject.name = name + ", " + tapCount( subject.taps );
    return subject;
}

static PCM_SAMPLE tapFrom( const std::string &where, const std::string &text )
{
    double value;
    if ( !parseNumber( text, value ) || !std::isfinite( PCM_SAMPLE( value ) ) )
        fail( where + ": \"" + text + "\" is no tap" );
    return PCM_SAMPLE( value );
}

static Taps readTaps( const std::string &path )
{
    std::error_code error;
    auto size = std::filesystem::file_size( path, error );
    std::ifstream file( path );
    if ( error || !file ) failSystem( "cannot read taps from " + path, error ? error.value() : errno );
    if ( size > mostBytes ) fail( path + " is too long for a file of taps" );
    std::vector<PCM_SAMPLE> taps;
    int64_t number = 0;
    for ( std::string line; std::getline( file, line ); ) {
        std::string where = path + ", line " + std::to_string( ++number );
        line = CLI::detail::trim_copy( line.substr( 0, line.find( '#' ) ) );
        if ( line.empty() ) continue;
        taps.push_back( tapFrom( where, line ) );
        if ( taps.size() > mostTaps ) fail( where + ": more than " + std::to_string( mostTaps ) + " taps" );
    }
    if ( taps.empty() ) fail( path + " holds no taps" );
    return Taps( taps );
}

static Subject subjectFor( const Options &options )
{
    if ( options.taps.empty() ) return builtIn( options.type );
    Taps taps = readTaps( options.taps );
    std::string name = tapCount( taps );
    return { name, std::move( taps ), options.rate.value_or( 48000 ), options.cutoff.value_or( 0 ) };
}

// A filter limits what comes out to 1: the impulse is so low, by a power of two, that nothing is cut off.
static double impulseFor( const Taps &taps )
{
    int exponent = 0;
    for ( PCM_SAMPLE tap : taps.taps() )
        if ( tap != 0 ) exponent = std::max( exponent, std::ilogb( tap ) + 1 );
    return std::ldexp( 1, -exponent );
}

static std::vector<double> impulseResponse( const Taps &taps )
{
    pcm::Filter filter( taps, 1 );
    pcm::Packet in( 1 );
    in.setFrames( taps.length() );
    double impulse = impulseFor( taps );
    in.mutableSamples()[0] = PCM_SAMPLE( impulse );
    filter.write( in );
    pcm::Packet out = filter.read();
    std::vector<double> response( out.samples().begin(), out.samples().end() );
    for ( double &value : response ) value /= impulse;
    return response;
}

// The Fourier transform at a frequency in cycles a frame.
static std::complex<double> transform( const std::vector<double> &signal, double frequency )
{
    std::complex<double> sum = 0;
    for ( size_t i = 0; i < signal.size(); ++i )
        sum += std::polar( 1.0, -2 * std::numbers::pi * frequency * double( i ) ) * signal[i];
    return sum;
}

static double decibelAt( const std::vector<double> &response, double frequency )
{
    return pcm::decibelFromGain( std::min( std::abs( transform( response, frequency ) ), DBL_MAX ) );
}

// What comes through softer is rounding, and has no phase.
static constexpr double noPhase = -140;

struct Point {
    double hertz, decibel, degrees;
};

// From 0 Hz to half the rate, so densely that the phase can be followed from turn to turn.
static std::vector<Point> curve( const std::vector<double> &response, int64_t rate )
{
    size_t steps = std::max( size_t( 1000 ), 4 * response.size() );
    std::vector<Point> points;
    double before = 0;
    for ( size_t i = 0; i <= steps; ++i ) {
        double frequency = double( i ) / double( 2 * steps );
        double degrees = std::arg( transform( response, frequency ) ) * 180 / std::numbers::pi;
        degrees += 360 * std::round( ( before - degrees ) / 360 );
        double decibel = decibelAt( response, frequency );
        if ( decibel > noPhase ) before = degrees;
        points.push_back( { frequency * double( rate ), decibel, decibel > noPhase ? degrees : NAN } );
    }
    return points;
}

// Never "-0.00".
static std::string hundredths( double value ) { return fixed( std::round( 100 * value ) / 100 + 0.0, 2 ); }

// What gnuplot draws, data included. Nothing that the user typed comes into it but numbers and names of built-in
// sets.
static std::string scriptFor( const Subject &subject, const std::vector<Point> &points, double atCutoff, bool png )
{
    double top = -200, lowest = -90, highest = 0;
    for ( const Point &point : points ) {
        top = std::max( top, point.decibel );
        lowest = std::fmin( lowest, 90 * std::floor( point.degrees / 90 ) ); // whatever is no number stays out
        highest = std::fmax( highest, 90 * std::ceil( point.degrees / 90 ) );
    }
    top = 10 * std::floor( top / 10 + 1 );
    std::string script = "# gnuplot draws this to its standard output.\n$response << END\n";
    for ( const Point &point : points )
        script += fixed( point.hertz, 6 ) + " " + fixed( point.decibel, 6 ) + " " + fixed( point.degrees, 6 ) + "\n";
    script += "END\nset terminal " + std::string( png ? "pngcairo" : "svg background 'white'" ) +
              " noenhanced size 900,700 font 'sans,12'\n"
              "set multiplot layout 2,1 title '" +
              subject.name + " at " + std::to_string( subject.rate ) +
              " Hz'\n"
              "set lmargin 11\nset rmargin 4\nset grid lt 1 lw 0.7 lc rgb '#d8d8d8'\nunset key\nset format x '%.0f'\n"
              "set xrange [0:" +
              fixed( double( subject.rate ) / 2, 1 ) + "]\n";
    if ( subject.cutoff ) {
        std::string cutoff = std::to_string( subject.cutoff );
        script += "set arrow 1 from " + cutoff + ", graph 0 to " + cutoff +
                  ", graph 1 nohead lw 1.5 dashtype 2 lc rgb '#c03020'\nset label 1 '" + hundredths( atCutoff ) +
                  " dB at " + cutoff + " Hz' at " + cutoff + ", " + fixed( atCutoff, 6 ) + " " +
                  ( subject.cutoff > subject.rate / 3 ? "right offset -1" : "offset 1" ) +
                  ",0.6 point pointtype 7 lc rgb '#c03020' front\n";
    }
    return script + "set ylabel 'gain in dB'\nset yrange [" + fixed( top - 110, 0 ) + ":" + fixed( top, 0 ) +
           "]\nplot $response using 1:2 with lines lw 2 lc rgb '#2060a0'\n"
           "unset label 1\nset xlabel 'frequency in Hz'\nset ylabel 'phase in degrees'\nset yrange [" +
           fixed( lowest, 0 ) + ":" + fixed( highest, 0 ) +
           "]\n"
           "plot $response using 1:3 with lines lw 2 lc rgb '#2060a0'\nunset multiplot\n";
}

static bool isPng( const std::string &output )
{
    std::string extension = lower( std::filesystem::path( output ).extension() );
    if ( extension != ".svg" && extension != ".png" ) fail( output + ": pictures are .svg or .png" );
    return extension == ".png";
}

static void respond( Options options )
{
    if ( !options.taps.empty() && options.output.empty() ) std::swap( options.type, options.output );
    if ( options.type.empty() == options.taps.empty() ) fail( "one of TYPE and --taps is needed; --help tells more" );
    bool png = !options.output.empty() && isPng( options.output );
    Subject subject = subjectFor( options );
    if ( subject.cutoff > subject.rate / 2 ) fail( "--cutoff: above half the rate, which is all there is" );
    for ( const std::string &path : { options.output, options.script } )
        if ( !options.taps.empty() && sameFile( path, options.taps ) ) fail( path + " is the file of taps itself" );

    std::vector<double> response = impulseResponse( subject.taps );
    double cutoff = double( subject.cutoff ), atCutoff = decibelAt( response, cutoff / double( subject.rate ) );
    std::optional<OutputFile> picture, kept;
    if ( !options.output.empty() ) picture.emplace( options.output );
    if ( !options.script.empty() ) kept.emplace( options.script );
    if ( picture || kept ) {
        std::string script = scriptFor( subject, curve( response, subject.rate ), atCutoff, png );
        if ( picture ) runGnuplot( script, *picture );
        if ( kept ) kept->write( script.data(), int64_t( script.size() ) );
        if ( picture ) picture->commit();
        if ( kept ) kept->commit();
    }

    std::FILE *to = wordsBeside( options.script.empty() ? options.output : options.script );
    std::fprintf( to, "%s at %lld Hz\n", subject.name.c_str(), (long long)subject.rate );
    std::fprintf( to, "%s dB at 0 Hz\n", hundredths( decibelAt( response, 0 ) ).c_str() );
    if ( subject.cutoff )
        std::fprintf(
            to, "%s dB at %lld Hz, the cut-off\n", hundredths( atCutoff ).c_str(), (long long)subject.cutoff );
}

int main( int argc, char **argv )
{
    CLI::App app( "Measures and draws the magnitude and phase response of an FIR filter." );
    Options options;
    declare( app, options );
    return run( app, argc, argv, [&] { respond( options ); } );
}
