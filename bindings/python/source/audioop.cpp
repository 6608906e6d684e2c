// pcm.audioop: the functions of the module audioop, which Python 3.13 removed, with the same results, bit for bit.
//
// Samples are signed integers of 1 to 4 bytes in native byte order. The functions use the Python C interface
// directly, because a call of 160 samples takes less time than most ways of passing its arguments.

#define PY_SSIZE_T_CLEAN
#include "audioop.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <span>
#include <type_traits>
#include <vector>

namespace {

PyObject *error;

// ---- Samples

constexpr bool isLittle = std::endian::native == std::endian::little;

template <int width> struct Sample {
    using Type = std::conditional_t<width == 1, int8_t, std::conditional_t<width == 2, int16_t, int32_t>>;
    static constexpr int32_t most = int32_t( UINT32_MAX >> ( 33 - 8 * width ) ), least = -most - 1;
    static constexpr int shift = 32 - 8 * width; // to and from 32 bits

    static int32_t load( const char *from )
    {
        if constexpr ( width == 3 ) {
            const auto *bytes = reinterpret_cast<const uint8_t *>( from );
            const int high = isLittle ? 2 : 0;
            return int32_t( uint32_t( bytes[high] ) << 24 | uint32_t( bytes[1] ) << 16 |
                            uint32_t( bytes[2 - high] ) << 8 ) >>
                   8;
        } else {
            Type value;
            std::memcpy( &value, from, width );
            return value;
        }
    }
    /// Stores the lowest bytes of a value.
    static void store( char *to, int32_t value )
    {
        if constexpr ( width == 3 ) {
            const int high = isLittle ? 2 : 0;
            to[high] = char( value >> 16 ), to[1] = char( value >> 8 ), to[2 - high] = char( value );
        } else {
            const Type sample = Type( value );
            std::memcpy( to, &sample, width );
        }
    }
    /// The same value in 32 bits, and back.
    static int32_t loadWide( const char *from ) { return int32_t( uint32_t( load( from ) ) << shift ); }
    static void storeWide( char *to, int32_t value ) { store( to, value >> shift ); }

    /// Limits to the range of the samples and rounds down. NaN becomes the lowest 32-bit value, whose upper bytes are
    /// cut off later.
    template <class MayBeNan> static int32_t limited( double value, MayBeNan mayBeNan )
    {
        if ( mayBeNan && value != value ) return INT32_MIN;
        value = value > most ? most : value;
        value = value < least ? least : value;
        return int32_t( std::floor( value ) );
    }
};

/// Calls `run` with the width as a compile-time constant.
template <class Run> auto withWidth( int width, Run run )
{
    switch ( width ) {
    case 1: return run( Sample<1>() );
    case 2: return run( Sample<2>() );
    case 3: return run( Sample<3>() );
    default: return run( Sample<4>() );
    }
}

template <class S> constexpr int widthOf = S::shift == 24 ? 1 : S::shift == 16 ? 2 : S::shift == 8 ? 3 : 4;

// ---- Arguments. Functions return null or false with a Python exception set.

PyObject *fail( const char *text )
{
    PyErr_SetString( error, text );
    return nullptr;
}

bool checkCount( const char *name, Py_ssize_t count, Py_ssize_t least, Py_ssize_t most )
{
    if ( count >= least && count <= most ) return true;
    const Py_ssize_t wanted = count < least ? least : most;
    PyErr_Format( PyExc_TypeError, "%s expected %s%zd argument%s, got %zd", name,
        least == most   ? ""
        : count < least ? "at least "
                        : "at most ",
        wanted, wanted == 1 ? "" : "s", count );
    return false;
}

bool parse( PyObject *object, int &value )
{
    int overflow = 0;
    const long number = PyLong_AsLongAndOverflow( object, &overflow );
    if ( number == -1 && PyErr_Occurred() ) return false;
    if ( overflow || number > INT_MAX || number < INT_MIN ) {
        PyErr_SetString( PyExc_OverflowError, "Python int too large to convert to C int" );
        return false;
    }
    value = int( number );
    return true;
}

bool parse( PyObject *object, Py_ssize_t &value )
{
    PyObject *number = PyNumber_Index( object );
    if ( !number ) return false;
    value = PyLong_AsSsize_t( number );
    Py_DECREF( number );
    return value != -1 || !PyErr_Occurred();
}

bool parse( PyObject *object, double &value )
{
    value = PyFloat_AsDouble( object );
    return value != -1 || !PyErr_Occurred();
}

class Fragment {
public:
    Fragment() = default;
    ~Fragment() { PyBuffer_Release( &view ); }
    Fragment( const Fragment & ) = delete;
    Fragment &operator=( const Fragment & ) = delete;

    [[nodiscard]] const char *data() const { return static_cast<const char *>( view.buf ); }
    [[nodiscard]] Py_ssize_t size() const { return view.len; }

