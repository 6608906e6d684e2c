// Runs an example program with arbitrary files and options. It must succeed or print an error, and leave either a
// complete output file or the previous one.

#include "../choices.h"
#include "output_file.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sanitizer/common_interface_defs.h>
#include <sndfile.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

int program( int argc, char **argv );

extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char *__lsan_default_suppressions() { return "leak:libsndfile\n"; } // in another library

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

enum Program { transcode = 1, mix = 2, response = 4, raw = 8 };

fs::path folder;
int messages, programOut, programErr; // file descriptors

void need( bool holds, const std::string &text )
{
    if ( holds ) return;
    dprintf( messages, "%s\n", text.c_str() );
    std::abort();
}

void store( const std::string &name, const std::string &content ) { std::ofstream( folder / name ) << content; }

std::string load( const fs::path &path )
{
    std::ostringstream text;
    text << std::ifstream( path ).rdbuf();
    return text.str();
}

// An option is left out, or has one of these values or any text.
const struct {
    int programs;
    std::string name;
    Texts values;
} options[] = {
    { transcode | mix, "--container", { "wav", "au", "aiff", "w64", "rf64", "caf", "raw" } },
    { transcode | mix, "--rate", { "8000", "16000", "11025", "1", "1000000000" } },
    { transcode | mix, "--quality", { "linear", "hold", "fast" } },
    { transcode | mix, "--encoding",
        { "int8", "uint8", "int16", "int24", "int32", "float32", "alaw", "mulaw", "PCM_ENCODING_PACK_32" } },
    { transcode, "--level", { "6", "-200", "200", "nan" } },
    { transcode, "--seconds-at", { "0.001:0.01", ":0.5", "1:", "0.01:0.001", "1e9:" } },
    { transcode | mix, "--progress", { "" } },
    { transcode | mix, "--strict", { "" } },
    { mix | raw, "--channels", { "1", "2", "3", "1024" } },
    { response, "--rate", { "1", "8000", "1000000000" } },
    { response, "--cutoff", { "1", "2000", "500000000" } },
    { raw, "--input-encoding", { "int16", "uint8", "int24", "float32", "alaw", "PCM_ENCODING_PACK_64" } },
    { raw, "--input-rate", { "8000", "48000", "3" } },
};

std::string someText( test::FuzzInput &in )
{
    auto bytes = in.take( size_t( in.upTo( 40 ) ) );
    std::string text( bytes.begin(), bytes.end() );
    return text.substr( 0, text.find( '\0' ) );
}

void addOptions( test::FuzzInput &in, Texts &args, int programs )
{
    for ( auto &option : options ) {
        const int64_t choice = option.programs & programs ? in.upTo( 255 ) : 0;
        if ( choice < 128 ) continue;
        std::string value = choice < 248 ? in.oneOf( option.values ) : someText( in );
        args.push_back( option.name + ( value.empty() ? "" : "=" + value ) );
    }
}

// Creates the arguments, and input files from the rest of the bytes. Returns the name of the output file.
std::string arguments( test::FuzzInput &in, Texts &args )
{
    static const char *const containers[] = { "wav", "au", "aif", "w64", "rf64", "caf", "raw", "none" };
    static const char *const types[] = { "LOWPASS_4000_AT_16000", "PCM_FILTER_TYPE_LOWPASS_12000_AT_48000", "x" };
    static const char *const settings[] = { "", ",level=-6", ",at=0.01", ",level=200,at=1", ",at=1e9", "," };
    std::string output = PROGRAM == response ? "out.gp" : std::string( "out." ) + in.oneOf( containers );
    addOptions( in, args, PROGRAM );
    if ( PROGRAM == response ) {
        args.push_back( "--script=out.gp" );
        const bool file = in.upTo( 7 );
        args.push_back( file ? "--taps=in0" : in.upTo( 3 ) ? in.oneOf( types ) : "L" + someText( in ) );
    }
    if ( PROGRAM == transcode ) {
        args.insert( args.end(), { "in0", output } );
        if ( in.upTo( 3 ) == 3 ) {
            args.push_back( "--raw" );
            addOptions( in, args, raw );
        }
    }
    if ( PROGRAM == mix ) args.push_back( output );
    const int64_t count = PROGRAM == mix ? 1 + in.upTo( 2 ) : 1;
    for ( int64_t i = 0; i < count; ++i ) {
        const std::string name = "in" + std::to_string( i );
        if ( PROGRAM == mix ) args.push_back( name + in.oneOf( settings ) );
        auto bytes = in.take( in.left() / size_t( count - i ) );
        store( name, { bytes.begin(), bytes.end() } );
    }
    return output;
}

