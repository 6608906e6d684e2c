#include "pcm_src_type.h"

#include "kit/kit_ref.hh"

#include <samplerate.h>

#define TYPES( X )           \
    X( SINC_BEST_QUALITY )   \
    X( SINC_MEDIUM_QUALITY ) \
    X( SINC_FASTEST )        \
    X( ZERO_ORDER_HOLD )     \
    X( LINEAR )

static KIT_ENUM *pcm___SrcTypeEnum;

int64_t pcmSrcTypeFromString( KIT_STRING *kits )
{
    KIT_CHECK( kits );
    return kitEnumParse( pcm___SrcTypeEnum, kits );
}

KIT_STRING *pcmSrcTypeToString( int64_t type )
{
    KIT_CHECK( PCM_SRC_TYPE_OK( type ) );
    return kitEnumGenerate( pcm___SrcTypeEnum, type );
}

int32_t pcm___SrcTypeToSamplerateConverterType( int64_t type )
{
    KIT_CHECK( PCM_SRC_TYPE_OK( type ) );
    switch ( type ) {
#define CONVERTER( name ) \
    case PCM_SRC_TYPE_##name: return SRC_##name;
        TYPES( CONVERTER )
#undef CONVERTER
    }
    kit___Abort( nullptr, kit::sourcePath<__FILE__>, __LINE__, nullptr );
}

void pcm___SrcTypeStartup( void )
{
    pcm___SrcTypeEnum = nullptr;
    pcm___SrcTypeEnum = kitEnumCreate();
#define ADD( name ) kitEnumSetEnumerantCstr( &pcm___SrcTypeEnum, "PCM_SRC_TYPE_" #name, -1, PCM_SRC_TYPE_##name );
    TYPES( ADD )
#undef ADD
}

void pcm___SrcTypeShutdown( void ) { kit::releaseAndPoison( pcm___SrcTypeEnum ); }
