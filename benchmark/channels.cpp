// Operations on the channels and frames of packets, compared with plain loops whose channel counts are known to the
// compiler, and with SSE2 code for one and two channels. Both allocate as much as the library, and hold a reference
// to their input as the library does.

#include "jobs.h"
#include "limit_packet.h"
#include "registry.h"

#include <cstring>

#ifdef __SSE2__
    #include <emmintrin.h>
#endif

/// Each item is one frame of the input.
template <class Run> static void addRun( const std::string &job, int64_t frames, const char *implementation, Run run )
{
    addJob( job, frames, implementation, [=] {
        return [=] {
            run();
            return frames;
        };
    } );
}

/// `write` writes frames of `to` channels to a block, from the input.
template <int64_t to, class Write>
static void addAllocatingRun( const std::string &job, int64_t frames, const char *implementation, Write write )
{
    LimitPacket *input = LimitPacket::create( 0 ); // never released
    addRun( job, frames, implementation, [=] {
        ++input->refCount;
        LimitPacket *pkt = LimitPacket::create( 0 );
        auto *block = static_cast<float *>( std::malloc( size_t( frames * to ) * sizeof( float ) ) );
        write( block, buffers.samples );
        useValue( block );
        std::free( block );
        pkt->release();
        input->release();
    } );
}

template <int64_t from, int64_t to> static std::string jobName( const std::string &name )
{
    return name + ' ' + std::to_string( from ) + " to " + std::to_string( to );
}

/// `ours` edits the packet at an address. `fill` writes frames of `to` channels from frames of `from` channels, each
/// of which consists of `framesOfPacket` frames of the packet.
template <int64_t from, int64_t to, class Ours, class Fill>
static void addJobs( const std::string &name, Ours ours, Fill fill, int64_t framesOfPacket = 1 )
{
    const std::string job = jobName<from, to>( name );
    for ( int64_t frames : streamBlockSizes ) {
        PCM_PACKET *source = pcmPacketCreateFromSamplesCopy( // never released
            buffers.samples, from / framesOfPacket, frames * framesOfPacket );
        addRun( job, frames, "ours", [=] {
            PCM_PACKET *pkt = pcmPacketRetain( source );
            ours( pkt );
            pcmPacketRelease( pkt );
        } );
        addAllocatingRun<to>( job, frames, "naive", [=]( float *dest, const float *source ) {
            for ( int64_t f = 0; f < frames; ++f ) fill( dest + f * to, source + f * from );
        } );
    }
}

#ifdef __SSE2__
/// `step` converts 8 frames, of which all block sizes are multiples.
template <int64_t from, int64_t to, class Step> static void addLimit( const std::string &name, Step step )
{
    for ( int64_t frames : streamBlockSizes )
        addAllocatingRun<to>( jobName<from, to>( name ), frames, "limit", [=]( float *dest, const float *source ) {
            for ( int64_t f = 0; f < frames; f += 8 ) step( dest + f * to, source + f * from );
        } );
}

/// `second` returns the second channel of 4 frames.
template <class Second> static auto oneToTwo( Second second )
{
    return [=]( float *dest, const float *source ) {
        for ( int i = 0; i < 8; i += 4 ) {
            const __m128 samples = _mm_loadu_ps( source + i ), other = second( samples );
            _mm_storeu_ps( dest + 2 * i, _mm_unpacklo_ps( samples, other ) );
            _mm_storeu_ps( dest + 2 * i + 4, _mm_unpackhi_ps( samples, other ) );
        }
    };
}

/// `combine` returns the output of 4 frames.
template <class Combine> static auto twoToOne( Combine combine )
{
    return [=]( float *dest, const float *source ) {
        for ( int i = 0; i < 8; i += 4 ) {
            const __m128 low = _mm_loadu_ps( source + 2 * i ), high = _mm_loadu_ps( source + 2 * i + 4 );
            _mm_storeu_ps( dest + i, combine( _mm_shuffle_ps( low, high, _MM_SHUFFLE( 2, 0, 2, 0 ) ),
                                         _mm_shuffle_ps( low, high, _MM_SHUFFLE( 3, 1, 3, 1 ) ) ) );
        }
    };
}

