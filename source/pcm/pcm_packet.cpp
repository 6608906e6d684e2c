#include "pcm_packet.h"

#include "pcm_convert.h"
#include "pcm_frame_kernels.hh"
#include "pcm_module.h"
#include "pcm_owned.hh"
#include "pcm_samples_stdc.h"
#include "pcm_slot.hh"

#include <cstring>

struct PCM_PACKET {
    KIT_OBJ header;
    int64_t channels;
    int64_t frames;
    PCM_SAMPLE *backing; // frames x channels samples; null if and only if frames is 0
};

static void pcm___PacketFreeFunc( KIT_OBJ *obj );

KIT_OBJECT_DEFINE( pcm, PCM_PACKET, pcmPacket, pcm___PacketFreeFunc );

static void pcm___PacketFreeFunc( KIT_OBJ *obj )
{
    auto *pkt = reinterpret_cast<PCM_PACKET *>( obj );
    KIT_CHECK( pkt );
    KIT_CHECK_SORT( pcm, PCM_PACKET );
    kitMemFree( pkt->backing );
    kit___ObjDbgSetAllocationSize( obj, 0 );
}

// Returns the size of a frame in bytes. Saturates on overflow, so that the allocation fails.
static int64_t frameSize( int64_t channels ) { return kit::saturatedMul( channels, KIT_SIZEOF( PCM_SAMPLE ) ); }

static kit::Block<PCM_SAMPLE> allocate( int64_t frames, int64_t channels )
{
    return kit::allocate<PCM_SAMPLE>( frames, frameSize( channels ) );
}

static void noteSize( PCM_PACKET *pkt )
{
    kit___ObjDbgSetAllocationSizeN( &pkt->header, pkt->frames, frameSize( pkt->channels ) );
}

static PCM_SAMPLE *at( PCM_PACKET *pkt, int64_t idx ) { return pkt->backing + idx * pkt->channels; }

static void setFrames( PCM_PACKET *pkt, int64_t frames )
{
    pkt->backing = static_cast<PCM_SAMPLE *>( kitMemReallocN( pkt->backing, frames, frameSize( pkt->channels ) ) );
    pkt->frames = frames;
}

static PCM_PACKET *create( int64_t channels )
{
    auto *pkt = kit::create<PCM_PACKET>( &pcm___sort_PCM_PACKET );
    pkt->channels = channels;
    return pkt;
}

// Allocates the block of a packet whose frame count is set and copies the samples of source to it.
static void copyBlock( PCM_PACKET *pkt, const PCM_SAMPLE *source )
{
    int64_t bytes = kit::saturatedMul( pkt->frames, frameSize( pkt->channels ) );
    pkt->backing = static_cast<PCM_SAMPLE *>( kitMemAlloc( bytes ) );
    kitMemCopy( pkt->backing, source, bytes );
    kit___ObjDbgSetAllocationSize( &pkt->header, bytes );
}

// ---- Creation

PCM_PACKET *pcmPacketCreate( int64_t channels )
{
    KIT_CHECK( channels > 0 );
    return create( channels );
}

PCM_PACKET *pcmPacketCreateFrom( PCM_PACKET *source )
{
    KIT_CHECK( source );
    kit::Owned pkt( create( source->channels ) );
    pkt->frames = source->frames;
    if ( pkt->frames ) copyBlock( pkt.get(), source->backing );
    return pkt.take();
}

PCM_PACKET *pcmPacketCreateFromSamplesCopy( const PCM_SAMPLE *source, int64_t channels, int64_t frames )
{
    KIT_CHECK( channels > 0 );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( frames == 0 || source );
    KIT_CHECK( KIT_INT_MUL_OK( channels, KIT_SIZEOF( PCM_SAMPLE ) ) );
    kit::Owned pkt( create( channels ) );
    pkt->frames = frames;
    if ( !frames ) return pkt.take();
    KIT_CHECK( KIT_INT_MUL_OK( pkt->frames, pkt->channels * KIT_SIZEOF( PCM_SAMPLE ) ) );
    copyBlock( pkt.get(), source );
    return pkt.take();
}

PCM_PACKET *pcmPacketCreateFromSamplesUse( PCM_SAMPLE *source, int64_t channels, int64_t frames )
{
    KIT_CHECK( channels > 0 );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( frames == 0 || source );
    PCM_PACKET *pkt = create( channels );
    pkt->frames = frames;
    if ( frames )
        pkt->backing = source;
    else
        kitMemFree( source );
    noteSize( pkt );
    return pkt;
}

