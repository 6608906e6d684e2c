// Streams (queues, filters, rate converters) and generators.

#include "module.h"

using pcm::Coefficients;
using pcm::Filter;
using pcm::Packet;
using pcm::Queue;
using pcm::Src;
using pcm::Tone;

/// An example that prints the result of a call on a queue of the samples 0.25, 0.5, 0.75.
static std::string fromQueue( const std::string &calls )
{
    return "queue = pcm.Queue()\n>>> queue.write(pcm.Packet([.25, .5, .75]))\n>>> " + calls;
}

/// Defines what all streams have in common.
template <class C> static void defineStream( py::class_<Object<C>> &type, const char *name )
{
    using Self = Object<C>;
    defineChange( type, "write", &C::write, py::arg( "pkt" ),
        documented( "Write a packet.", { "pkt" }, "", fromQueue( "queue.frames\n3" ) ).c_str() );
    defineChange( type, "read", &C::read,
        documented( "Take the next packet.", {}, "Packet",
            fromQueue( "queue.read().view.tolist()\n[[0.25], [0.5], [0.75]]" ) )
            .c_str() );
    type.def(
        "gather",
        []( Self &self, std::optional<int64_t> frames ) {
            waitFor( self );
            const int64_t taken = frames.value_or( self.value.frames() );
            return toPython( run(
                samplesOf( taken ), [&] { return self.value.gather( taken ); }, self ) );
        },
        py::arg( "frames" ) = py::none(),
        documented( "Take frames, by default all, as one packet.", { "frames" }, "Packet",
            fromQueue( "queue.gather(2).view.tolist()\n[[0.25], [0.5]]" ) )
            .c_str() );
    const auto defineGather = [&]( const char *method, auto gather, const char *summary, const char *result ) {
        type.def(
            method,
            [gather]( Self &self, const py::object &dest ) {
                waitFor( self );
                const int64_t channels = self.value.channels();
                const Block block( dest, channels );
                const auto samples = block.samples();
                run(
                    int64_t( samples.size() ),
                    [&] { gather( self.value, samples, int64_t( samples.size() ) / channels ); }, self );
            },
            py::arg( "dest" ),
            documented( summary, { "dest" }, "",
                fromQueue( "block = np.ones(2, np.float32)\n>>> queue." + std::string( method ) +
                           "(block)\n>>> block.tolist()\n" + result ) )
                .c_str() );
    };
    defineGather(
        "gather_samples", []( C &stream, auto dest, int64_t frames ) { stream.gather( dest, frames ); },
        "Take as many frames as the block holds.", "[0.25, 0.5]" );
    defineGather(
        "gather_samples_add", []( C &stream, auto dest, int64_t frames ) { stream.gatherAdd( dest, frames ); },
        "Take as many frames as the block holds, and add them to it.", "[1.25, 1.5]" );
    type.def_property_readonly( "frames", reader( &C::frames ), "The number of frames that can be taken." );
    type.def_property_readonly( "packets", reader( &C::packets ), "The number of packets that can be taken." );
    type.def_property_readonly( "channels", reader( &C::channels ), "The number of channels." );
    type.def( "__iter__", []( py::object self ) { return self; } );
    type.def( "__next__", []( Self &self ) {
        waitFor( self );
        if ( !self.value.packets() ) throw py::stop_iteration();
        return toPython( run(
            0, [&] { return self.value.read(); }, self ) );
    } );
    type.def( "__repr__", [name]( const Self &self ) {
        waitFor( self );
        return "<pcm." + std::string( name ) + ": " + countOf( self.value.packets(), "packet" ) + ", " +
               countOf( self.value.frames(), "frame" ) + " x " + countOf( self.value.channels(), "channel" ) + ">";
    } );
}

/// Defines copies of a type whose objects share what they hold until one of them changes.
template <class C> static void defineCopies( py::class_<Object<C>> &type, const char *example )
{
    type.def( "__copy__", []( const Object<C> &self ) { return wrap( hold( self ) ); } );
    type.def(
        "create_from", []( const Object<C> &self ) { return wrap( hold( self ).clone() ); },
        documented( "Copy.", {}, "", example ).c_str() );
}

