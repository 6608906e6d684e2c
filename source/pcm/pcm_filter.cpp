#include "pcm_filter.h"

#include "pcm_lanes.hh"
#include "pcm_module.h"
#include "pcm_owned.hh"
#include "pcm_packet_queue.h"
#include "pcm_samples_stdc.h"

#include <cstring>

using pcm::Samples;

struct PCM_FILTER {
    KIT_OBJ header;
    PCM_FILTER_COEFFICIENTS *coefficients;
    int64_t coefficientsLength;
    const PCM_SAMPLE *coefficientsBacking; // the taps of the set, which never change
    int64_t channels;
    PCM_SAMPLE *history;     // a ring buffer of as many input frames as there are taps
    int64_t historyPosition; // index of the oldest frame, which the next one overwrites
    PCM_PACKET_QUEUE *outputQueue;
};

static void pcm___FilterFreeFunc( KIT_OBJ *obj );

KIT_OBJECT_DEFINE( pcm, PCM_FILTER, pcmFilter, pcm___FilterFreeFunc );

static void pcm___FilterFreeFunc( KIT_OBJ *obj )
{
    auto *filter = reinterpret_cast<PCM_FILTER *>( obj );
    KIT_CHECK( filter );
    KIT_CHECK_SORT( pcm, PCM_FILTER );
    kit::releaseAndPoison( filter->coefficients );
    kitMemFree( filter->history );
    kit::releaseAndPoison( filter->outputQueue );
    kit___ObjDbgSetAllocationSize( obj, 0 );
}

static void allocateHistory( PCM_FILTER *filter )
{
    int64_t samples = filter->coefficientsLength * filter->channels;
    filter->history = static_cast<PCM_SAMPLE *>( kitMemAllocN( samples, KIT_SIZEOF( PCM_SAMPLE ) ) );
    kit___ObjDbgSetAllocationSizeN( &filter->header, samples, KIT_SIZEOF( PCM_SAMPLE ) );
}

// Limits to full scale. NaN is not changed.
static PCM_SAMPLE limited( PCM_SAMPLE sum ) { return -1.0f > sum ? -1.0f : 1.0f < sum ? 1.0f : sum; }
static Samples limited( Samples sums ) { return pcm::max( Samples{} - 1.0f, pcm::min( Samples{} + 1.0f, sums ) ); }

// Copies a run of the signal. Positions from 0 on are in the packet, negative positions in the ring.
static void copySignal(
    PCM_SAMPLE *dest, const PCM_FILTER &filter, const PCM_SAMPLE *source, int64_t from, int64_t samples )
{
    int64_t ring = filter.coefficientsLength * filter.channels, oldest = filter.historyPosition * filter.channels;
    while ( samples > 0 && from < 0 ) {
        int64_t place = oldest + from, at = place < 0 ? place + ring : place;
        int64_t n = kitIntMin( kitIntMin( samples, -from ), ring - at );
        std::memcpy( dest, filter.history + at, size_t( n ) * sizeof *dest );
        dest += n, from += n, samples -= n;
    }
    if ( samples > 0 ) std::memcpy( dest, source + from, size_t( samples ) * sizeof *dest );
}

// Stores the last frames of a packet in the ring, as many as fit. Each frame gets the same slot as if all frames were
// stored one by one.
static void keepHistory( PCM_FILTER *filter, const PCM_SAMPLE *source, int64_t frames )
{
    int64_t slots = filter->coefficientsLength, channels = filter->channels, kept = kitIntMin( frames, slots );
    int64_t first = filter->historyPosition + ( frames - kept );
    if ( first >= slots ) first %= slots;
    int64_t straight = kitIntMin( kept, slots - first ), wrapped = kept - straight;
    source += ( frames - kept ) * channels;
    pcm___SamplesCopy( filter->history + first * channels, source, straight * channels );
    pcm___SamplesCopy( filter->history, source + straight * channels, wrapped * channels );
    filter->historyPosition = first + kept < slots ? first + kept : wrapped;
}

