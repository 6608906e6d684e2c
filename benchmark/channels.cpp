// Operations on the channels and frames of packets, compared with plain loops whose channel counts are known to the
// compiler and which allocate as much.

#include "jobs.h"
#include "limit_packet.h"
#include "registry.h"

#include <cstring>

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

/// `ours` edits the packet at an address. `fill` writes frames of `to` channels from frames of `from` channels.
template <int64_t from, int64_t to, class Ours, class Fill>
static void addJobs( const std::string &name, Ours ours, Fill fill )
{
    const std::string job = name + ' ' + std::to_string( from ) + " to " + std::to_string( to );
    for ( int64_t frames : streamBlockSizes ) {
        PCM_PACKET *source = pcmPacketCreateFromSamplesCopy( buffers.samples, from, frames ); // never released
        addRun( job, frames, "ours", [=] {
            PCM_PACKET *pkt = pcmPacketRetain( source );
            ours( pkt );
            pcmPacketRelease( pkt );
        } );
        addRun( job, frames, "naive", [=] {
            LimitPacket *pkt = LimitPacket::create( 0 );
            auto *block = static_cast<float *>( std::malloc( size_t( frames * to ) * sizeof( float ) ) );
            for ( int64_t f = 0; f < frames; ++f ) fill( block + f * to, buffers.samples + f * from );
            benchmark::DoNotOptimize( block );
            std::free( block );
            pkt->release();
        } );
    }
}

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
        "reduce" + suffix,
        []( PCM_PACKET *&pkt ) {
            // The same block, as frames of `channels` channels.
            static PCM_PACKET *narrow;
            if ( !narrow || pcmPacketFrames( narrow ) != factor * pcmPacketFrames( pkt ) )
                narrow = pcmPacketCreateFromSamplesCopy( buffers.samples, channels, factor * pcmPacketFrames( pkt ) );
            PCM_PACKET *reduced = pcmPacketRetain( narrow );
            pcmFramesReduce( &reduced, factor );
            pcmPacketRelease( reduced );
        },
        []( float *dest, const float *source ) {
            for ( int64_t c = 0; c < channels; ++c ) dest[c] = source[c];
        } );
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
