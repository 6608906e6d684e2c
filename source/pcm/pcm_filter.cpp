#include "pcm_filter.h"

#include "pcm_module.h"
#include "pcm_packet_queue.h"
#include "pcm_samples_stdc.h"

#include "kit/kit_ref.h"

#include <cstring>

struct PCM_FILTER {
    KIT_OBJ header;
    PCM_FILTER_COEFFICIENTS *coefficients;
    int64_t coefficientsLength;
    const PCM_SAMPLE *coefficientsBacking; // the set's, which never changes
    int64_t channels;
    PCM_SAMPLE *history;     // a ring of as many input frames as there are taps
    int64_t historyPosition; // the oldest of them, which the next frame overwrites
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

static PCM_SAMPLE *slot( PCM_FILTER *filter, int64_t position )
{
    return filter->history + position * filter->channels;
}

static void allocateHistory( PCM_FILTER *filter )
{
    int64_t samples = filter->coefficientsLength * filter->channels;
    filter->history = static_cast<PCM_SAMPLE *>( kitMemAllocN( samples, KIT_SIZEOF( PCM_SAMPLE ) ) );
    kit___ObjDbgSetAllocationSizeN( &filter->header, samples, KIT_SIZEOF( PCM_SAMPLE ) );
}

// Calls `run( slot, frames, done )` for the stretches of `frames` slots of the ring from the position on.
template <class Run> static void eachStretch( PCM_FILTER *filter, int64_t position, int64_t frames, Run run )
{
    int64_t first = kitIntMin( frames, filter->coefficientsLength - position );
    run( slot( filter, position ), first * filter->channels, 0 );
    run( filter->history, ( frames - first ) * filter->channels, first * filter->channels );
}

static PCM_SAMPLE limited( PCM_SAMPLE sum ) { return -1.0f > sum ? -1.0f : 1.0f < sum ? 1.0f : sum; }

typedef PCM_SAMPLE Lanes __attribute__( ( vector_size( 16 ) ) );
static constexpr int64_t lanes = sizeof( Lanes ) / sizeof( PCM_SAMPLE );

// Replaces samples of the window by the outputs whose oldest inputs stand there, where no later output needs them: so
// one block holds both. Neighbouring outputs are lanes: every output keeps its own order of terms, and the sums stay
// in registers while the taps go by. Interleaving needs no attention, since one frame back is `channels` samples back
// for all of them. Works through whole tiles and returns where the next sample stands.
template <int vectors>
static int64_t filterTiles( PCM_SAMPLE *window, int64_t done, int64_t samples, const PCM_FILTER &filter )
{
    for ( ; samples - done >= vectors * lanes; done += vectors * lanes ) {
        PCM_SAMPLE *dest = window + done;
        const PCM_SAMPLE *oldest = dest;
        Lanes sums[vectors] = {};
        for ( int64_t k = filter.coefficientsLength - 1; k >= 0; --k, oldest += filter.channels )
            for ( int v = 0; v < vectors; ++v ) {
                Lanes source;
                std::memcpy( &source, oldest + v * lanes, sizeof source );
                sums[v] += source * filter.coefficientsBacking[k];
            }
        for ( int v = 0; v < vectors; ++v )
            for ( int64_t i = 0; i < lanes; ++i ) dest[v * lanes + i] = limited( sums[v][i] );
    }
    return done;
}

static void filterWindow( PCM_SAMPLE *window, int64_t samples, const PCM_FILTER &filter )
{
    int64_t done = filterTiles<8>( window, 0, samples, filter );
    done = filterTiles<4>( window, done, samples, filter );
    done = filterTiles<1>( window, done, samples, filter );
    for ( ; done < samples; ++done ) {
        PCM_SAMPLE sum = 0;
        const PCM_SAMPLE *oldest = window + done;
        for ( int64_t k = filter.coefficientsLength - 1; k >= 0; --k, oldest += filter.channels )
            sum += *oldest * filter.coefficientsBacking[k];
        window[done] = limited( sum );
    }
}

// Tests and copy-on-write of every operation that changes a filter.
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
    auto *filter = kit::create<PCM_FILTER>( &pcm___sort_PCM_FILTER );
    filter->coefficients = kit::retain( coefficients );
    filter->coefficientsLength = pcmFilterCoefficientsLength( coefficients );
    filter->coefficientsBacking = pcmFilterCoefficientsBacking( coefficients );
    filter->channels = channels;
    filter->outputQueue = pcmPacketQueueCreate( channels );
    KIT_CHECK( KIT_INT_MUL_OK( filter->coefficientsLength, filter->channels ) );
    allocateHistory( filter );
    pcm___SamplesZero( filter->history, filter->coefficientsLength * channels );
    return filter;
}

PCM_FILTER *pcmFilterCreateFrom( PCM_FILTER *source )
{
    KIT_CHECK( source );
    auto *filter = kit::create<PCM_FILTER>( &pcm___sort_PCM_FILTER );
    filter->coefficients = kit::retain( source->coefficients );
    filter->coefficientsLength = source->coefficientsLength;
    filter->coefficientsBacking = source->coefficientsBacking;
    filter->channels = source->channels;
    allocateHistory( filter );
    pcm___SamplesCopy( filter->history, source->history, source->coefficientsLength * source->channels );
    filter->historyPosition = source->historyPosition;
    filter->outputQueue = kit::retain( source->outputQueue );
    return filter;
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
    int64_t frames = pcmPacketFrames( pkt ), channels = self->channels, taps = self->coefficientsLength;
    PCM_SAMPLE *window = nullptr;
    if ( frames ) {
        // The last frames of the ring, oldest first, and the packet behind them.
        int64_t past = ( taps - 1 ) * channels, samples = frames * channels;
        window = static_cast<PCM_SAMPLE *>( kitMemAllocN( past + samples, KIT_SIZEOF( PCM_SAMPLE ) ) );
        eachStretch( self, ( self->historyPosition + 1 ) % taps, taps - 1,
            [=]( PCM_SAMPLE *stretch, int64_t n, int64_t at ) { pcm___SamplesCopy( window + at, stretch, n ); } );
        pcm___SamplesCopy( window + past, source, samples );

        int64_t kept = kitIntMin( frames, taps ), position = ( self->historyPosition + frames - kept ) % taps;
        const PCM_SAMPLE *newest = source + ( frames - kept ) * channels;
        eachStretch( self, position, kept,
            [=]( PCM_SAMPLE *stretch, int64_t n, int64_t at ) { pcm___SamplesCopy( stretch, newest + at, n ); } );
        self->historyPosition = ( self->historyPosition + frames ) % taps;

        filterWindow( window, samples, *self );
    }
    PCM_PACKET *out = pcmPacketCreateFromSamplesUse( window, channels, frames );
    pcmPacketQueueWrite( &self->outputQueue, out );
    kit::release( out );
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
    pcm___SamplesZero( self->history, self->channels * self->coefficientsLength );
    self->historyPosition = 0;
    pcmPacketQueueClear( &self->outputQueue );
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
