#ifndef OPERATIONS_H
#define OPERATIONS_H

// The library's operations on samples in tables, each beside its model: the tests walk them at random, and `golden`
// on input that is the same everywhere.

#include "handles.h"
#include "reference.h"

#include <samplerate.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>

namespace operations {

using test::Packet, test::Samples;

/// The library's conversion of bytes, little-endian ones for word 0; it writes nothing behind them.
inline std::vector<uint8_t> converted( uint64_t dest, uint64_t source, const std::vector<uint8_t> &bytes )
{
    const reference::Encoding to{ dest }, from{ source };
    const int64_t samples = int64_t( bytes.size() ) / from.slot();
    std::vector<uint8_t> made( size_t( samples * to.slot() ) + 64, 0xA7 );
    pcm___Convert( made.data(), dest, reference::inMemory( source, bytes ).data(), source, samples );
    if ( std::count( made.end() - 64, made.end(), 0xA7 ) != 64 ) std::abort();
    made.resize( made.size() - 64 );
    return reference::inMemory( dest, made );
}

namespace kernels {

enum Op { zero, copy, move, add, mul, scale };

/// What a kernel is told. A flat kernel walks channel 0 of 1.
struct Call {
    float *dest;
    int64_t destChannel, destChannels;
    const float *source;
    int64_t sourceChannel, sourceChannels, frames;
    double factor;
};

#define BLOCKS c.dest, c.source, c.frames
#define DEST c.dest, c.destChannel, c.destChannels, c.frames
#define SIDES c.dest, c.destChannel, c.destChannels, c.source, c.sourceChannel, c.sourceChannels, c.frames

inline const struct Kernel {
    const char *name;
    Op op;
    bool flat;
    void ( *run )( const Call & );
} all[] = { { "Zero", zero, true, []( const Call &c ) { pcm___SamplesZero( c.dest, c.frames ); } },
    { "Copy", copy, true, []( const Call &c ) { pcm___SamplesCopy( BLOCKS ); } },
    { "Move", move, true, []( const Call &c ) { pcm___SamplesMove( BLOCKS ); } },
    { "Add", add, true, []( const Call &c ) { pcm___SamplesAdd( BLOCKS ); } },
    { "Mul", mul, true, []( const Call &c ) { pcm___SamplesMul( BLOCKS ); } },
    { "Scale", scale, true, []( const Call &c ) { pcm___SamplesScale( c.dest, c.frames, c.factor ); } },
    { "ChannelZero", zero, false, []( const Call &c ) { pcm___SamplesChannelZero( DEST ); } },
    { "ChannelCopy", copy, false, []( const Call &c ) { pcm___SamplesChannelCopy( SIDES ); } },
    { "ChannelAdd", add, false, []( const Call &c ) { pcm___SamplesChannelAdd( SIDES ); } },
    { "ChannelMul", mul, false, []( const Call &c ) { pcm___SamplesChannelMul( SIDES ); } },
    { "ChannelScale", scale, false, []( const Call &c ) { pcm___SamplesChannelScale( DEST, c.factor ); } } };

inline void model( Op op, const Call &c )
{
    std::vector<float> before;
    if ( op == move ) before.assign( c.source, c.source + c.frames );
    for ( int64_t f = 0; f < c.frames; ++f ) {
        float *d = c.dest + f * c.destChannels + c.destChannel, narrowed = float( c.factor );
        const float *s = op == move ? &before[size_t( f )] : c.source + f * c.sourceChannels + c.sourceChannel;
        if ( op == zero ) *d = 0;
        if ( op == copy || op == move ) std::memcpy( d, s, sizeof *d );
        if ( op == add ) *d = *d + *s;
        if ( op == mul ) *d = *d * *s;
        if ( op == scale ) *d = *d * narrowed;
    }
}

inline constexpr double factors[] = { 0.1, 1.0 / 3, -0.0, -1.0, 1e-50, 1e-44, 1 + 0x1p-25, 3e38, INFINITY, NAN };

} // namespace kernels

namespace edits {

using Frames = std::vector<Samples>;

enum Verb { Write, Insert, Append, Prepend, Del, Clear, SetFrames, SetChannels, MutableBacking };
struct Args {
    int64_t idx, start, frames, channels;
    PCM_PACKET *source;
};

// Which frames of how many a word names.
using Word = bool ( * )( int64_t frame, int64_t total, const Args &a );
inline const Word part = []( int64_t, int64_t, const Args & ) { return true; };
inline const Word partInner = []( int64_t f, int64_t, const Args &a ) {
    return f >= a.start && f < a.start + a.frames;
};
inline const Word partOuter = []( int64_t f, int64_t n, const Args &a ) { return !partInner( f, n, a ); };
inline const Word partLeading = []( int64_t f, int64_t, const Args &a ) { return f < a.frames; };
inline const Word partTrailing = []( int64_t f, int64_t n, const Args &a ) { return f >= n - a.frames; };
inline const Word partZero = nullptr;

struct Row {
    const char *name;
    Verb verb;
    Word word;
    void ( *call )( PCM_PACKET **pkt, const Args &a );
};

// clang-format off
#define CALL( name, verb, word, ... ) \
    { #name, verb, word, []( PCM_PACKET **pkt, [[maybe_unused]] const Args &a ) { __VA_ARGS__; } }
#define EDIT( verb, word, ... ) \
    CALL( pcmPacket##verb##word, verb, part##word, pcmPacket##verb##word( pkt, __VA_ARGS__ ) )
// All words of a verb; `place` is an index and a comma, or nothing.
#define EDITS( verb, place ) \
    EDIT( verb, , place a.source ), \
    EDIT( verb, Inner, place a.source, a.start, a.frames ), \
    EDIT( verb, Outer, place a.source, a.start, a.frames ), \
    EDIT( verb, Leading, place a.source, a.frames ), \
    EDIT( verb, Trailing, place a.source, a.frames ), \
    EDIT( verb, Zero, place a.frames )
#define AT a.idx,

inline const Row rows[] = {
    EDITS( Write, AT ), EDITS( Insert, AT ), EDITS( Append, ), EDITS( Prepend, ),
    EDIT( Del, Inner, a.start, a.frames ),
    EDIT( Del, Outer, a.start, a.frames ),
    EDIT( Del, Leading, a.frames ),
    EDIT( Del, Trailing, a.frames ),
    CALL( pcmPacketClear, Clear, partZero, pcmPacketClear( pkt ) ),
    CALL( pcmPacketSetFrames, SetFrames, partZero, pcmPacketSetFrames( pkt, a.frames ) ),
    CALL( pcmPacketSetChannels, SetChannels, partZero, pcmPacketSetChannels( pkt, a.channels ) ),
    CALL( pcmPacketMutableBacking, MutableBacking, partZero,
        PCM_SAMPLE *backing = pcmPacketMutableBacking( pkt );
        if ( backing != pcmPacketBacking( *pkt ) ) std::abort();
        if ( backing ) backing[pcmPacketFrames( *pkt ) * pcmPacketChannels( *pkt ) - 1] = -1 ),
};
// clang-format on

struct Model {
    int64_t channels;
    Frames frames;
    bool legal = true, something = true;

    Samples samples() const
    {
        Samples all;
        for ( auto &frame : frames ) all.insert( all.end(), frame.begin(), frame.end() );
        return all;
    }
};

/// A block of samples, frame by frame.
inline Frames framesOf( const Samples &samples, int64_t channels )
{
    Frames frames;
    for ( auto at = samples.begin(); at != samples.end(); at += channels ) frames.emplace_back( at, at + channels );
    return frames;
}

inline Model after( const Row &row, const Model &before, const Frames &source, const Args &a )
{
    Model m = { before.channels, before.frames };
    const Samples silence( size_t( m.channels ), 0.0f );
    Frames taken, rest, all = row.verb == Del ? m.frames : source;
    if ( !row.word ) taken.resize( size_t( a.frames ), silence ), all.clear();
    for ( size_t f = 0; f < all.size(); ++f )
        ( row.word( int64_t( f ), int64_t( all.size() ), a ) ? taken : rest ).push_back( all[f] );
    auto size = int64_t( m.frames.size() ), idx = row.verb == Append ? size : row.verb == Prepend ? 0 : a.idx;
    if ( row.verb == Write ) {
        m.legal = idx + int64_t( taken.size() ) <= size;
        if ( m.legal ) std::copy( taken.begin(), taken.end(), m.frames.begin() + idx );
    }
    if ( row.verb > Write && row.verb < Del ) m.frames.insert( m.frames.begin() + idx, taken.begin(), taken.end() );
    if ( row.verb == Del ) m.frames = rest;
    if ( row.verb == Clear ) m.frames.clear();
    if ( row.verb == SetFrames ) m.frames.resize( size_t( a.frames ), silence );
    if ( row.verb == SetChannels ) m.channels = a.channels;
    for ( auto &frame : m.frames ) frame.resize( size_t( m.channels ), 0.0f );
    if ( row.verb == MutableBacking && size ) m.frames.back().back() = -1;
    bool resized = m.frames.size() != before.frames.size() || m.channels != before.channels;
    m.something = row.verb == Write ? !taken.empty() : row.verb == MutableBacking || resized;
    return m;
}

} // namespace edits

namespace channels {

struct Block {
    uint64_t channels;
    Samples samples;

    size_t frames() const { return samples.size() / channels; }
    float &at( size_t frame, size_t channel ) { return samples[frame * channels + channel]; }
    float at( size_t frame, size_t channel ) const { return samples[frame * channels + channel]; }
};

template <auto create> void replaceBy( PCM_PACKET **pkt, int64_t n )
{
    Packet old = std::exchange( *pkt, create( *pkt, n ) );
}

enum { withChannels, withMask, replaceWithDownmix, expandWithDownmix, extend, reduce };
inline void ( *const calls[] )( PCM_PACKET **, int64_t ) = { replaceBy<pcmPacketCreateFromWithChannels>,
    replaceBy<pcmPacketCreateFromWithChannelMask>, pcmChannelsAdjustReplaceWithDownmix,
    pcmChannelsAdjustExpandWithDownmix, pcmFramesExtend, pcmFramesReduce };

/// What becomes of a block, frame by frame. `n` is a channel count, a mask or a factor; `stays`: nothing is to be
/// done.
inline Block after( int call, const Block &before, uint64_t n, bool &stays )
{
    const uint64_t S = before.channels;
    Block made = { call == withMask ? uint64_t( std::popcount( n ) ) : call < extend ? n : S, {} };
    stays = call < extend ? made.channels == S && call != replaceWithDownmix : before.samples.empty();
    for ( size_t f = 0; !stays && f < before.frames(); ++f ) {
        Samples frame( &before.samples[f * S], &before.samples[f * S] + S ), chosen;
        float sum = 0;
        for ( float x : frame ) sum += x;
        if ( call != withChannels && S > 1 ) sum *= float( 1.0 / double( S ) );
        for ( size_t c = 0; c < std::min<uint64_t>( S, 64 ); ++c )
            if ( n >> c & 1 ) chosen.push_back( frame[c] );
        if ( call == withMask ) frame = chosen;
        if ( call < withMask || call == replaceWithDownmix || ( call == expandWithDownmix && n < S ) ) frame.clear();
        if ( call < extend ) frame.resize( made.channels, call == withMask ? 0 : sum );
        if ( call == extend ) frame.resize( S * n );
        if ( call == reduce && f % n ) frame.clear();
        made.samples.insert( made.samples.end(), frame.begin(), frame.end() );
    }
    return stays ? before : made;
}

/// A rectangle goes from one block into another.
inline void writeRectangle( Block &dest, int64_t destChannel, int64_t destFrame, const Block &source,
    int64_t sourceChannel, int64_t sourceFrame, int64_t width, int64_t height )
{
    for ( int64_t f = 0; f < height; ++f )
        for ( int64_t c = 0; c < width; ++c )
            dest.at( size_t( destFrame + f ), size_t( destChannel + c ) ) =
                source.at( size_t( sourceFrame + f ), size_t( sourceChannel + c ) );
}

} // namespace channels

namespace streams {

/// The filter frame by frame: as many past frames as there are taps, what nobody has taken, and its packets' sizes.
struct Model {
    Samples taps;
    size_t channels;
    std::deque<Samples> history = std::deque( taps.size(), Samples( channels ) );
    std::deque<float> ready{};
    std::deque<size_t> packets{};

    void write( const Samples &block )
    {
        Samples made;
        for ( auto frame = block.begin(); frame != block.end(); frame += ptrdiff_t( channels ) ) {
            history.pop_front();
            history.emplace_back( frame, frame + ptrdiff_t( channels ) );
            for ( size_t c = 0; c < channels; ++c ) {
                float sum = 0, product;
                for ( size_t i = 0; i < taps.size(); ++i, sum += product )
                    product = history[i][c] * taps[taps.size() - 1 - i];
                made.push_back( sum < -1 ? -1 : sum > 1 ? 1 : sum );
            }
        }
        put( made );
    }
    /// A packet of what is made already, which is all that a queue needs.
    void put( const Samples &block )
    {
        ready.insert( ready.end(), block.begin(), block.end() );
        packets.push_back( block.size() );
    }
    Samples read()
    {
        if ( packets[0] ) return take( packets[0] );
        packets.pop_front();
        return {};
    }
    Samples take( size_t samples )
    {
        auto end = ready.begin() + ptrdiff_t( samples );
        Samples taken( ready.begin(), end );
        ready.erase( ready.begin(), end );
        while ( samples ) {
            size_t n = std::min( samples, packets[0] );
            samples -= n;
            if ( !( packets[0] -= n ) ) packets.pop_front();
        }
        return taken;
    }
};

/// The functions that queue, filter and rate converter have in common.
template <class Handle> struct Calls {
    void ( *write )( Handle, PCM_PACKET * );
    PCM_PACKET *( *read )( Handle );
    PCM_PACKET *( *gather )( Handle, int64_t );
    void ( *into[2] )( Handle, PCM_SAMPLE *, int64_t ); // replacing and adding
};
inline constexpr Calls<PCM_PACKET_QUEUE **> ofQueues = { pcmPacketQueueWrite, pcmPacketQueueRead,
    pcmPacketQueueGather, { pcmPacketQueueGatherSamples, pcmPacketQueueGatherSamplesAdd } };
inline constexpr Calls<PCM_FILTER **> ofFilters = { pcmFilterWrite, pcmFilterRead, pcmFilterGather,
    { pcmFilterGatherSamples, pcmFilterGatherSamplesAdd } };
inline constexpr Calls<PCM_SRC *> ofConverters = { pcmSrcWrite, pcmSrcRead, pcmSrcGather,
    { pcmSrcGatherSamples, pcmSrcGatherSamplesAdd } };

// clang-format off
#define SET( cutOff, rate, sum, decibel, half ) \
    { PCM_FILTER_TYPE_LOWPASS_##cutOff##_AT_##rate, "PCM_FILTER_TYPE_LOWPASS_" #cutOff "_AT_" #rate, cutOff, rate, \
        sum, decibel, mirrored half }

/// From the first half of the taps, each times 10^8.
inline Samples mirrored( const std::vector<int> &half )
{
    Samples taps;
    for ( int tap : half ) taps.push_back( float( tap / 1e8 ) );
    for ( size_t i = half.size(); i--; ) taps.push_back( taps[i] );
    return taps;
}

inline const struct Set {
    int64_t type;
    const char *name;
    double cutOff, rate, sum, decibel; // the gain at 0 Hz and, in decibels, at the cut-off
    Samples taps;
} sets[] = {
    SET( 4000, 16000, 0.97401, -3.76, ( { -692039, -2939334, 1561120, 5077554, -3835860, -9874936, 12675393,
        46728578 } ) ),
    SET( 4000, 24000, 0.98288, -3.40, ( { -743, -1157224, -1402500, 113505, 2371669, 2695675, -677197, -5515933,
        -5668846, 3877607, 20576246, 33931801 } ) ),
    SET( 4000, 48000, 0.98704, -3.26, ( { 93995, -126115, -364955, -551805, -612509, -491882, -176680, 287701, 793933,
        1187851, 1303053, 1010423, 272245, -814065, -1998999, -2904297, -3092136, -2173573, 64716, 3549140, 7863814,
        12287326, 15938070, 18006885 } ) ),
    SET( 6000, 24000, 0.99079, -3.33, ( { -166381, -1081769, 331986, 1768523, -693677, -2940972, 1559481, 5075915,
        -3837499, -9876574, 12673753, 46726942 } ) ),
    SET( 6000, 48000, 0.99601, -3.10, ( { 20451, -134397, -251919, -234377, -42367, 254427, 483893, 453695, 81266,
        -501387, -953355, -883966, -117772, 1078422, 1987852, 1763846, 4262, -2707405, -4694626, -3797615, 1395688,
        10299704, 19978382, 26317838 } ) ),
    SET( 8000, 48000, 0.99843, -3.06, ( { 662, -102161, -125558, -2844, 181886, 226605, 7440, -327570, -410891,
        -10847, 604963, 753968, -2261, -1158741, -1404018, 111987, 2370152, 2694158, -678714, -5517450, -5670363,
        3876090, 20574728, 33930284 } ) ),
    SET( 12000, 48000, 0.99943, -3.06, ( { -5807, -70003, 9739, 108956, -16205, -169985, 27915, 267005, -48887,
        -421832, 88776, 672354, -167224, -1082612, 331143, 1767680, -694521, -2941815, 1558637, 5075073, -3838342,
        -9877416, 12672912, 46726102 } ) ),
};
// clang-format on

inline const int converters[] = { SRC_SINC_BEST_QUALITY, SRC_SINC_MEDIUM_QUALITY, SRC_SINC_FASTEST,
    SRC_ZERO_ORDER_HOLD, SRC_LINEAR };

using Direct = std::unique_ptr<SRC_STATE, decltype( &src_delete )>;

/// What libsamplerate makes of a block.
inline Samples direct( const Direct &state, const Samples &in, long channels, double ratio )
{
    Samples out;
    long frames = long( in.size() ) / channels, taken = 0, room = 0, given = 0;
    while ( taken < frames ) {
        room += std::max( 1L, long( double( frames - taken ) * ratio ) );
        out.resize( size_t( room * channels ) );
        SRC_DATA pass = { in.data() + taken * channels, out.data() + given * channels, frames - taken, room - given,
            0, 0, 0, ratio };
        if ( src_process( state.get(), &pass ) ) std::abort();
        taken += pass.input_frames_used;
        given += pass.output_frames_gen;
    }
    out.resize( size_t( given * channels ) );
    return out;
}

} // namespace streams

namespace signals {

inline double toDecibel( double gain ) { return std::clamp( std::log10( gain ) * 20.0, -200.0, 200.0 ); }

inline double toGain( double decibel ) { return std::pow( 10.0, std::clamp( decibel, -200.0, 200.0 ) / 20.0 ); }

struct Wave {
    double period, position = 0;

    Samples next( int64_t samples )
    {
        Samples made;
        for ( ; int64_t( made.size() ) < samples; position += 1 )
            made.push_back( float( std::sin( 6.283185307179586 / period * position ) ) );
        while ( position > period ) position -= period;
        return made;
    }
};

/// What the functions of a family make of the waves.
inline Samples single( Wave &a, Wave &, int64_t samples ) { return a.next( samples ); }

inline Samples dual( Wave &a, Wave &b, int64_t samples )
{
    Samples made = a.next( samples ), other = b.next( samples );
    for ( size_t i = 0; i < made.size(); ++i ) made[i] = ( made[i] + other[i] ) * 0.5f;
    return made;
}

inline Samples modulated( Wave &a, Wave &b, int64_t samples )
{
    Samples made = a.next( samples ), other;
    for ( size_t i = 0; i < made.size(); ++i ) {
        if ( i % 128 == 0 ) other = b.next( std::min<int64_t>( 128, samples - int64_t( i ) ) );
        made[i] *= other[i % 128];
    }
    return made;
}

inline const struct Family {
    Samples ( *model )( Wave &a, Wave &b, int64_t samples );
    int64_t chunk; // of the function that adds
    PCM_PACKET *( *gather )( PCM_TONE *a, PCM_TONE *b, int64_t samples );
    void ( *gatherSamples )( PCM_TONE *a, PCM_TONE *b, PCM_SAMPLE *dest, int64_t samples );
    void ( *gatherSamplesAdd )( PCM_TONE *a, PCM_TONE *b, PCM_SAMPLE *dest, int64_t samples );
} families[] = {
    { single, INT64_MAX, []( PCM_TONE *a, PCM_TONE *, int64_t n ) { return pcmToneGather( a, n ); },
        []( PCM_TONE *a, PCM_TONE *, PCM_SAMPLE *dest, int64_t n ) { pcmToneGatherSamples( a, dest, n ); },
        []( PCM_TONE *a, PCM_TONE *, PCM_SAMPLE *dest, int64_t n ) { pcmToneGatherSamplesAdd( a, dest, n ); } },
    { dual, 128, pcmDualToneGather, pcmDualToneGatherSamples, pcmDualToneGatherSamplesAdd },
    { modulated, 128, pcmModulatedToneGather, pcmModulatedToneGatherSamples, pcmModulatedToneGatherSamplesAdd },
};

} // namespace signals

} // namespace operations

#endif
