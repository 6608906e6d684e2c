#ifndef PCM_PYTHON_MODULE_H
#define PCM_PYTHON_MODULE_H

// What the parts of the extension module share: objects of the library as Python objects, and how calls reach them.
//
// Python code holds an Object for each library object. A call that does much work releases the interpreter lock, and
// marks the Objects that it changes as busy. Other calls on a busy Object wait, so that no two threads change one
// library object. Packets that a call only reads are held by a reference of their own, because the library never
// changes a packet with two holders.

#include <pcm/pcm.hpp>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <chrono>
#include <functional>
#include <thread>
#include <tuple>
#include <vector>

namespace py = pybind11;

template <class C> struct Object {
    C value;
    bool isBusy = false;   ///< A thread without the interpreter lock works on it.
    int writableViews = 0; ///< While there are any, the packet cannot be changed or shared.
};

/// Calls that handle fewer samples keep the interpreter lock. Measured with two threads that multiply packets: with
/// 10,000 samples, calls that release the lock take 1.3 times as long as calls that keep it, with 20,000 only 0.7
/// times.
constexpr int64_t unlockedSamples = 20000;

template <class... Objects> void waitFor( const Objects &...objects )
{
    while ( ( objects.isBusy || ... ) ) {
        py::gil_scoped_release unlocked;
        std::this_thread::sleep_for( std::chrono::microseconds( 50 ) );
    }
}

class Busy {
public:
    explicit Busy( std::vector<bool *> marks ) : busy( std::move( marks ) ) { set( true ); }
    ~Busy() { set( false ); }
    Busy( const Busy & ) = delete;
    Busy &operator=( const Busy & ) = delete;

private:
    void set( bool value )
    {
        for ( bool *mark : busy ) *mark = value;
    }

    std::vector<bool *> busy;
};

/// Calls `call()`, which handles `samples` samples and changes `objects`.
template <class Call, class... Objects> auto run( int64_t samples, Call call, Objects &...objects )
{
    waitFor( objects... );
    if ( ( ( objects.writableViews > 0 ) || ... ) ) throw py::buffer_error( "the packet has a writable view" );
    if ( samples < unlockedSamples ) return call();
    Busy busy( { &objects.isBusy... } );
    py::gil_scoped_release unlocked;
    return call();
}

/// Returns a reference to the object, for a call that reads it.
template <class C> C hold( const Object<C> &object )
{
    waitFor( object );
    return object.writableViews ? object.value.clone() : object.value;
}

/// Wraps objects of the library that a call returns.
template <class T> T toPython( T value ) { return value; }
template <class C> std::unique_ptr<Object<C>> wrap( C value )
{
    return std::make_unique<Object<C>>( Object<C>{ std::move( value ) } );
}
inline auto toPython( pcm::Packet value ) { return wrap( std::move( value ) ); }

/// How a parameter of a library function is passed from Python.
template <class T> struct Parameter {
    using Type = T;
    static T hold( T value ) { return value; }
};
template <> struct Parameter<const pcm::Packet &> {
    using Type = const Object<pcm::Packet> &;
    static pcm::Packet hold( Type packet ) { return ::hold( packet ); }
};

constexpr int64_t samplesOf( double ) { return 0; }
constexpr int64_t samplesOf( int64_t number ) { return std::clamp( number, int64_t{ 0 }, unlockedSamples ); }
inline int64_t samplesOf( const pcm::Packet &packet ) { return int64_t( packet.samples().size() ); }
/// The work of a stream is in its arguments. Filters and converters do more for each sample than a queue.
inline int64_t samplesOf( const pcm::Queue & ) { return 0; }
inline int64_t samplesOf( const pcm::Filter & ) { return 0; }
inline int64_t samplesOf( const pcm::Src & ) { return 0; }
template <class C> constexpr int64_t workPerSample = 1;
template <> inline constexpr int64_t workPerSample<pcm::Filter> = 10;
template <> inline constexpr int64_t workPerSample<pcm::Src> = 100;