static Coefficients coefficientsOf( const py::object &source )
{
    if ( py::isinstance<py::int_>( source ) ) return Coefficients( pcm::FilterType( source.cast<int64_t>() ) );
    const auto taps = floatsOf( source );
    if ( taps.ndim() != 1 ) throw py::value_error( "taps must have the shape (length,)" );
    const float none = 0; // an empty array may have no address
    return Coefficients( { taps.size() ? taps.data() : &none, size_t( taps.size() ) } );
}

static void defineCoefficients( py::module_ &module )
{
    using Self = Object<Coefficients>;
    const auto create = []( const py::object &source ) { return wrap( coefficientsOf( source ) ); };
    const char *example = "pcm.Coefficients(pcm.FilterType.LOWPASS_4000_AT_16000).length\n16";
    py::class_<Self> type( module, "Coefficients",
        documented(
            "The taps of an FIR filter: a built-in low-pass filter, or an array of floats.", { "type" }, "", example )
            .c_str() );
    type.def( py::init( create ), py::arg( "type" ) );
    type.def_static( "of", create, py::arg( "coefficients" ),
        documented( "Copy an array of taps.", { "coefficients" }, "Coefficients",
            "pcm.Coefficients.of([0.5, 0.5]).view.tolist()\n[0.5, 0.5]" )
            .c_str() );
    defineCopies( type, "pcm.Coefficients.of([0.5]).create_from().length\n1" );
    type.def_property_readonly( "length", reader( &Coefficients::length ), "The number of taps." );
    const auto view = []( const Self &self ) {
        const auto taps = self.value.taps();
        return arrayOf( taps.data(), { int64_t( taps.size() ) }, capsuleOf( self.value ), false );
    };
    type.def_property_readonly( "view", view, "The taps as a read-only array, without a copy." );
    type.def( "__len__", reader( &Coefficients::length ) );
    type.def( "__reduce__", [=]( const py::object &self ) {
        return py::make_tuple( self.attr( "__class__" ), py::make_tuple( view( self.cast<const Self &>() ) ) );
    } );
    type.def( "__repr__",
        []( const Self &self ) { return "<pcm.Coefficients: " + countOf( self.value.length(), "tap" ) + ">"; } );
}

static void defineQueue( py::module_ &module )
{
    using Self = Object<Queue>;
    py::class_<Self> type( module, "Queue",
        documented( "A first-in, first-out queue of packets. Iterating over it takes the packets.", { "channels" },
            "", fromQueue( "[len(packet) for packet in queue]\n[3]" ) )
            .c_str() );
    type.def( py::init( []( int64_t channels ) { return wrap( Queue( channels ) ); } ), py::arg( "channels" ) = 1 );
    defineStream( type, "Queue" );
    defineCopies( type, fromQueue( "queue.create_from().frames\n3" ).c_str() );
    defineChange( type, "clear", &Queue::clear,
        documented( "Remove all packets.", {}, "", fromQueue( "queue.clear()\n>>> queue.frames\n0" ) ).c_str() );
    type.def( "__reduce__", []( const py::object &self ) {
        Queue queue = hold( self.cast<const Self &>() ).clone();
        py::list packets;
        while ( queue.packets() ) packets.append( toPython( queue.read() ) );
        return py::make_tuple( self.attr( "_restored" ), py::make_tuple( queue.channels(), packets ) );
    } );
    type.def_static( "_restored", []( int64_t channels, const py::list &packets ) {
        Queue queue( channels );
        for ( const py::handle packet : packets ) queue.write( hold( packet.cast<const Object<Packet> &>() ) );
        return wrap( std::move( queue ) );
    } );
}

