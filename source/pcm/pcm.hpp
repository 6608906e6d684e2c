#ifndef PCM_HPP
#define PCM_HPP

/** @file
 * C++20 interface: RAII wrappers for the functions of <pcm/pcm.h>. The C headers describe what the functions do and
 * what ends the process.
 *
 * An object of these classes owns one reference. Copying it adds a reference. Moving it transfers the reference, and
 * the source may then only be assigned to or destroyed. Copies of a Packet, Queue or Filter are independent values
 * (copy-on-write). Copies of a Src or Tone share one stream. Functions with Try in their C name return a
 * `std::optional`. The sizes of spans are checked by `assert` only.
 */

#include "pcm.h"

#include <cassert>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace pcm {

/**
 * Starts the library and shuts it down at the end of the scope.
 *
 * Starts are counted, so objects of this class may be nested and combined with kitModuleStartup(). The first start
 * creates the tables of the library, and the last shut-down frees them. Objects of the library may outlive the
 * Module, but then they may only be released. Create and destroy Modules while no other thread uses the library.
 */
class Module {
public:
    Module() { kitModuleStartup( pcmModule() ); }
    ~Module() { kitModuleShutdown( pcmModule() ); }
    Module( const Module & ) = delete;
    Module &operator=( const Module & ) = delete;

    /** Returns the product, version and build of the library. */
    [[nodiscard]] static const KIT_MODULE_RECORD &record() { return pcm___module_record; }
    /** Returns the version line of the library in use, which may differ from the version of this header. */
    [[nodiscard]] static std::string_view version() { return pcm___module_version_string; }
};

/** Frees a block with kitMemFree(). */
struct MemoryFree {
    void operator()( void *block ) const { kitMemFree( block ); }
};
/** Owns a block of kitMemAlloc(), kitMemAllocN() or kitMemReallocN(). The `use` functions take ownership of it. */
template <class T> using Memory = std::unique_ptr<T[], MemoryFree>;

/** Allocates a block of @p count items without initialising them. */
template <class T> [[nodiscard]] Memory<T> allocate( int64_t count )
{
    return Memory<T>( static_cast<T *>( kitMemAllocN( count, sizeof( T ) ) ) );
}

/**
 * Tag type: `Packet( pcm::adopt, handle )` takes ownership of the reference of a C handle, which must not be null.
 */
struct Adopt {
    explicit Adopt() = default;
};
/** Tag for constructors that take ownership of a reference and do not add one. */
inline constexpr Adopt adopt{};

/** Converts the result of a function with Try in its name. Null becomes `std::nullopt`. */
template <class Value, class T> [[nodiscard]] std::optional<Value> ifMade( T *owned )
{
    if ( !owned ) return std::nullopt;
    return Value( adopt, owned );
}

/** Returns the text of a string object and releases the object. */
[[nodiscard]] inline std::string textOf( KIT_STRING *owned )
{
    std::string text( kitStringBacking( owned ), size_t( kitStringLength( owned ) ) );
    kitObjRelease( reinterpret_cast<KIT_OBJ *>( owned ) );
    return text;
}

/** Owns one reference to an object, or none. */
template <class T, auto retain, auto release> class Handle {
public:
    /** Creates a handle without an object. */
    Handle() = default;
    /** Takes ownership of the reference of a C handle. */
    Handle( Adopt, T *owned ) : handle( owned ) { assumeNotNull( owned ); }
    /** Adds a reference. */
    Handle( const Handle &other ) : handle( other.handle ? retain( other.handle ) : nullptr ) {}
    /** Takes the reference of @p other. */
    Handle( Handle &&other ) noexcept : handle( std::exchange( other.handle, nullptr ) ) {}
    /** Adds a reference and releases the previous one. */
    Handle &operator=( const Handle &other ) { return *this = Handle( other ); }
    /** Takes the reference of @p other and releases the previous one. */
    Handle &operator=( Handle &&other ) noexcept
    {
        T *fresh = std::exchange( other.handle, nullptr );
        if ( T *old = std::exchange( handle, fresh ) ) release( old );
        return *this;
    }
    ~Handle()
    {
        if ( handle ) release( handle );
    }

    /** Returns whether there is an object. */
    [[nodiscard]] explicit operator bool() const { return handle; }

    /** Returns the C handle, for functions that read. This object keeps the reference. */
    [[nodiscard]] T *get() const { return handle; }
    /** Returns the address of the C handle, for functions that change the object. */
    [[nodiscard]] T **address() { return &handle; }
    /** Returns the C handle and transfers its reference to the caller. */
    [[nodiscard]] T *detach() { return std::exchange( handle, nullptr ); }

    /** Returns an untyped handle. */
    [[nodiscard]] KIT_OBJ *obj() const { return reinterpret_cast<KIT_OBJ *>( handle ); }
    /** Returns the current number of references to the object. */
    [[nodiscard]] int32_t references() const { return obj()->refCount; }

    /**
     * Compares with kitObjCompare(). Strings are equal if their text is equal, other objects only if they are
     * identical.
     */
    friend bool operator==( const Handle &a, const Handle &b ) { return kitObjCompare( a.obj(), b.obj() ) == 0; }
    friend std::strong_ordering operator<=>( const Handle &a, const Handle &b )
    {
        return kitObjCompare( a.obj(), b.obj() ) <=> 0;
    }
    friend std::string to_string( const Handle &a ) { return textOf( kitObjToString( a.obj() ) ); }
    /** Writes `to_string( a )`. */
    friend std::ostream &operator<<( std::ostream &out, const Handle &a ) { return out << to_string( a ); }

protected:
    /** States that a handle from a function is not null, so that the compiler can omit the null test on release. */
    static void assumeNotNull( [[maybe_unused]] T *handle )
    {
        assert( handle );
#if defined( __GNUC__ )
        if ( !handle ) __builtin_unreachable();
#endif
    }

    /** The C handle, or null. */
    T *handle = nullptr;
};