/// Defines a method that changes its object.
template <class C, class R, class... A, class... Extra>
void defineChange( py::class_<Object<C>> &type, const char *name, R ( C::*function )( A... ), const Extra &...extra )
{
    type.def(
        name,
        [function]( Object<C> &self, typename Parameter<A>::Type... arguments ) {
            auto held = std::make_tuple( Parameter<A>::hold( arguments )... );
            waitFor( self );
            const int64_t samples =
                workPerSample<C> *
                std::apply(
                    [&]( const auto &...values ) { return ( samplesOf( self.value ) + ... + samplesOf( values ) ); },
                    held );
            auto call = [&] {
                return std::apply(
                    [&]( const auto &...values ) { return ( self.value.*function )( values... ); }, held );
            };
            if constexpr ( std::is_void_v<R> )
                run( samples, call, self );
            else
                return toPython( run( samples, call, self ) );
        },
        extra... );
}

/// Defines a property or a method that reads its object.
template <class C, class R> auto reader( R ( C::*function )() const )
{
    return [function]( const Object<C> &self ) {
        waitFor( self );
        return ( self.value.*function )();
    };
}

/// The memory of any object with a buffer.
class Bytes {
public:
    Bytes( py::handle object, int flags )
    {
        if ( PyObject_GetBuffer( object.ptr(), &view, flags ) != 0 ) throw py::error_already_set();
    }
    ~Bytes() { PyBuffer_Release( &view ); }
    Bytes( const Bytes & ) = delete;
    Bytes &operator=( const Bytes & ) = delete;

    [[nodiscard]] std::span<const std::byte> bytes() const
    {
        return { static_cast<const std::byte *>( view.buf ), size_t( view.len ) };
    }

protected:
    Py_buffer view{};
};

/// A block of whole frames to write to: float32, contiguous and writable.
class Block : public Bytes {
public:
    Block( py::handle object, int64_t channels ) : Bytes( object, PyBUF_WRITABLE | PyBUF_ND | PyBUF_FORMAT )
    {
        const std::string format = view.format ? view.format : "B";
        if ( format != "f" && format != "=f" && format != "<f" )
            throw py::type_error( "the block must be of float32" );
        const bool fits = view.ndim == 2 ? view.shape[1] == channels : int64_t( size() ) % channels == 0;
        if ( view.ndim < 1 || view.ndim > 2 || !fits )
            throw py::value_error( "the block must consist of whole frames of " + std::to_string( channels ) +
                                   ( channels == 1 ? " channel" : " channels" ) );
    }
    [[nodiscard]] size_t size() const { return size_t( view.len ) / sizeof( float ); }
    [[nodiscard]] std::span<float> samples() const { return { static_cast<float *>( view.buf ), size() }; }
};

/// Returns an array of a block that `owner` keeps alive.
inline py::array arrayOf( const float *block, std::vector<int64_t> shape, const py::handle &owner, bool isWritable )
{
    using namespace py::detail;
    py::array_t<float> array( std::move( shape ), block, owner );
    if ( !isWritable ) array_proxy( array.ptr() )->flags &= ~npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
}

/// Returns a capsule that owns a value.
template <class T> py::capsule capsuleOf( T value )
{
    return py::capsule( new T( std::move( value ) ), []( void *owned ) { delete static_cast<T *>( owned ); } );
}

/// Returns a class of the package, such as pcm.Encoding.
py::object classOf( const char *name );

pcm::Encoding encodingOf( const py::object &encoding );

/// Returns "1 frame" or "2 frames".
std::string countOf( int64_t number, const char *things );

/// Returns a contiguous array of floats from any array of real floats, and throws a TypeError for other types.
py::array_t<float, py::array::c_style | py::array::forcecast> floatsOf( const py::object &samples );

/// A docstring in the style of NumPy. Parameters are names in a list that all functions share. The example is a line
/// of Python and what it prints.
std::string documented( const std::string &summary, const std::vector<const char *> &parameters,
    const std::string &returns, const std::string &example );

void definePacket( py::module_ &module );
void defineStreams( py::module_ &module );
void defineGenerators( py::module_ &module );

#endif