static void defineFilter( py::module_ &module )
{
    using Self = Object<Filter>;
    py::class_<Self> type( module, "Filter",
        documented( "An FIR filter. Each frame that is written produces one filtered frame.",
            { "coefficients", "channels" }, "",
            "filter = pcm.Filter(pcm.Coefficients.of([0.5, 0.5]))\n>>> filter.write(pcm.Packet([1., 1.]))\n"
            ">>> filter.gather().view.tolist()\n[[0.5], [1.0]]" )
            .c_str() );
    type.def( py::init( []( const Object<Coefficients> &taps, int64_t channels ) {
        return wrap( Filter( hold( taps ), channels ) );
    } ),
        py::arg( "coefficients" ), py::arg( "channels" ) = 1 );
    defineStream( type, "Filter" );
    const char *example = "pcm.Filter(pcm.Coefficients.of([0.5])).create_from().channels\n1";
    defineCopies( type, example );
    type.def( "__deepcopy__", []( const Self &self, const py::object & ) { return wrap( hold( self ).clone() ); } );
    defineChange( type, "reset", &Filter::reset,
        documented( "Forget what was written.", {}, "",
            "filter = pcm.Filter(pcm.Coefficients.of([0.5]))\n>>> filter.reset()" )
            .c_str() );
    type.def_property_readonly(
        "coefficients",
        []( const Self &self ) {
            waitFor( self );
            return wrap( self.value.coefficients() );
        },
        "The taps." );
}

static void defineSrc( py::module_ &module )
{
    using Self = Object<Src>;
    py::class_<Self> type( module, "Src",
        documented(
            "A converter of frame rates. It cannot be copied. Rates that differ by more than a factor of 256 raise "
            "ValueError.",
            { "type", "read_frame_rate", "write_frame_rate", "channels" }, "",
            "src = pcm.Src(pcm.SrcType.SINC_FASTEST, 16000, 8000)\n>>> src.write(pcm.Packet([0.] * 800))\n"
            ">>> src.frames > 1500\nTrue" )
            .c_str() );
    type.def( py::init( []( int64_t type, int64_t readFrameRate, int64_t writeFrameRate, int64_t channels ) {
        auto src = Src::tryCreate( pcm::SrcType( type ), readFrameRate, writeFrameRate, channels );
        if ( !src ) throw py::value_error( "the rates differ by more than a factor of 256" );
        return wrap( std::move( *src ) );
    } ),
        py::arg( "type" ), py::arg( "read_frame_rate" ), py::arg( "write_frame_rate" ), py::arg( "channels" ) = 1 );
    type.def_static(
        "try_create",
        []( int64_t type, int64_t readFrameRate, int64_t writeFrameRate, int64_t channels ) -> py::object {
            auto src = Src::tryCreate( pcm::SrcType( type ), readFrameRate, writeFrameRate, channels );
            return src ? py::cast( wrap( std::move( *src ) ) ) : py::none();
        },
        py::arg( "type" ), py::arg( "read_frame_rate" ), py::arg( "write_frame_rate" ), py::arg( "channels" ) = 1,
        documented( "Create a converter.", { "type", "read_frame_rate", "write_frame_rate", "channels" },
            "Src, or None if one rate is more than 256 times the other",
            "pcm.Src.try_create(pcm.SrcType.LINEAR, 1, 257) is None\nTrue" )
            .c_str() );
    type.def_static( "frame_rate_check_compatibility", &Src::isCompatible, py::arg( "read_frame_rate" ),
        py::arg( "write_frame_rate" ),
        documented( "Return whether the rates differ by a factor of at most 256.",
            { "read_frame_rate", "write_frame_rate" }, "bool",
            "pcm.Src.frame_rate_check_compatibility(48000, 8000)\nTrue" )
            .c_str() );
    defineStream( type, "Src" );
    type.def( "__copy__", []( py::object self ) { return self; } );
    defineChange( type, "reset", &Src::reset,
        documented( "Forget what was written.", {}, "",
            "src = pcm.Src.try_create(pcm.SrcType.LINEAR, 2, 1)\n>>> src.reset()" )
            .c_str() );
    type.def_property_readonly(
        "type", []( const Self &self ) { return classOf( "SrcType" )( int64_t( self.value.type() ) ); },
        "The SrcType." );
    type.def_property_readonly(
        "read_frame_rate", reader( &Src::readFrameRate ), "The rate of the output in hertz." );
    type.def_property_readonly(
        "write_frame_rate", reader( &Src::writeFrameRate ), "The rate of the input in hertz." );
}

void defineStreams( py::module_ &module )
{
    defineQueue( module );
    defineCoefficients( module );
    defineFilter( module );
    defineSrc( module );
}

// ---- Generators