    Py_buffer view{};
};

bool parse( PyObject *object, Fragment &fragment )
{
    return PyObject_GetBuffer( object, &fragment.view, PyBUF_SIMPLE ) == 0;
}

bool parse( PyObject *object, PyObject *&value )
{
    value = object;
    return true;
}

/// Parses positional arguments, of which all from `least` on are optional.
template <class... Values>
bool parseAll( const char *name, std::span<PyObject *const> arguments, Py_ssize_t least, Values &...values )
{
    const auto count = Py_ssize_t( arguments.size() );
    if ( !checkCount( name, count, least, sizeof...( values ) ) ) return false;
    Py_ssize_t at = 0;
    return ( ( at >= count || parse( arguments[size_t( at++ )], values ) ) && ... );
}

bool checkWidth( int width )
{
    if ( width >= 1 && width <= 4 ) return true;
    return fail( "Size should be 1, 2, 3 or 4" );
}

bool checkFragment( const Fragment &fragment, int width )
{
    if ( !checkWidth( width ) ) return false;
    if ( fragment.size() % width == 0 ) return true;
    return fail( "not a whole number of frames" );
}

// ---- Results

/// Runs `work` without the interpreter lock if there are many samples. Releasing the lock for fewer makes several
/// threads slower, as in the other functions of the package.
template <class Work> void runUnlocked( Py_ssize_t samples, Work work )
{
    PyThreadState *state = samples > 20000 ? PyEval_SaveThread() : nullptr;
    work();
    if ( state ) PyEval_RestoreThread( state );
}

/// Returns bytes that `fill( block )` writes.
template <class Fill> PyObject *made( Py_ssize_t size, Py_ssize_t samples, Fill fill )
{
    PyObject *bytes = PyBytes_FromStringAndSize( nullptr, size );
    if ( bytes ) runUnlocked( samples, [&] { fill( PyBytes_AS_STRING( bytes ) ); } );
    return bytes;
}

// The loops over all samples are functions of their own, with parameters by value: a store of chars could otherwise
// change what a lambda refers to, and compilers would not vectorize them.

#if defined( __x86_64__ ) && defined( __GNUC__ ) && !defined( __clang__ )
    #define FOR_SEVERAL_PROCESSORS __attribute__( ( target_clones( "default", "arch=x86-64-v3", "arch=x86-64-v4" ) ) )
#else
    #define FOR_SEVERAL_PROCESSORS
#endif

template <int inputWidth, int outputWidth, class Convert>
FOR_SEVERAL_PROCESSORS void convertAll(
    char *__restrict to, const char *__restrict from, Py_ssize_t samples, Convert convert )
{
    for ( Py_ssize_t i = 0; i < samples; ++i ) convert( to + i * outputWidth, from + i * inputWidth );
}

/// Returns a fragment of `outputWidth` bytes for each of `inputWidth` bytes: `convert( to, from )` for each sample.
template <int inputWidth, int outputWidth, class Convert>
PyObject *mapped( const Fragment &fragment, Convert convert )
{
    const Py_ssize_t samples = fragment.size() / inputWidth;
    if ( samples > PY_SSIZE_T_MAX / outputWidth ) return PyErr_NoMemory();
    return made( samples * outputWidth, samples,
        [&]( char *to ) { convertAll<inputWidth, outputWidth>( to, fragment.data(), samples, convert ); } );
}

using Arguments = std::span<PyObject *const>;

template <PyObject *function( Arguments )> PyObject *entry( PyObject *, PyObject *const *arguments, Py_ssize_t count )
{
    return function( { arguments, size_t( count ) } );
}

/// Parses `fragment, width` and calls `run` with the samples' type.
template <class Run> PyObject *onSamples( const char *name, Arguments arguments, Run run )
{
    Fragment fragment;
    int width = 0;
    if ( !parseAll( name, arguments, 2, fragment, width ) || !checkFragment( fragment, width ) ) return nullptr;
    return withWidth( width, [&]( auto sample ) { return run( sample, fragment ); } );
}

// ---- Queries

PyObject *getSample( Arguments arguments )
{
    Fragment fragment;
    int width = 0;
    Py_ssize_t index = 0;
    if ( !parseAll( "getsample", arguments, 3, fragment, width, index ) || !checkFragment( fragment, width ) )
        return nullptr;
    if ( index < 0 || index >= fragment.size() / width ) return fail( "Index out of range" );
    return withWidth( width, [&]( auto s ) { return PyLong_FromLong( s.load( fragment.data() + index * width ) ); } );
}

struct Extremes {
    int32_t least;
    int32_t most;
};

template <class S> Extremes extremesOf( const char *from, Py_ssize_t samples, Extremes extremes )
{
    using Type = typename S::Type;
    auto least = Type( std::max( extremes.least, int32_t( std::numeric_limits<Type>::min() ) ) );
    auto most = Type( std::min( extremes.most, int32_t( std::numeric_limits<Type>::max() ) ) );
    for ( Py_ssize_t i = 0; i < samples; ++i ) {
        const auto value = Type( S::load( from + i * widthOf<S> ) );
        least = std::min( least, value );
        most = std::max( most, value );
    }
    return { least, most };
}

PyObject *max( Arguments arguments )
{
    return onSamples( "max", arguments, []<class S>( S, const Fragment &fragment ) {
        Extremes found{};
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        runUnlocked( samples, [&] { found = extremesOf<S>( fragment.data(), samples, { 0, 0 } ); } );
        return PyLong_FromUnsignedLong( std::max( uint32_t( found.most ), 0u - uint32_t( found.least ) ) );
    } );
}

PyObject *minMax( Arguments arguments )
{
    return onSamples( "minmax", arguments, []<class S>( S, const Fragment &fragment ) {
        Extremes found{ INT32_MAX, INT32_MIN };
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        if ( samples ) {
            const int32_t first = S::load( fragment.data() );
            runUnlocked( samples, [&] { found = extremesOf<S>( fragment.data(), samples, { first, first } ); } );
        }
        return Py_BuildValue( "(ii)", found.least, found.most );
    } );
}

// The defined result is that of additions of doubles. They are exact below 2^53, as those of integers are.
template <class S> double sumOf( const char *from, Py_ssize_t samples )
{
    if ( samples >= Py_ssize_t{ 1 } << (53 - 8 * widthOf<S>)) {
        double sum = 0;
        for ( Py_ssize_t i = 0; i < samples; ++i ) sum += S::load( from + i * widthOf<S> );
        return sum;
    }
    int64_t sum = 0;
    for ( Py_ssize_t i = 0; i < samples; ++i ) sum += S::load( from + i * widthOf<S> );
    return double( sum );
}

PyObject *avg( Arguments arguments )
{
    return onSamples( "avg", arguments, []<class S>( S, const Fragment &fragment ) {
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        double sum = 0;
        runUnlocked( samples, [&] { sum = sumOf<S>( fragment.data(), samples ); } );
        return PyLong_FromLong( samples ? long( std::floor( sum / double( samples ) ) ) : 0 );
    } );
}

// The defined result is that of additions one after the other, whose time is that of their latency. The sum of four
// partial sums differs from it by less than its relative error times the number of samples. It is used if all sums in
// that range have the same root.
template <class S> uint32_t rmsOf( const char *from, Py_ssize_t samples )
{
    auto square = [&]( Py_ssize_t i ) {
        const double value = S::load( from + i * widthOf<S> );
        return value * value;
    };
    double sums[8] = {};
    Py_ssize_t i = 0;
    for ( ; i + 8 <= samples; i += 8 )
        for ( int k = 0; k < 8; ++k ) sums[k] += square( i + k );
    for ( ; i < samples; ++i ) sums[0] += square( i );
    const double sum = std::accumulate( sums, sums + 8, 0.0 ), bound = sum * double( samples + 16 ) * 0x1p-52;
    auto root = [&]( double total ) { return uint32_t( std::sqrt( total / double( samples ) ) ); };
    if ( sum < 0x1p52 || root( sum - bound ) == root( sum + bound ) ) return root( sum );
    double exact = 0;
    for ( i = 0; i < samples; ++i ) exact += square( i );
    return root( exact );
}

PyObject *rms( Arguments arguments )
{
    return onSamples( "rms", arguments, []<class S>( S, const Fragment &fragment ) {
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        uint32_t result = 0;
        if ( samples ) runUnlocked( samples, [&] { result = rmsOf<S>( fragment.data(), samples ); } );
        return PyLong_FromUnsignedLong( result );
    } );
}

template <class S> Py_ssize_t crossingsOf( const char *from, Py_ssize_t samples )
{
    Py_ssize_t crossings = samples ? 0 : -1;
    auto isNegative = [=]( Py_ssize_t i ) { return S::load( from + i * widthOf<S> ) < 0; };
    for ( Py_ssize_t i = 1; i < samples; ++i ) crossings += isNegative( i ) != isNegative( i - 1 );
    return crossings;
}

PyObject *cross( Arguments arguments )
{
    return onSamples( "cross", arguments, []<class S>( S, const Fragment &fragment ) {
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        Py_ssize_t crossings = 0;
        runUnlocked( samples, [&] { crossings = crossingsOf<S>( fragment.data(), samples ); } );
        return PyLong_FromSsize_t( crossings );
    } );
}

// Calls `use` with the distance of each two successive turning points, and returns their number.
template <class S, class Use> Py_ssize_t findPeaks( const char *from, Py_ssize_t samples, Use use )
{
    auto at = [=]( Py_ssize_t i ) { return S::load( from + i * widthOf<S> ); };
    Py_ssize_t i = 1, turns = 0;
    while ( i < samples && at( i ) == at( i - 1 ) ) ++i;
    if ( i >= samples ) return 0;
    bool isRising = at( i ) > at( i - 1 );
    while ( i < samples && ( isRising ? at( i ) >= at( i - 1 ) : at( i ) <= at( i - 1 ) ) )
        ++i; // to the first turning point
    isRising = !isRising;
    int32_t turn = at( i - 1 ), previous = turn;
    for ( ; i < samples; ++i ) {
        const int32_t value = at( i );
        if ( isRising ? value < previous : value > previous ) {
            use( isRising ? uint32_t( previous ) - uint32_t( turn ) : uint32_t( turn ) - uint32_t( previous ) );
            ++turns;
            turn = previous;
            isRising = !isRising;
        }
        previous = value;
    }
    return turns;
}

PyObject *maxPeaks( Arguments arguments )
{
    return onSamples( "maxpp", arguments, []<class S>( S, const Fragment &fragment ) {
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        uint32_t most = 0;
        runUnlocked( samples, [&] {
            findPeaks<S>( fragment.data(), samples, [&]( uint32_t distance ) { most = std::max( most, distance ); } );
        } );
        return PyLong_FromUnsignedLong( most );
    } );
}

PyObject *avgPeaks( Arguments arguments )
{
    return onSamples( "avgpp", arguments, []<class S>( S, const Fragment &fragment ) {
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        uint64_t sum = 0;
        Py_ssize_t peaks = 0;
        runUnlocked( samples, [&] {
            peaks = findPeaks<S>( fragment.data(), samples, [&]( uint32_t distance ) { sum += distance; } );
        } );
        return PyLong_FromUnsignedLong( peaks ? uint32_t( double( sum ) / double( peaks ) ) : 0 );
    } );
}

// ---- Matching of 16-bit fragments

using Short = Sample<2>;

double dot( const char *a, const char *b, Py_ssize_t samples )
{
    if ( samples >= 1 << 22 ) {
        double sum = 0;
        for ( Py_ssize_t i = 0; i < samples; ++i )
            sum += double( Short::load( a + 2 * i ) ) * Short::load( b + 2 * i );
        return sum;
    }
    int64_t sum = 0; // below 2^53, so that the sum of doubles is exact and the same
    for ( Py_ssize_t i = 0; i < samples; ++i ) sum += int64_t{ Short::load( a + 2 * i ) } * Short::load( b + 2 * i );
    return double( sum );
}

double squareAt( const char *from, Py_ssize_t i )
{
    return double( Short::load( from + 2 * i ) ) * Short::load( from + 2 * i );
}

PyObject *findFactor( Arguments arguments )
{
    Fragment fragment, reference;
    if ( !parseAll( "findfactor", arguments, 2, fragment, reference ) ) return nullptr;
    if ( fragment.size() % 2 || reference.size() % 2 ) return fail( "Strings should be even-sized" );
    if ( fragment.size() != reference.size() ) return fail( "Samples should be same size" );
    const Py_ssize_t samples = fragment.size() / 2;
    double factor = 0;
    runUnlocked( samples, [&] {
        factor =
            dot( fragment.data(), reference.data(), samples ) / dot( reference.data(), reference.data(), samples );
    } );
    return PyFloat_FromDouble( factor );
}

// The offset with the smallest residual of the best factor, relative to the energy of the part.
PyObject *findFit( Arguments arguments )
{
    Fragment fragment, reference;
    if ( !parseAll( "findfit", arguments, 2, fragment, reference ) ) return nullptr;
    if ( fragment.size() % 2 || reference.size() % 2 ) return fail( "Strings should be even-sized" );
    if ( fragment.size() < reference.size() ) return fail( "First sample should be longer" );
    const Py_ssize_t samples = fragment.size() / 2, length = reference.size() / 2;
    Py_ssize_t best = 0;
    double factor = 0;
    runUnlocked( samples * std::max( length, Py_ssize_t{ 1 } ), [&] {
        const double energy = dot( reference.data(), reference.data(), length );
        double part = dot( fragment.data(), fragment.data(), length ),
               product = dot( fragment.data(), reference.data(), length );
        double least = ( energy * part - product * product ) / part;
        factor = product / energy;
        for ( Py_ssize_t at = 1; at <= samples - length; ++at ) {
            const char *from = fragment.data() + 2 * at;
            if ( length ) part = part + squareAt( from, length - 1 ) - squareAt( from, -1 );
            product = dot( from, reference.data(), length );
            const double residual = ( energy * part - product * product ) / part;
            if ( residual < least ) {
                least = residual;
                best = at;
                factor = product / energy;
            }
        }
    } );
    return Py_BuildValue( "(nd)", best, factor );
}

PyObject *findMax( Arguments arguments )
{
    Fragment fragment;
    Py_ssize_t length = 0;
    if ( !parseAll( "findmax", arguments, 2, fragment, length ) ) return nullptr;
    if ( fragment.size() % 2 ) return fail( "Strings should be even-sized" );
    const Py_ssize_t samples = fragment.size() / 2;
    if ( length < 0 || samples < length ) return fail( "Input sample should be longer" );
    Py_ssize_t best = 0;
    runUnlocked( samples, [&] {
        double energy = dot( fragment.data(), fragment.data(), length ), most = energy;
        for ( Py_ssize_t at = 1; length && at <= samples - length; ++at ) {
            energy = energy + squareAt( fragment.data(), at + length - 1 ) - squareAt( fragment.data(), at - 1 );
            if ( energy > most ) {
                most = energy;
                best = at;
            }
        }
    } );
    return PyLong_FromSsize_t( best );
}

// ---- Arithmetic

/// Calls `run` with whether products of these factors with samples, or their sums, may be NaN.
template <class Run> PyObject *withFactors( double a, double b, Run run )
{
    const bool isModerate = std::abs( a ) < 1e290 && std::abs( b ) < 1e290;
    return isModerate ? run( std::false_type() ) : run( std::true_type() );
}

PyObject *mul( Arguments arguments )
{
    Fragment fragment;
    int width = 0;
    double factor = 0;
    if ( !parseAll( "mul", arguments, 3, fragment, width, factor ) || !checkFragment( fragment, width ) )
        return nullptr;
    return withFactors( factor, 0, [&]( auto mayBeNan ) {
        return withWidth( width, [&]<class S>( S ) {
            return mapped<widthOf<S>, widthOf<S>>( fragment, [=]( char *to, const char *from ) {
                S::store( to, S::limited( S::load( from ) * factor, mayBeNan ) );
            } );
        } );
    } );
}

PyObject *toMono( Arguments arguments )
{
    Fragment fragment;
    int width = 0;
    double left = 0, right = 0;
    if ( !parseAll( "tomono", arguments, 4, fragment, width, left, right ) || !checkFragment( fragment, width ) )
        return nullptr;
    if ( fragment.size() / width % 2 ) return fail( "not a whole number of frames" );
    return withFactors( left, right, [&]( auto mayBeNan ) {
        return withWidth( width, [&]<class S>( S ) {
            return mapped<2 * widthOf<S>, widthOf<S>>( fragment, [=]( char *to, const char *from ) {
                const double sum = S::load( from ) * left + S::load( from + widthOf<S> ) * right;
                S::store( to, S::limited( sum, mayBeNan ) );
            } );
        } );
    } );
}

PyObject *toStereo( Arguments arguments )
{
    Fragment fragment;
    int width = 0;
    double left = 0, right = 0;
    if ( !parseAll( "tostereo", arguments, 4, fragment, width, left, right ) || !checkFragment( fragment, width ) )
        return nullptr;
    return withFactors( left, right, [&]( auto mayBeNan ) {
        return withWidth( width, [&]<class S>( S ) {
            return mapped<widthOf<S>, 2 * widthOf<S>>( fragment, [=]( char *to, const char *from ) {
                const int32_t value = S::load( from );
                S::store( to, S::limited( value * left, mayBeNan ) );
                S::store( to + widthOf<S>, S::limited( value * right, mayBeNan ) );
            } );
        } );
    } );
}

template <class S> int32_t limitedSum( int32_t a, int32_t b )
{
    if constexpr ( widthOf<S> < 4 ) return std::clamp( a + b, S::least, S::most );
    const auto sum = int32_t( uint32_t( a ) + uint32_t( b ) );
    const bool overflows = ( ( a ^ sum ) & ( b ^ sum ) ) < 0;
    return overflows ? ( a >> 31 ) ^ INT32_MAX : sum;
}

template <class S> void addAll( char *__restrict to, const char *a, const char *b, Py_ssize_t samples )
{
    for ( Py_ssize_t i = 0; i < samples; ++i ) {
        const Py_ssize_t at = i * widthOf<S>;
        S::store( to + at, limitedSum<S>( S::load( a + at ), S::load( b + at ) ) );
    }
}

PyObject *add( Arguments arguments )
{
    Fragment a, b;
    int width = 0;
    if ( !parseAll( "add", arguments, 3, a, b, width ) || !checkFragment( a, width ) ) return nullptr;
    if ( a.size() != b.size() ) return fail( "Lengths should be the same" );
    return withWidth( width, [&]<class S>( S ) {
        const Py_ssize_t samples = a.size() / widthOf<S>;
        return made( a.size(), samples, [&]( char *to ) { addAll<S>( to, a.data(), b.data(), samples ); } );
    } );
}

PyObject *bias( Arguments arguments )
{
    Fragment fragment;
    int width = 0, offset = 0;
    if ( !parseAll( "bias", arguments, 3, fragment, width, offset ) || !checkFragment( fragment, width ) )
        return nullptr;
    return withWidth( width, [&]<class S>( S ) {
        return mapped<widthOf<S>, widthOf<S>>( fragment, [=]( char *to, const char *from ) {
            S::store( to, int32_t( uint32_t( S::load( from ) ) + uint32_t( offset ) ) ); // wraps around
        } );
    } );
}

template <class S> void reverseAll( char *__restrict to, const char *last, Py_ssize_t samples )
{
    for ( Py_ssize_t i = 0; i < samples; ++i ) std::memcpy( to + i * widthOf<S>, last - i * widthOf<S>, widthOf<S> );
}

PyObject *reverse( Arguments arguments )
{
    return onSamples( "reverse", arguments, []<class S>( S, const Fragment &fragment ) {
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        return made( fragment.size(), samples,
            [&]( char *to ) { reverseAll<S>( to, fragment.data() + fragment.size() - widthOf<S>, samples ); } );
    } );
}

PyObject *byteSwap( Arguments arguments )
{
    return onSamples( "byteswap", arguments, []<class S>( S, const Fragment &fragment ) {
        return mapped<widthOf<S>, widthOf<S>>( fragment, []( char *to, const char *from ) {
            for ( int i = 0; i < widthOf<S>; ++i ) to[i] = from[widthOf<S> - 1 - i];
        } );
    } );
}

PyObject *linToLin( Arguments arguments )
{
    Fragment fragment;
    int width = 0, newWidth = 0;
    if ( !parseAll( "lin2lin", arguments, 3, fragment, width, newWidth ) || !checkFragment( fragment, width ) ||
         !checkWidth( newWidth ) )
        return nullptr;
    return withWidth( width, [&]<class S>( S ) {
        return withWidth( newWidth, [&]<class T>( T ) {
            return mapped<widthOf<S>, widthOf<T>>(
                fragment, []( char *to, const char *from ) { T::storeWide( to, S::loadWide( from ) ); } );
        } );
    } );
}

// ---- G.711 (ITU-T G.711, tables 1 and 2). Encoders take the upper 14 bits for mu-law and 13 bits for A-law.

/// `step << segment` in steps, because few processors shift the lanes of a vector by different numbers.
constexpr uint16_t shifted( uint16_t step, unsigned segment )
{
    step = segment & 1 ? uint16_t( step << 1 ) : step;
    step = segment & 2 ? uint16_t( step << 2 ) : step;
    return segment & 4 ? uint16_t( step << 4 ) : step;
}

constexpr int16_t decodeMulaw( uint8_t code )
{
    const uint16_t flipped = uint16_t( ~code & 0xFF ), step = uint16_t( ( ( flipped & 0xF ) << 3 ) + 0x84 );
    const auto magnitude = int16_t( shifted( step, flipped >> 4 & 7 ) - 0x84 );
    return int16_t( flipped & 0x80 ? -magnitude : magnitude );
}

constexpr int16_t decodeAlaw( uint8_t code )
{
    const uint16_t flipped = code ^ 0xD5,
                   half = uint16_t( ( flipped & 0xF ) * 8 + 4 ); // half of a value without segment
    const auto magnitude = int16_t( shifted( uint16_t( flipped & 0x70 ? half + 128 : 2 * half ), flipped >> 4 & 7 ) );
    return int16_t( flipped & 0x80 ? -magnitude : magnitude );
}

constexpr uint8_t encodeMulaw( int value )
{
    const unsigned magnitude = unsigned( std::min( value < 0 ? -value : value, 8158 ) ) + 33;
    const unsigned width = unsigned( std::bit_width( magnitude ) ), segment = width > 6 ? width - 6 : 0;
    return uint8_t( ( segment << 4 | ( magnitude >> ( segment + 1 ) & 0xF ) ) ^ ( value < 0 ? 0x7F : 0xFF ) );
}

constexpr uint8_t encodeAlaw( int value )
{
    const auto magnitude = unsigned( value < 0 ? ~value : value );
    const unsigned width = unsigned( std::bit_width( magnitude ) ), segment = width > 5 ? width - 5 : 0;
    return uint8_t(
        ( segment << 4 | ( magnitude >> ( segment ? segment : 1 ) & 0xF ) ) ^ ( value < 0 ? 0x55 : 0xD5 ) );
}

template <size_t size, class Entry> constexpr auto tableOf( Entry entryOf )
{
    std::array<decltype( entryOf( 0 ) ), size> table{};
    for ( size_t i = 0; i < size; ++i ) table[i] = entryOf( int( i ) );
    return table;
}

constexpr auto mulawEncoder = tableOf<1 << 14>( []( int i ) { return encodeMulaw( i - ( 1 << 13 ) ); } );
constexpr auto alawEncoder = tableOf<1 << 13>( []( int i ) { return encodeAlaw( i - ( 1 << 12 ) ); } );

template <int16_t decode( uint8_t )> PyObject *decodeLaw( const char *name, Arguments arguments )
{
    Fragment fragment;
    int width = 0;
    if ( !parseAll( name, arguments, 2, fragment, width ) || !checkWidth( width ) ) return nullptr;
    return withWidth( width, [&]<class S>( S ) {
        return mapped<1, widthOf<S>>( fragment, []( char *to, const char *from ) {
            const int16_t value = decode( uint8_t( *from ) );
            if constexpr ( widthOf<S> <= 2 )
                S::store( to, value >> (16 - 8 * widthOf<S>));
            else
                S::store( to, int32_t( uint32_t( value ) << ( 8 * widthOf<S> - 16 ) ) );
        } );
    } );
}

template <const auto &table, int bits> PyObject *encodeLaw( const char *name, Arguments arguments )
{
    return onSamples( name, arguments, []<class S>( S, const Fragment &fragment ) {
        return mapped<widthOf<S>, 1>( fragment, []( char *to, const char *from ) {
            const uint32_t upper = uint32_t( S::loadWide( from ) ) >> ( 32 - bits );
            *to = char( table[upper ^ 1U << ( bits - 1 )] );
        } );
    } );
}

PyObject *mulawToLin( Arguments arguments ) { return decodeLaw<decodeMulaw>( "ulaw2lin", arguments ); }
PyObject *alawToLin( Arguments arguments ) { return decodeLaw<decodeAlaw>( "alaw2lin", arguments ); }
PyObject *linToMulaw( Arguments arguments ) { return encodeLaw<mulawEncoder, 14>( "lin2ulaw", arguments ); }
PyObject *linToAlaw( Arguments arguments ) { return encodeLaw<alawEncoder, 13>( "lin2alaw", arguments ); }

// ---- IMA ADPCM (Interactive Multimedia Association, Recommended Practices for Enhancing Digital Audio
// Compatibility, 1992)

constexpr int16_t steps[89] = { 7, 8, 9, 10, 11, 12, 13, 14, 16, 17, 19, 21, 23, 25, 28, 31, 34, 37, 41, 45, 50, 55,
    60, 66, 73, 80, 88, 97, 107, 118, 130, 143, 157, 173, 190, 209, 230, 253, 279, 307, 337, 371, 408, 449, 494, 544,
    598, 658, 724, 796, 876, 963, 1060, 1166, 1282, 1411, 1552, 1707, 1878, 2066, 2272, 2499, 2749, 3024, 3327, 3660,
    4026, 4428, 4871, 5358, 5894, 6484, 7132, 7845, 8630, 9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500,
    20350, 22385, 24623, 27086, 29794, 32767 };
constexpr int8_t stepChanges[8] = { -1, -1, -1, -1, 2, 4, 6, 8 };

struct Adpcm {
    int value = 0;
    int index = 0;

