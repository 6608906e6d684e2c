// The extension module: contract violations as exceptions, and the functions that belong to no object.

#include "module.h"

#include "audioop.h"

#include <cstring>
#include <map>
#include <new>

// ---- Contract violations. The sources of the library are compiled into the module with exceptions enabled. Their
// operations leave all objects unchanged if this function throws.

namespace {

struct ContractError {
    std::string context;
    std::string file;
    int64_t line;
    std::string condition;
};

} // namespace

extern "C" void kit___Abort( const char *context, const char *file, int64_t line, const char *condition )
{
    const auto text = []( const char *string ) { return std::string( string ? string : "" ); };
    if ( text( context ) == "out of memory" ) throw std::bad_alloc();
    throw ContractError{ text( context ), text( file ), line, text( condition ) };
}

static void defineContractError( py::module_ &module )
{
    static PyObject *type = PyErr_NewExceptionWithDoc( "pcm.ContractError",
        "A call that the library does not allow. The text is the condition that does not hold; `condition`, `file` "
        "and "
        "`line` describe the check. The call has changed nothing.",
        PyExc_ValueError, nullptr );
    module.attr( "ContractError" ) = py::handle( type );
    // NOLINTNEXTLINE(performance-unnecessary-value-param): the signature that pybind11 takes
    py::register_exception_translator( []( std::exception_ptr thrown ) {
        try {
            if ( thrown ) std::rethrow_exception( thrown );
        } catch ( const ContractError &error ) {
            py::object made = py::handle( type )( error.condition );
            made.attr( "context" ) = error.context;
            made.attr( "file" ) = error.file;
            made.attr( "line" ) = error.line;
            made.attr( "condition" ) = error.condition;
            PyErr_SetObject( type, made.ptr() );
        }
    } );
}

// ---- What the other parts use

py::object classOf( const char *name ) { return py::module_::import( "pcm._types" ).attr( name ); }

pcm::Encoding encodingOf( const py::object &encoding )
{
    const auto number = py::reinterpret_steal<py::object>( PyNumber_Index( encoding.ptr() ) );
    if ( !number ) throw py::error_already_set();
    return pcm::Encoding( PyLong_AsUnsignedLongLongMask( number.ptr() ) );
}

std::string countOf( int64_t number, const char *things )
{
    return std::to_string( number ) + ' ' + things + ( number == 1 ? "" : "s" );
}

std::string documented( const std::string &summary, const std::vector<const char *> &parameters,
    const std::string &returns, const std::string &example )
{
    static const std::map<std::string, std::string> meanings = {
        { "bytes", "bytes-like\n    Encoded samples. The parameter is named source." },
        { "channel_mask", "int\n    Bit c selects channel c." },
        { "channels", "int\n    Number of channels." },
        { "coefficients", "Coefficients or array_like of float, shape (length,)\n    The taps." },
        { "decibel", "float\n    Change of the level in dB." },
        { "dest", "buffer of float32, shape (frames, channels) or (samples,)\n    Writable, contiguous block." },
        { "dest_channel_offset", "int\n    First channel to overwrite." },
        { "dest_encoding", "Encoding or int\n    Encoding of the result." },
        { "dest_frame_offset", "int\n    First frame to overwrite." },
        { "div", "int\n    Factor by which the number of frames decreases, above 1." },
        { "encoding", "Encoding or int\n    Encoding of the samples." },
        { "frame_rate", "int\n    Frames per second." },
        { "frames", "int\n    Number of frames." },
        { "gain", "float\n    Linear factor." },
        { "hertz", "int\n    Frequency in hertz." },
        { "idx", "int\n    Position in frames." },
        { "kits", "str\n    A name of the library, with or without its prefix." },
        { "mult", "int\n    Factor by which the number of frames increases, above 1." },
        { "offset", "int\n    First frame of the source." },
        { "period", "float\n    Frames per period, above 0." },
        { "pkt", "Packet\n    Has as many channels as the stream, which holds a reference to it." },
        { "read_frame_rate", "int\n    Frame rate of the output in hertz." },
        { "samples", "array_like of shape (frames, channels) or (frames,), or int\n    Samples, or their number." },
        { "source", "Packet or bytes-like\n    The source, which does not change." },
        { "source_channel_offset", "int\n    First channel to copy." },
        { "source_encoding", "Encoding or int\n    Encoding of the source." },
        { "source_frame_offset", "int\n    First frame to copy." },
        { "type", "int\n    A FilterType or SrcType." },
        { "write_frame_rate", "int\n    Frame rate of the input in hertz." },
    };
    std::string text = summary + "\n\n";
    if ( !parameters.empty() ) text += "Parameters\n----------\n";
    for ( const char *name : parameters )
        text += ( std::strcmp( name, "bytes" ) == 0 ? "source" : name ) + ( " : " + meanings.at( name ) ) + '\n';
    if ( !returns.empty() ) text += "\nReturns\n-------\n" + returns + '\n';
    return text +
           "\nRaises\n------\nContractError\n    The arguments break a condition of the library. Nothing has "
           "changed.\n\n"
           "Examples\n--------\n>>> " +
           example + '\n';
}

