// The functions that the package calls. The comment lines after a prototype are the conditions that a call from Python
// can violate, in the order and with the texts of the library; the package checks them before it calls the library. A
// line can also refer to the conditions of another function, name a value, or apply only under a condition. Functions
// marked static are steps inside the library and are not called.

typedef struct PCM_PACKET PCM_PACKET;
typedef struct PCM_PACKET_QUEUE PCM_PACKET_QUEUE;
typedef struct PCM_FILTER_COEFFICIENTS PCM_FILTER_COEFFICIENTS;
typedef struct PCM_FILTER PCM_FILTER;
typedef struct PCM_SRC PCM_SRC;
typedef struct PCM_TONE PCM_TONE;
typedef struct KIT_OBJ KIT_OBJ;
typedef struct KIT_STRING KIT_STRING;
typedef struct KIT_BUFFER KIT_BUFFER;
typedef struct KIT_MODULE KIT_MODULE;
typedef uint64_t PCM_ENCODING;
typedef float PCM_SAMPLE;

// ---- The base library

void *kitMemAlloc( int64_t bytes );
    // memory = KIT_INT_ADD_OK( bytes, 0 ); memory
void *kitMemAllocN( int64_t count, int64_t size );
    // KIT_INT_MUL_OK( count, size )
KIT_BUFFER *kitBufferCreateFromBytesUse( void *bytes, int64_t length );
const uint8_t *kitBufferBacking( const KIT_BUFFER *buffer );
int64_t kitBufferLength( const KIT_BUFFER *buffer );
KIT_STRING *kitStringCreateFromCstr( const char *cstr, int64_t length );
const char *kitStringBacking( const KIT_STRING *string );
int64_t kitStringLength( const KIT_STRING *string );
void kitObjRelease( KIT_OBJ *obj );
KIT_STRING *kitObjToString( KIT_OBJ *obj );
void kitModuleStartup( KIT_MODULE *module );
KIT_MODULE *pcmModule( void );

// ---- Encodings

PCM_ENCODING pcmEncodingNormalize( PCM_ENCODING encoding );
int64_t pcmEncodingSizeofSample( PCM_ENCODING encoding );
int64_t pcmEncodingSizeofFrame( PCM_ENCODING encoding, int64_t channels );
    // channels > 0; s = pcmEncodingSizeofSample( encoding ); KIT_INT_MUL_OK( channels, s )
PCM_ENCODING pcmEncodingFromString( KIT_STRING *kits );
    // kits
KIT_STRING *pcmEncodingToString( PCM_ENCODING encoding );
KIT_BUFFER *pcmTryConvert( PCM_ENCODING destEncoding, KIT_BUFFER *source, PCM_ENCODING sourceEncoding );
    // buffer = source; buffer

// ---- Packets

PCM_PACKET *pcmPacketCreate( int64_t channels );
    // channels > 0
PCM_PACKET *pcmPacketCreateFrom( PCM_PACKET *source );
    // source
PCM_PACKET *pcmPacketCreateFromSamplesCopy( const PCM_SAMPLE *source, int64_t channels, int64_t frames );
    // channels > 0
PCM_PACKET *pcmPacketRetain( PCM_PACKET *obj );
void pcmPacketRelease( PCM_PACKET *obj );
int64_t pcmPacketChannels( PCM_PACKET *pkt );
int64_t pcmPacketFrames( PCM_PACKET *pkt );
const PCM_SAMPLE *pcmPacketBacking( PCM_PACKET *pkt );
void pcmPacketClear( PCM_PACKET **pkt );
void pcmPacketSetChannels( PCM_PACKET **pkt, int64_t channels );
    // channels > 0; KIT_INT_MUL_OK( channels, KIT_SIZEOF( PCM_SAMPLE ) ); kitMemAllocN( (*pkt)->frames, channels * 4 )
void pcmPacketSetFrames( PCM_PACKET **pkt, int64_t frames );
    // frames >= 0; kitMemAllocN( frames, (*pkt)->channels * 4 )

static void pcm___PacketOpenGap( PCM_PACKET **pkt, int64_t idx, int64_t frames );
    // idx >= 0; frames >= 0; KIT_INT_ADD_OK( idx, frames ); KIT_INT_ADD_OK( (*pkt)->frames, frames )
    // if frames && idx <= (*pkt)->frames: kitMemAllocN( (*pkt)->frames + frames, (*pkt)->channels * 4 )

void pcmPacketWriteInner( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );
    // idx >= 0; source; offset >= 0; frames >= 0
    // KIT_INT_ADD_OK( offset, frames ); offset + frames <= source->frames
    // KIT_INT_ADD_OK( idx, frames ); idx + frames <= (*pkt)->frames; (*pkt)->channels == source->channels