template <class Lane> static constexpr int64_t laneCount = sizeof( Lane ) / sizeof( PCM_SAMPLE );

// The lanes hold neighbouring outputs. Each output keeps its own order of terms, and the sums stay in registers for
// all taps. Interleaving needs no special handling, because one frame back is `channels` samples back in every lane.
template <class Lane, int width>
static void addTaps(
    Lane ( &sums )[width], const PCM_FILTER &filter, const PCM_SAMPLE *oldest, int64_t first, int64_t taps )
{
    const PCM_SAMPLE *tap = filter.coefficientsBacking + first;
    for ( int64_t i = 0; i < taps; ++i )
        for ( int v = 0; v < width; ++v )
            sums[v] += pcm::loadAs<Lane>( oldest + i * filter.channels + v * laneCount<Lane> ) * tap[-i];
}

// Computes whole tiles of outputs and returns the position after the last one.
template <class Lane, int width>
static int64_t filterTiles(
    PCM_SAMPLE *dest, const PCM_FILTER &filter, const PCM_SAMPLE *source, int64_t done, int64_t samples )
{
    constexpr int64_t tile = width * laneCount<Lane>, scratch = 512;
    for ( ; samples - done >= tile; done += tile ) {
        Lane sums[width] = {};
        int64_t taps = filter.coefficientsLength, from = done - ( taps - 1 ) * filter.channels;
        // If the oldest inputs are in the ring, copy the inputs to a contiguous block, for a limited number of taps
        // at a time.
        while ( from < 0 && taps > 0 ) {
            PCM_SAMPLE line[scratch + tile];
            int64_t n = kitIntMin( taps, scratch / filter.channels + 1 );
            copySignal( line, filter, source, from, ( n - 1 ) * filter.channels + tile );
            addTaps( sums, filter, line, taps - 1, n );
            from += n * filter.channels, taps -= n;
        }
        if ( taps > 0 ) addTaps( sums, filter, source + from, taps - 1, taps );
        for ( int v = 0; v < width; ++v ) pcm::storeAs( dest + done + v * laneCount<Lane>, limited( sums[v] ) );
    }
    return done;
}

static void filterBlock( PCM_SAMPLE *dest, const PCM_FILTER &filter, const PCM_SAMPLE *source, int64_t samples )
{
    int64_t done = filterTiles<Samples, 8>( dest, filter, source, 0, samples );
    done = filterTiles<Samples, 4>( dest, filter, source, done, samples );
    done = filterTiles<Samples, 2>( dest, filter, source, done, samples );
    done = filterTiles<Samples, 1>( dest, filter, source, done, samples );
    if ( done == samples ) return;
    // Compute the last vector of outputs, some of them for the second time, or single outputs if there are too few.
    if ( samples >= pcm::lanes )
        filterTiles<Samples, 1>( dest, filter, source, samples - pcm::lanes, samples );
    else
        filterTiles<PCM_SAMPLE, 1>( dest, filter, source, done, samples );
}

// Checks and copy-on-write for all operations that change a filter.
static PCM_FILTER *writable( PCM_FILTER **filter )
{
    KIT_CHECK( filter );
    KIT_CHECK( *filter );
    kit::makePrivate( filter, pcmFilterCreateFrom );
    return *filter;
}

static PCM_PACKET_QUEUE **output( PCM_FILTER **filter ) { return &writable( filter )->outputQueue; }