PCM_PACKET *pcm::packetOf( kit::Block<PCM_SAMPLE> block, int64_t channels, int64_t frames )
{
    PCM_PACKET *pkt = pcmPacketCreateFromSamplesUse( block.get(), channels, frames );
    (void)block.release();
    return pkt;
}

// ---- Queries

int64_t pcmPacketChannels( PCM_PACKET *pkt )
{
    KIT_CHECK( pkt );
    return pkt->channels;
}

int64_t pcmPacketFrames( PCM_PACKET *pkt )
{
    KIT_CHECK( pkt );
    return pkt->frames;
}

const PCM_SAMPLE *pcmPacketBacking( PCM_PACKET *pkt )
{
    KIT_CHECK( pkt );
    return pkt->backing;
}

// ---- Changes to the whole packet

PCM_SAMPLE *pcmPacketMutableBacking( PCM_PACKET **pkt )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    kit::makePrivate( pkt, pcmPacketCreateFrom );
    return ( *pkt )->backing;
}

void pcmPacketClear( PCM_PACKET **pkt )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    if ( !( *pkt )->frames ) return;
    if ( kit::isShared( *pkt ) ) kit::replace( pkt, create( ( *pkt )->channels ) );
    kitMemFree( ( *pkt )->backing );
    ( *pkt )->frames = 0;
    ( *pkt )->backing = nullptr;
    noteSize( *pkt );
}

void pcmPacketSetChannels( PCM_PACKET **pkt, int64_t channels )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( channels > 0 );
    KIT_CHECK( KIT_INT_MUL_OK( channels, KIT_SIZEOF( PCM_SAMPLE ) ) );
    int64_t frames = ( *pkt )->frames, oldChannels = ( *pkt )->channels;
    if ( channels == oldChannels ) return;
    kit::Block<PCM_SAMPLE> block = frames ? allocate( frames, channels ) : nullptr;
    pcm::resizeFrames( block.get(), channels, ( *pkt )->backing, oldChannels, frames );
    if ( kit::isShared( *pkt ) ) kit::replace( pkt, create( channels ) );
    kitMemFree( ( *pkt )->backing );
    ( *pkt )->channels = channels;
    ( *pkt )->frames = frames;
    ( *pkt )->backing = block.release();
    noteSize( *pkt );
}

void pcmPacketSetFrames( PCM_PACKET **pkt, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( frames >= 0 );
    int64_t oldFrames = ( *pkt )->frames;
    if ( frames < oldFrames ) pcmPacketDelOuter( pkt, 0, frames );
    if ( frames > oldFrames ) pcmPacketInsertZero( pkt, oldFrames, frames - oldFrames );
}

// ---- Frame editing: the steps that make up all operations

// Makes room for frames at idx, which the caller must write, and returns their number. If idx is past the end, does
// nothing: the caller's write step then fails its position check before any sample has moved.
static int64_t pcm___PacketOpenGap( PCM_PACKET **pkt, int64_t idx, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( idx >= 0 );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( idx, frames ) );
    KIT_CHECK( KIT_INT_ADD_OK( (*pkt)->frames, frames ) );
    int64_t oldFrames = ( *pkt )->frames, channels = ( *pkt )->channels;
    if ( !frames || idx > oldFrames ) return 0;
    int64_t head = idx * channels, tail = ( oldFrames - idx ) * channels;
    if ( !kit::isShared( *pkt ) ) {
        setFrames( *pkt, oldFrames + frames );
        pcm___SamplesMove( at( *pkt, idx + frames ), at( *pkt, idx ), tail );
    } else {
        kit::Owned fresh( create( channels ) );
        setFrames( fresh.get(), oldFrames + frames );
        pcm___SamplesCopy( fresh->backing, ( *pkt )->backing, head );
        pcm___SamplesCopy( at( fresh.get(), idx + frames ), ( *pkt )->backing + head, tail );
        kit::replace( pkt, fresh.take() );
    }
    noteSize( *pkt );
    return frames;
}

// A gap, which is closed again unless it is filled.
class Gap {
public:
    Gap( PCM_PACKET **pkt, int64_t idx, int64_t frames )
        : packet( pkt ), start( idx ), length( pcm___PacketOpenGap( pkt, idx, frames ) )
    {
    }
    ~Gap()
    {
        if ( length ) pcmPacketDelInner( packet, start, length );
    }
    Gap( const Gap & ) = delete;
    Gap &operator=( const Gap & ) = delete;

    void fill() { length = 0; }

private:
    PCM_PACKET **packet;
    int64_t start;
    int64_t length;
};