    bool parseState( PyObject *state, const char *message )
    {
        if ( state == Py_None ) return true;
        if ( !PyTuple_Check( state ) ) {
            PyErr_SetString( PyExc_TypeError, "state must be a tuple or None" );
            return false;
        }
        if ( !PyArg_ParseTuple( state, message, &value, &index ) ) return false;
        if ( value >= INT16_MIN && value <= INT16_MAX && index >= 0 && index < 89 ) return true;
        PyErr_SetString( PyExc_ValueError, "bad state" );
        return false;
    }

    /// Applies a code and returns the new value.
    int decode( int code )
    {
        const int step = steps[index];
        int difference = step >> 3;
        for ( int bit = 0; bit < 3; ++bit )
            if ( code & 4 >> bit ) difference += step >> bit;
        value = std::clamp( code & 8 ? value - difference : value + difference, -32768, 32767 );
        index = std::clamp( index + stepChanges[code & 7], 0, 88 );
        return value;
    }

    /// Returns the code of the next value.
    int encode( int next )
    {
        int step = steps[index], change = step >> 3, difference = next - value, code = 0;
        const bool isNegative = difference < 0;
        difference = std::abs( difference );
        for ( int bit = 4; bit; bit >>= 1, step >>= 1 ) {
            const bool isSet = difference >= step;
            const int part = isSet ? step : 0;
            code |= isSet ? bit : 0;
            difference -= part;
            change += part;
        }
        value = std::clamp( isNegative ? value - change : value + change, -32768, 32767 );
        index = std::clamp( index + stepChanges[code], 0, 88 );
        return code | ( isNegative ? 8 : 0 );
    }