std::string takeText( int file )
{
    std::string text = load( "/proc/self/fd/" + std::to_string( file ) );
    need( !ftruncate( file, 0 ) && !lseek( file, 0, SEEK_SET ), "cannot truncate" );
    return text;
}

/// Calls the main function of the program, with files of at most 1 MiB.
int run( Texts args )
{
    std::vector<char *> argv;
    for ( auto &arg : args ) argv.push_back( arg.data() );
    argv.push_back( nullptr );
    const int ours[] = { dup( 1 ), dup( 2 ) };
    rlimit limit;
    getrlimit( RLIMIT_FSIZE, &limit );
    const rlimit little = { 1 << 20, limit.rlim_max };
    setrlimit( RLIMIT_FSIZE, &little );
    dup2( programOut, 1 ), dup2( programErr, 2 );
    const int status = program( int( args.size() ), argv.data() );
    std::fflush( stdout );
    dup2( ours[0], 1 ), dup2( ours[1], 2 );
    close( ours[0] ), close( ours[1] );
    setrlimit( RLIMIT_FSIZE, &limit );
    return status;
}

/// Checks that the output file is what the program reported.
void needWhole( const std::string &output, const Texts &args, const std::string &report )
{
    std::string container = output.substr( output.find( '.' ) + 1 );
    for ( const std::string &arg : args )
        if ( arg.starts_with( "--container=" ) ) container = host::lower( arg.substr( arg.find( '=' ) + 1 ) );
    const std::string content = load( folder / output );
    if ( PROGRAM == response ) return need( content.ends_with( "unset multiplot\n" ), "incomplete script" );
    long long frames = -1;
    size_t line = report.find( "\nout " );
    need( line != report.npos && std::sscanf( &report[line], "\nout %lld", &frames ) == 1, "no report:\n" + report );
    if ( container == "raw" ) return need( content.empty() == !frames, "no samples:\n" + report );
    SF_INFO info = {};
    SNDFILE *sound = sf_open( ( folder / output ).c_str(), SFM_READ, &info );
    sf_close( sound );
    // libsndfile counts the padding byte of an AIFF file, which can be a frame.
    const bool aiff = ( info.format & SF_FORMAT_TYPEMASK ) == SF_FORMAT_AIFF,
               more = aiff && info.frames == frames + 1;
    need( sound && ( info.frames == frames || ( more && frames % 2 ) ), "wrong number of frames:\n" + report );
}

} // namespace

extern "C" int LLVMFuzzerInitialize( int *, char *** )
{
    messages = dup( 2 );
    __sanitizer_set_report_fd( reinterpret_cast<void *>( intptr_t{ messages } ) );
    programOut = memfd_create( "out", MFD_CLOEXEC );
    programErr = memfd_create( "err", MFD_CLOEXEC );
    std::string name = fs::temp_directory_path() / "pcm-fuzz-XXXXXX";
    need( mkdtemp( name.data() ), "no folder for files" );
    folder = name;
    fs::current_path( folder );
    std::atexit( [] { fs::remove_all( folder ); } );
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput( const uint8_t *data, size_t size )
{
    test::FuzzInput in( data, size );
    Texts args = { "program" };
    const bool existed = in.upTo( 1 );
    const std::string output = arguments( in, args ), before = "previous content";
    if ( existed ) store( output, before );
    std::string call;
    for ( auto &arg : args ) call.append( " '" ).append( arg ).append( "'" );

    const int status = run( args );
    const std::string report = takeText( programOut ), error = takeText( programErr );
    need( status == 0 || status == 1, call + ": status " + std::to_string( status ) );
    if ( status ) {
        need( error.find( ": " ) != error.npos, call + ": no error message" );
        need( fs::exists( folder / output ) == existed, call + ": fails, but created or removed the output" );
        need( !existed || load( folder / output ) == before, call + ": fails, but changed the output" );
    } else
        needWhole( output, args, report );
    for ( auto &entry : fs::directory_iterator( folder ) ) {
        std::string name = entry.path().filename();
        need( name == output || ( name.size() == 3 && name.starts_with( "in" ) ), call + ": leaves " + name );
        fs::remove( entry.path() );
    }
    return 0;
}
