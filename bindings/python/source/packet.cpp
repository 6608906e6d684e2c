// Packets.

#include "module.h"

#include <algorithm>
#include <variant>

using pcm::Packet;

py::array_t<float, py::array::c_style | py::array::forcecast> floatsOf( const py::object &samples )
{
    const auto array = py::module_::import( "numpy" ).attr( "asarray" )( samples ).cast<py::array>();
    if ( array.ndim() == 0 ) throw py::type_error( "samples must be an array of floats" );
    const char kind = array.dtype().kind();
    const std::string type = py::str( array.dtype() );
    if ( kind == 'i' || kind == 'u' || kind == 'b' )
        throw py::type_error( type +
                              " samples have no scale: use Packet.from_int( samples ), or convert them to floats "
                              "with full scale 1.0" );
    if ( kind != 'f' ) throw py::type_error( "samples must be real floats, not " + type );
    return array;
}

static Packet packetOf( const py::object &samples )
{
    const auto array = floatsOf( samples );
    if ( array.ndim() != 1 && array.ndim() != 2 )
        throw py::value_error( "samples must have the shape (frames, channels) or (frames,)" );
    return Packet( { array.data(), size_t( array.size() ) }, array.ndim() == 2 ? array.shape( 1 ) : 1 );
}

// Integers are decoded by the library, whose rules for full scale and unsigned codes then apply here too.
static Packet packetOfIntegers( const py::object &samples )
{
    const auto numpy = py::module_::import( "numpy" );
    const auto array = numpy.attr( "ascontiguousarray" )( samples ).cast<py::array>();
    const auto size = array.itemsize();
    const char kind = array.dtype().kind();
    if ( ( kind != 'i' && kind != 'u' ) || ( size != 1 && size != 2 && size != 4 ) )
        throw py::type_error(
            "from_int takes integers of 8, 16 or 32 bits, not " + std::string( py::str( array.dtype() ) ) );
    if ( array.ndim() != 1 && array.ndim() != 2 )
        throw py::value_error( "samples must have the shape (frames, channels) or (frames,)" );
    const pcm::Encoding base = size == 1   ? pcm::Encoding::int8
                               : size == 2 ? pcm::Encoding::int16
                                           : pcm::Encoding::int32;
    const bool isBig = array.dtype().byteorder() == '>';
    const auto encoding = base | ( isBig ? pcm::Encoding::bigEndian : pcm::Encoding::littleEndian ) |
                          ( kind == 'u' ? pcm::Encoding::unsignedCodes : pcm::Encoding() );
    const Bytes bytes( array, PyBUF_C_CONTIGUOUS );
    return *Packet::tryDecode( pcm::Buffer( bytes.bytes() ), encoding, array.ndim() == 2 ? array.shape( 1 ) : 1 );
}

// ---- Views. A view holds a reference, so the packet is copied when it changes. A writable view makes the packet
// unchangeable instead, because others would otherwise see what is written.

class WritableView {
public:
    explicit WritableView( const py::object &packet ) : owner( packet ), object( packet.cast<Object<Packet> *>() )
    {
        waitFor( *object );
        if ( !object->writableViews ) (void)object->value.mutableBacking();
        ++object->writableViews;
    }
    WritableView( WritableView &&other ) noexcept
        : owner( std::move( other.owner ) ), object( std::exchange( other.object, nullptr ) )
    {
    }
    ~WritableView()
    {
        if ( object ) --object->writableViews;
    }
    WritableView &operator=( WritableView && ) = delete;

    [[nodiscard]] Packet &packet() const { return object->value; }

private:
    py::object owner;
    Object<Packet> *object;
};

static py::array viewOf( const Object<Packet> &self )
{
    Packet packet = hold( self );
    const float *block = packet.backing();
    const int64_t frames = packet.frames(), channels = packet.channels();
    return arrayOf( block, { frames, channels }, capsuleOf( std::move( packet ) ), false );
}

static py::array mutableViewOf( const py::object &self )
{
    WritableView view( self );
    Packet &packet = view.packet();
    const float *block = packet.backing();
    const int64_t frames = packet.frames(), channels = packet.channels();
    return arrayOf( block, { frames, channels }, capsuleOf( std::move( view ) ), true );
}

// What a buffer refers to until it is released.
struct Export {
    std::variant<Packet, WritableView> source;
    Py_ssize_t shape[2];
    Py_ssize_t strides[2];
};

