// Measures and plots the magnitude and phase response of an FIR filter: passes an impulse through pcm::Filter and
// computes the Fourier transform of the output.

#include "audio_file.h"
#include "command_line.h"
#include "gnuplot.h"
#include "report.h"

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

static constexpr size_t maxTaps = 4096, maxTapFileSize = 1 << 20;

struct Options {
    std::string type, tapFile, output, script;
    std::optional<int64_t> rate, cutoff;
};

// The filter to measure.
struct FilterSpec {
    std::string title;
    Taps taps;
    int64_t rate;
    int64_t cutoff; // the frequency to mark, or 0 for none
};

static const char footer[] = "Filter types are LOWPASS_4000_AT_16000, LOWPASS_4000_AT_24000,\n"
                             "LOWPASS_4000_AT_48000, LOWPASS_6000_AT_24000, LOWPASS_6000_AT_48000,\n"
                             "LOWPASS_8000_AT_48000 and LOWPASS_12000_AT_48000. The numbers are the cut-off\n"
                             "frequency and the sample rate in Hz.\n"
                             "\n"
                             "A tap file contains one number per line. Text after a # is ignored.\n"
                             "\n"
                             "The image is drawn by gnuplot, which must be installed.\n"
                             "\n"
                             "  pcm-response LOWPASS_4000_AT_16000\n"
                             "  pcm-response LOWPASS_4000_AT_16000 lowpass.svg --script lowpass.gp\n"
                             "  pcm-response --taps mean.txt mean.png --rate 8000 --cutoff 2000";

static void addOptions( CommandLine &line, Options &options )
{
    line.addArgument( "TYPE", options.type, "type of a built-in filter; cannot be combined with --taps", false );
    line.addArgument( "OUTPUT", options.output, "image of the response, .svg or .png", false );
    line.beginGroup( "Filter" );
    line.addOption( "--taps", "FILE", options.tapFile, "tap file to use instead of a built-in filter" );
    line.addOption( "--rate", "HZ", options.rate, maxRate, "sample rate of the tap file (default: 48000)" );
    line.addOption( "--cutoff", "HZ", options.cutoff, maxRate, "frequency to mark" );
    line.require( "--rate", "--taps" );
    line.require( "--cutoff", "--taps" );
    line.beginGroup( "Output" );
    line.addOption( "--script", "FILE", options.script, "file in which to save the gnuplot script, data included" );
}

static std::string tapCountText( const Taps &taps )
{
    int64_t count = taps.length();
    return std::to_string( count ) + ( count == 1 ? " tap" : " taps" );
}

static FilterSpec builtInFilter( std::string name )
{
    static const std::string prefix = "PCM_FILTER_TYPE_";
    if ( name.starts_with( prefix ) ) name.erase( 0, prefix.size() );
    auto type = pcm::filterTypeFromString( prefix + name );
    if ( !type ) fail( "unknown filter type \"" + name + "\"; use --help to list the types" );
    FilterSpec spec{ "", Taps( *type ), 0, 0 };
    if ( std::sscanf( name.c_str(), "LOWPASS_%ld_AT_%ld", &spec.cutoff, &spec.rate ) != 2 )
        fail( "filter type " + name + ": the name does not contain a cut-off frequency and a rate" );
    spec.title = name + ", " + tapCountText( spec.taps );
    return spec;
}

static PCM_SAMPLE parseTap( const std::string &location, const std::string &text )
{
    double value;
    if ( !parseNumber( text, value ) || !std::isfinite( PCM_SAMPLE( value ) ) )
        fail( location + ": \"" + text + "\" is not a valid tap" );
    return PCM_SAMPLE( value );
}

static Taps readTaps( const std::string &path )
{
    if ( isSpecialFile( path ) ) fail( "cannot read " + path + ": not a regular file" ); // opening a pipe would block
    std::error_code error;
    auto size = std::filesystem::file_size( path, error );
    std::ifstream file( path );
    if ( error || !file ) failWithErrno( "cannot read " + path, error ? error.value() : errno );
    if ( size > maxTapFileSize ) fail( "cannot read " + path + ": a tap file is limited to 1 MiB" );
    std::vector<PCM_SAMPLE> taps;
    int64_t lineNumber = 0;
    for ( std::string line; std::getline( file, line ); ) {
        std::string location = path + ", line " + std::to_string( ++lineNumber );
        line.resize( std::min( line.find( '#' ), line.size() ) );
        const size_t begin = line.find_first_not_of( " \t\r" );
        if ( begin == line.npos ) continue;
        const size_t end = line.find_last_not_of( " \t\r" ) + 1;
        taps.push_back( parseTap( location, line.substr( begin, end - begin ) ) );
        if ( taps.size() > maxTaps ) fail( location + ": more than " + std::to_string( maxTaps ) + " taps" );
    }
    if ( taps.empty() ) fail( "cannot read " + path + ": it contains no taps" );
    return Taps( taps );
}