template <class T> T *retainObject( T *object )
{
    return reinterpret_cast<T *>( kitObjRetain( reinterpret_cast<KIT_OBJ *>( object ) ) );
}
template <class T> void releaseObject( T *object ) { kitObjRelease( reinterpret_cast<KIT_OBJ *>( object ) ); }

/** A string of the library. */
class String : public Handle<KIT_STRING, retainObject<KIT_STRING>, releaseObject<KIT_STRING>> {
public:
    using Handle::Handle;
    explicit String( std::string_view text )
        : Handle( adopt, kitStringCreateFromCstr( text.data(), int64_t( text.size() ) ) )
    {
    }

    [[nodiscard]] std::string_view view() const
    {
        return { kitStringBacking( handle ), size_t( kitStringLength( handle ) ) };
    }
    /** Returns a copy of the text. */
    [[nodiscard]] std::string str() const { return std::string( view() ); }
};

/** Encoded bytes, which never change. */
class Buffer : public Handle<KIT_BUFFER, retainObject<KIT_BUFFER>, releaseObject<KIT_BUFFER>> {
public:
    using Handle::Handle;
    explicit Buffer( std::span<const std::byte> bytes )
    {
        Memory<std::byte> copy = allocate<std::byte>( int64_t( bytes.size() ) );
        kitMemCopy( copy.get(), bytes.data(), int64_t( bytes.size() ) );
        *this = use( std::move( copy ), int64_t( bytes.size() ) );
    }
    [[nodiscard]] static Buffer use( Memory<std::byte> bytes, int64_t length )
    {
        return Buffer( adopt, kitBufferCreateFromBytesUse( bytes.release(), length ) );
    }

    [[nodiscard]] int64_t length() const { return kitBufferLength( handle ); }
    [[nodiscard]] std::span<const std::byte> bytes() const
    {
        return { reinterpret_cast<const std::byte *>( kitBufferBacking( handle ) ), size_t( length() ) };
    }
};

/** An encoding word: flags joined by `|`, or 0 for an array of samples. */
class Encoding {
public:
    /** Converts a word of the C interface. */
    constexpr Encoding( PCM_ENCODING word = 0 ) : flags( word ) {}
    /** Converts flag names, separated by `|`, to a normalised word. Start the library first. */
    [[nodiscard]] static Encoding fromString( std::string_view text )
    {
        return pcmEncodingFromString( String( text ).get() );
    }

    /** Returns the word for the C interface. */
    [[nodiscard]] constexpr PCM_ENCODING word() const { return flags; }
    /** Returns whether any flag is set. */
    [[nodiscard]] constexpr explicit operator bool() const { return flags; }
    /**
     * Compares all flags. Compare the results of normalized() to find out whether two words have the same meaning.
     */
    friend constexpr bool operator==( Encoding, Encoding ) = default;
    /** Returns the flags that are set in either word. */
    friend constexpr Encoding operator|( Encoding a, Encoding b ) { return a.flags | b.flags; }
    /** Returns the flags that are set in both words. */
    friend constexpr Encoding operator&( Encoding a, Encoding b ) { return a.flags & b.flags; }
    /** Returns the complement of a word. */
    friend constexpr Encoding operator~( Encoding a ) { return ~a.flags; }
    /** Adds flags. */
    constexpr Encoding &operator|=( Encoding other ) { return *this = *this | other; }
    /** Keeps only the flags that are also set in @p other. */
    constexpr Encoding &operator&=( Encoding other ) { return *this = *this & other; }

    /** Returns the base flags. */
    [[nodiscard]] constexpr Encoding base() const { return flags & PCM_ENCODING_BASE_MASK; }
    [[nodiscard]] Encoding normalized() const { return pcmEncodingNormalize( flags ); }
    [[nodiscard]] int64_t sizeofSample() const { return pcmEncodingSizeofSample( flags ); }
    [[nodiscard]] int64_t sizeofFrame( int64_t channels ) const { return pcmEncodingSizeofFrame( flags, channels ); }

    friend std::string to_string( Encoding a ) { return textOf( pcmEncodingToString( a.flags ) ); }
    /** Writes `to_string( a )`. */
    friend std::ostream &operator<<( std::ostream &out, Encoding a ) { return out << to_string( a ); }

    static const Encoding samples, alaw, mulaw, int8, int16, int24, int32, float32, unsignedCodes, bigEndian,
        littleEndian, padBefore, padAfter, pack16, pack24, pack32, pack40, pack48, pack56, pack64;

private:
    PCM_ENCODING flags;
};