void pcmPacketWriteOuter( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );
    // idx >= 0; source; offset >= 0; frames >= 0
    // KIT_INT_ADD_OK( offset, frames ); offset + frames <= source->frames
    // KIT_INT_ADD_OK( idx, source->frames - frames ); idx + (source->frames - frames) <= (*pkt)->frames
    // (*pkt)->channels == source->channels
void pcmPacketWriteZero( PCM_PACKET **pkt, int64_t idx, int64_t frames );
    // idx >= 0; frames >= 0; KIT_INT_ADD_OK( idx, frames ); idx + frames <= (*pkt)->frames

void pcmPacketWrite( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source );
    // source; pcmPacketWriteInner( pkt, idx, source, 0, source->frames )
void pcmPacketWriteLeading( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );
    // pcmPacketWriteInner( pkt, idx, source, 0, frames )
void pcmPacketWriteTrailing( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );
    // source; KIT_INT_SUB_OK( source->frames, frames )
    // pcmPacketWriteInner( pkt, idx, source, source->frames - frames, frames )

// opened(): the packet as the second step of an insertion finds it, with its gap.

void pcmPacketInsertInner( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );
    // pcm___PacketOpenGap( pkt, idx, frames )
    // pcmPacketWriteInner( opened( pkt, idx, frames ), idx, source, offset, frames )
void pcmPacketInsertOuter( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t offset, int64_t frames );
    // source; KIT_INT_SUB_OK( source->frames, frames ); pcm___PacketOpenGap( pkt, idx, source->frames - frames )
    // pcmPacketWriteOuter( opened( pkt, idx, source->frames - frames ), idx, source, offset, frames )
void pcmPacketInsertZero( PCM_PACKET **pkt, int64_t idx, int64_t frames );
    // pcm___PacketOpenGap( pkt, idx, frames ); pcmPacketWriteZero( opened( pkt, idx, frames ), idx, frames )
void pcmPacketInsert( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source );
    // source; pcmPacketInsertInner( pkt, idx, source, 0, source->frames )
void pcmPacketInsertLeading( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );
    // source; pcmPacketInsertInner( pkt, idx, source, 0, frames )
void pcmPacketInsertTrailing( PCM_PACKET **pkt, int64_t idx, PCM_PACKET *source, int64_t frames );
    // source; KIT_INT_SUB_OK( source->frames, frames )
    // pcmPacketInsertInner( pkt, idx, source, source->frames - frames, frames )
void pcmPacketAppend( PCM_PACKET **pkt, PCM_PACKET *source );
    // pcmPacketInsert( pkt, (*pkt)->frames, source )
void pcmPacketAppendInner( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );
    // pcmPacketInsertInner( pkt, (*pkt)->frames, source, offset, frames )
void pcmPacketAppendOuter( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );
    // pcmPacketInsertOuter( pkt, (*pkt)->frames, source, offset, frames )
void pcmPacketAppendLeading( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );
    // pcmPacketInsertLeading( pkt, (*pkt)->frames, source, frames )
void pcmPacketAppendTrailing( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );
    // pcmPacketInsertTrailing( pkt, (*pkt)->frames, source, frames )
void pcmPacketAppendZero( PCM_PACKET **pkt, int64_t frames );
    // pcmPacketInsertZero( pkt, (*pkt)->frames, frames )

void pcmPacketPrepend( PCM_PACKET **pkt, PCM_PACKET *source );
    // pcmPacketInsert( pkt, 0, source )
void pcmPacketPrependInner( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );
    // pcmPacketInsertInner( pkt, 0, source, offset, frames )
void pcmPacketPrependOuter( PCM_PACKET **pkt, PCM_PACKET *source, int64_t offset, int64_t frames );
    // pcmPacketInsertOuter( pkt, 0, source, offset, frames )
void pcmPacketPrependLeading( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );
    // pcmPacketInsertLeading( pkt, 0, source, frames )
void pcmPacketPrependTrailing( PCM_PACKET **pkt, PCM_PACKET *source, int64_t frames );
    // pcmPacketInsertTrailing( pkt, 0, source, frames )
void pcmPacketPrependZero( PCM_PACKET **pkt, int64_t frames );
    // pcmPacketInsertZero( pkt, 0, frames )

void pcmPacketDelInner( PCM_PACKET **pkt, int64_t idx, int64_t frames );
    // idx >= 0; frames >= 0; KIT_INT_ADD_OK( idx, frames ); idx + frames <= (*pkt)->frames