PCM_FILTER *pcmFilterCreate( PCM_FILTER_COEFFICIENTS *coefficients, int64_t channels )
{
    KIT_CHECK( coefficients );
    KIT_CHECK( channels > 0 );
    kit::Owned filter( kit::create<PCM_FILTER>( &pcm___sort_PCM_FILTER ) );
    filter->coefficients = kit::retain( coefficients );
    filter->coefficientsLength = pcmFilterCoefficientsLength( coefficients );
    filter->coefficientsBacking = pcmFilterCoefficientsBacking( coefficients );
    filter->channels = channels;
    filter->outputQueue = pcmPacketQueueCreate( channels );
    KIT_CHECK( KIT_INT_MUL_OK( filter->coefficientsLength, filter->channels ) );
    allocateHistory( filter.get() );
    pcm___SamplesZero( filter->history, filter->coefficientsLength * channels );
    return filter.take();
}

PCM_FILTER *pcmFilterCreateFrom( PCM_FILTER *source )
{
    KIT_CHECK( source );
    kit::Owned filter( kit::create<PCM_FILTER>( &pcm___sort_PCM_FILTER ) );
    filter->coefficients = kit::retain( source->coefficients );
    filter->coefficientsLength = source->coefficientsLength;
    filter->coefficientsBacking = source->coefficientsBacking;
    filter->channels = source->channels;
    allocateHistory( filter.get() );
    pcm___SamplesCopy( filter->history, source->history, source->coefficientsLength * source->channels );
    filter->historyPosition = source->historyPosition;
    filter->outputQueue = kit::retain( source->outputQueue );
    return filter.take();
}

void pcmFilterWrite( PCM_FILTER **filter, PCM_PACKET *pkt )
{
    KIT_CHECK( filter );
    KIT_CHECK( *filter );
    KIT_CHECK( pkt );
    KIT_CHECK( pcmPacketChannels( pkt ) == (*filter)->channels );
    KIT_CHECK( ((*filter)) );
    PCM_FILTER *self = writable( filter );
    const PCM_SAMPLE *source = pcmPacketBacking( pkt );
    int64_t frames = pcmPacketFrames( pkt ), samples = frames * self->channels;
    kit::Block<PCM_SAMPLE> block;
    if ( frames ) {
        block = kit::allocate<PCM_SAMPLE>( samples );
        filterBlock( block.get(), *self, source, samples );
    }
    kit::Owned out( pcm::packetOf( std::move( block ), self->channels, frames ) );
    pcmPacketQueueWrite( &self->outputQueue, out.get() );
    if ( frames ) keepHistory( self, source, frames );
}

PCM_PACKET *pcmFilterRead( PCM_FILTER **filter ) { return pcmPacketQueueRead( output( filter ) ); }

PCM_PACKET *pcmFilterGather( PCM_FILTER **filter, int64_t frames )
{
    return pcmPacketQueueGather( output( filter ), frames );
}

void pcmFilterGatherSamples( PCM_FILTER **filter, PCM_SAMPLE *dest, int64_t frames )
{
    pcmPacketQueueGatherSamples( output( filter ), dest, frames );
}

void pcmFilterGatherSamplesAdd( PCM_FILTER **filter, PCM_SAMPLE *dest, int64_t frames )
{
    pcmPacketQueueGatherSamplesAdd( output( filter ), dest, frames );
}

int64_t pcmFilterFrames( PCM_FILTER *filter )
{
    KIT_CHECK( filter );
    return pcmPacketQueueFrames( filter->outputQueue );
}

int64_t pcmFilterPackets( PCM_FILTER *filter )
{
    KIT_CHECK( filter );
    return pcmPacketQueuePackets( filter->outputQueue );
}

void pcmFilterReset( PCM_FILTER **filter )
{
    PCM_FILTER *self = writable( filter );
    pcmPacketQueueClear( &self->outputQueue );
    pcm___SamplesZero( self->history, self->channels * self->coefficientsLength );
    self->historyPosition = 0;
}

int64_t pcmFilterChannels( PCM_FILTER *filter )
{
    KIT_CHECK( filter );
    return filter->channels;
}

PCM_FILTER_COEFFICIENTS *pcmFilterCoefficients( PCM_FILTER *filter )
{
    KIT_CHECK( filter );
    return kit::retain( filter->coefficients );
}