static void addLimits()
{
    const auto same = oneToTwo( []( __m128 samples ) { return samples; } );
    const auto zero = oneToTwo( []( __m128 ) { return _mm_setzero_ps(); } );
    const auto first = twoToOne( []( __m128 left, __m128 ) { return left; } );
    addLimit<1, 2>( "sum", same );
    addLimit<1, 2>( "downmix", same );
    addLimit<1, 2>( "expand", same );
    addLimit<1, 2>( "set channels", zero );
    addLimit<1, 2>( "extend x1", zero );
    addLimit<2, 1>( "select", first );
    addLimit<2, 1>( "reduce x1", first );
    addLimit<2, 1>( "select upper", twoToOne( []( __m128, __m128 right ) { return right; } ) );
    addLimit<2, 1>( "sum", twoToOne( []( __m128 left, __m128 right ) { return _mm_add_ps( left, right ); } ) );
    addLimit<2, 1>( "downmix", twoToOne( []( __m128 left, __m128 right ) {
        return _mm_mul_ps( _mm_add_ps( left, right ), _mm_set1_ps( 0.5f ) );
    } ) );
    addLimit<2, 4>( "extend x2", []( float *dest, const float *source ) {
        const __m128 zeros = _mm_setzero_ps();
        for ( int i = 0; i < 16; i += 4 ) {
            const __m128 frames = _mm_loadu_ps( source + i );
            _mm_storeu_ps( dest + 2 * i, _mm_movelh_ps( frames, zeros ) );
            _mm_storeu_ps( dest + 2 * i + 4, _mm_movehl_ps( zeros, frames ) );
        }
    } );
    addLimit<4, 2>( "reduce x2", []( float *dest, const float *source ) {
        for ( int i = 0; i < 16; i += 4 )
            _mm_storeu_ps(
                dest + i, _mm_movelh_ps( _mm_loadu_ps( source + 2 * i ), _mm_loadu_ps( source + 2 * i + 4 ) ) );
    } );
}
#endif

/// Replaces a packet by a new one.
static void replace( PCM_PACKET *&pkt, PCM_PACKET *fresh )
{
    pcmPacketRelease( pkt );
    pkt = fresh;
}

template <int64_t from, int64_t to> static void addSum()
{
    addJobs<from, to>(
        "sum", []( PCM_PACKET *&pkt ) { replace( pkt, pcmPacketCreateFromWithChannels( pkt, to ) ); },
        []( float *dest, const float *source ) {
            float sum = 0;
            for ( int64_t c = 0; c < from; ++c ) sum += source[c];
            for ( int64_t c = 0; c < to; ++c ) dest[c] = sum;
        } );
}

template <int64_t from, int64_t to> static void addDownmix()
{
    addJobs<from, to>(
        "downmix", []( PCM_PACKET *&pkt ) { pcmChannelsAdjustReplaceWithDownmix( &pkt, to ); },
        []( float *dest, const float *source ) {
            float sum = 0;
            for ( int64_t c = 0; c < from; ++c ) sum += source[c];
            for ( int64_t c = 0; c < to; ++c ) dest[c] = sum * float( 1.0 / from );
        } );
}

template <int64_t from, int64_t to> static void addExpand()
{
    addJobs<from, to>(
        "expand", []( PCM_PACKET *&pkt ) { pcmChannelsAdjustExpandWithDownmix( &pkt, to ); },
        []( float *dest, const float *source ) {
            float sum = 0;
            for ( int64_t c = 0; c < from; ++c ) sum += source[c];
            for ( int64_t c = 0; c < to; ++c ) dest[c] = c < from ? source[c] : sum * float( 1.0 / from );
        } );
}