static int getBuffer( PyObject *self, Py_buffer *view, int flags )
{
    static float nothing;
    try {
        const bool isWritable = flags & PyBUF_WRITABLE;
        const auto object = py::reinterpret_borrow<py::object>( self );
        auto source = isWritable
                          ? std::variant<Packet, WritableView>( WritableView( object ) )
                          : std::variant<Packet, WritableView>( hold( object.cast<const Object<Packet> &>() ) );
        const Packet &packet = isWritable ? std::get<WritableView>( source ).packet() : std::get<Packet>( source );
        const Py_ssize_t frames = packet.frames(), channels = packet.channels(), size = sizeof( float );
        if ( ( flags & PyBUF_F_CONTIGUOUS ) == PyBUF_F_CONTIGUOUS && frames > 1 && channels > 1 )
            throw py::buffer_error( "the samples are not contiguous in Fortran order" );
        void *block = frames ? const_cast<float *>( packet.backing() ) : &nothing;
        auto exported = std::make_unique<Export>(
            Export{ std::move( source ), { frames, channels }, { channels * size, size } } );
        *view = { block, object.inc_ref().ptr(), frames * channels * size, size, !isWritable, 2,
            const_cast<char *>( flags & PyBUF_FORMAT ? "f" : nullptr ), flags & PyBUF_ND ? exported->shape : nullptr,
            ( flags & PyBUF_STRIDES ) == PyBUF_STRIDES ? exported->strides : nullptr, nullptr, exported.get() };
        (void)exported.release();
        return 0;
    } catch ( const std::exception &error ) {
        PyErr_SetString( PyExc_BufferError, error.what() );
        view->obj = nullptr;
        return -1;
    }
}

static void releaseBuffer( PyObject *, Py_buffer *view ) { delete static_cast<Export *>( view->internal ); }

static void addBuffer( PyHeapTypeObject *type )
{
    type->ht_type.tp_as_buffer = &type->as_buffer;
    type->as_buffer.bf_getbuffer = getBuffer;
    type->as_buffer.bf_releasebuffer = releaseBuffer;
}

// ---- Slices

struct Range {
    int64_t begin;
    int64_t frames;
};

// Returns the frames of a slice whose step must be 1.
static Range rangeOf( const Packet &packet, const py::slice &slice )
{
    Py_ssize_t begin, end, step, frames;
    if ( !slice.compute( packet.frames(), &begin, &end, &step, &frames ) ) throw py::error_already_set();
    if ( step != 1 ) throw py::value_error( "frames can only be replaced or deleted in steps of 1" );
    return { begin, frames };
}

static std::unique_ptr<Object<Packet>> slice( const Object<Packet> &self, const py::slice &frames )
{
    const py::object step = frames.attr( "step" );
    if ( !step.is_none() && !step.equal( py::int_( 1 ) ) ) return wrap( packetOf( viewOf( self )[frames] ) );
    const Packet packet = hold( self );
    const Range range = rangeOf( packet, frames );
    Packet part( packet.channels() );
    run( samplesOf( packet ), [&] { part.appendInner( packet, range.begin, range.frames ); } );
    return toPython( std::move( part ) );
}

static void replaceFrames( Object<Packet> &self, const py::slice &slice, const py::object &source )
{
    const bool isPacket = py::isinstance<Object<Packet>>( source );
    const Packet frames = isPacket ? hold( source.cast<const Object<Packet> &>() ) : packetOf( source );
    waitFor( self );
    const Range range = rangeOf( self.value, slice );
    run(
        samplesOf( self.value ) + samplesOf( frames ),
        [&] {
            if ( frames.frames() == range.frames ) return self.value.write( range.begin, frames );
            self.value.insert( range.begin, frames );
            self.value.delInner( range.begin + frames.frames(), range.frames );
        },
        self );
}

static bool areEqual( const Object<Packet> &a, const Object<Packet> &b )
{
    const Packet first = hold( a ), second = hold( b );
    return run( samplesOf( first ), [&] {
        return first.channels() == second.channels() && std::ranges::equal( first.samples(), second.samples() );
    } );
}

// ---- Methods that edit a packet. The examples begin with two packets: p has the samples 0.25, 0.5, 0.75 and q has
// 1.0, -1.0.

