#include "support.h"

#include <pcm/pcm.hpp>
#include <samplerate.h>

#include <array>
#include <cmath>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <sys/resource.h>

// Every condition whose violation ends the process. Where possible, a call also violates the conditions that are
// checked after that of its row, so that a wrong order of checks changes the message.

namespace {

constexpr auto null = nullptr;
constexpr int64_t most = INT64_MAX, least = INT64_MIN, tooMany = int64_t{ 1 } << 61;
float block[8];

// Arguments. Nothing is released, because the process ends.

template <class T> T **held( T *object ) { return new T *( object ); }

/// Overwrites one of an object's 8-byte words. The header has five; the fields follow.
template <class T, class Value> T *withWord( T *object, int index, Value value )
{
    reinterpret_cast<Value *>( object )[index] = value;
    return object;
}

/// Returns a packet that claims more frames than its 64 bytes hold. Its samples must not be read.
PCM_PACKET *vast( int64_t frames, int64_t channels )
{
    return pcmPacketCreateFromSamplesUse( static_cast<float *>( kitMemAlloc( 64 ) ), channels, frames );
}

KIT_BUFFER *bytes( int64_t length = 8 ) { return kitBufferCreateFromBytesUse( kitMemAlloc( 64 ), length ); }

PCM_PACKET *source( int64_t frames = 5, int64_t channels = 2 ) { return test::packet( frames, channels ).detach(); }
PCM_PACKET **pkt() { return held( source( 3 ) ); }

PCM_PACKET_QUEUE **emptyQueue() { return held( pcmPacketQueueCreate( 2 ) ); }
PCM_PACKET_QUEUE **queue()
{
    PCM_PACKET_QUEUE **queue = emptyQueue();
    pcmPacketQueueWrite( queue, source() );
    return queue;
}
/// A queue that has no current packet, but counts used frames of one.
PCM_PACKET_QUEUE **usedQueue() { return held( withWord( *queue(), 8, int64_t{ 1 } ) ); }

/// A queue of two packets that claim so many frames.
PCM_PACKET_QUEUE **vastQueue( int64_t frames )
{
    PCM_PACKET_QUEUE **queue = emptyQueue();
    for ( int i = 0; i < 2; ++i ) pcmPacketQueueWrite( queue, vast( frames, 2 ) );
    return queue;
}

PCM_SRC *src( int64_t rate = 1 ) { return pcmSrcTryCreate( PCM_SRC_TYPE_ZERO_ORDER_HOLD, rate, 1, 2 ); }

PCM_FILTER_COEFFICIENTS *taps( int64_t length = 2 )
{
    return pcmFilterCoefficientsCreateFromSamplesCopy( block, length );
}
PCM_FILTER **filter() { return held( pcmFilterCreate( taps(), 2 ) ); }

PCM_TONE *tone() { return pcmToneCreate( 4 ); }

// Some conditions depend on functions of kit, libsamplerate or the C library. These are called through the dynamic
// symbol table, so that a test can replace their results.
#define REPLACEABLE( Result, name, parameters, arguments, ... )                                    \
    std::function<Result parameters> fake_##name;                                                  \
    extern "C" Result name parameters __VA_ARGS__                                                  \
    {                                                                                              \
        static auto *real = reinterpret_cast<Result( * ) parameters>( dlsym( RTLD_NEXT, #name ) ); \
        return fake_##name ? fake_##name arguments : real arguments;                               \
    }

REPLACEABLE( int32_t, kitFlagsetHasFlagCstr, ( const KIT_FLAGSET *set, const char *name, int64_t length ),
    ( set, name, length ) )
REPLACEABLE( int64_t, kitVectorLength, ( const KIT_VECTOR *vector ), ( vector ) )
REPLACEABLE( int, src_process, ( SRC_STATE * state, SRC_DATA *data ), ( state, data ) )
REPLACEABLE( double, pow, ( double x, double y ), ( x, y ), noexcept )
REPLACEABLE( double, log10, ( double x ), ( x ), noexcept )

PCM_PACKET_QUEUE **fullQueue()
{
    fake_kitVectorLength = []( auto ) { return most; };
    return emptyQueue();
}

/// Converts a level or a gain with a mathematical library that returns `result`.
void convertWith( double ( *convert )( double ), double result )
{
    fake_log10 = [=]( double ) { return result; };
    fake_pow = [=]( double, double ) { return result; };
    convert( 2 );
}

/// Writes to a converter whose first pass reports these numbers of used and made frames. The second pass has another
/// ratio.
void convert( long used, long made, int result = 0, double ratio = 1, int64_t frames = 5 )
{
    PCM_SRC *to = src();
    fake_src_process = [=]( SRC_STATE *, SRC_DATA *data ) {
        data->input_frames_used = used;
        data->output_frames_gen = made;
        withWord( to, 10, ratio );
        return result;
    };
    pcmSrcWrite( to, source( frames ) );
}

/// An argument that violates the conditions on its parameter.
struct Invalid {
    template <class T> operator T() const
    {
        if constexpr ( std::is_pointer_v<T> )
            return nullptr;
        else if constexpr ( std::is_floating_point_v<T> )
            return NAN;
        else
            return T( -1 );
    }
};

/// A null handle, for functions that take the address of a handle.
struct NullHandle {
    template <class T> operator T **() const { return held<T>( null ); }
};

/// Calls a function with the given arguments. Arguments that are left out at the end are invalid.
template <class Result, class... Parameters, class... Arguments>
void callWith( Result ( *function )( Parameters... ), Arguments... arguments )
{
    [&]<size_t... i>( std::index_sequence<i...> )
    {
        function( arguments..., std::array<Invalid, sizeof...( i ) + 1>{}[i]... );
    }
    ( std::make_index_sequence<sizeof...( Parameters ) - sizeof...( Arguments )>{} );
}

using Calls = std::vector<void ( * )()>;

template <auto... functions> Calls onNull()
{
    return { [] { callWith( functions, null ); }... };
}
template <auto... functions> Calls onNullHandle()
{
    return { [] { callWith( functions, NullHandle() ); }... };
}

#define CALL( ... ) [] { __VA_ARGS__; }
#define DO( name, ... ) CALL( callWith( pcm##name, __VA_ARGS__ ) )

// Functions with the same parameters and conditions.
#define FLAT( ... ) DO( ___SamplesAdd, __VA_ARGS__ ), DO( ___SamplesMul, __VA_ARGS__ )
#define ONE_CHANNEL( ... ) DO( ___SamplesChannelZero, __VA_ARGS__ ), DO( ___SamplesChannelScale, __VA_ARGS__ )
#define CHANNEL( ... )                                                                 \
    DO( ___SamplesChannelCopy, __VA_ARGS__ ), DO( ___SamplesChannelAdd, __VA_ARGS__ ), \
        DO( ___SamplesChannelMul, __VA_ARGS__ )
#define TONE( ... ) DO( ToneGatherSamples, __VA_ARGS__ ), DO( ToneGatherSamplesAdd, __VA_ARGS__ )
#define NOISE( ... ) DO( NoiseGatherSamples, __VA_ARGS__ ), DO( NoiseGatherSamplesAdd, __VA_ARGS__ )

// Both kinds of mixed tones have the same conditions.
#define MIX( Kind )                                                                                   \
    { "toneA", { MIXED( Kind, null, null, -1 ) } }, { "toneB", { MIXED( Kind, tone(), null, -1 ) } }, \
        { "samples >= 0", { MIXED( Kind, tone(), tone(), -1 ) } },                                    \
    {                                                                                                 \
        "samples == 0 || dest",                                                                       \
        {                                                                                             \
            DO( Kind##GatherSamples, tone(), tone(), null, 1 ),                                       \
                DO( Kind##GatherSamplesAdd, tone(), tone(), null, 1 )                                 \
        }                                                                                             \
    }
#define MIXED( Kind, a, b, n ) \
    DO( Kind##Gather, a, b, n ), DO( Kind##GatherSamples, a, b, null, n ), DO( Kind##GatherSamplesAdd, a, b, null, n )

#define IS_SORT( TYPE ) "!obj || kitObjSort(obj)==&pcm___sort_" #TYPE
#define STANDARD( TYPE, prefix, obj, other )                                        \
    { IS_SORT( TYPE ), { CALL( prefix##From( other ) ) }, "stdfunc from" },         \
        { "obj", { CALL( prefix##Retain( null ) ) }, "stdfunc retain" },            \
        { "obj", { CALL( prefix##Release( null ) ) }, "stdfunc release" },          \
        { "obj", { CALL( prefix##ToString( null ) ) }, "stdfunc tostring" },        \
        { "objA", { CALL( prefix##Compare( null, null ) ) }, "stdfunc compare a" }, \
    {                                                                               \
        "objB", { CALL( prefix##Compare( obj, null ) ) }, "stdfunc compare b"       \
    }
#define DESTRUCTOR( TYPE, prefix, parameter, other )                                     \
    { parameter, { CALL( prefix##Sort()->destructor( null ) ) } },                       \
    {                                                                                    \
        IS_SORT( TYPE ), { CALL( prefix##Sort()->destructor( other ) ) }, "stdfunc from" \
    }

struct Row {
    const char *text;
    Calls calls;
    const char *context = "";
};

const struct {
    const char *file;
    std::vector<Row> rows;
} files[] = {
    { "pcm_encoding",
        {
            { "kits", { DO( EncodingFromString, null ) } },
            { "channels > 0", { DO( EncodingSizeofFrame, 0, 0 ), DO( EncodingSizeofFrame, 0, least ) } },
            { "KIT_INT_MUL_OK( channels, s )",
                { DO( PacketEncode, vast( most, tooMany ), 0 ), DO( PacketTryDecode, bytes(), 0, tooMany ),
                    DO( PacketTryDecode, bytes( tooMany ), PCM_ENCODING_INT_8, tooMany ) } },
        } },
    { "pcm_convert",
        {
            { "samples >= 0", { DO( ___Convert, null, 0, null, 0 ) } },
            { "dest || samples == 0", { DO( ___Convert, null, 0, null, 0, most ) } },
            { "source || samples == 0", { DO( ___Convert, block, 0, null, 0, most ) } },
            { "KIT_INT_MUL_OK( destSize, samples )", { DO( ___Convert, block, 0, block, 0, most ) } },
            { "KIT_INT_MUL_OK( sourceSize, samples )",
                { DO( ___Convert, block, PCM_ENCODING_INT_8, block, 0, most ) } },
            { "KIT_INT_MUL_OK( destSampleSize, samples )",
                { DO( TryConvert, PCM_ENCODING_INT_16, bytes( most ), PCM_ENCODING_INT_8 ) } },
        } },
    { "kit_buffer",
        {
            { "buffer", { DO( TryConvert, 0, null, 0 ), CALL( kitBufferBacking( null ) ) } },
            { "length >= 0", { CALL( kitBufferCreateFromBytesUse( null, -1 ) ) } },
            { "bytes || length == 0", { CALL( kitBufferCreateFromBytesUse( null, 1 ) ) } },
        } },
    { "pcm_samples_stdc",
        {
            { "samples >= 0",
                { DO( SilenceGatherSamples, null ), DO( ___SamplesZero, null ), DO( ___SamplesScale, null, -1, 2 ),
                    FLAT( null ), DO( LevelAdjustSamples, null, -1, 1 ) } },
            { "dest || !samples", { DO( SilenceGatherSamples, null, 1 ), DO( ___SamplesZero, null, 1 ),
                                      DO( ___SamplesScale, null, 1, 2 ), FLAT( null, null, 1 ),
                                      DO( LevelAdjustLinearGainSamples, null, 1 ) } },
            { "source || !samples", { FLAT( block, null, 1 ) } },
            { "frames >= 0", { ONE_CHANNEL( null ), CHANNEL( null ) } },
            { "dest || !frames", { ONE_CHANNEL( null, -1, -1, 1 ), CHANNEL( null, -1, -1, null, -1, -1, 1 ) } },
            { "source || !frames", { CHANNEL( block, -1, -1, null, -1, -1, 1 ) } },
            { "destChannel >= 0", { ONE_CHANNEL( null, -1, -1, 0 ), CHANNEL( null, -1, -1, null, -1, -1, 0 ) } },
            { "destChannels >= 0", { ONE_CHANNEL( null, 0, -1, 0 ), CHANNEL( null, 0, -1, null, -1, -1, 0 ) } },
            { "destChannel < destChannels",
                { ONE_CHANNEL( null, 0, 0, 0 ), CHANNEL( null, 0, 0, null, -1, -1, 0 ) } },
            { "sourceChannel >= 0", { CHANNEL( null, 0, 1, null, -1, -1, 0 ) } },
            { "sourceChannels >= 0", { CHANNEL( null, 0, 1, null, 0, -1, 0 ) } },
            { "sourceChannel < sourceChannels",
                { CHANNEL( null, 0, 1, null, 1, 1, 0 ), CHANNEL( null, 0, 1, null, 0, 0, 0 ) } },
        } },
    { "pcm_packet",
        {
            STANDARD( PCM_PACKET, pcmPacket, source(), pcmPacketQueueObj( *queue() ) ),
            DESTRUCTOR( PCM_PACKET, pcmPacket, "pkt", pcmPacketQueueObj( *queue() ) ),
            { "pkt", { DO( PacketChannels, null ), DO( PacketFrames, null ), DO( PacketBacking, null ),
                         DO( PacketEncode, null, 0 ), DO( SrcRead, src() ) } },
            { "source", onNull<pcmPacketCreateFrom, pcmPacketCreateFromWithChannels,
                            pcmPacketCreateFromWithChannelMask, pcmPacketTryDecode>() },
            { "channelMask", { DO( PacketCreateFromWithChannelMask, source(), 0 ) } },
            { "channels > 0", { DO( PacketCreateFromWithChannels, source(), 0 ) } },
            { "channels > 0", { DO( PacketCreate, 0 ), DO( PacketCreateFromSamplesCopy, null, least ),
                                  DO( PacketCreateFromSamplesUse, null, 0 ), DO( PacketTryDecode, bytes(), 0, 0 ) } },
            { "frames >= 0", { DO( PacketCreateFromSamplesCopy, null, most ),
                                 DO( PacketCreateFromSamplesUse, null, 1 ), DO( SilenceGather, -1 ) } },
            { "frames == 0 || source",
                { DO( PacketCreateFromSamplesCopy, null, most, 1 ), DO( PacketCreateFromSamplesUse, null, 1, 1 ) } },
            { "KIT_INT_MUL_OK( channels, KIT_SIZEOF( PCM_SAMPLE ) )",
                { DO( PacketCreateFromSamplesCopy, null, tooMany, 0 ),
                    DO( PacketCreateFromSamplesCopy, block, tooMany, most ) } },
            { "KIT_INT_MUL_OK( pkt->frames, pkt->channels * KIT_SIZEOF( PCM_SAMPLE ) )",
                { DO( PacketCreateFromSamplesCopy, block, tooMany - 1, 2 ) } },
            { "KIT_INT_MUL_OK( length, pkt->frames )", { DO( PacketEncode, vast( tooMany, 2 ), 0 ) } },
            { "pkt", onNull<pcmPacketMutableBacking, pcmPacketClear, pcmPacketSetChannels, pcmPacketSetFrames,
                         pcmPacketWriteInner, pcmPacketWriteOuter, pcmPacketWriteZero, pcmPacketInsertInner,
                         pcmPacketInsertOuter, pcmPacketInsertZero, pcmPacketAppend, pcmPacketAppendZero,
                         pcmPacketDelInner, pcmPacketDelOuter, pcmPacketDelTrailing, pcmPacketWriteChannels,
                         pcmPacketWriteChannelsSamples>() },
            { "*pkt", onNullHandle<pcmPacketMutableBacking, pcmPacketClear, pcmPacketSetChannels, pcmPacketSetFrames,
                          pcmPacketWriteInner, pcmPacketWriteOuter, pcmPacketWriteZero, pcmPacketInsertInner,
                          pcmPacketInsertZero, pcmPacketAppendTrailing, pcmPacketDelInner, pcmPacketDelOuter,
                          pcmPacketDelTrailing, pcmPacketWriteChannelsSamples>() },
            { "channels > 0", { DO( PacketSetChannels, pkt(), 0 ) } },
            { "KIT_INT_MUL_OK( channels, KIT_SIZEOF( PCM_SAMPLE ) )", { DO( PacketSetChannels, pkt(), tooMany ) } },
            { "frames >= 0",
                { DO( PacketSetFrames, pkt() ), DO( PacketInsertZero, pkt(), most ),
                    DO( PacketInsertOuter, pkt(), 0, source(), 0, 6 ), DO( PacketWriteInner, pkt(), 0, source(), 6 ),
                    DO( PacketWriteOuter, pkt(), 0, source(), 6 ), DO( PacketWriteZero, pkt(), 4 ),
                    DO( PacketDelInner, pkt(), 4 ), DO( PacketDelOuter, pkt(), 4 ), DO( PacketDelTrailing, pkt() ),
                    DO( PacketWriteChannelsSamples, pkt(), 0, 0, block, 0, 1, 0, 0 ) } },
            { "idx >= 0",
                { DO( PacketWriteInner, pkt() ), DO( PacketWriteOuter, pkt() ), DO( PacketWriteZero, pkt() ),
                    DO( PacketInsertZero, pkt() ), DO( PacketDelInner, pkt() ), DO( PacketDelOuter, pkt() ),
                    DO( PacketDelTrailing, pkt(), 4 ) } },
            { "source", { DO( PacketWrite, null ), DO( PacketWriteInner, pkt(), 0 ), DO( PacketWriteOuter, pkt(), 0 ),
                            DO( PacketWriteLeading, pkt(), 0 ), DO( PacketWriteTrailing, null ),
                            DO( PacketInsert, null ), DO( PacketInsertInner, pkt(), 0, null, -1, 0 ),
                            DO( PacketInsertOuter, pkt(), -1, null, -1, least ), DO( PacketInsertLeading, null ),
                            DO( PacketInsertTrailing, null ), DO( PacketPrependLeading, pkt() ),
                            DO( PacketAppendOuter, pkt() ),
                            DO( PacketWriteChannels, NullHandle(), -1, -1, null, -1, 1, -1, most ) } },
            { "KIT_INT_SUB_OK( source->frames, frames )",
                { DO( PacketWriteTrailing, null, -1, source(), least ),
                    DO( PacketInsertTrailing, null, -1, source(), least ),
                    DO( PacketInsertOuter, NullHandle(), -1, source(), -1, least ) } },
            { "KIT_INT_SUB_OK( (*pkt)->frames, frames )", { DO( PacketDelTrailing, pkt(), least + 3 ) } },
            { "KIT_INT_ADD_OK( idx, frames )",
                { DO( PacketInsertZero, pkt(), most, most ), DO( PacketWriteZero, pkt(), most, 1 ),
                    DO( PacketWriteInner, pkt(), most, source(), 0, 1 ), DO( PacketDelInner, pkt(), most, 1 ),
                    DO( PacketDelOuter, pkt(), 1, most ) } },
            { "KIT_INT_ADD_OK( (*pkt)->frames, frames )", { DO( PacketInsertZero, pkt(), 0, most ) } },
            { "offset >= 0", { DO( PacketWriteInner, pkt(), 4, source() ), DO( PacketWriteOuter, pkt(), 4, source() ),
                                 DO( PacketWriteTrailing, pkt(), 0, source(), 6 ) } },
            { "KIT_INT_ADD_OK( offset, frames )", { DO( PacketWriteInner, pkt(), 0, source(), most, 1 ),
                                                      DO( PacketWriteOuter, pkt(), 0, source(), most, 1 ) } },
            { "offset + frames <= source->frames", { DO( PacketWriteInner, pkt(), most, source(), 5, 1 ),
                                                       DO( PacketWriteOuter, pkt(), most, source(), 5, 1 ),
                                                       DO( PacketPrependInner, pkt(), source(), 5, 1 ) } },
            { "idx + frames <= (*pkt)->frames",
                { DO( PacketWriteInner, pkt(), 3, source( 5, 3 ), 0, 1 ), DO( PacketWriteZero, pkt(), 3, 1 ),
                    DO( PacketInsertZero, pkt(), 4, 1 ), DO( PacketDelInner, pkt(), 3, 1 ),
                    DO( PacketDelOuter, pkt(), 0, 4 ), DO( PacketInsertInner, pkt(), 4, source(), 0, 1 ) } },
            { "KIT_INT_ADD_OK( idx, source->frames - frames )",
                { DO( PacketWriteOuter, pkt(), most, source(), 0, 4 ) } },
            { "idx + (source->frames - frames) <= (*pkt)->frames",
                { DO( PacketWriteOuter, pkt(), 3, source( 5, 3 ), 0, 4 ),
                    DO( PacketWriteOuter, pkt(), most - 4, source(), 0, 4 ) } },
            { "(*pkt)->channels == source->channels", { DO( PacketWriteInner, pkt(), 0, source( 5, 3 ), 0, 0 ),
                                                          DO( PacketWriteOuter, pkt(), 0, source( 5, 3 ), 0, 5 ),
                                                          DO( PacketAppend, pkt(), source( 5, 3 ) ) } },
            { "KIT_INT_ADD_OK( sourceFrameOffset, frames )",
                { DO( PacketWriteChannels, NullHandle(), -1, -1, source(), -1, 1, -1, most ),
                    DO( PacketWriteChannelsSamples, pkt(), 0, 0, block, 0, 2, most, -1, 1 ) } },
            { "sourceFrameOffset + frames <= source->frames",
                { DO( PacketWriteChannels, NullHandle(), -1, -1, source(), -1, 5, -1, 1 ) } },
            { "destChannelOffset >= 0", { DO( PacketWriteChannelsSamples, pkt(), least ) } },
            { "KIT_INT_ADD_OK( destChannelOffset, channels )",
                { DO( PacketWriteChannelsSamples, pkt(), 1, -1, null, -1, -1, -1, most, 1 ) } },
            { "destChannelOffset + channels <= (*pkt)->channels",
                { DO( PacketWriteChannelsSamples, pkt(), 1, -1, null, -1, -1, -1, 2, 1 ) } },
            { "destFrameOffset >= 0", { DO( PacketWriteChannelsSamples, pkt(), 0, least ) } },
            { "KIT_INT_ADD_OK( destFrameOffset, frames )",
                { DO( PacketWriteChannelsSamples, pkt(), 0, 1, null, -1, -1, -1, 2, most ) } },
            { "destFrameOffset + frames <= (*pkt)->frames",
                { DO( PacketWriteChannelsSamples, pkt(), 0, 3, null, -1, -1, -1, 2, 1 ) } },
            { "source || !frames", { DO( PacketWriteChannelsSamples, pkt(), 0, 0, null, -1, -1, -1, 2, 1 ) } },
            { "sourceChannelOffset >= 0", { DO( PacketWriteChannelsSamples, pkt(), 0, 0, block, least ) } },
            { "KIT_INT_ADD_OK( sourceChannelOffset, channels )",
                { DO( PacketWriteChannelsSamples, pkt(), 0, 0, block, most, -1, -1, 2, 1 ) } },
            { "sourceChannelOffset + channels <= sourceChannelCount",
                { DO( PacketWriteChannelsSamples, pkt(), 0, 0, block, 1, 2, -1, 2, 1 ) } },
            { "sourceFrameOffset >= 0", { DO( PacketWriteChannelsSamples, pkt(), 0, 0, block, 0, 2, least ) } },
            { "channels >= 0", { DO( PacketWriteChannelsSamples, pkt(), 1, 0, block, 1, 2, 0 ) } },
        } },
    { "pcm_packet_queue",
        {
            STANDARD( PCM_PACKET_QUEUE, pcmPacketQueue, *queue(), pcmPacketObj( source() ) ),
            DESTRUCTOR( PCM_PACKET_QUEUE, pcmPacketQueue, "queue", pcmPacketObj( source() ) ),
            { "channels > 0", { DO( PacketQueueCreate, 0 ) } },
            { "source", { DO( PacketQueueCreateFrom, null ) } },
            { "queue", onNull<pcmPacketQueueFrames, pcmPacketQueuePackets, pcmPacketQueueChannels>() },
            { "KIT_INT_ADD_OK( kitVectorLength( (*queue)->packetsVector ) + !!(*queue)->currentPacket, 1 )",
                { DO( PacketQueueWrite, fullQueue() ) } },
            { "pkt", { DO( PacketQueueWrite, queue() ) } },
            { "KIT_INT_ADD_OK( (*queue)->frames, length )", { DO( PacketQueueWrite, queue(), vast( most, 2 ) ) } },
            { "frames <= (*queue)->frames", { DO( SrcGather, src(), 1 ), DO( PacketQueueGather, queue(), 6 ) } },
            { "queue", onNull<pcmPacketQueueWrite, pcmPacketQueueRead, pcmPacketQueueGather,
                           pcmPacketQueueGatherSamples, pcmPacketQueueClear>() },
            { "*queue", onNullHandle<pcmPacketQueueWrite, pcmPacketQueueRead, pcmPacketQueueGather,
                            pcmPacketQueueGatherSamplesAdd, pcmPacketQueueClear>() },
            { "pcmPacketChannels( pkt ) == (*queue)->channels", { DO( PacketQueueWrite, queue(), source( 5, 3 ) ) } },
            { "frames >= 0", { DO( PacketQueueGather, queue() ), DO( PacketQueueGatherSamples, queue() ) } },
            { "frames == 0 || dest", { DO( PacketQueueGatherSamples, queue(), null, 6 ),
                                         DO( PacketQueueGatherSamplesAdd, queue(), null, 1 ) } },
            { "(*queue)->frames >= frames", { DO( PacketQueueGatherSamples, queue(), block, 6 ),
                                                DO( PacketQueueGatherSamplesAdd, queue(), block, 6 ) } },
            { "!(*queue)->currentPacketUsed",
                { DO( PacketQueueGather, usedQueue(), 5 ), DO( PacketQueueGatherSamples, usedQueue(), block, 1 ) } },
        } },
    { "pcm_src_type",
        {
            { "kits", { DO( SrcTypeFromString, null ) } },
            { "PCM_SRC_TYPE_OK( type )",
                { DO( SrcTypeToString, 5 ), DO( SrcTypeToString, -1 ), DO( ___SrcTypeToSamplerateConverterType, 5 ),
                    DO( ___SrcTypeToSamplerateConverterType, least ) } },
        } },
    { "pcm_src",
        {
            STANDARD( PCM_SRC, pcmSrc, src(), pcmPacketObj( source() ) ),
            DESTRUCTOR( PCM_SRC, pcmSrc, "src", pcmPacketObj( source() ) ),
            { "PCM_SRC_TYPE_OK( type )", { DO( SrcTryCreate, 5, 0, 0, 0 ), DO( SrcTryCreate, -1, 0, 0, 0 ) } },
            { "readFrameRate > 0", { DO( SrcTryCreate, 4, 0, 0, 0 ), DO( SrcFrameRateCheckCompatibility, 0, 0 ) } },
            { "writeFrameRate > 0", { DO( SrcTryCreate, 4, 1, 0, 0 ), DO( SrcFrameRateCheckCompatibility, 1, 0 ) } },
            { "channels > 0", { DO( SrcTryCreate, 4, 1, 1, least ) } },
            { "KIT_INT_TO_SIGNED_INT_CONV_OK( channels )", { DO( SrcTryCreate, 4, 1, 1, int64_t{ 1 } << 31 ) } },
            { "src", onNull<pcmSrcWrite, pcmSrcRead, pcmSrcGather, pcmSrcGatherSamples, pcmSrcGatherSamplesAdd,
                         pcmSrcReset, pcmSrcFrames, pcmSrcPackets, pcmSrcChannels, pcmSrcType, pcmSrcReadFrameRate,
                         pcmSrcWriteFrameRate>() },
            { "pkt", { DO( SrcWrite, src() ) } },
            { "pcmPacketChannels( pkt ) == src->fixChannels", { DO( SrcWrite, src(), vast( most, 3 ) ) } },
            { "KIT_INT_TO_SIGNED_LONG_CONV_OK( pktFrames )",
                { DO( SrcWrite, src(), vast( int64_t{ 1 } << 31, 2 ) ) } },
            { "KIT_INT_ADD_OK( outFrames, frames )", { CALL( convert( 1024, 0, 0, 0x1p53 - 1, 2048 ) ) } },
            { "KIT_INT_TO_SIGNED_LONG_CONV_OK( outFrames )",
                { DO( SrcWrite, withWord( src( 256 ), 8, tooMany ), vast( 1 << 23, tooMany ) ) } },
            { "KIT_INT_MUL_OK( outFrames, src->fixChannels )",
                { DO( SrcWrite, withWord( src( 256 ), 8, int64_t{ 1 } << 33 ),
                    vast( 1 << 22, int64_t{ 1 } << 33 ) ) } },
            { "!src_process( src->intSrcState, &sd )", { CALL( convert( 0, 0, 1 ) ) } },
            { "sd.input_frames_used || sd.output_frames_gen", { CALL( convert( 0, 0 ) ) } },
            { "sd.input_frames_used >= 0", { CALL( convert( -1, -1 ) ) } },
            { "sd.input_frames_used <= (long)(pktFrames - pktIndex)",
                { CALL( convert( 6, -1 ) ), CALL( convert( 3, 0 ) ) } },
            { "sd.output_frames_gen >= 0", { CALL( convert( 5, -1 ) ) } },
            { "sd.output_frames_gen <= (long)(outFrames - outIndex)",
                { CALL( convert( 5, 6 ) ), CALL( convert( 1, 4 ) ) } },
        } },
    { "pcm_channels",
        {
            { "channels > 0", { DO( ChannelsAdjustReplaceWithDownmix, pkt(), 0 ),
                                  DO( ChannelsAdjustExpandWithDownmix, pkt(), least ) } },
            { "pkt", onNull<pcmChannelsAdjustReplaceWithDownmix, pcmChannelsAdjustExpandWithDownmix>() },
            { "*pkt", onNullHandle<pcmChannelsAdjustReplaceWithDownmix, pcmChannelsAdjustExpandWithDownmix>() },
        } },
    { "pcm_frames",
        {
            { "pkt", onNull<pcmFramesExtend, pcmFramesReduce>() },
            { "*pkt", onNullHandle<pcmFramesExtend, pcmFramesReduce>() },
            { "mult > 1", { DO( FramesExtend, pkt(), 1 ) } },
            { "div > 1", { DO( FramesReduce, pkt(), 1 ) } },
            { "KIT_INT_MUL_OK( sourceFrames, mult )", { DO( FramesExtend, pkt(), most ) } },
            { "sourceFrames % div == 0", { DO( FramesReduce, pkt(), 2 ) } },
            { "KIT_INT_MUL_OK( destFrames, sourceChannels )", { DO( FramesExtend, pkt(), tooMany ) } },
            { "sourceChannels > 0", { DO( FramesReduce, held( withWord( source( 5 ), 5, int64_t{ 0 } ) ), 2 ) } },
            { "KIT_INT_MUL_OK( destFrames, sourceChannels )",
                { DO( FramesReduce, held( vast( most - 1, 4 ) ), 2 ) } },
        } },
    { "pcm_filter_type",
        {
            { "kits", { DO( FilterTypeFromString, null ) } },
            { "PCM_FILTER_TYPE_OK( type )", { DO( FilterTypeToString, 7 ), DO( FilterTypeToString, -1 ) } },
        } },
    { "pcm_filter_coefficients",
        {
            STANDARD( PCM_FILTER_COEFFICIENTS, pcmFilterCoefficients, taps(), pcmPacketObj( source() ) ),
            DESTRUCTOR( PCM_FILTER_COEFFICIENTS, pcmFilterCoefficients, "coeff", pcmPacketObj( source() ) ),
            { "PCM_FILTER_TYPE_OK( type )",
                { DO( FilterCoefficientsCreate, 7 ), DO( FilterCoefficientsCreate, -1 ) } },
            { "source", { DO( FilterCoefficientsCreateFrom, null ) } },
            { "coefficients",
                onNull<pcmFilterCoefficientsCreateFromSamplesCopy, pcmFilterCoefficientsCreateFromSamplesUse>() },
            { "length > 0", { DO( FilterCoefficientsCreateFromSamplesCopy, block, least ),
                                DO( FilterCoefficientsCreateFromSamplesUse, block, 0 ) } },
            { "coeff", onNull<pcmFilterCoefficientsBacking, pcmFilterCoefficientsLength>() },
        } },
    { "pcm_filter",
        {
            STANDARD( PCM_FILTER, pcmFilter, *filter(), pcmPacketObj( source() ) ),
            DESTRUCTOR( PCM_FILTER, pcmFilter, "filter", pcmPacketObj( source() ) ),
            { "coefficients", { DO( FilterCreate, null, 0 ) } },
            { "channels > 0", { DO( FilterCreate, taps(), 0 ) } },
            { "KIT_INT_MUL_OK( filter->coefficientsLength, filter->channels )",
                { DO( FilterCreate, taps(), most ) } },
            { "source", { DO( FilterCreateFrom, null ) } },
            { "pkt", { DO( FilterWrite, filter() ) } },
            { "*filter", onNullHandle<pcmFilterWrite, pcmFilterRead, pcmFilterGather, pcmFilterReset>() },
            { "pcmPacketChannels( pkt ) == (*filter)->channels", { DO( FilterWrite, filter(), source( 5, 3 ) ) } },
            { "filter", onNull<pcmFilterWrite, pcmFilterRead, pcmFilterGather, pcmFilterGatherSamples,
                            pcmFilterGatherSamplesAdd, pcmFilterReset, pcmFilterFrames, pcmFilterPackets,
                            pcmFilterChannels, pcmFilterCoefficients>() },
        } },
    { "pcm_tone",
        {
            STANDARD( PCM_TONE, pcmTone, tone(), pcmPacketObj( source() ) ),
            { "period > 0", { DO( ToneCreate, 0.0 ), DO( ToneCreate, -1.0 ), DO( ToneCreate, NAN ),
                                DO( ToneCreate, -INFINITY ) } },
            { "frameRate > 0",
                { DO( ToneTryCreateWithFrequency, 0, 0 ), DO( ToneTryCreateWithFrequency, least, 0 ) } },
            { "hertz > 0",
                { DO( ToneTryCreateWithFrequency, 1, 0 ), DO( ToneTryCreateWithFrequency, most, least ) } },
            { "tone", { DO( ToneGather, null ), TONE( null ) } },
            { "samples >= 0", { DO( ToneGather, tone() ), TONE( tone() ) } },
            { "samples == 0 || dest", { TONE( tone(), null, 1 ) } },
        } },
    { "pcm_dual_tone", { MIX( DualTone ) } },
    { "pcm_modulated_tone", { MIX( ModulatedTone ) } },
    { "pcm_noise",
        {
            { "samples >= 0", { DO( NoiseGather, -1 ), NOISE( null ) } },
            { "samples == 0 || dest", { NOISE( null, 1 ) } },
        } },
    { "pcm_level",
        {
            { "pkt", onNull<pcmLevelAdjust, pcmLevelAdjustLinearGain>() },
            { "*pkt", onNullHandle<pcmLevelAdjust, pcmLevelAdjustLinearGain>() },
        } },
    { "pcm_decibel",
        {
            { "!kitRealIsNan( gain )", { DO( DecibelFromGain, NAN ), CALL( convertWith( pcmDecibelToGain, NAN ) ) } },
            { "kitRealIsFinite( gain )", { DO( DecibelFromGain, -INFINITY ), DO( DecibelFromGain, INFINITY ),
                                             CALL( convertWith( pcmDecibelToGain, INFINITY ) ) } },
            { "gain >= 0", { DO( DecibelFromGain, -0x1p-1074 ) } },
            { "!kitRealIsNan( decibel )", { DO( DecibelToGain, NAN ), DO( LevelAdjust, pkt() ),
                                              CALL( convertWith( pcmDecibelFromGain, NAN ) ) } },
            { "kitRealIsFinite( decibel )",
                { DO( DecibelToGain, -INFINITY ), DO( LevelAdjustSamples, null, -1, INFINITY ),
                    CALL( convertWith( pcmDecibelFromGain, -INFINITY ) ) } },
        } },
    { "kit_string",
        {
            { "length >= -1", { CALL( kitStringCreateFromCstr( null, -2 ) ) } },
            { "cstr || length == 0", { CALL( kitStringCreateFromCstr( null, -1 ) ) } },
            { "KIT_INT_ADD_OK( length, KIT_SIZEOF( KIT_STRING ) + 1 )",
                { CALL( kitStringCreateFromCstr( "", most - 48 ) ) } },
            { "string", onNull<kitStringBacking, kitStringLength>() },
        } },
    { "kit_names",
        {
            { "text || length == 0", { CALL( kitFlagsetHasFlagCstr( kitFlagsetCreate(), null, -1 ) ) } },
        } },
    { "kit_flagset",
        {
            { "set", onNull<kitFlagsetSetFlagCstr, kitFlagsetHasFlagCstr, kitFlagsetParse, kitFlagsetGenerate>() },
            { "*set", onNullHandle<kitFlagsetSetFlagCstr>() },
            { "string", { CALL( kitFlagsetParse( kitFlagsetCreate(), null ) ) } },
        } },
    { "kit_enum",
        {
            { "enumeration", onNull<kitEnumSetEnumerantCstr, kitEnumParse, kitEnumGenerate>() },
            { "*enumeration", onNullHandle<kitEnumSetEnumerantCstr>() },
        } },
    { "kit_vector",
        {
            { "vector", onNull<kitVectorAppendObj, kitVectorUnshift, kitVectorClear, kitVectorLength>() },
            { "*vector", onNullHandle<kitVectorAppendObj, kitVectorUnshift, kitVectorClear>() },
            { "obj", { CALL( kitVectorAppendObj( held( kitVectorCreate() ), null ) ) } },
        } },
    { "kit_object",
        {
            { "obj", onNull<kitObjRetain, kitObjRelease, kitObjSort, kitObjToString, kit___ObjFree,
                         kit___ObjDbgAllocationSize, kit___ObjDbgSetAllocationSizeN>() },
            { "size >= KIT_SIZEOF( KIT_OBJ )", { CALL( kit___ObjCreate( 39, null ) ) } },
            { "sort", { CALL( kit___ObjCreate( 40, null ) ) } },
        } },
    { "kit_module",
        {
            { "module", onNull<kitModuleStartup, kitModuleShutdown>() },
            { "started", { CALL( KIT_MODULE idle{ {}, {}, [] { return 0; }, {}, {} }; kitModuleStartup( &idle ) ) } },
        } },
    { "kit_random",
        {
            { "low >= 0", { CALL( kitRandomNonNegativeIntRange( -1, -1 ) ) } },
            { "low < high", { CALL( kitRandomNonNegativeIntRange( 7, 7 ) ) } },
        } },
    { "kit_memory",
        {
            { "count >= 0", { DO( ___SamplesCopy, null ), CALL( kitMemAllocN( -1, -1 ) ) } },
            { "dest || !bytes", { DO( ___SamplesMove, null, null, 1 ), CALL( kitMemCopy( null, block, 1 ) ),
                                    CALL( kitMemSetN( null, 0, 1, 1 ) ) } },
            { "source || !bytes", { DO( ___SamplesMove, block, null, 1 ), CALL( kitMemCopy( block, null, 1 ) ) } },
            { "KIT_INT_MUL_OK( count, size )",
                { DO( FilterCreate, taps( 1 ), most ), DO( ToneGather, tone(), most ),
                    DO( DualToneGather, tone(), tone(), most ), DO( ModulatedToneGather, tone(), tone(), most ),
                    DO( NoiseGather, most ), DO( SilenceGather, most ),
                    DO( PacketSetChannels, held( vast( tooMany, 2 ) ), 1 ),
                    CALL( kitMemReallocN( null, most, 2 ) ) } },
            { "bytes >= 0", { CALL( kitMemAlloc( -1 ) ) } },
            { "size >= 0", { CALL( kitMemSetN( null, 0, 1, -1 ) ) } },
        } },
};

void expectAbort( const char *context, const char *file, const std::string &text, std::function<void()> call )
{
    std::string line = std::string( context ) + "|source/pcm/" + file + "|" + text + "|";
    if ( !std::strncmp( file, "kit", 3 ) ) line.replace( line.find( "pcm" ), 3, "kit" );
    std::string start = "^";
    for ( char c : line ) {
        if ( std::strchr( ".[]{}()*+?^$|\\", c ) ) start += '\\';
        start += c;
    }
    EXPECT_EXIT( call(), testing::KilledBySignal( SIGABRT ), start );
}

TEST( Contract, EveryViolationAbortsWithItsCondition )
{
    for ( auto &[file, rows] : files )
        for ( auto &[text, calls, context] : rows )
            for ( auto &call : calls ) {
                SCOPED_TRACE( testing::Message() << "call " << &call - calls.data() << " of " << text );
                expectAbort( context, file, text, call );
            }
}

// Legal sizes that exceed the memory, which is limited to 256 MiB. No function returns null or accesses a sample
// first: the arguments claim to be this large, but have blocks of 64 bytes.
TEST( Contract, TooLittleMemoryAborts )
{
#if defined( __SANITIZE_ADDRESS__ ) || defined( __SANITIZE_THREAD__ )
    GTEST_SKIP() << "the sanitizer reserves more address space";
#endif
    static constexpr int64_t many = 1 << 28;
    void ( *const calls[] )() = { DO( PacketCreateFrom, vast( many, 1 ) ),
        DO( PacketCreateFromSamplesCopy, block, 1, many ), DO( PacketSetFrames, pkt(), many ),
        DO( PacketSetChannels, pkt(), many ), DO( PacketMutableBacking, held( pcmPacketRetain( vast( many, 1 ) ) ) ),
        DO( PacketAppend, pkt(), vast( many, 2 ) ), DO( PacketEncode, vast( many, 1 ), PCM_ENCODING_INT_16 ),
        DO( PacketTryDecode, bytes( many ), PCM_ENCODING_INT_8, 1 ),
        DO( PacketCreateFromWithChannels, vast( many, 1 ), 2 ),
        DO( PacketCreateFromWithChannelMask, vast( many, 2 ), 1 ),
        DO( TryConvert, PCM_ENCODING_INT_32, bytes( many ), PCM_ENCODING_INT_8 ),
        DO( PacketQueueGather, vastQueue( many ), many + 1 ), DO( FilterCreate, taps(), many ),
        DO( FilterWrite, filter(), vast( many, 2 ) ), DO( SrcWrite, src(), vast( many, 2 ) ),
        DO( FilterCoefficientsCreateFromSamplesCopy, block, many ), DO( ToneGather, tone(), many ),
        DO( DualToneGather, tone(), tone(), many ), DO( ModulatedToneGather, tone(), tone(), many ),
        DO( NoiseGather, many ), DO( SilenceGather, many ), DO( FramesExtend, held( vast( many, 1 ) ), 2 ),
        DO( FramesReduce, held( vast( many, 1 ) ), 2 ), DO( ChannelsAdjustReplaceWithDownmix, pkt(), many ),
        CALL( kitStringCreateFromCstr( "", many ) ) };
    for ( auto &call : calls ) {
        SCOPED_TRACE( &call - calls );
        expectAbort( "out of memory", "kit_memory", "memory", [=] {
            const rlimit little = { 1 << 28, 1 << 28 };
            setrlimit( RLIMIT_AS, &little );
            call();
        } );
    }
}

// The second pass receives the rest of the input. Its block has room for the frames that the first pass left, and for
// a new estimate for that input.
TEST( RateConverter, SizesItsSecondPass )
{
    int passes = 0;
    fake_src_process = [&]( SRC_STATE *, SRC_DATA *data ) {
        EXPECT_EQ( data->input_frames, passes ? 3 : 5 );
        EXPECT_EQ( data->output_frames, passes ? 9 + 6 : 10 );
        data->input_frames_used = passes ? 3 : 2;
        data->output_frames_gen = passes++ ? 15 : 1;
        std::fill_n( data->data_out, 2 * data->output_frames_gen, float( passes ) );
        return 0;
    };
    pcm::Src src = *pcm::Src::tryCreate( pcm::SrcType::zeroOrderHold, 2, 1, 2 );
    src.write( pcm::Packet( std::vector<float>( 10 ), 2 ) );
    fake_src_process = nullptr;
    EXPECT_EQ( passes, 2 );
    std::vector<float> wanted( 32, 2.0f );
    wanted[0] = wanted[1] = 1;
    const pcm::Packet made = src.read();
    EXPECT_EQ( std::vector<float>( made.samples().begin(), made.samples().end() ), wanted );
}

TEST( Contract, AFlagNameThatExistsAbortsTheStart )
{
    for ( const std::string &flag : test::flagNames ) {
        auto start = [&] {
            fake_kitFlagsetHasFlagCstr = [&]( auto, const char *name, auto ) { return name == flag; };
            kitModuleShutdown( pcmModule() );
            kitModuleStartup( pcmModule() );
        };
        std::string text = "!kitFlagsetHasFlagCstr( *(&pcm___EncodingFlagset), \"" + flag + "\", -1 )";
        expectAbort( "", "pcm_encoding", text, start );
    }
}

} // namespace