    [[nodiscard]] PyObject *with( PyObject *bytes ) const
    {
        return bytes ? Py_BuildValue( "(N(ii))", bytes, value, index ) : nullptr;
    }
};

template <class S> Adpcm encodeAll( char *__restrict to, const char *from, Py_ssize_t samples, Adpcm adpcm )
{
    auto next = [&]( Py_ssize_t i ) { return adpcm.encode( S::loadWide( from + i * widthOf<S> ) >> 16 ); };
    for ( Py_ssize_t i = 0; i + 1 < samples; i += 2 ) {
        const int first = next( i );
        to[i / 2] = char( first << 4 | next( i + 1 ) );
    }
    if ( samples % 2 ) next( samples - 1 ); // only changes the state
    return adpcm;
}

PyObject *linToAdpcm( Arguments arguments )
{
    Fragment fragment;
    int width = 0;
    PyObject *state = nullptr;
    Adpcm adpcm;
    if ( !parseAll( "lin2adpcm", arguments, 3, fragment, width, state ) || !checkFragment( fragment, width ) ||
         !adpcm.parseState( state, "ii;lin2adpcm(): illegal state argument" ) )
        return nullptr;
    return withWidth( width, [&]<class S>( S ) {
        const Py_ssize_t samples = fragment.size() / widthOf<S>;
        PyObject *bytes = made(
            samples / 2, samples, [&]( char *to ) { adpcm = encodeAll<S>( to, fragment.data(), samples, adpcm ); } );
        return adpcm.with( bytes );
    } );
}

PyObject *adpcmToLin( Arguments arguments )
{
    Fragment fragment;
    int width = 0;
    PyObject *state = nullptr;
    Adpcm adpcm;
    if ( !parseAll( "adpcm2lin", arguments, 3, fragment, width, state ) || !checkWidth( width ) ||
         !adpcm.parseState( state, "ii;adpcm2lin(): illegal state argument" ) )
        return nullptr;
    return withWidth( width, [&]<class S>( S ) -> PyObject * {
        constexpr int size = 2 * widthOf<S>;
        if ( fragment.size() > PY_SSIZE_T_MAX / size ) return PyErr_NoMemory();
        return adpcm.with( made( fragment.size() * size, 2 * fragment.size(), [&]( char *to ) {
            for ( Py_ssize_t i = 0; i < fragment.size(); ++i ) {
                const int codes = uint8_t( fragment.data()[i] );
                S::storeWide( to + i * size, int32_t( uint32_t( adpcm.decode( codes >> 4 ) ) << 16 ) );
                S::storeWide( to + i * size + widthOf<S>, int32_t( uint32_t( adpcm.decode( codes & 15 ) ) << 16 ) );
            }
        } ) );
    } );
}

// ---- Rate conversion by linear interpolation

struct Channel {
    int previous = 0;
    int current = 0;
};

struct Converter {
    int inputRate = 0;
    int outputRate = 0;
    int weightNew = 1; // of each input sample, against that of the filtered one before
    int weightOld = 0;
    int distance = 0; // from the current input frame back to the next output frame, in units of 1 / inputRate
    std::vector<Channel> channels;