/** Word 0: an array of samples in memory. */
inline constexpr Encoding Encoding::samples = 0;
inline constexpr Encoding Encoding::alaw = PCM_ENCODING_G711_ALAW;
inline constexpr Encoding Encoding::mulaw = PCM_ENCODING_G711_MULAW;
inline constexpr Encoding Encoding::int8 = PCM_ENCODING_INT_8;
inline constexpr Encoding Encoding::int16 = PCM_ENCODING_INT_16;
inline constexpr Encoding Encoding::int24 = PCM_ENCODING_INT_24;
inline constexpr Encoding Encoding::int32 = PCM_ENCODING_INT_32;
inline constexpr Encoding Encoding::float32 = PCM_ENCODING_FLOAT_32;
inline constexpr Encoding Encoding::unsignedCodes = PCM_ENCODING_UNSIGNED;
inline constexpr Encoding Encoding::bigEndian = PCM_ENCODING_BIG_ENDIAN;
inline constexpr Encoding Encoding::littleEndian = PCM_ENCODING_LITTLE_ENDIAN;
inline constexpr Encoding Encoding::padBefore = PCM_ENCODING_PAD_BEFORE;
inline constexpr Encoding Encoding::padAfter = PCM_ENCODING_PAD_AFTER;
inline constexpr Encoding Encoding::pack16 = PCM_ENCODING_PACK_16;
inline constexpr Encoding Encoding::pack24 = PCM_ENCODING_PACK_24;
inline constexpr Encoding Encoding::pack32 = PCM_ENCODING_PACK_32;
inline constexpr Encoding Encoding::pack40 = PCM_ENCODING_PACK_40;
inline constexpr Encoding Encoding::pack48 = PCM_ENCODING_PACK_48;
inline constexpr Encoding Encoding::pack56 = PCM_ENCODING_PACK_56;
inline constexpr Encoding Encoding::pack64 = PCM_ENCODING_PACK_64;

/** Converts samples. Returns nothing if @p source is empty or does not hold a whole number of slots. */
[[nodiscard]] inline std::optional<Buffer> tryConvert( Encoding dest, const Buffer &source, Encoding sourceEncoding )
{
    return ifMade<Buffer>( pcmTryConvert( dest.word(), source.get(), sourceEncoding.word() ) );
}

inline void convert( std::span<std::byte> dest, Encoding destEncoding, std::span<const std::byte> source,
    Encoding sourceEncoding, int64_t samples )
{
    assert( samples <= int64_t( dest.size() ) / destEncoding.sizeofSample() );
    assert( samples <= int64_t( source.size() ) / sourceEncoding.sizeofSample() );
    pcm___Convert( dest.data(), destEncoding.word(), source.data(), sourceEncoding.word(), samples );
}

/**
 * Returns the number of whole frames. Returns 0 if @p channels is not above 0, so that the library reports the error.
 */
[[nodiscard]] constexpr int64_t wholeFrames( size_t samples, int64_t channels )
{
    return channels > 0 ? int64_t( samples ) / channels : 0;
}

/** Interleaved frames of samples. */
class Packet : public Handle<PCM_PACKET, pcmPacketRetain, pcmPacketRelease> {
public:
    using Handle::Handle;
    explicit Packet( int64_t channels ) : Handle( adopt, pcmPacketCreate( channels ) ) {}
    /** Copies a block of whole frames. */
    Packet( std::span<const PCM_SAMPLE> samples, int64_t channels )
        : Handle( adopt,
              pcmPacketCreateFromSamplesCopy( samples.data(), channels, wholeFrames( samples.size(), channels ) ) )
    {
        assert( int64_t( samples.size() ) % channels == 0 );
    }
    [[nodiscard]] static Packet use( Memory<PCM_SAMPLE> block, int64_t channels, int64_t frames )
    {
        return Packet( adopt, pcmPacketCreateFromSamplesUse( block.release(), channels, frames ) );
    }
    [[nodiscard]] static std::optional<Packet> tryDecode( const Buffer &source, Encoding encoding, int64_t channels )
    {
        return ifMade<Packet>( pcmPacketTryDecode( source.get(), encoding.word(), channels ) );
    }
    /** Adds a reference to an object, which must be a packet. */
    [[nodiscard]] static Packet from( KIT_OBJ *obj )
    {
        return Packet( adopt, pcmPacketRetain( pcmPacketFrom( obj ) ) );
    }
    [[nodiscard]] static KIT_SORT *sort() { return pcmPacketSort(); }

    /** Copies the samples at once. Copying a Packet copies them only when one of the two changes. */
    [[nodiscard]] Packet clone() const { return Packet( adopt, pcmPacketCreateFrom( handle ) ); }
    [[nodiscard]] Packet withChannels( int64_t channels ) const
    {
        return Packet( adopt, pcmPacketCreateFromWithChannels( handle, channels ) );
    }
    [[nodiscard]] Packet withChannelMask( uint64_t mask ) const
    {
        return Packet( adopt, pcmPacketCreateFromWithChannelMask( handle, mask ) );
    }
    [[nodiscard]] Buffer encode( Encoding encoding ) const
    {
        return Buffer( adopt, pcmPacketEncode( handle, encoding.word() ) );
    }

    [[nodiscard]] int64_t channels() const { return pcmPacketChannels( handle ); }
    [[nodiscard]] int64_t frames() const { return pcmPacketFrames( handle ); }