static FilterSpec selectFilter( const Options &options )
{
    if ( options.tapFile.empty() ) return builtInFilter( options.type );
    Taps taps = readTaps( options.tapFile );
    std::string title = tapCountText( taps );
    return { title, std::move( taps ), options.rate.value_or( 48000 ), options.cutoff.value_or( 0 ) };
}

// A filter clips its output to full scale. Returns an amplitude that prevents clipping, a power of two.
static double impulseAmplitude( const Taps &taps )
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
    double amplitude = impulseAmplitude( taps );
    in.mutableSamples()[0] = PCM_SAMPLE( amplitude );
    filter.write( in );
    pcm::Packet out = filter.read();
    std::vector<double> response( out.samples().begin(), out.samples().end() );
    for ( double &value : response ) value /= amplitude;
    return response;
}

// Returns the Fourier transform at a frequency in cycles per frame.
static std::complex<double> fourierTransform( const std::vector<double> &signal, double frequency )
{
    std::complex<double> sum = 0;
    for ( size_t i = 0; i < signal.size(); ++i )
        sum += std::polar( 1.0, -2 * std::numbers::pi * frequency * double( i ) ) * signal[i];
    return sum;
}

static double decibelsAt( const std::vector<double> &response, double frequency )
{
    return pcm::decibelFromGain( std::min( std::abs( fourierTransform( response, frequency ) ), DBL_MAX ) );
}

// Below this level in dB, the response consists of rounding errors, so its phase is undefined.
static constexpr double minPhaseLevel = -140;

struct ResponsePoint {
    double hertz, decibels, degrees;
};

// Samples the response from 0 Hz to half the rate, densely enough to unwrap the phase.
static std::vector<ResponsePoint> responseCurve( const std::vector<double> &response, int64_t rate )
{
    size_t steps = std::max( size_t( 1000 ), 4 * response.size() );
    std::vector<ResponsePoint> points;
    double previous = 0;
    for ( size_t i = 0; i <= steps; ++i ) {
        double frequency = double( i ) / double( 2 * steps );
        double degrees = std::arg( fourierTransform( response, frequency ) ) * 180 / std::numbers::pi;
        degrees += 360 * std::round( ( previous - degrees ) / 360 );
        double decibels = decibelsAt( response, frequency );
        if ( decibels > minPhaseLevel ) previous = degrees;
        points.push_back( { frequency * double( rate ), decibels, decibels > minPhaseLevel ? degrees : NAN } );
    }
    return points;
}

// Two decimals, but never "-0.00".
static std::string formatHundredths( double value )
{
    return formatFixed( std::round( 100 * value ) / 100 + 0.0, 2 );
}