void pcmPacketWriteInner( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( idx >= 0 );
    KIT_CHECK( source );
    KIT_CHECK( offset >= 0 );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( offset, frames ) );
    KIT_CHECK( offset + frames <= source->frames );
    KIT_CHECK( KIT_INT_ADD_OK( idx, frames ) );
    KIT_CHECK( idx + frames <= (*pkt)->frames );
    KIT_CHECK( (*pkt)->channels == source->channels );
    if ( !frames ) return;
    kit::Hold self( *pkt == source ? source : nullptr );
    kit::makePrivate( pkt, pcmPacketCreateFrom );
    pcm___SamplesCopy( at( *pkt, idx ), at( source, offset ), frames * source->channels );
}

void pcmPacketWriteOuter( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( idx >= 0 );
    KIT_CHECK( source );
    KIT_CHECK( offset >= 0 );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( offset, frames ) );
    KIT_CHECK( offset + frames <= source->frames );
    KIT_CHECK( KIT_INT_ADD_OK( idx, source->frames - frames ) );
    KIT_CHECK( idx + (source->frames - frames) <= (*pkt)->frames );
    KIT_CHECK( (*pkt)->channels == source->channels );
    if ( frames == source->frames ) return;
    kit::Hold self( *pkt == source ? source : nullptr );
    kit::makePrivate( pkt, pcmPacketCreateFrom );
    int64_t end = offset + frames;
    pcm___SamplesCopy( at( *pkt, idx ), source->backing, offset * source->channels );
    pcm___SamplesCopy( at( *pkt, idx + offset ), at( source, end ), ( source->frames - end ) * source->channels );
}

void pcmPacketWriteZero( PCM_PACKET **pkt, int64_t idx, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( idx >= 0 );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( idx, frames ) );
    KIT_CHECK( idx + frames <= (*pkt)->frames );
    if ( !frames ) return;
    kit::makePrivate( pkt, pcmPacketCreateFrom );
    pcm___SamplesZero( at( *pkt, idx ), frames * ( *pkt )->channels );
}

void pcmPacketInsertInner( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames )
{
    KIT_CHECK( pkt );
    kit::Hold self( *pkt == source ? source : nullptr );
    Gap gap( pkt, idx, frames );
    pcmPacketWriteInner( pkt, idx, source, offset, frames );
    gap.fill();
}

void pcmPacketInsertOuter( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( source );
    KIT_CHECK( KIT_INT_SUB_OK( source->frames, frames ) );
    kit::Hold self( *pkt == source ? source : nullptr );
    Gap gap( pkt, idx, source->frames - frames );
    pcmPacketWriteOuter( pkt, idx, source, offset, frames );
    gap.fill();
}

void pcmPacketInsertZero( PCM_PACKET **pkt, int64_t idx, int64_t frames )
{
    Gap gap( pkt, idx, frames );
    pcmPacketWriteZero( pkt, idx, frames );
    gap.fill();
}

void pcmPacketDelInner( PCM_PACKET **pkt, int64_t idx, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( idx >= 0 );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( idx, frames ) );
    KIT_CHECK( idx + frames <= (*pkt)->frames );
    if ( !frames ) return;
    int64_t oldFrames = ( *pkt )->frames, end = idx + frames;
    if ( frames == oldFrames ) return pcmPacketClear( pkt );
    if ( !kit::isShared( *pkt ) ) {
        pcm___SamplesMove( at( *pkt, idx ), at( *pkt, end ), ( oldFrames - end ) * ( *pkt )->channels );
        setFrames( *pkt, oldFrames - frames );
    } else {
        kit::Owned fresh( create( ( *pkt )->channels ) );
        pcmPacketInsertOuter( fresh.address(), 0, *pkt, idx, frames );
        kit::replace( pkt, fresh.take() );
    }
    noteSize( *pkt );
}

void pcmPacketDelOuter( PCM_PACKET **pkt, int64_t idx, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( idx >= 0 );
    KIT_CHECK( frames >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( idx, frames ) );
    KIT_CHECK( idx + frames <= (*pkt)->frames );
    if ( !frames ) return pcmPacketClear( pkt );
    if ( frames == ( *pkt )->frames ) return;
    if ( !kit::isShared( *pkt ) ) {
        pcm___SamplesMove( ( *pkt )->backing, at( *pkt, idx ), frames * ( *pkt )->channels );
        setFrames( *pkt, frames );
    } else {
        kit::Owned fresh( create( ( *pkt )->channels ) );
        pcmPacketInsertInner( fresh.address(), 0, *pkt, idx, frames );
        kit::replace( pkt, fresh.take() );
    }
    noteSize( *pkt );
}

// ---- Frame editing: the operations. Each helper checks what it needs before it returns a number.