template <class... A>
static void edit( py::class_<Object<Packet>> &type, const char *name, void ( Packet::*function )( A... ),
    std::vector<const char *> parameters, const char *summary, const char *arguments, const char *result )
{
    const std::string example = "p, q = pcm.Packet([.25, .5, .75]), pcm.Packet([1., -1.])\n>>> p." +
                                std::string( name ) + "(" + arguments + ")\n>>> p.view.tolist()\n" + result;
    const std::string text = documented( summary, parameters, "", example );
    [&]<size_t... at>( std::index_sequence<at...> )
    {
        defineChange( type, name, function, py::arg( parameters[at] )..., text.c_str() );
    }
    ( std::index_sequence_for<A...>() );
}

static void defineEdits( py::class_<Object<Packet>> &type )
{
    edit( type, "clear", &Packet::clear, {}, "Remove all frames.", "", "[]" );
    edit( type, "set_channels", &Packet::setChannels, { "channels" },
        "Change the number of channels. New channels are silent.", "2", "[[0.25, 0.0], [0.5, 0.0], [0.75, 0.0]]" );
    edit( type, "set_frames", &Packet::setFrames, { "frames" }, "Cut off frames at the end, or append silence.", "4",
        "[[0.25], [0.5], [0.75], [0.0]]" );

    edit( type, "write", &Packet::write, { "idx", "source" }, "Overwrite frames with those of another packet.",
        "1, q", "[[0.25], [1.0], [-1.0]]" );
    edit( type, "write_inner", &Packet::writeInner, { "idx", "source", "offset", "frames" },
        "Overwrite frames with some of another packet.", "0, q, 1, 1", "[[-1.0], [0.5], [0.75]]" );
    edit( type, "write_outer", &Packet::writeOuter, { "idx", "source", "offset", "frames" },
        "Overwrite frames with all but some of another packet.", "0, q, 1, 1", "[[1.0], [0.5], [0.75]]" );
    edit( type, "write_leading", &Packet::writeLeading, { "idx", "source", "frames" },
        "Overwrite frames with the first ones of another packet.", "2, q, 1", "[[0.25], [0.5], [1.0]]" );
    edit( type, "write_trailing", &Packet::writeTrailing, { "idx", "source", "frames" },
        "Overwrite frames with the last ones of another packet.", "2, q, 1", "[[0.25], [0.5], [-1.0]]" );
    edit( type, "write_zero", &Packet::writeZero, { "idx", "frames" }, "Overwrite frames with silence.", "0, 2",
        "[[0.0], [0.0], [0.75]]" );

    edit( type, "insert", &Packet::insert, { "idx", "source" }, "Insert the frames of another packet.", "1, q",
        "[[0.25], [1.0], [-1.0], [0.5], [0.75]]" );
    edit( type, "insert_inner", &Packet::insertInner, { "idx", "source", "offset", "frames" },
        "Insert some frames of another packet.", "0, q, 1, 1", "[[-1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "insert_outer", &Packet::insertOuter, { "idx", "source", "offset", "frames" },
        "Insert all but some frames of another packet.", "0, q, 1, 1", "[[1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "insert_leading", &Packet::insertLeading, { "idx", "source", "frames" },
        "Insert the first frames of another packet.", "0, q, 1", "[[1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "insert_trailing", &Packet::insertTrailing, { "idx", "source", "frames" },
        "Insert the last frames of another packet.", "0, q, 1", "[[-1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "insert_zero", &Packet::insertZero, { "idx", "frames" }, "Insert silence.", "1, 1",
        "[[0.25], [0.0], [0.5], [0.75]]" );

    edit( type, "append", &Packet::append, { "source" }, "Append the frames of another packet.", "q",
        "[[0.25], [0.5], [0.75], [1.0], [-1.0]]" );
    edit( type, "append_inner", &Packet::appendInner, { "source", "offset", "frames" },
        "Append some frames of another packet.", "q, 1, 1", "[[0.25], [0.5], [0.75], [-1.0]]" );
    edit( type, "append_outer", &Packet::appendOuter, { "source", "offset", "frames" },
        "Append all but some frames of another packet.", "q, 1, 1", "[[0.25], [0.5], [0.75], [1.0]]" );
    edit( type, "append_leading", &Packet::appendLeading, { "source", "frames" },
        "Append the first frames of another packet.", "q, 1", "[[0.25], [0.5], [0.75], [1.0]]" );
    edit( type, "append_trailing", &Packet::appendTrailing, { "source", "frames" },
        "Append the last frames of another packet.", "q, 1", "[[0.25], [0.5], [0.75], [-1.0]]" );
    edit( type, "append_zero", &Packet::appendZero, { "frames" }, "Append silence.", "1",
        "[[0.25], [0.5], [0.75], [0.0]]" );

    edit( type, "prepend", &Packet::prepend, { "source" }, "Insert the frames of another packet at the start.", "q",
        "[[1.0], [-1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "prepend_inner", &Packet::prependInner, { "source", "offset", "frames" },
        "Insert some frames of another packet at the start.", "q, 1, 1", "[[-1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "prepend_outer", &Packet::prependOuter, { "source", "offset", "frames" },
        "Insert all but some frames of another packet at the start.", "q, 1, 1", "[[1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "prepend_leading", &Packet::prependLeading, { "source", "frames" },
        "Insert the first frames of another packet at the start.", "q, 1", "[[1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "prepend_trailing", &Packet::prependTrailing, { "source", "frames" },
        "Insert the last frames of another packet at the start.", "q, 1", "[[-1.0], [0.25], [0.5], [0.75]]" );
    edit( type, "prepend_zero", &Packet::prependZero, { "frames" }, "Insert silence at the start.", "1",
        "[[0.0], [0.25], [0.5], [0.75]]" );

    edit( type, "del_inner", &Packet::delInner, { "idx", "frames" }, "Delete frames.", "1, 1", "[[0.25], [0.75]]" );
    edit(
        type, "del_outer", &Packet::delOuter, { "idx", "frames" }, "Delete all but some frames.", "1, 1", "[[0.5]]" );
    edit( type, "del_leading", &Packet::delLeading, { "frames" }, "Delete frames at the start.", "1",
        "[[0.5], [0.75]]" );
    edit( type, "del_trailing", &Packet::delTrailing, { "frames" }, "Delete frames at the end.", "1",
        "[[0.25], [0.5]]" );

    edit( type, "channels_adjust_replace_with_downmix", &Packet::channelsAdjustReplaceWithDownmix, { "channels" },
        "Replace all channels by copies of their mean.", "2", "[[0.25, 0.25], [0.5, 0.5], [0.75, 0.75]]" );
    edit( type, "channels_adjust_expand_with_downmix", &Packet::channelsAdjustExpandWithDownmix, { "channels" },
        "Add channels that hold the mean of the others.", "2", "[[0.25, 0.25], [0.5, 0.5], [0.75, 0.75]]" );
    edit( type, "frames_extend", &Packet::framesExtend, { "mult" },
        "Insert silence after each frame, for a higher frame rate.", "2",
        "[[0.25], [0.0], [0.5], [0.0], [0.75], [0.0]]" );
    edit( type, "frames_reduce", &Packet::framesReduce, { "div" },
        "Keep every div-th frame, for a lower frame rate. div must divide the number of frames.", "3", "[[0.25]]" );
    edit( type, "level_adjust", &Packet::levelAdjust, { "decibel" }, "Change the level by a number of dB.", "0",
        "[[0.25], [0.5], [0.75]]" );
    edit( type, "level_adjust_linear_gain", &Packet::levelAdjustLinearGain, { "gain" }, "Multiply all samples.", "2",
        "[[0.5], [1.0], [1.5]]" );
}