void pcmPacketDelOuter( PCM_PACKET **pkt, int64_t idx, int64_t frames );
    // idx >= 0; frames >= 0; KIT_INT_ADD_OK( idx, frames ); idx + frames <= (*pkt)->frames
void pcmPacketDelLeading( PCM_PACKET **pkt, int64_t frames );
    // pcmPacketDelInner( pkt, 0, frames )
void pcmPacketDelTrailing( PCM_PACKET **pkt, int64_t frames );
    // KIT_INT_SUB_OK( (*pkt)->frames, frames ); pcmPacketDelInner( pkt, (*pkt)->frames - frames, frames )

static void pcmPacketWriteChannelsSamples( PCM_PACKET **pkt, int64_t destChannelOffset, int64_t destFrameOffset,
    const PCM_SAMPLE *source, int64_t sourceChannelOffset, int64_t sourceChannelCount, int64_t sourceFrameOffset,
    int64_t channels, int64_t frames );
    // destChannelOffset >= 0; KIT_INT_ADD_OK( destChannelOffset, channels )
    // destChannelOffset + channels <= (*pkt)->channels
    // destFrameOffset >= 0; KIT_INT_ADD_OK( destFrameOffset, frames ); destFrameOffset + frames <= (*pkt)->frames
    // source || !frames; sourceChannelOffset >= 0; KIT_INT_ADD_OK( sourceChannelOffset, channels )
    // sourceChannelOffset + channels <= sourceChannelCount
    // sourceFrameOffset >= 0; KIT_INT_ADD_OK( sourceFrameOffset, frames ); channels >= 0; frames >= 0
void pcmPacketWriteChannels( PCM_PACKET **pkt, int64_t destChannelOffset, int64_t destFrameOffset,
    PCM_PACKET *source, int64_t sourceChannelOffset, int64_t sourceFrameOffset, int64_t channels, int64_t frames );
    // source; KIT_INT_ADD_OK( sourceFrameOffset, frames ); sourceFrameOffset + frames <= source->frames
    // block = source->frames; of = source->channels; at = sourceFrameOffset; first = sourceChannelOffset
    // pcmPacketWriteChannelsSamples( pkt, destChannelOffset, destFrameOffset, block, first, of, at, channels, frames )
PCM_PACKET *pcmPacketCreateFromWithChannels( PCM_PACKET *source, int64_t channels );
    // source; channels > 0; if channels != source->channels: kitMemAlloc( source->frames * channels * 4 )
PCM_PACKET *pcmPacketCreateFromWithChannelMask( PCM_PACKET *source, uint64_t channelMask );
    // source; channelMask
KIT_BUFFER *pcmPacketEncode( PCM_PACKET *pkt, PCM_ENCODING encoding );
    // pcmEncodingSizeofFrame( encoding, (*pkt)->channels )
PCM_PACKET *pcmPacketTryDecode( KIT_BUFFER *source, PCM_ENCODING encoding, int64_t channels );
    // source; channels > 0; pcmEncodingSizeofFrame( encoding, channels )

void pcmChannelsAdjustReplaceWithDownmix( PCM_PACKET **pkt, int64_t channels );
    // channels > 0; kitMemAllocN( (*pkt)->frames, channels * 4 )
void pcmChannelsAdjustExpandWithDownmix( PCM_PACKET **pkt, int64_t channels );
    // channels > 0; if channels > (*pkt)->channels: pcmPacketSetChannels( pkt, channels )
void pcmFramesExtend( PCM_PACKET **pkt, int64_t mult );
    // mult > 1; sourceFrames = (*pkt)->frames; KIT_INT_MUL_OK( sourceFrames, mult )
    // destFrames = sourceFrames * mult; sourceChannels = (*pkt)->channels; KIT_INT_MUL_OK( destFrames, sourceChannels )
    // kitMemAllocN( destFrames * sourceChannels, 4 )
void pcmFramesReduce( PCM_PACKET **pkt, int64_t div );
    // div > 1; sourceFrames = (*pkt)->frames; sourceFrames % div == 0
void pcmLevelAdjust( PCM_PACKET **pkt, double decibel );
    // pcmDecibelToGain( decibel )
void pcmLevelAdjustLinearGain( PCM_PACKET **pkt, double gain );
void pcmLevelAdjustSamples( PCM_SAMPLE *dest, int64_t samples, double decibel );
    // pcmDecibelToGain( decibel )