// ---- Functions

// Returns the member of an enumeration whose text `toString` returns for it.
template <class Parse> static py::object named( const char *type, const std::string &name, Parse parse )
{
    const auto value = parse( name );
    if ( !value ) throw py::value_error( "unknown name: '" + name + "'" );
    return classOf( type )( int64_t( *value ) );
}

static void defineEnumerations( py::module_ &module )
{
    const auto textOf = []( const auto &value ) { return to_string( value ); };
    module.def(
        "encoding_from_string", []( const std::string &kits ) { return classOf( "Encoding" )( kits ); },
        py::arg( "kits" ),
        documented( "Return the encoding of flag names, joined by |.", { "kits" },
            "Encoding. ValueError: unknown name",
            "pcm.encoding_from_string('INT_16 | BIG_ENDIAN') == pcm.Encoding.INT_16 | pcm.Encoding.BIG_ENDIAN\nTrue" )
            .c_str() );
    module.def(
        "encoding_to_string", [=]( const py::object &encoding ) { return textOf( encodingOf( encoding ) ); },
        py::arg( "encoding" ),
        documented( "Return the flag names of a normalised encoding.", { "encoding" }, "str",
            "pcm.encoding_to_string(pcm.Encoding.INT_8)\n'PCM_ENCODING_INT_8'" )
            .c_str() );
    module.def(
        "encoding_normalize",
        []( const py::object &encoding ) {
            return classOf( "Encoding" )( encodingOf( encoding ).normalized().word() );
        },
        py::arg( "encoding" ),
        documented( "Return the encoding without flags that have no effect.", { "encoding" }, "Encoding",
            "int(pcm.encoding_normalize(0xC))\n4" )
            .c_str() );
    module.def(
        "encoding_sizeof_sample", []( const py::object &encoding ) { return encodingOf( encoding ).sizeofSample(); },
        py::arg( "encoding" ),
        documented( "Return the size of a slot in bytes.", { "encoding" }, "int",
            "pcm.encoding_sizeof_sample(pcm.Encoding.INT_24)\n3" )
            .c_str() );
    module.def(
        "encoding_sizeof_frame",
        []( const py::object &encoding, int64_t channels ) { return encodingOf( encoding ).sizeofFrame( channels ); },
        py::arg( "encoding" ), py::arg( "channels" ),
        documented( "Return the size of a frame in bytes.", { "encoding", "channels" }, "int",
            "pcm.encoding_sizeof_frame(pcm.Encoding.INT_16, 2)\n4" )
            .c_str() );

    module.def(
        "filter_type_from_string",
        []( const std::string &kits ) { return named( "FilterType", kits, pcm::filterTypeFromString ); },
        py::arg( "kits" ),
        documented( "Return the built-in filter of a name.", { "kits" }, "FilterType. ValueError: unknown name",
            "int(pcm.filter_type_from_string('PCM_FILTER_TYPE_LOWPASS_4000_AT_16000'))\n0" )
            .c_str() );
    module.def(
        "filter_type_to_string", [=]( int64_t type ) { return textOf( pcm::FilterType( type ) ); }, py::arg( "type" ),
        documented( "Return the name of a built-in filter.", { "type" }, "str",
            "pcm.filter_type_to_string(0)\n'PCM_FILTER_TYPE_LOWPASS_4000_AT_16000'" )
            .c_str() );
    module.def(
        "src_type_from_string",
        []( const std::string &kits ) { return named( "SrcType", kits, pcm::srcTypeFromString ); }, py::arg( "kits" ),
        documented( "Return the converter type of a name.", { "kits" }, "SrcType. ValueError: unknown name",
            "int(pcm.src_type_from_string('PCM_SRC_TYPE_LINEAR'))\n4" )
            .c_str() );
    module.def(
        "src_type_to_string", [=]( int64_t type ) { return textOf( pcm::SrcType( type ) ); }, py::arg( "type" ),
        documented( "Return the name of a converter type.", { "type" }, "str",
            "pcm.src_type_to_string(4)\n'PCM_SRC_TYPE_LINEAR'" )
            .c_str() );
}