    /** Returns the address of the first sample. It is valid as long as the packet exists and does not change. */
    [[nodiscard]] const PCM_SAMPLE *backing() const { return pcmPacketBacking( handle ); }
    /** Returns all samples, for reading. */
    [[nodiscard]] std::span<const PCM_SAMPLE> samples() const
    {
        return { backing(), size_t( frames() * channels() ) };
    }
    /** Returns the samples of one frame, for reading. */
    [[nodiscard]] std::span<const PCM_SAMPLE> frame( int64_t idx ) const
    {
        return samples().subspan( size_t( idx * channels() ), size_t( channels() ) );
    }
    /** Returns the address of the first sample for writing, valid until the packet changes or has another holder. */
    [[nodiscard]] PCM_SAMPLE *mutableBacking() { return pcmPacketMutableBacking( &handle ); }
    /** Returns all samples, for writing. */
    [[nodiscard]] std::span<PCM_SAMPLE> mutableSamples()
    {
        PCM_SAMPLE *block = mutableBacking();
        return { block, size_t( frames() * channels() ) };
    }
    /** Returns the samples of one frame, for writing. */
    [[nodiscard]] std::span<PCM_SAMPLE> mutableFrame( int64_t idx )
    {
        return mutableSamples().subspan( size_t( idx * channels() ), size_t( channels() ) );
    }

    void clear() { pcmPacketClear( &handle ); }
    void setChannels( int64_t channels ) { pcmPacketSetChannels( &handle, channels ); }
    void setFrames( int64_t frames ) { pcmPacketSetFrames( &handle, frames ); }

    void write( int64_t idx, const Packet &source ) { pcmPacketWrite( &handle, idx, source.handle ); }
    void writeInner( int64_t idx, const Packet &source, int64_t offset, int64_t frames )
    {
        pcmPacketWriteInner( &handle, idx, source.handle, offset, frames );
    }
    void writeOuter( int64_t idx, const Packet &source, int64_t offset, int64_t frames )
    {
        pcmPacketWriteOuter( &handle, idx, source.handle, offset, frames );
    }
    void writeLeading( int64_t idx, const Packet &source, int64_t frames )
    {
        pcmPacketWriteLeading( &handle, idx, source.handle, frames );
    }
    void writeTrailing( int64_t idx, const Packet &source, int64_t frames )
    {
        pcmPacketWriteTrailing( &handle, idx, source.handle, frames );
    }
    void writeZero( int64_t idx, int64_t frames ) { pcmPacketWriteZero( &handle, idx, frames ); }

    void insert( int64_t idx, const Packet &source ) { pcmPacketInsert( &handle, idx, source.handle ); }
    void insertInner( int64_t idx, const Packet &source, int64_t offset, int64_t frames )
    {
        pcmPacketInsertInner( &handle, idx, source.handle, offset, frames );
    }
    void insertOuter( int64_t idx, const Packet &source, int64_t offset, int64_t frames )
    {
        pcmPacketInsertOuter( &handle, idx, source.handle, offset, frames );
    }
    void insertLeading( int64_t idx, const Packet &source, int64_t frames )
    {
        pcmPacketInsertLeading( &handle, idx, source.handle, frames );
    }
    void insertTrailing( int64_t idx, const Packet &source, int64_t frames )
    {
        pcmPacketInsertTrailing( &handle, idx, source.handle, frames );
    }
    void insertZero( int64_t idx, int64_t frames ) { pcmPacketInsertZero( &handle, idx, frames ); }

    void append( const Packet &source ) { pcmPacketAppend( &handle, source.handle ); }
    void appendInner( const Packet &source, int64_t offset, int64_t frames )
    {
        pcmPacketAppendInner( &handle, source.handle, offset, frames );
    }
    void appendOuter( const Packet &source, int64_t offset, int64_t frames )
    {
        pcmPacketAppendOuter( &handle, source.handle, offset, frames );
    }
    void appendLeading( const Packet &source, int64_t frames )
    {
        pcmPacketAppendLeading( &handle, source.handle, frames );
    }
    void appendTrailing( const Packet &source, int64_t frames )
    {
        pcmPacketAppendTrailing( &handle, source.handle, frames );
    }
    void appendZero( int64_t frames ) { pcmPacketAppendZero( &handle, frames ); }

    void prepend( const Packet &source ) { pcmPacketPrepend( &handle, source.handle ); }
    void prependInner( const Packet &source, int64_t offset, int64_t frames )
    {
        pcmPacketPrependInner( &handle, source.handle, offset, frames );
    }
    void prependOuter( const Packet &source, int64_t offset, int64_t frames )
    {
        pcmPacketPrependOuter( &handle, source.handle, offset, frames );
    }
    void prependLeading( const Packet &source, int64_t frames )
    {
        pcmPacketPrependLeading( &handle, source.handle, frames );
    }
    void prependTrailing( const Packet &source, int64_t frames )
    {
        pcmPacketPrependTrailing( &handle, source.handle, frames );
    }
    void prependZero( int64_t frames ) { pcmPacketPrependZero( &handle, frames ); }