    bool parseState( PyObject *state )
    {
        if ( state == Py_None ) {
            distance = -outputRate;
            return true;
        }
        PyObject *values = nullptr;
        if ( !PyTuple_Check( state ) ) {
            PyErr_SetString( PyExc_TypeError, "state must be a tuple or None" );
            return false;
        }
        if ( !PyArg_ParseTuple( state, "iO!;ratecv(): illegal state argument", &distance, &PyTuple_Type, &values ) )
            return false;
        if ( PyTuple_GET_SIZE( values ) != Py_ssize_t( channels.size() ) ) return fail( "illegal state argument" );
        Py_ssize_t at = 0;
        for ( Channel &channel : channels ) {
            PyObject *pair = PyTuple_GET_ITEM( values, at++ );
            if ( !PyTuple_Check( pair ) ) {
                PyErr_SetString( PyExc_TypeError, "ratecv(): illegal state argument" );
                return false;
            }
            if ( !PyArg_ParseTuple(
                     pair, "ii;ratecv(): illegal state argument", &channel.previous, &channel.current ) )
                return false;
        }
        return true;
    }

    [[nodiscard]] PyObject *state() const
    {
        PyObject *values = PyTuple_New( Py_ssize_t( channels.size() ) );
        Py_ssize_t at = 0;
        for ( const Channel &channel : channels )
            if ( values )
                PyTuple_SET_ITEM( values, at++, Py_BuildValue( "(ii)", channel.previous, channel.current ) );
        return values ? Py_BuildValue( "(iN)", distance, values ) : nullptr;
    }