/// Defines `NAME`, `NAME_samples` and `NAME_samples_add` of a generator, as methods or functions. `generator(
/// objects... )` returns an object with `gather` and `gatherAdd`.
template <class... Objects, class Scope, class Generator, class... Names>
static void defineGather(
    Scope &scope, const std::string &name, Generator generator, const std::string &example, const Names &...names )
{
    const auto fill = [&]( const char *suffix, auto gather, const char *summary, const char *after ) {
        scope.def( ( name + suffix ).c_str(),
            [=]( Objects &...objects, const py::object &dest ) {
                const Block block( dest, 1 );
                run(
                    int64_t( block.size() ), [&] { gather( generator( objects... ), block.samples() ); },
                    objects... );
            },
            names..., py::arg( "dest" ),
            documented( summary, { "dest" }, "",
                "block = np.zeros(2, np.float32)\n>>> " + example + suffix + after + "block)" )
                .c_str() );
    };
    const char *open = sizeof...( Objects ) == 2 ? "(pcm.Tone(4), pcm.Tone(8), " : "(";
    scope.def(
        name.c_str(),
        [=]( Objects &...objects, int64_t samples ) {
            return toPython( run(
                samplesOf( samples ), [&] { return generator( objects... ).gather( samples ); }, objects... ) );
        },
        names..., py::arg( "samples" ),
        documented( "Generate a packet of one channel.", { "samples" }, "Packet", example + open + "2).frames\n2" )
            .c_str() );
    fill(
        "_samples", []( auto made, auto dest ) { made.gather( dest ); }, "Fill a block.", open );
    if constexpr ( requires { generator( std::declval<Objects &>()... ).gatherAdd( std::span<float>() ); } )
        fill(
            "_samples_add", []( auto made, auto dest ) { made.gatherAdd( dest ); }, "Add to a block.", open );
}

struct Noise {
    static Packet gather( int64_t samples ) { return pcm::noise::gather( samples ); }
    static void gather( std::span<float> dest ) { pcm::noise::gather( dest ); }
    static void gatherAdd( std::span<float> dest ) { pcm::noise::gatherAdd( dest ); }
};

struct Silence {
    static Packet gather( int64_t samples ) { return pcm::silence::gather( samples ); }
    static void gather( std::span<float> dest ) { pcm::silence::gather( dest ); }
};

void defineGenerators( py::module_ &module )
{
    using Self = Object<Tone>;
    py::class_<Self> type( module, "Tone",
        documented( "A sine tone, which each call continues. It cannot be copied.", { "period" }, "",
            "pcm.Tone(4).gather(2).view.round().tolist()\n[[0.0], [1.0]]" )
            .c_str() );
    type.def( py::init( []( double period ) { return wrap( Tone( period ) ); } ), py::arg( "period" ) );
    type.def_static(
        "try_create_with_frequency",
        []( int64_t frameRate, int64_t hertz ) -> py::object {
            auto tone = Tone::tryCreate( frameRate, hertz );
            return tone ? py::cast( wrap( std::move( *tone ) ) ) : py::none();
        },
        py::arg( "frame_rate" ), py::arg( "hertz" ),
        documented( "Create a tone.", { "frame_rate", "hertz" }, "Tone",
            "pcm.Tone.try_create_with_frequency(8000, 440).gather(160).frames\n160" )
            .c_str() );
    type.def( "__copy__", []( py::object self ) { return self; } );
    defineGather<Self>(
        type, "gather", []( Self &self ) { return self.value; }, "pcm.Tone(4).gather" );
    const auto toneA = py::arg( "tone_a" ), toneB = py::arg( "tone_b" );
    defineGather<Self, Self>(
        module, "dual_tone_gather",
        []( Self &a, Self &b ) {
            return pcm::DualTone{ a.value, b.value };
        },
        "pcm.dual_tone_gather", toneA, toneB );
    defineGather<Self, Self>(
        module, "modulated_tone_gather",
        []( Self &a, Self &b ) {
            return pcm::ModulatedTone{ a.value, b.value };
        },
        "pcm.modulated_tone_gather", toneA, toneB );
    defineGather<>(
        module, "noise_gather", [] { return Noise(); }, "pcm.noise_gather" );
    defineGather<>(
        module, "silence_gather", [] { return Silence(); }, "pcm.silence_gather" );
}