    void delInner( int64_t idx, int64_t frames ) { pcmPacketDelInner( &handle, idx, frames ); }
    void delOuter( int64_t idx, int64_t frames ) { pcmPacketDelOuter( &handle, idx, frames ); }
    void delLeading( int64_t frames ) { pcmPacketDelLeading( &handle, frames ); }
    void delTrailing( int64_t frames ) { pcmPacketDelTrailing( &handle, frames ); }

    void writeChannels( int64_t destChannel, int64_t destFrame, const Packet &source, int64_t sourceChannel,
        int64_t sourceFrame, int64_t channels, int64_t frames )
    {
        pcmPacketWriteChannels(
            &handle, destChannel, destFrame, source.handle, sourceChannel, sourceFrame, channels, frames );
    }
    /** Reads a block with @p sourceChannels channels. */
    void writeChannels( int64_t destChannel, int64_t destFrame, std::span<const PCM_SAMPLE> source,
        int64_t sourceChannel, int64_t sourceChannels, int64_t sourceFrame, int64_t channels, int64_t frames )
    {
        assert( ( sourceFrame + frames ) * sourceChannels <= int64_t( source.size() ) );
        pcmPacketWriteChannelsSamples( &handle, destChannel, destFrame, source.data(), sourceChannel, sourceChannels,
            sourceFrame, channels, frames );
    }

    void channelsAdjustReplaceWithDownmix( int64_t channels )
    {
        pcmChannelsAdjustReplaceWithDownmix( &handle, channels );
    }
    void channelsAdjustExpandWithDownmix( int64_t channels )
    {
        pcmChannelsAdjustExpandWithDownmix( &handle, channels );
    }
    void framesExtend( int64_t mult ) { pcmFramesExtend( &handle, mult ); }
    void framesReduce( int64_t div ) { pcmFramesReduce( &handle, div ); }
    void levelAdjust( double decibel ) { pcmLevelAdjust( &handle, decibel ); }
    void levelAdjustLinearGain( double gain ) { pcmLevelAdjustLinearGain( &handle, gain ); }

    /** Former name of channelsAdjustReplaceWithDownmix(). */
    void replaceWithDownmix( int64_t channels ) { channelsAdjustReplaceWithDownmix( channels ); }
    /** Former name of channelsAdjustExpandWithDownmix(). */
    void expandWithDownmix( int64_t channels ) { channelsAdjustExpandWithDownmix( channels ); }
    /** Former name of framesExtend(). */
    void extendFrames( int64_t mult ) { framesExtend( mult ); }
    /** Former name of framesReduce(). */
    void reduceFrames( int64_t div ) { framesReduce( div ); }
    /** Former name of levelAdjust(). */
    void adjustLevel( double decibel ) { levelAdjust( decibel ); }
    /** Former name of levelAdjustLinearGain(). */
    void adjustGain( double gain ) { levelAdjustLinearGain( gain ); }
};

/** A first-in, first-out stream of packets. */
class Queue : public Handle<PCM_PACKET_QUEUE, pcmPacketQueueRetain, pcmPacketQueueRelease> {
public:
    using Handle::Handle;
    explicit Queue( int64_t channels ) : Handle( adopt, pcmPacketQueueCreate( channels ) ) {}
    [[nodiscard]] static Queue from( KIT_OBJ *obj )
    {
        return Queue( adopt, pcmPacketQueueRetain( pcmPacketQueueFrom( obj ) ) );
    }
    [[nodiscard]] static KIT_SORT *sort() { return pcmPacketQueueSort(); }
    [[nodiscard]] Queue clone() const { return Queue( adopt, pcmPacketQueueCreateFrom( handle ) ); }

    void write( const Packet &pkt ) { pcmPacketQueueWrite( &handle, pkt.get() ); }
    [[nodiscard]] Packet read() { return Packet( adopt, pcmPacketQueueRead( &handle ) ); }
    [[nodiscard]] Packet gather( int64_t frames ) { return Packet( adopt, pcmPacketQueueGather( &handle, frames ) ); }
    /**
     * Writes @p frames frames to @p dest, which must have room for them. gatherAdd() adds them to those in @p dest.
     */
    void gather( std::span<PCM_SAMPLE> dest, int64_t frames )
    {
        assert( frames <= int64_t( dest.size() ) / channels() );
        pcmPacketQueueGatherSamples( &handle, dest.data(), frames );
    }
    void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames )
    {
        assert( frames <= int64_t( dest.size() ) / channels() );
        pcmPacketQueueGatherSamplesAdd( &handle, dest.data(), frames );
    }
    void clear() { pcmPacketQueueClear( &handle ); }

    [[nodiscard]] int64_t frames() const { return pcmPacketQueueFrames( handle ); }
    [[nodiscard]] int64_t packets() const { return pcmPacketQueuePackets( handle ); }
    [[nodiscard]] int64_t channels() const { return pcmPacketQueueChannels( handle ); }
};

/** The built-in low-pass filters, by cut-off frequency and sample rate in hertz. */
enum class FilterType : int64_t {
    lowpass4000At16000 = PCM_FILTER_TYPE_LOWPASS_4000_AT_16000,
    lowpass4000At24000 = PCM_FILTER_TYPE_LOWPASS_4000_AT_24000,
    lowpass4000At48000 = PCM_FILTER_TYPE_LOWPASS_4000_AT_48000,
    lowpass6000At24000 = PCM_FILTER_TYPE_LOWPASS_6000_AT_24000,
    lowpass6000At48000 = PCM_FILTER_TYPE_LOWPASS_6000_AT_48000,
    lowpass8000At48000 = PCM_FILTER_TYPE_LOWPASS_8000_AT_48000,
    lowpass12000At48000 = PCM_FILTER_TYPE_LOWPASS_12000_AT_48000,
};