// Returns a gnuplot script, data included. Numbers and names of built-in filters are the only user input in it,
// because gnuplot scripts can run commands.
static std::string gnuplotScript(
    const FilterSpec &spec, const std::vector<ResponsePoint> &points, double cutoffDecibels, bool png )
{
    double maxDecibels = -200, minDegrees = -90, maxDegrees = 0;
    for ( const ResponsePoint &point : points ) {
        maxDecibels = std::max( maxDecibels, point.decibels );
        minDegrees = std::fmin( minDegrees, 90 * std::floor( point.degrees / 90 ) ); // ignores NaN
        maxDegrees = std::fmax( maxDegrees, 90 * std::ceil( point.degrees / 90 ) );
    }
    maxDecibels = 10 * std::floor( maxDecibels / 10 + 1 );
    std::string script = "# Run gnuplot on this file; it writes the image to standard output.\n$response << END\n";
    for ( const ResponsePoint &point : points )
        script += formatFixed( point.hertz, 6 ) + " " + formatFixed( point.decibels, 6 ) + " " +
                  formatFixed( point.degrees, 6 ) + "\n";
    script += "END\nset terminal " + std::string( png ? "pngcairo" : "svg background 'white'" ) +
              " noenhanced size 900,700 font 'sans,12'\n"
              "set multiplot layout 2,1 title '" +
              spec.title + " at " + std::to_string( spec.rate ) +
              " Hz'\n"
              "set lmargin 11\nset rmargin 4\nset grid lt 1 lw 0.7 lc rgb '#d8d8d8'\nunset key\nset format x '%.0f'\n"
              "set xrange [0:" +
              formatFixed( double( spec.rate ) / 2, 1 ) + "]\n";
    if ( spec.cutoff ) {
        std::string cutoff = std::to_string( spec.cutoff );
        script += "set arrow 1 from " + cutoff + ", graph 0 to " + cutoff +
                  ", graph 1 nohead lw 1.5 dashtype 2 lc rgb '#c03020'\nset label 1 '" +
                  formatHundredths( cutoffDecibels ) + " dB at " + cutoff + " Hz' at " + cutoff + ", " +
                  formatFixed( cutoffDecibels, 6 ) + " " +
                  ( spec.cutoff > spec.rate / 3 ? "right offset -1" : "offset 1" ) +
                  ",0.6 point pointtype 7 lc rgb '#c03020' front\n";
    }
    return script + "set ylabel 'gain in dB'\nset yrange [" + formatFixed( maxDecibels - 110, 0 ) + ":" +
           formatFixed( maxDecibels, 0 ) +
           "]\nplot $response using 1:2 with lines lw 2 lc rgb '#2060a0'\n"
           "unset label 1\nset xlabel 'frequency in Hz'\nset ylabel 'phase in degrees'\nset yrange [" +
           formatFixed( minDegrees, 0 ) + ":" + formatFixed( maxDegrees, 0 ) +
           "]\n"
           "plot $response using 1:3 with lines lw 2 lc rgb '#2060a0'\nunset multiplot\n";
}

static bool isPng( const std::string &output )
{
    std::string extension = lower( std::filesystem::path( output ).extension() );
    if ( extension != ".svg" && extension != ".png" )
        fail( "cannot write " + output + ": the extension of an image must be .svg or .png" );
    return extension == ".png";
}

static void measureResponse( Options options )
{
    if ( !options.tapFile.empty() && options.output.empty() ) std::swap( options.type, options.output );
    if ( options.type.empty() == options.tapFile.empty() )
        fail( "specify either TYPE or --taps; use --help to list the types" );
    bool png = !options.output.empty() && isPng( options.output );
    FilterSpec spec = selectFilter( options );
    if ( spec.cutoff > spec.rate / 2 )
        fail( "--cutoff: " + std::to_string( spec.cutoff ) + " Hz is more than half of the sample rate, which is " +
              std::to_string( spec.rate ) + " Hz" );
    if ( !options.script.empty() && isSameFile( options.output, options.script ) )
        fail( "cannot write " + options.script + ": it is also the image" );
    for ( const std::string &path : { options.output, options.script } )
        if ( !options.tapFile.empty() && isSameFile( path, options.tapFile ) )
            fail( "cannot write " + path + ": it is also the tap file" );

    std::vector<double> response = impulseResponse( spec.taps );
    double cutoff = double( spec.cutoff ), cutoffDecibels = decibelsAt( response, cutoff / double( spec.rate ) );
    std::optional<OutputFile> image, scriptFile;
    if ( !options.output.empty() ) image.emplace( options.output );
    if ( !options.script.empty() ) scriptFile.emplace( options.script );
    if ( image || scriptFile ) {
        std::string script = gnuplotScript( spec, responseCurve( response, spec.rate ), cutoffDecibels, png );
        if ( image ) runGnuplot( script, *image );
        if ( scriptFile ) scriptFile->write( script.data(), int64_t( script.size() ) );
        if ( image ) image->commit();
        if ( scriptFile ) scriptFile->commit();
    }

    std::FILE *stream = messageStream( options.script.empty() ? options.output : options.script );
    std::fprintf( stream, "%s at %lld Hz\n", spec.title.c_str(), (long long)spec.rate );
    std::fprintf( stream, "%s dB at 0 Hz\n", formatHundredths( decibelsAt( response, 0 ) ).c_str() );
    if ( spec.cutoff )
        std::fprintf( stream, "%s dB at %lld Hz (cut-off)\n", formatHundredths( cutoffDecibels ).c_str(),
            (long long)spec.cutoff );
}

int main( int argc, char **argv )
{
    CommandLine line(
        "pcm-response", "Measures and plots the magnitude and phase response of an FIR filter.", footer );
    Options options;
    addOptions( line, options );
    return line.run( argc, argv, [&] { measureResponse( options ); } );
}