static int64_t end( PCM_PACKET **pkt )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    return ( *pkt )->frames;
}

static int64_t whole( PCM_PACKET *source )
{
    KIT_CHECK( source );
    return source->frames;
}

static int64_t trailing( PCM_PACKET *source, int64_t frames )
{
    KIT_CHECK( source );
    KIT_CHECK( KIT_INT_SUB_OK( source->frames, frames ) );
    return source->frames - frames;
}

void pcmPacketWrite( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source )
{
    pcmPacketWriteInner( pkt, idx, source, 0, whole( source ) );
}

void pcmPacketWriteLeading( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames )
{
    pcmPacketWriteInner( pkt, idx, source, 0, frames );
}

void pcmPacketWriteTrailing( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames )
{
    pcmPacketWriteInner( pkt, idx, source, trailing( source, frames ), frames );
}

void pcmPacketInsert( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source )
{
    pcmPacketInsertInner( pkt, idx, source, 0, whole( source ) );
}

void pcmPacketInsertLeading( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames )
{
    KIT_CHECK( source );
    pcmPacketInsertInner( pkt, idx, source, 0, frames );
}

void pcmPacketInsertTrailing( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames )
{
    pcmPacketInsertInner( pkt, idx, source, trailing( source, frames ), frames );
}

void pcmPacketAppend( PCM_PACKET **pkt, PCM_PACKET *source ) { pcmPacketInsert( pkt, end( pkt ), source ); }

void pcmPacketAppendInner( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames )
{
    pcmPacketInsertInner( pkt, end( pkt ), source, offset, frames );
}

void pcmPacketAppendOuter( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames )
{
    pcmPacketInsertOuter( pkt, end( pkt ), source, offset, frames );
}

void pcmPacketAppendLeading( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames )
{
    pcmPacketInsertLeading( pkt, end( pkt ), source, frames );
}

void pcmPacketAppendTrailing( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames )
{
    pcmPacketInsertTrailing( pkt, end( pkt ), source, frames );
}

void pcmPacketAppendZero( PCM_PACKET **pkt, int64_t frames ) { pcmPacketInsertZero( pkt, end( pkt ), frames ); }

void pcmPacketPrepend( PCM_PACKET **pkt, PCM_PACKET *source ) { pcmPacketInsert( pkt, 0, source ); }

void pcmPacketPrependInner( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames )
{
    pcmPacketInsertInner( pkt, 0, source, offset, frames );
}

void pcmPacketPrependOuter( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames )
{
    pcmPacketInsertOuter( pkt, 0, source, offset, frames );
}

void pcmPacketPrependLeading( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames )
{
    pcmPacketInsertLeading( pkt, 0, source, frames );
}

void pcmPacketPrependTrailing( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames )
{
    pcmPacketInsertTrailing( pkt, 0, source, frames );
}

void pcmPacketPrependZero( PCM_PACKET **pkt, int64_t frames ) { pcmPacketInsertZero( pkt, 0, frames ); }

void pcmPacketDelLeading( PCM_PACKET **pkt, int64_t frames ) { pcmPacketDelInner( pkt, 0, frames ); }

void pcmPacketDelTrailing( PCM_PACKET **pkt, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( KIT_INT_SUB_OK( (*pkt)->frames, frames ) );
    pcmPacketDelInner( pkt, ( *pkt )->frames - frames, frames );
}

// ---- Channels of a packet

void pcmPacketWriteChannels( PCM_PACKET **pkt, int64_t destChannelOffset, int64_t destFrameOffset, PCM_PACKET *source,
    int64_t sourceChannelOffset, int64_t sourceFrameOffset, int64_t channels, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( source );
    KIT_CHECK( KIT_INT_ADD_OK( sourceFrameOffset, frames ) );
    KIT_CHECK( sourceFrameOffset + frames <= source->frames );
    kit::Hold self( *pkt == source ? source : nullptr );
    pcmPacketWriteChannelsSamples( pkt, destChannelOffset, destFrameOffset, source->backing, sourceChannelOffset,
        source->channels, sourceFrameOffset, channels, frames );
}