[[nodiscard]] inline std::optional<FilterType> filterTypeFromString( std::string_view name )
{
    int64_t type = pcmFilterTypeFromString( String( name ).get() );
    return PCM_FILTER_TYPE_OK( type ) ? std::optional( FilterType( type ) ) : std::nullopt;
}
inline std::string to_string( FilterType type ) { return textOf( pcmFilterTypeToString( int64_t( type ) ) ); }
/** Writes `to_string( type )`. */
inline std::ostream &operator<<( std::ostream &out, FilterType type ) { return out << to_string( type ); }

/** The taps of a filter, which never change. */
class Coefficients
    : public Handle<PCM_FILTER_COEFFICIENTS, pcmFilterCoefficientsRetain, pcmFilterCoefficientsRelease> {
public:
    using Handle::Handle;
    explicit Coefficients( FilterType type ) : Handle( adopt, pcmFilterCoefficientsCreate( int64_t( type ) ) ) {}
    explicit Coefficients( std::span<const PCM_SAMPLE> taps )
        : Handle( adopt, pcmFilterCoefficientsCreateFromSamplesCopy( taps.data(), int64_t( taps.size() ) ) )
    {
    }
    [[nodiscard]] static Coefficients use( Memory<PCM_SAMPLE> taps, int64_t length )
    {
        return Coefficients( adopt, pcmFilterCoefficientsCreateFromSamplesUse( taps.release(), length ) );
    }
    [[nodiscard]] static Coefficients from( KIT_OBJ *obj )
    {
        return Coefficients( adopt, pcmFilterCoefficientsRetain( pcmFilterCoefficientsFrom( obj ) ) );
    }
    [[nodiscard]] static KIT_SORT *sort() { return pcmFilterCoefficientsSort(); }
    [[nodiscard]] Coefficients clone() const
    {
        return Coefficients( adopt, pcmFilterCoefficientsCreateFrom( handle ) );
    }

    [[nodiscard]] int64_t length() const { return pcmFilterCoefficientsLength( handle ); }
    [[nodiscard]] std::span<const PCM_SAMPLE> taps() const
    {
        return { pcmFilterCoefficientsBacking( handle ), size_t( length() ) };
    }
};

/** An FIR filter for a stream. */
class Filter : public Handle<PCM_FILTER, pcmFilterRetain, pcmFilterRelease> {
public:
    using Handle::Handle;
    Filter( const Coefficients &taps, int64_t channels ) : Handle( adopt, pcmFilterCreate( taps.get(), channels ) ) {}
    [[nodiscard]] static Filter from( KIT_OBJ *obj )
    {
        return Filter( adopt, pcmFilterRetain( pcmFilterFrom( obj ) ) );
    }
    [[nodiscard]] static KIT_SORT *sort() { return pcmFilterSort(); }
    [[nodiscard]] Filter clone() const { return Filter( adopt, pcmFilterCreateFrom( handle ) ); }

    void write( const Packet &pkt ) { pcmFilterWrite( &handle, pkt.get() ); }
    [[nodiscard]] Packet read() { return Packet( adopt, pcmFilterRead( &handle ) ); }
    [[nodiscard]] Packet gather( int64_t frames ) { return Packet( adopt, pcmFilterGather( &handle, frames ) ); }
    void gather( std::span<PCM_SAMPLE> dest, int64_t frames )
    {
        assert( frames <= int64_t( dest.size() ) / channels() );
        pcmFilterGatherSamples( &handle, dest.data(), frames );
    }
    void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames )
    {
        assert( frames <= int64_t( dest.size() ) / channels() );
        pcmFilterGatherSamplesAdd( &handle, dest.data(), frames );
    }
    void reset() { pcmFilterReset( &handle ); }

    [[nodiscard]] int64_t frames() const { return pcmFilterFrames( handle ); }
    [[nodiscard]] int64_t packets() const { return pcmFilterPackets( handle ); }
    [[nodiscard]] int64_t channels() const { return pcmFilterChannels( handle ); }
    [[nodiscard]] Coefficients coefficients() const { return Coefficients( adopt, pcmFilterCoefficients( handle ) ); }
};

/** The types of sample rate converters. */
enum class SrcType : int64_t {
    sincBestQuality = PCM_SRC_TYPE_SINC_BEST_QUALITY,
    sincMediumQuality = PCM_SRC_TYPE_SINC_MEDIUM_QUALITY,
    sincFastest = PCM_SRC_TYPE_SINC_FASTEST,
    zeroOrderHold = PCM_SRC_TYPE_ZERO_ORDER_HOLD,
    linear = PCM_SRC_TYPE_LINEAR,
};

