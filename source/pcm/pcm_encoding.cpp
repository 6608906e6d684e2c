#include "pcm_encoding.h"

#include "kit/kit_ref.h"

#include <bit>

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
static constexpr PCM_ENCODING packGroup = 2 * PCM_ENCODING_PACK_64 - PCM_ENCODING_PACK_16;

static KIT_FLAGSET *pcm___EncodingFlagset;

static PCM_ENCODING lowestBit( PCM_ENCODING word ) { return word & -word; }

static int64_t baseWidth( PCM_ENCODING base )
{
    switch ( base ) {
    case PCM_ENCODING_G711_ALAW:
    case PCM_ENCODING_G711_MULAW:
    case PCM_ENCODING_INT_8: return 1;
    case PCM_ENCODING_INT_16: return 2;
    case PCM_ENCODING_INT_24: return 3;
    default: return 4;
    }
}

static int64_t packWidth( PCM_ENCODING pack )
{
    return pack ? 2 + std::countr_zero( pack ) - std::countr_zero( PCM_ENCODING_PACK_16 ) : 1;
}

PCM_ENCODING pcmEncodingNormalize( PCM_ENCODING encoding )
{
    return lowestBit( encoding & PCM_ENCODING_BASE_MASK ) | ( encoding & PCM_ENCODING_UNSIGNED ) |
           lowestBit( encoding & orderGroup ) | lowestBit( encoding & padGroup ) | lowestBit( encoding & packGroup );
}

int64_t pcmEncodingSizeofSample( PCM_ENCODING encoding )
{
    encoding = pcmEncodingNormalize( encoding );
    return kitIntMax( baseWidth( encoding & PCM_ENCODING_BASE_MASK ), packWidth( encoding & packGroup ) );
}

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