    /// Returns the number of output frames for a number of input frames, or -1 if there are too many.
    [[nodiscard]] Py_ssize_t outputFrames( Py_ssize_t inputFrames ) const
    {
        Py_ssize_t last;
        if ( __builtin_mul_overflow( inputFrames, Py_ssize_t{ outputRate }, &last ) ||
             __builtin_add_overflow( last, Py_ssize_t{ distance }, &last ) )
            return -1;
        return last < 0 ? 0 : last / inputRate + 1;
    }

    static int truncated( double value ) { return value > INT_MIN && value < 2147483648.0 ? int( value ) : INT_MIN; }

    template <class S> void run( char *to, const char *from, Py_ssize_t frames )
    {
        const double weights = double( weightNew ) + weightOld;
        for ( ;; ) {
            for ( ; distance < 0; distance += outputRate, --frames ) {
                if ( !frames ) return;
                for ( Channel &channel : channels ) {
                    channel.previous = channel.current;
                    channel.current = S::loadWide( from );
                    from += widthOf<S>;
                    if ( weightOld )
                        channel.current = truncated(
                            ( double( weightNew ) * channel.current + double( weightOld ) * channel.previous ) /
                            weights );
                }
            }
            for ( ; distance >= 0; distance -= inputRate )
                for ( const Channel &channel : channels ) {
                    const double sum = double( channel.previous ) * distance +
                                       double( channel.current ) * ( double( outputRate ) - distance );
                    S::storeWide( to, truncated( sum / outputRate ) );
                    to += widthOf<S>;
                }
        }
    }
};

PyObject *rateConvert( Arguments arguments )
{
    Fragment fragment;
    int width = 0, channels = 0;
    PyObject *state = nullptr;
    Converter converter;
    if ( !parseAll( "ratecv", arguments, 6, fragment, width, channels, converter.inputRate, converter.outputRate,
             state, converter.weightNew, converter.weightOld ) ||
         !checkWidth( width ) )
        return nullptr;
    if ( channels < 1 ) return fail( "# of channels should be >= 1" );
    if ( channels > INT_MAX / width ) {
        PyErr_SetString( PyExc_OverflowError, "width * nchannels too big for a C int" );
        return nullptr;
    }
    const int frameSize = width * channels;
    if ( converter.weightNew < 1 || converter.weightOld < 0 )
        return fail( "weightA should be >= 1, weightB should be >= 0" );
    if ( fragment.size() % frameSize ) return fail( "not a whole number of frames" );
    if ( converter.inputRate <= 0 || converter.outputRate <= 0 ) return fail( "sampling rate not > 0" );
    const int divisor = std::gcd( converter.inputRate, converter.outputRate );
    converter.inputRate /= divisor, converter.outputRate /= divisor;
    const int common = std::gcd( converter.weightNew, converter.weightOld );
    converter.weightNew /= common, converter.weightOld /= common;
    converter.channels.resize( size_t( channels ) );
    if ( !converter.parseState( state ) ) return nullptr;
    const Py_ssize_t inputFrames = fragment.size() / frameSize, frames = converter.outputFrames( inputFrames );
    PyObject *bytes = nullptr;
    if ( frames >= 0 && frames <= PY_SSIZE_T_MAX / frameSize - 64 )
        bytes = withWidth( width, [&]<class S>( S ) {
            return made( frames * frameSize, ( frames + inputFrames ) * channels,
                [&]( char *to ) { converter.run<S>( to, fragment.data(), inputFrames ); } );
        } );
    if ( !bytes ) {
        PyErr_SetString( PyExc_MemoryError, "not enough memory for output buffer" );
        return nullptr;
    }
    return Py_BuildValue( "(NN)", bytes, converter.state() );
}

// ---- The module

template <PyObject *function( Arguments )> constexpr PyMethodDef method( const char *name, const char *text )
{
    // The cast is that of the Python documentation for METH_FASTCALL.
    return { name, reinterpret_cast<PyCFunction>( reinterpret_cast<void ( * )()>( entry<function> ) ), METH_FASTCALL,
        text };
}

} // namespace