[[nodiscard]] inline std::optional<SrcType> srcTypeFromString( std::string_view name )
{
    int64_t type = pcmSrcTypeFromString( String( name ).get() );
    return PCM_SRC_TYPE_OK( type ) ? std::optional( SrcType( type ) ) : std::nullopt;
}
/** Returns the converter constant of libsamplerate. */
[[nodiscard]] inline int32_t samplerateType( SrcType type )
{
    return pcm___SrcTypeToSamplerateConverterType( int64_t( type ) );
}
inline std::string to_string( SrcType type ) { return textOf( pcmSrcTypeToString( int64_t( type ) ) ); }
/** Writes `to_string( type )`. */
inline std::ostream &operator<<( std::ostream &out, SrcType type ) { return out << to_string( type ); }

/** A sample rate converter for a stream. All copies share the converter. */
class Src : public Handle<PCM_SRC, pcmSrcRetain, pcmSrcRelease> {
public:
    using Handle::Handle;
    [[nodiscard]] static std::optional<Src> tryCreate(
        SrcType type, int64_t readFrameRate, int64_t writeFrameRate, int64_t channels )
    {
        return ifMade<Src>( pcmSrcTryCreate( int64_t( type ), readFrameRate, writeFrameRate, channels ) );
    }
    [[nodiscard]] static bool isCompatible( int64_t readFrameRate, int64_t writeFrameRate )
    {
        return pcmSrcFrameRateCheckCompatibility( readFrameRate, writeFrameRate );
    }
    [[nodiscard]] static Src from( KIT_OBJ *obj ) { return Src( adopt, pcmSrcRetain( pcmSrcFrom( obj ) ) ); }
    [[nodiscard]] static KIT_SORT *sort() { return pcmSrcSort(); }

    void write( const Packet &pkt ) { pcmSrcWrite( handle, pkt.get() ); }
    [[nodiscard]] Packet read() { return Packet( adopt, pcmSrcRead( handle ) ); }
    [[nodiscard]] Packet gather( int64_t frames ) { return Packet( adopt, pcmSrcGather( handle, frames ) ); }
    void gather( std::span<PCM_SAMPLE> dest, int64_t frames )
    {
        assert( frames <= int64_t( dest.size() ) / channels() );
        pcmSrcGatherSamples( handle, dest.data(), frames );
    }
    void gatherAdd( std::span<PCM_SAMPLE> dest, int64_t frames )
    {
        assert( frames <= int64_t( dest.size() ) / channels() );
        pcmSrcGatherSamplesAdd( handle, dest.data(), frames );
    }
    void reset() { pcmSrcReset( handle ); }

    [[nodiscard]] int64_t frames() const { return pcmSrcFrames( handle ); }
    [[nodiscard]] int64_t packets() const { return pcmSrcPackets( handle ); }
    [[nodiscard]] int64_t channels() const { return pcmSrcChannels( handle ); }
    [[nodiscard]] SrcType type() const { return SrcType( pcmSrcType( handle ) ); }
    [[nodiscard]] int64_t readFrameRate() const { return pcmSrcReadFrameRate( handle ); }
    [[nodiscard]] int64_t writeFrameRate() const { return pcmSrcWriteFrameRate( handle ); }
};

/** A sine tone that continues from call to call. All copies share the tone. */
class Tone : public Handle<PCM_TONE, pcmToneRetain, pcmToneRelease> {
public:
    using Handle::Handle;
    explicit Tone( double period ) : Handle( adopt, pcmToneCreate( period ) ) {}
    [[nodiscard]] static std::optional<Tone> tryCreate( int64_t frameRate, int64_t hertz )
    {
        return ifMade<Tone>( pcmToneTryCreateWithFrequency( frameRate, hertz ) );
    }
    [[nodiscard]] static Tone from( KIT_OBJ *obj ) { return Tone( adopt, pcmToneRetain( pcmToneFrom( obj ) ) ); }
    [[nodiscard]] static KIT_SORT *sort() { return pcmToneSort(); }

    [[nodiscard]] Packet gather( int64_t samples ) { return Packet( adopt, pcmToneGather( handle, samples ) ); }
    void gather( std::span<PCM_SAMPLE> dest ) { pcmToneGatherSamples( handle, dest.data(), int64_t( dest.size() ) ); }
    void gatherAdd( std::span<PCM_SAMPLE> dest )
    {
        pcmToneGatherSamplesAdd( handle, dest.data(), int64_t( dest.size() ) );
    }
};

/** The mean of two tones. */
struct DualTone {
    Tone a; ///< First tone.
    Tone b; ///< Second tone.

    [[nodiscard]] Packet gather( int64_t samples )
    {
        return Packet( adopt, pcmDualToneGather( a.get(), b.get(), samples ) );
    }
    void gather( std::span<PCM_SAMPLE> dest )
    {
        pcmDualToneGatherSamples( a.get(), b.get(), dest.data(), int64_t( dest.size() ) );
    }
    void gatherAdd( std::span<PCM_SAMPLE> dest )
    {
        pcmDualToneGatherSamplesAdd( a.get(), b.get(), dest.data(), int64_t( dest.size() ) );
    }
};

/** The product of two tones (ring modulation). */
struct ModulatedTone {
    Tone a; ///< Carrier.
    Tone b; ///< Modulator.