template <int64_t from, uint64_t mask> static void addSelect()
{
    constexpr int64_t to = __builtin_popcountll( mask );
    addJobs<from, to>(
        mask & 1 ? "select" : "select upper",
        []( PCM_PACKET *&pkt ) { replace( pkt, pcmPacketCreateFromWithChannelMask( pkt, mask ) ); },
        []( float *dest, const float *source ) {
            for ( int64_t c = 0; c < from; ++c )
                if ( mask >> c & 1 ) *dest++ = source[c];
        } );
}

template <int64_t from, int64_t to, class Ours> static void addResize( const std::string &name, Ours ours )
{
    addJobs<from, to>( name, ours, []( float *dest, const float *source ) {
        for ( int64_t c = 0; c < to; ++c ) dest[c] = c < from ? source[c] : 0;
    } );
}

template <int64_t from, int64_t to> static void addSetChannels()
{
    addResize<from, to>( "set channels", []( PCM_PACKET *&pkt ) { pcmPacketSetChannels( &pkt, to ); } );
}

/// The input of extend has `channels` channels. That of reduce is the output of extend.
template <int64_t channels, int64_t factor> static void addExtendAndReduce()
{
    const std::string suffix = " x" + std::to_string( channels );
    addResize<channels, channels * factor>(
        "extend" + suffix, []( PCM_PACKET *&pkt ) { pcmFramesExtend( &pkt, factor ); } );
    addJobs<channels * factor, channels>(
        "reduce" + suffix, []( PCM_PACKET *&pkt ) { pcmFramesReduce( &pkt, factor ); },
        []( float *dest, const float *source ) {
            for ( int64_t c = 0; c < channels; ++c ) dest[c] = source[c];
        },
        factor );
}

template <int64_t from, int64_t to> static void addWrite()
{
    const std::string job = "write channels " + std::to_string( from ) + " to " + std::to_string( to );
    for ( int64_t frames : streamBlockSizes ) {
        PCM_PACKET *source = pcmPacketCreateFromSamplesCopy( buffers.samples, from, frames );
        auto *dest =
            new PCM_PACKET *( pcmPacketCreateFromSamplesCopy( buffers.samples, to, frames ) ); // never released
        addRun( job, frames, "ours",
            [=] { pcmPacketWriteChannels( dest, 0, 0, source, 0, 0, from < to ? from : to, frames ); } );
        addRun( job, frames, "naive", [=] {
            for ( int64_t f = 0; f < frames; ++f )
                for ( int64_t c = 0; c < from && c < to; ++c )
                    buffers.outputSamples()[f * to + c] = buffers.samples[f * from + c];
        } );
    }
}

void addChannels()
{
#ifdef __SSE2__
    addLimits();
#endif
    addSum<1, 2>();
    addSum<2, 1>();
    addSum<6, 2>();
    addSum<8, 1>();
    addDownmix<2, 1>();
    addDownmix<1, 2>();
    addDownmix<6, 2>();
    addDownmix<8, 8>();
    addExpand<1, 2>();
    addExpand<2, 6>();
    addExpand<6, 8>();
    addSelect<2, 1>();
    addSelect<2, 2>();
    addSelect<6, 3>();
    addSelect<6, 0x24>();
    addSelect<6, 5>();
    addSelect<8, 0x3F>();
    addSetChannels<1, 2>();
    addSetChannels<6, 2>();
    addSetChannels<2, 6>();
    addSetChannels<6, 8>();
    addExtendAndReduce<1, 2>();
    addExtendAndReduce<2, 2>();
    addExtendAndReduce<1, 6>();
    addExtendAndReduce<6, 2>();
    addExtendAndReduce<8, 2>();
    addWrite<1, 2>();
    addWrite<2, 6>();
    addWrite<2, 8>();
    addWrite<6, 8>();
}