void pcmLevelAdjustLinearGainSamples( PCM_SAMPLE *dest, int64_t samples, double gain );
double pcmDecibelFromGain( double gain );
    // !kitRealIsNan( gain ); kitRealIsFinite( gain ); gain >= 0
double pcmDecibelToGain( double decibel );
    // !kitRealIsNan( decibel ); kitRealIsFinite( decibel )

// ---- Queues

PCM_PACKET_QUEUE *pcmPacketQueueCreate( int64_t channels );
    // channels > 0
PCM_PACKET_QUEUE *pcmPacketQueueCreateFrom( PCM_PACKET_QUEUE *source );
PCM_PACKET_QUEUE *pcmPacketQueueRetain( PCM_PACKET_QUEUE *obj );
void pcmPacketQueueRelease( PCM_PACKET_QUEUE *obj );
void pcmPacketQueueWrite( PCM_PACKET_QUEUE **queue, PCM_PACKET *pkt );
    // pkt; pcmPacketChannels( pkt ) == (*queue)->channels
PCM_PACKET *pcmPacketQueueRead( PCM_PACKET_QUEUE **queue );
    // pkt = (*queue)->packets; pkt
PCM_PACKET *pcmPacketQueueGather( PCM_PACKET_QUEUE **queue, int64_t frames );
    // frames >= 0; frames <= (*queue)->frames
void pcmPacketQueueGatherSamples( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames );
    // (*queue)->frames >= frames
void pcmPacketQueueGatherSamplesAdd( PCM_PACKET_QUEUE **queue, PCM_SAMPLE *dest, int64_t frames );
    // (*queue)->frames >= frames
void pcmPacketQueueClear( PCM_PACKET_QUEUE **queue );
int64_t pcmPacketQueueFrames( PCM_PACKET_QUEUE *queue );
int64_t pcmPacketQueuePackets( PCM_PACKET_QUEUE *queue );
int64_t pcmPacketQueueChannels( PCM_PACKET_QUEUE *queue );

// ---- Filters

int64_t pcmFilterTypeFromString( KIT_STRING *kits );
    // kits
KIT_STRING *pcmFilterTypeToString( int64_t type );
    // PCM_FILTER_TYPE_OK( type )
PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreate( int64_t type );
    // PCM_FILTER_TYPE_OK( type )
PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFrom( PCM_FILTER_COEFFICIENTS *source );
PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFromSamplesCopy( const PCM_SAMPLE *coefficients, int64_t length );
    // length > 0
PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsRetain( PCM_FILTER_COEFFICIENTS *obj );
void pcmFilterCoefficientsRelease( PCM_FILTER_COEFFICIENTS *obj );
const PCM_SAMPLE *pcmFilterCoefficientsBacking( PCM_FILTER_COEFFICIENTS *coeff );
int64_t pcmFilterCoefficientsLength( PCM_FILTER_COEFFICIENTS *coeff );

PCM_FILTER *pcmFilterCreate( PCM_FILTER_COEFFICIENTS *coefficients, int64_t channels );
    // coefficients; channels > 0; coefficientsLength = coefficients->length
    // KIT_INT_MUL_OK( filter->coefficientsLength, filter->channels ); kitMemAllocN( coefficientsLength * channels, 4 )
PCM_FILTER *pcmFilterCreateFrom( PCM_FILTER *source );
PCM_FILTER *pcmFilterRetain( PCM_FILTER *obj );
void pcmFilterRelease( PCM_FILTER *obj );
void pcmFilterWrite( PCM_FILTER **filter, PCM_PACKET *pkt );
    // pkt; pcmPacketChannels( pkt ) == (*filter)->channels
PCM_PACKET *pcmFilterRead( PCM_FILTER **filter );
    // pcmPacketQueueRead( filter )
PCM_PACKET *pcmFilterGather( PCM_FILTER **filter, int64_t frames );
    // pcmPacketQueueGather( filter, frames )
void pcmFilterGatherSamples( PCM_FILTER **filter, PCM_SAMPLE *dest, int64_t frames );
    // pcmPacketQueueGatherSamples( filter, dest, frames )
void pcmFilterGatherSamplesAdd( PCM_FILTER **filter, PCM_SAMPLE *dest, int64_t frames );
    // pcmPacketQueueGatherSamples( filter, dest, frames )
int64_t pcmFilterFrames( PCM_FILTER *filter );
int64_t pcmFilterPackets( PCM_FILTER *filter );
void pcmFilterReset( PCM_FILTER **filter );
int64_t pcmFilterChannels( PCM_FILTER *filter );
PCM_FILTER_COEFFICIENTS *pcmFilterCoefficients( PCM_FILTER *filter );

// ---- Rate conversion