    [[nodiscard]] Packet gather( int64_t samples )
    {
        return Packet( adopt, pcmModulatedToneGather( a.get(), b.get(), samples ) );
    }
    void gather( std::span<PCM_SAMPLE> dest )
    {
        pcmModulatedToneGatherSamples( a.get(), b.get(), dest.data(), int64_t( dest.size() ) );
    }
    void gatherAdd( std::span<PCM_SAMPLE> dest )
    {
        pcmModulatedToneGatherSamplesAdd( a.get(), b.get(), dest.data(), int64_t( dest.size() ) );
    }
};

/** White noise. */
namespace noise {

[[nodiscard]] inline Packet gather( int64_t samples ) { return Packet( adopt, pcmNoiseGather( samples ) ); }
inline void gather( std::span<PCM_SAMPLE> dest ) { pcmNoiseGatherSamples( dest.data(), int64_t( dest.size() ) ); }
inline void gatherAdd( std::span<PCM_SAMPLE> dest )
{
    pcmNoiseGatherSamplesAdd( dest.data(), int64_t( dest.size() ) );
}

} // namespace noise

namespace silence {

[[nodiscard]] inline Packet gather( int64_t samples ) { return Packet( adopt, pcmSilenceGather( samples ) ); }
inline void gather( std::span<PCM_SAMPLE> dest ) { pcmSilenceGatherSamples( dest.data(), int64_t( dest.size() ) ); }

} // namespace silence

[[nodiscard]] inline double decibelFromGain( double gain ) { return pcmDecibelFromGain( gain ); }
[[nodiscard]] inline double decibelToGain( double decibel ) { return pcmDecibelToGain( decibel ); }

/**
 * Operations on blocks of samples and on single channels of interleaved blocks. A source block must be at least as
 * long as its destination.
 */
namespace samples {

inline void levelAdjust( std::span<PCM_SAMPLE> dest, double decibel )
{
    pcmLevelAdjustSamples( dest.data(), int64_t( dest.size() ), decibel );
}
inline void levelAdjustLinearGain( std::span<PCM_SAMPLE> dest, double gain )
{
    pcmLevelAdjustLinearGainSamples( dest.data(), int64_t( dest.size() ), gain );
}
/** Former name of levelAdjust(). */
inline void adjustLevel( std::span<PCM_SAMPLE> dest, double decibel ) { levelAdjust( dest, decibel ); }
/** Former name of levelAdjustLinearGain(). */
inline void adjustGain( std::span<PCM_SAMPLE> dest, double gain ) { levelAdjustLinearGain( dest, gain ); }
inline void zero( std::span<PCM_SAMPLE> dest ) { pcm___SamplesZero( dest.data(), int64_t( dest.size() ) ); }
inline void scale( std::span<PCM_SAMPLE> dest, double scale )
{
    pcm___SamplesScale( dest.data(), int64_t( dest.size() ), scale );
}

inline void copy( std::span<PCM_SAMPLE> dest, std::span<const PCM_SAMPLE> source )
{
    assert( dest.size() <= source.size() );
    pcm___SamplesCopy( dest.data(), source.data(), int64_t( dest.size() ) );
}
inline void move( std::span<PCM_SAMPLE> dest, std::span<const PCM_SAMPLE> source )
{
    assert( dest.size() <= source.size() );
    pcm___SamplesMove( dest.data(), source.data(), int64_t( dest.size() ) );
}
inline void add( std::span<PCM_SAMPLE> dest, std::span<const PCM_SAMPLE> source )
{
    assert( dest.size() <= source.size() );
    pcm___SamplesAdd( dest.data(), source.data(), int64_t( dest.size() ) );
}
inline void mul( std::span<PCM_SAMPLE> dest, std::span<const PCM_SAMPLE> source )
{
    assert( dest.size() <= source.size() );
    pcm___SamplesMul( dest.data(), source.data(), int64_t( dest.size() ) );
}

/** One channel of an interleaved block. Sample is PCM_SAMPLE, or const PCM_SAMPLE for reading. */
template <class Sample> struct ChannelOf {
    Sample *block;    ///< All channels, interleaved.
    int64_t channel;  ///< Channel number.
    int64_t channels; ///< Channel count of the block.

    /** Converts to a channel for reading. */
    operator ChannelOf<const Sample>() const { return { block, channel, channels }; }
};
/** A channel for writing. */
using Channel = ChannelOf<PCM_SAMPLE>;
/** A channel for reading. */
using ConstChannel = ChannelOf<const PCM_SAMPLE>;

inline void zero( Channel dest, int64_t frames )
{
    pcm___SamplesChannelZero( dest.block, dest.channel, dest.channels, frames );
}
inline void scale( Channel dest, int64_t frames, double scale )
{
    pcm___SamplesChannelScale( dest.block, dest.channel, dest.channels, frames, scale );
}
inline void copy( Channel dest, ConstChannel source, int64_t frames )
{
    pcm___SamplesChannelCopy(
        dest.block, dest.channel, dest.channels, source.block, source.channel, source.channels, frames );
}
inline void add( Channel dest, ConstChannel source, int64_t frames )
{
    pcm___SamplesChannelAdd(
        dest.block, dest.channel, dest.channels, source.block, source.channel, source.channels, frames );
}
inline void mul( Channel dest, ConstChannel source, int64_t frames )
{
    pcm___SamplesChannelMul(
        dest.block, dest.channel, dest.channels, source.block, source.channel, source.channels, frames );
}

} // namespace samples

} // namespace pcm

#endif