static void defineSampleFunctions( py::module_ &module )
{
    module.def(
        "try_convert",
        []( const py::object &destEncoding, const py::object &source,
            const py::object &sourceEncoding ) -> py::object {
            const Bytes bytes( source, PyBUF_C_CONTIGUOUS );
            const pcm::Encoding to = encodingOf( destEncoding ), from = encodingOf( sourceEncoding );
            const auto made = run( int64_t( bytes.bytes().size() ),
                [&] { return pcm::tryConvert( to, pcm::Buffer( bytes.bytes() ), from ); } );
            if ( !made ) return py::none();
            return py::bytes( reinterpret_cast<const char *>( made->bytes().data() ), made->bytes().size() );
        },
        py::arg( "dest_encoding" ), py::arg( "source" ), py::arg( "source_encoding" ),
        documented( "Convert encoded samples.", { "dest_encoding", "bytes", "source_encoding" },
            "bytes, or None if the source is empty or not a whole number of slots",
            "pcm.try_convert(pcm.Encoding.INT_16, b'\\x40', pcm.Encoding.INT_8)\nb'\\x00@'" )
            .c_str() );
    module.def( "decibel_from_gain", pcm::decibelFromGain, py::arg( "gain" ),
        documented( "Convert a linear gain to dB.", { "gain" }, "float", "pcm.decibel_from_gain(10)\n20.0" )
            .c_str() );
    module.def( "decibel_to_gain", pcm::decibelToGain, py::arg( "decibel" ),
        documented( "Convert dB to a linear gain.", { "decibel" }, "float", "pcm.decibel_to_gain(20)\n10.0" )
            .c_str() );
    const auto adjust = [&]( const char *name, auto function, const char *summary, const char *parameter ) {
        module.def(
            name,
            [function]( const py::object &dest, double value ) {
                const Block block( dest, 1 );
                run( int64_t( block.size() ), [&] { function( block.samples(), value ); } );
            },
            py::arg( "dest" ), py::arg( parameter ),
            documented( summary, { "dest", parameter }, "",
                "block = np.ones(2, np.float32)\n>>> pcm." + std::string( name ) + "(block, 0)" )
                .c_str() );
    };
    adjust( "level_adjust_samples", pcm::samples::levelAdjust, "Change the level of a block.", "decibel" );
    adjust( "level_adjust_linear_gain_samples", pcm::samples::levelAdjustLinearGain, "Multiply a block.", "gain" );
}

PYBIND11_MODULE( _pcm, module )
{
    kitModuleStartup( pcmModule() ); // never shut down: objects may outlive the module
    py::options options;
    options.disable_function_signatures();
    defineContractError( module );
    definePacket( module );
    defineStreams( module );
    defineGenerators( module );
    defineEnumerations( module );
    defineSampleFunctions( module );
    for ( const char *name : { "Packet", "Queue", "Coefficients", "Filter", "Src", "Tone" } )
        module.attr( name ).attr( "__module__" ) = "pcm";
    module.attr( "__version__" ) = PCM_VERSION;
    module.attr( "_audioop" ) = py::reinterpret_steal<py::object>( createAudioop() );
}
