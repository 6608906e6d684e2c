#include "pcm_filter_type.h"

#include "kit/kit_ref.hh"

#define TYPES( X )                             \
    X( PCM_FILTER_TYPE_LOWPASS_4000_AT_16000 ) \
    X( PCM_FILTER_TYPE_LOWPASS_4000_AT_24000 ) \
    X( PCM_FILTER_TYPE_LOWPASS_4000_AT_48000 ) \
    X( PCM_FILTER_TYPE_LOWPASS_6000_AT_24000 ) \
    X( PCM_FILTER_TYPE_LOWPASS_6000_AT_48000 ) \
    X( PCM_FILTER_TYPE_LOWPASS_8000_AT_48000 ) \
    X( PCM_FILTER_TYPE_LOWPASS_12000_AT_48000 )

static KIT_ENUM *pcm___FilterTypeEnum;

int64_t pcmFilterTypeFromString( KIT_STRING *kits )
{
    KIT_CHECK( kits );
    return kitEnumParse( pcm___FilterTypeEnum, kits );
}

KIT_STRING *pcmFilterTypeToString( int64_t type )
{
    KIT_CHECK( PCM_FILTER_TYPE_OK( type ) );
    return kitEnumGenerate( pcm___FilterTypeEnum, type );
}

void pcm___FilterTypeStartup( void )
{
    pcm___FilterTypeEnum = nullptr;
    pcm___FilterTypeEnum = kitEnumCreate();
#define ADD( name ) kitEnumSetEnumerantCstr( &pcm___FilterTypeEnum, #name, -1, name );
    TYPES( ADD )
#undef ADD
}

void pcm___FilterTypeShutdown( void ) { kit::releaseAndPoison( pcm___FilterTypeEnum ); }
