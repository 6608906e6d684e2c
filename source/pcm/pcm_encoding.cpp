#include "pcm_encoding.h"

#include "pcm_slot.hh"

#include "kit/kit_ref.hh"

#define FLAGS( X )                  \
    X( PCM_ENCODING_G711_ALAW )     \
    X( PCM_ENCODING_G711_MULAW )    \
    X( PCM_ENCODING_INT_8 )         \
    X( PCM_ENCODING_INT_16 )        \
    X( PCM_ENCODING_INT_24 )        \
    X( PCM_ENCODING_INT_32 )        \
    X( PCM_ENCODING_FLOAT_32 )      \
    X( PCM_ENCODING_UNSIGNED )      \
    X( PCM_ENCODING_BIG_ENDIAN )    \
    X( PCM_ENCODING_LITTLE_ENDIAN ) \
    X( PCM_ENCODING_PAD_BEFORE )    \
    X( PCM_ENCODING_PAD_AFTER )     \
    X( PCM_ENCODING_PACK_16 )       \
    X( PCM_ENCODING_PACK_24 )       \
    X( PCM_ENCODING_PACK_32 )       \
    X( PCM_ENCODING_PACK_40 )       \
    X( PCM_ENCODING_PACK_48 )       \
    X( PCM_ENCODING_PACK_56 )       \
    X( PCM_ENCODING_PACK_64 )

static constexpr PCM_ENCODING orderGroup = PCM_ENCODING_BIG_ENDIAN | PCM_ENCODING_LITTLE_ENDIAN;
static constexpr PCM_ENCODING padGroup = PCM_ENCODING_PAD_BEFORE | PCM_ENCODING_PAD_AFTER;

static KIT_FLAGSET *pcm___EncodingFlagset;

static PCM_ENCODING lowestBit( PCM_ENCODING word ) { return word & -word; }

PCM_ENCODING pcmEncodingNormalize( PCM_ENCODING encoding )
{
    return lowestBit( encoding & PCM_ENCODING_BASE_MASK ) | ( encoding & PCM_ENCODING_UNSIGNED ) |
           lowestBit( encoding & orderGroup ) | lowestBit( encoding & padGroup ) |
           lowestBit( encoding & pcm::packGroup );
}

int64_t pcmEncodingSizeofSample( PCM_ENCODING encoding ) { return pcm::slotOf( encoding ).width; }

int64_t pcmEncodingSizeofFrame( PCM_ENCODING encoding, int64_t channels )
{
    KIT_CHECK( channels > 0 );
    int64_t s = pcmEncodingSizeofSample( encoding );
    KIT_CHECK( KIT_INT_MUL_OK( channels, s ) );
    return s * channels;
}

PCM_ENCODING pcmEncodingFromString( KIT_STRING *kits )
{
    KIT_CHECK( kits );
    return pcmEncodingNormalize( kitFlagsetParse( pcm___EncodingFlagset, kits ) );
}

KIT_STRING *pcmEncodingToString( PCM_ENCODING encoding )
{
    return kitFlagsetGenerate( pcm___EncodingFlagset, pcmEncodingNormalize( encoding ) );
}

void pcm___EncodingStartup( void )
{
    pcm___EncodingFlagset = nullptr;
    pcm___EncodingFlagset = kitFlagsetCreate();
#define ADD( name )                                                              \
    KIT_CHECK( !kitFlagsetHasFlagCstr( *(&pcm___EncodingFlagset), #name, -1 ) ); \
    kitFlagsetSetFlagCstr( &pcm___EncodingFlagset, #name, -1, name );
    FLAGS( ADD )
#undef ADD
}

void pcm___EncodingShutdown( void ) { kit::releaseAndPoison( pcm___EncodingFlagset ); }