PyObject *createAudioop()
{
    static PyMethodDef methods[] = {
        method<add>( "add",
            "add(fragment1, fragment2, width): the sum of two fragments, limited to the range of the samples." ),
        method<adpcmToLin>(
            "adpcm2lin", "adpcm2lin(fragment, width, state): decode IMA ADPCM; returns (fragment, state)." ),
        method<alawToLin>( "alaw2lin", "alaw2lin(fragment, width): decode A-law." ),
        method<avg>( "avg", "avg(fragment, width): the mean of all samples, rounded down." ),
        method<avgPeaks>( "avgpp", "avgpp(fragment, width): the mean distance between successive turning points." ),
        method<bias>( "bias", "bias(fragment, width, bias): add a number to each sample, and wrap around." ),
        method<byteSwap>( "byteswap", "byteswap(fragment, width): reverse the bytes of each sample." ),
        method<cross>( "cross", "cross(fragment, width): the number of zero crossings." ),
        method<findFactor>(
            "findfactor", "findfactor(fragment, reference): the factor that fits the reference best, 2 bytes wide." ),
        method<findFit>( "findfit",
            "findfit(fragment, reference): (offset, factor) where the reference fits best, 2 bytes wide." ),
        method<findMax>(
            "findmax", "findmax(fragment, length): the offset of the part with the most energy, 2 bytes wide." ),
        method<getSample>( "getsample", "getsample(fragment, width, index): one sample." ),
        method<linToAdpcm>(
            "lin2adpcm", "lin2adpcm(fragment, width, state): encode as IMA ADPCM; returns (fragment, state)." ),
        method<linToAlaw>( "lin2alaw", "lin2alaw(fragment, width): encode as A-law." ),
        method<linToLin>( "lin2lin", "lin2lin(fragment, width, newwidth): convert between widths." ),
        method<linToMulaw>( "lin2ulaw", "lin2ulaw(fragment, width): encode as mu-law." ),
        method<max>( "max", "max(fragment, width): the largest magnitude." ),
        method<maxPeaks>(
            "maxpp", "maxpp(fragment, width): the largest distance between successive turning points." ),
        method<minMax>( "minmax", "minmax(fragment, width): (smallest, largest) sample." ),
        method<mul>(
            "mul", "mul(fragment, width, factor): multiply each sample, and limit it to the range of the samples." ),
        method<rateConvert>( "ratecv",
            "ratecv(fragment, width, nchannels, inrate, outrate, state, weightA=1, weightB=0): convert "
            "the frame rate; returns (fragment, state)." ),
        method<reverse>( "reverse", "reverse(fragment, width): the samples in reverse order." ),
        method<rms>( "rms", "rms(fragment, width): the root of the mean square, rounded down." ),
        method<toMono>( "tomono", "tomono(fragment, width, lfactor, rfactor): mix two channels." ),
        method<toStereo>( "tostereo", "tostereo(fragment, width, lfactor, rfactor): two channels from one." ),
        method<mulawToLin>( "ulaw2lin", "ulaw2lin(fragment, width): decode mu-law." ),
        {},
    };
    static PyModuleDef definition = { PyModuleDef_HEAD_INIT, "audioop", "Operations on raw audio.", -1, methods,
        nullptr, nullptr, nullptr, nullptr };
    PyObject *module = PyModule_Create( &definition );
    if ( !module ) return nullptr;
    error = PyErr_NewException( "audioop.error", nullptr, nullptr );
    Py_XINCREF( error );
    if ( PyModule_AddObject( module, "error", error ) == 0 ) return module;
    Py_XDECREF( error );
    Py_DECREF( module );
    return nullptr;
}