void pcmPacketWriteChannelsSamples( PCM_PACKET **pkt, int64_t destChannelOffset, int64_t destFrameOffset,
    const PCM_SAMPLE *source, int64_t sourceChannelOffset, int64_t sourceChannelCount, int64_t sourceFrameOffset,
    int64_t channels, int64_t frames )
{
    KIT_CHECK( pkt );
    KIT_CHECK( *pkt );
    KIT_CHECK( destChannelOffset >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( destChannelOffset, channels ) );
    KIT_CHECK( destChannelOffset + channels <= (*pkt)->channels );
    KIT_CHECK( destFrameOffset >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( destFrameOffset, frames ) );
    KIT_CHECK( destFrameOffset + frames <= (*pkt)->frames );
    KIT_CHECK( source || !frames );
    KIT_CHECK( sourceChannelOffset >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( sourceChannelOffset, channels ) );
    KIT_CHECK( sourceChannelOffset + channels <= sourceChannelCount );
    KIT_CHECK( sourceFrameOffset >= 0 );
    KIT_CHECK( KIT_INT_ADD_OK( sourceFrameOffset, frames ) );
    KIT_CHECK( channels >= 0 );
    KIT_CHECK( frames >= 0 );
    if ( !channels || !frames ) return;
    kit::makePrivate( pkt, pcmPacketCreateFrom );
    const int64_t destChannels = ( *pkt )->channels;
    PCM_SAMPLE *dest = at( *pkt, destFrameOffset ) + destChannelOffset;
    source += sourceFrameOffset * sourceChannelCount + sourceChannelOffset;
    if ( dest + frames * destChannels <= source || source + frames * sourceChannelCount <= dest )
        return pcm::copyChannels( dest, destChannels, source, sourceChannelCount, channels, frames );
    for ( int64_t c = 0; c < channels; ++c ) // the blocks may overlap
        pcm___SamplesChannelCopy( dest, c, destChannels, source, c, sourceChannelCount, frames );
}

// Creates a packet of as many frames as the source, for the caller to fill.
static PCM_PACKET *createUnwritten( PCM_PACKET *source, int64_t channels )
{
    int64_t bytes = kit::saturatedMul( source->frames, frameSize( channels ) );
    return pcm::packetOf( kit::allocate<PCM_SAMPLE>( bytes, 1 ), channels, source->frames );
}

PCM_PACKET *pcmPacketCreateFromWithChannels( PCM_PACKET *source, int64_t channels )
{
    KIT_CHECK( source );
    KIT_CHECK( channels > 0 );
    if ( channels == source->channels ) return kit::retain( source );
    PCM_PACKET *pkt = createUnwritten( source, channels );
    pcm::mixFrames( pkt->backing, channels, source->backing, source->channels, false, 1, source->frames );
    return pkt;
}

PCM_PACKET *pcmPacketCreateFromWithChannelMask( PCM_PACKET *source, uint64_t channelMask )
{
    KIT_CHECK( source );
    KIT_CHECK( channelMask );
    int64_t channels = kitIntBitCount( channelMask );
    if ( channels == source->channels ) return kit::retain( source );
    PCM_PACKET *pkt = createUnwritten( source, channels );
    const int64_t selectable = kitIntMin( source->channels, 64 );
    if ( selectable < 64 ) channelMask &= ( uint64_t{ 1 } << selectable ) - 1;
    pcm::selectChannels( pkt->backing, channels, source->backing, source->channels, channelMask, source->frames );
    return pkt;
}

// ---- Encoded bytes

KIT_BUFFER *pcmPacketEncode( PCM_PACKET *pkt, PCM_ENCODING encoding )
{
    KIT_CHECK( pkt );
    int64_t length = pcmEncodingSizeofFrame( encoding, pkt->channels );
    KIT_CHECK( KIT_INT_MUL_OK( length, pkt->frames ) );
    int64_t bytes = length * pkt->frames;
    if ( !bytes ) return kitBufferCreate();
    kit::Block<uint8_t> block = kit::allocate<uint8_t>( bytes );
    pcm___Convert(
        block.get(), pcm::samplesIn( std::endian::little, encoding ), pkt->backing, 0, pkt->channels * pkt->frames );
    return pcm::bufferOf( std::move( block ), bytes );
}

PCM_PACKET *pcmPacketTryDecode( KIT_BUFFER *source, PCM_ENCODING encoding, int64_t channels )
{
    KIT_CHECK( source );
    KIT_CHECK( channels > 0 );
    int64_t size = pcmEncodingSizeofFrame( encoding, channels );
    int64_t length = kitBufferLength( source ), frames = length / size;
    if ( length % size ) return nullptr;
    kit::Block<PCM_SAMPLE> block;
    if ( frames ) {
        block = kit::allocate<PCM_SAMPLE>( frames, pcmEncodingSizeofFrame( 0, channels ) );
        pcm___Convert( block.get(), 0, kitBufferBacking( source ), pcm::samplesIn( std::endian::little, encoding ),
            frames * channels );
    }
    return pcm::packetOf( std::move( block ), channels, frames );
}