int64_t pcmSrcTypeFromString( KIT_STRING *kits );
    // kits
KIT_STRING *pcmSrcTypeToString( int64_t type );
    // PCM_SRC_TYPE_OK( type )
PCM_SRC *pcmSrcTryCreate( int64_t type, int64_t readFrameRate, int64_t writeFrameRate, int64_t channels );
    // PCM_SRC_TYPE_OK( type ); pcmSrcFrameRateCheckCompatibility( readFrameRate, writeFrameRate )
    // channels > 0; KIT_INT_TO_SIGNED_INT_CONV_OK( channels )
int32_t pcmSrcFrameRateCheckCompatibility( int64_t readFrameRate, int64_t writeFrameRate );
    // readFrameRate > 0; writeFrameRate > 0
PCM_SRC *pcmSrcRetain( PCM_SRC *obj );
void pcmSrcRelease( PCM_SRC *obj );
void pcmSrcWrite( PCM_SRC *src, PCM_PACKET *pkt );
    // pkt; pcmPacketChannels( pkt ) == src->fixChannels
    // pktFrames = pkt->frames; KIT_INT_TO_SIGNED_LONG_CONV_OK( pktFrames )
    // outFrames = pktFrames * src->read_frame_rate / src->write_frame_rate; KIT_INT_TO_SIGNED_LONG_CONV_OK( outFrames )
PCM_PACKET *pcmSrcRead( PCM_SRC *src );
    // pcmPacketQueueRead( src )
PCM_PACKET *pcmSrcGather( PCM_SRC *src, int64_t frames );
    // pcmPacketQueueGather( src, frames )
void pcmSrcGatherSamples( PCM_SRC *src, PCM_SAMPLE *dest, int64_t frames );
    // pcmPacketQueueGatherSamples( src, dest, frames )
void pcmSrcGatherSamplesAdd( PCM_SRC *src, PCM_SAMPLE *dest, int64_t frames );
    // pcmPacketQueueGatherSamples( src, dest, frames )
int64_t pcmSrcFrames( PCM_SRC *src );
int64_t pcmSrcPackets( PCM_SRC *src );
void pcmSrcReset( PCM_SRC *src );
int64_t pcmSrcChannels( PCM_SRC *src );
int64_t pcmSrcType( PCM_SRC *src );
int64_t pcmSrcReadFrameRate( PCM_SRC *src );
int64_t pcmSrcWriteFrameRate( PCM_SRC *src );

// ---- Generators

PCM_TONE *pcmToneCreate( double period );
    // period > 0
PCM_TONE *pcmToneTryCreateWithFrequency( int64_t frameRate, int64_t hertz );
    // frameRate > 0; hertz > 0
PCM_TONE *pcmToneRetain( PCM_TONE *obj );
void pcmToneRelease( PCM_TONE *obj );
PCM_PACKET *pcmToneGather( PCM_TONE *tone, int64_t samples );
    // samples >= 0; kitMemAllocN( samples, 4 )
void pcmToneGatherSamples( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples );
void pcmToneGatherSamplesAdd( PCM_TONE *tone, PCM_SAMPLE *dest, int64_t samples );
PCM_PACKET *pcmDualToneGather( PCM_TONE *toneA, PCM_TONE *toneB, int64_t samples );
    // toneA; toneB; samples >= 0; kitMemAllocN( samples, 4 )
void pcmDualToneGatherSamples( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples );
    // toneA; toneB
void pcmDualToneGatherSamplesAdd( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples );
    // toneA; toneB
PCM_PACKET *pcmModulatedToneGather( PCM_TONE *toneA, PCM_TONE *toneB, int64_t samples );
    // toneA; toneB; samples >= 0; kitMemAllocN( samples, 4 )
void pcmModulatedToneGatherSamples( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples );
    // toneA; toneB
void pcmModulatedToneGatherSamplesAdd( PCM_TONE *toneA, PCM_TONE *toneB, PCM_SAMPLE *dest, int64_t samples );
    // toneA; toneB
PCM_PACKET *pcmNoiseGather( int64_t samples );
    // samples >= 0; kitMemAllocN( samples, 4 )
void pcmNoiseGatherSamples( PCM_SAMPLE *dest, int64_t samples );
void pcmNoiseGatherSamplesAdd( PCM_SAMPLE *dest, int64_t samples );
PCM_PACKET *pcmSilenceGather( int64_t samples );
    // frames = samples; frames >= 0; kitMemAllocN( frames, 4 )
void pcmSilenceGatherSamples( PCM_SAMPLE *dest, int64_t samples );