void definePacket( py::module_ &module )
{
    using Self = Object<Packet>;
    py::class_<Self> type( module, "Packet", py::custom_type_setup( addBuffer ),
        "Interleaved frames of 32-bit floats, full scale 1.0.\n\n"
        "`Packet(channels)` has no frames. `Packet(samples)` copies an array of floats of the shape (frames, "
        "channels) "
        "or (frames,). `copy.copy` shares the samples until one of the two changes. NumPy reads a packet without a "
        "copy."
        "\n\nExamples\n--------\n>>> packet = pcm.Packet([[0.5, 0.25], [1.0, 0.0]])\n>>> packet *= 0.5\n"
        ">>> packet[:1].view.tolist()\n[[0.25, 0.125]]\n" );
    type.def( py::init( []( int64_t channels ) { return wrap( Packet( channels ) ); } ), py::arg( "channels" ) = 1 );
    type.def(
        py::init( []( const py::object &samples ) { return wrap( packetOf( samples ) ); } ), py::arg( "samples" ) );
    type.def_static(
        "of", []( const py::object &samples ) { return wrap( packetOf( samples ) ); }, py::arg( "samples" ),
        documented( "Copy an array of floats.", { "samples" }, "Packet",
            "pcm.Packet.of([0.5, 0.25]).view.tolist()\n[[0.5], [0.25]]" )
            .c_str() );
    type.def_static(
        "from_int", []( const py::object &samples ) { return wrap( packetOfIntegers( samples ) ); },
        py::arg( "samples" ),
        documented( "Convert integers of 8, 16 or 32 bits, signed or unsigned, to full scale 1.0.", { "samples" },
            "Packet", "pcm.Packet.from_int(np.array([16384, -32768], np.int16)).view.tolist()\n[[0.5], [-1.0]]" )
            .c_str() );
    const auto defineDecode = [&]( const char *name, auto result, const char *returns ) {
        type.def_static(
            name,
            [result]( const py::object &source, const py::object &encoding, int64_t channels ) {
                const Bytes bytes( source, PyBUF_C_CONTIGUOUS );
                const pcm::Encoding word = encodingOf( encoding );
                return result( run( int64_t( bytes.bytes().size() ),
                    [&] { return Packet::tryDecode( pcm::Buffer( bytes.bytes() ), word, channels ); } ) );
            },
            py::arg( "source" ), py::arg( "encoding" ), py::arg( "channels" ) = 1,
            documented( "Decode bytes.", { "bytes", "encoding", "channels" }, returns,
                "pcm.Packet." + std::string( name ) + "(b'\\x00\\x40', pcm.Encoding.INT_16).view.tolist()\n[[0.5]]" )
                .c_str() );
    };
    defineDecode(
        "decode",
        []( std::optional<Packet> packet ) {
            if ( !packet ) throw py::value_error( "the bytes are not a whole number of frames" );
            return wrap( std::move( *packet ) );
        },
        "Packet. ValueError: the bytes are not whole frames" );
    defineDecode(
        "try_decode",
        []( std::optional<Packet> packet ) { return packet ? py::cast( wrap( std::move( *packet ) ) ) : py::none(); },
        "Packet, or None if the bytes are not whole frames" );

    type.def( "__len__", reader( &Packet::frames ) );
    type.def( "__iter__", []( const Self &self ) { return py::iter( viewOf( self ) ); } );
    type.def_property_readonly( "frames", reader( &Packet::frames ), "The number of frames." );
    type.def_property_readonly(
        "channels",
        []( const py::object &self ) {
            const auto &object = self.cast<const Self &>();
            waitFor( object );
            return classOf( "Channels" )( self, object.value.channels() );
        },
        "The number of channels. channels[i] is a packet of one of them, and can be assigned." );
    type.def_property_readonly( "view", viewOf,
        "The samples as a read-only array of the shape (frames, channels), without a copy.\n\nThe view holds a "
        "reference, so it does not change with the packet. A packet that has a view is copied when it changes." );
    type.def_property_readonly( "mutable_view", mutableViewOf,
        "The samples as a writable array of the shape (frames, channels).\n\nThe samples are copied first if they "
        "are "
        "shared. While the view exists, changing the packet raises BufferError." );
    type.def(
        "__array__",
        []( const Self &self, const py::object &dtype, const py::object &copy ) {
            py::array view = viewOf( self );
            const bool mayShare = copy.is_none() || !copy.cast<bool>();
            if ( mayShare && ( dtype.is_none() || view.dtype().equal( py::dtype::from_args( dtype ) ) ) ) return view;
            if ( mayShare && !copy.is_none() ) throw py::value_error( "a conversion needs a copy" );
            return py::array( view.attr( "astype" )( dtype.is_none() ? py::object( view.dtype() ) : dtype ) );
        },
        py::arg( "dtype" ) = py::none(), py::arg( "copy" ) = py::none() );

    const auto copied = []( const Self &self ) { return wrap( hold( self ) ); };
    type.def( "__copy__", copied );
    type.def(
        "create_from", []( const Self &self ) { return wrap( hold( self ).clone() ); },
        documented( "Copy the samples at once.", {}, "Packet", "pcm.Packet([0.5]).create_from().frames\n1" )
            .c_str() );
    type.def(
        "create_from_with_channels",
        []( const Self &self, int64_t channels ) {
            const Packet packet = hold( self );
            return toPython( run( samplesOf( packet ), [&] { return packet.withChannels( channels ); } ) );
        },
        py::arg( "channels" ),
        documented( "Copy the sum of all channels to each channel of a new packet.", { "channels" }, "Packet",
            "pcm.Packet([[0.5, 0.25]]).create_from_with_channels(1).view.tolist()\n[[0.75]]" )
            .c_str() );
    type.def(
        "create_from_with_channel_mask",
        []( const Self &self, uint64_t mask ) {
            const Packet packet = hold( self );
            return toPython( run( samplesOf( packet ), [&] { return packet.withChannelMask( mask ); } ) );
        },
        py::arg( "channel_mask" ),
        documented( "Copy the channels whose bits are set.", { "channel_mask" }, "Packet",
            "pcm.Packet([[0.5, 0.25]]).create_from_with_channel_mask(2).view.tolist()\n[[0.25]]" )
            .c_str() );
    type.def(
        "encode",
        []( const Self &self, const py::object &encoding ) {
            const Packet packet = hold( self );
            const pcm::Encoding word = encodingOf( encoding );
            const pcm::Buffer bytes = run( samplesOf( packet ), [&] { return packet.encode( word ); } );
            return py::bytes( reinterpret_cast<const char *>( bytes.bytes().data() ), bytes.bytes().size() );
        },
        py::arg( "encoding" ),
        documented( "Encode all samples.", { "encoding" }, "bytes",
            "pcm.Packet([0.5]).encode(pcm.Encoding.INT_16)\nb'\\x00@'" )
            .c_str() );
    type.def(
        "write_channels",
        []( Self &self, int64_t channel, int64_t idx, const Self &source, int64_t sourceChannel, int64_t sourceFrame,
            int64_t channels, int64_t frames ) {
            const Packet held = hold( source );
            run(
                samplesOf( frames ),
                [&] { self.value.writeChannels( channel, idx, held, sourceChannel, sourceFrame, channels, frames ); },
                self );
        },
        py::arg( "dest_channel_offset" ), py::arg( "dest_frame_offset" ), py::arg( "source" ),
        py::arg( "source_channel_offset" ), py::arg( "source_frame_offset" ), py::arg( "channels" ),
        py::arg( "frames" ),
        documented( "Overwrite channels with those of another packet.",
            { "dest_channel_offset", "dest_frame_offset", "source", "source_channel_offset", "source_frame_offset",
                "channels", "frames" },
            "",
            "p = pcm.Packet([[0.5, 0.25]])\n>>> p.write_channels(1, 0, p, 0, 0, 1, 1)\n>>> p.view.tolist()\n[[0.5, "
            "0.5]]" )
            .c_str() );
    defineEdits( type );

    type.def( "__getitem__", slice );
    type.def(
        "__getitem__", []( const Self &self, const py::int_ &at ) { return viewOf( self )[at].cast<py::array>(); } );
    type.def( "__setitem__", replaceFrames );
    type.def( "__delitem__", []( Self &self, const py::slice &slice ) {
        waitFor( self );
        const Range range = rangeOf( self.value, slice );
        run(
            samplesOf( self.value ), [&] { self.value.delInner( range.begin, range.frames ); }, self );
    } );
    const auto appended = []( Self &self, const Self &source ) {
        const Packet held = hold( source );
        run(
            samplesOf( held ), [&] { self.value.append( held ); }, self );
    };
    const auto scaled = []( Self &self, double gain ) {
        waitFor( self );
        run(
            samplesOf( self.value ), [&] { self.value.levelAdjustLinearGain( gain ); }, self );
    };
    const auto product = [=]( const Self &self, double gain ) {
        auto made = copied( self );
        scaled( *made, gain );
        return made;
    };
    const auto sum = [=]( const Self &self, const Self &source ) {
        auto made = copied( self );
        appended( *made, source );
        return made;
    };
    type.def( "__add__", sum, py::is_operator() );
    type.def( "__mul__", product, py::is_operator() );
    type.def( "__rmul__", product, py::is_operator() );
    type.def(
        "__iadd__",
        [=]( const py::object &self, const Self &source ) {
            appended( self.cast<Self &>(), source );
            return self;
        },
        py::is_operator() );
    type.def(
        "__imul__",
        [=]( const py::object &self, double gain ) {
            scaled( self.cast<Self &>(), gain );
            return self;
        },
        py::is_operator() );
    type.def( "__eq__", areEqual, py::is_operator() );
    type.attr( "__hash__" ) = py::none();
    type.def( "__reduce__", []( const py::object &self ) {
        return py::make_tuple( self.attr( "__class__" ), py::make_tuple( viewOf( self.cast<const Self &>() ) ) );
    } );
    type.def( "__repr__", []( const Self &self ) {
        waitFor( self );
        return "<pcm.Packet: " + countOf( self.value.frames(), "frame" ) + " x " +
               countOf( self.value.channels(), "channel" ) + ">";
    } );
}
