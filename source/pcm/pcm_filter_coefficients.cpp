#include "pcm_filter_coefficients.h"

#include "pcm_module.h"
#include "pcm_samples_stdc.h"

#include "kit/kit_ref.hh"

#include <array>

struct PCM_FILTER_COEFFICIENTS {
    KIT_OBJ header;
    PCM_SAMPLE *backing;
    int64_t length;
};

static void pcm___FilterCoefficientsFreeFunc( KIT_OBJ *obj );

KIT_OBJECT_DEFINE( pcm, PCM_FILTER_COEFFICIENTS, pcmFilterCoefficients, pcm___FilterCoefficientsFreeFunc );

static void pcm___FilterCoefficientsFreeFunc( KIT_OBJ *obj )
{
    auto *coeff = reinterpret_cast<PCM_FILTER_COEFFICIENTS *>( obj );
    KIT_CHECK( coeff );
    KIT_CHECK_SORT( pcm, PCM_FILTER_COEFFICIENTS );
    kitMemFree( coeff->backing );
    kit___ObjDbgSetAllocationSize( obj, 0 );
}

// The second half of a built-in set mirrors the first.
template <size_t half> static consteval auto mirrored( const PCM_SAMPLE ( &taps )[half] )
{
    std::array<PCM_SAMPLE, 2 * half> set{};
    for ( size_t i = 0; i < half; ++i ) set[i] = set[2 * half - 1 - i] = taps[i];
    return set;
}

static constexpr auto lowpass4000At16000 = mirrored(
    { -0.00692039f, -0.02939334f, 0.01561120f, 0.05077554f, -0.03835860f, -0.09874936f, 0.12675393f, 0.46728578f } );
static constexpr auto lowpass4000At24000 = mirrored( { -0.00000743f, -0.01157224f, -0.01402500f, 0.00113505f,
    0.02371669f, 0.02695675f, -0.00677197f, -0.05515933f, -0.05668846f, 0.03877607f, 0.20576246f, 0.33931801f } );
static constexpr auto lowpass4000At48000 = mirrored(
    { 0.00093995f, -0.00126115f, -0.00364955f, -0.00551805f, -0.00612509f, -0.00491882f, -0.00176680f, 0.00287701f,
        0.00793933f, 0.01187851f, 0.01303053f, 0.01010423f, 0.00272245f, -0.00814065f, -0.01998999f, -0.02904297f,
        -0.03092136f, -0.02173573f, 0.00064716f, 0.03549140f, 0.07863814f, 0.12287326f, 0.15938070f, 0.18006885f } );
static constexpr auto lowpass6000At24000 = mirrored( { -0.00166381f, -0.01081769f, 0.00331986f, 0.01768523f,
    -0.00693677f, -0.02940972f, 0.01559481f, 0.05075915f, -0.03837499f, -0.09876574f, 0.12673753f, 0.46726942f } );
static constexpr auto lowpass6000At48000 = mirrored(
    { 0.00020451f, -0.00134397f, -0.00251919f, -0.00234377f, -0.00042367f, 0.00254427f, 0.00483893f, 0.00453695f,
        0.00081266f, -0.00501387f, -0.00953355f, -0.00883966f, -0.00117772f, 0.01078422f, 0.01987852f, 0.01763846f,
        0.00004262f, -0.02707405f, -0.04694626f, -0.03797615f, 0.01395688f, 0.10299704f, 0.19978382f, 0.26317838f } );
static constexpr auto lowpass8000At48000 = mirrored(
    { 0.00000662f, -0.00102161f, -0.00125558f, -0.00002844f, 0.00181886f, 0.00226605f, 0.00007440f, -0.00327570f,
        -0.00410891f, -0.00010847f, 0.00604963f, 0.00753968f, -0.00002261f, -0.01158741f, -0.01404018f, 0.00111987f,
        0.02370152f, 0.02694158f, -0.00678714f, -0.05517450f, -0.05670363f, 0.03876090f, 0.20574728f, 0.33930284f } );
static constexpr auto lowpass12000At48000 = mirrored( { -0.00005807f, -0.00070003f, 0.00009739f, 0.00108956f,
    -0.00016205f, -0.00169985f, 0.00027915f, 0.00267005f, -0.00048887f, -0.00421832f, 0.00088776f, 0.00672354f,
    -0.00167224f, -0.01082612f, 0.00331143f, 0.01767680f, -0.00694521f, -0.02941815f, 0.01558637f, 0.05075073f,
    -0.03838342f, -0.09877416f, 0.12672912f, 0.46726102f } );

static constexpr struct {
    const PCM_SAMPLE *taps;
    int64_t length;
} builtIn[] = {
    { lowpass4000At16000.data(), lowpass4000At16000.size() },
    { lowpass4000At24000.data(), lowpass4000At24000.size() },
    { lowpass4000At48000.data(), lowpass4000At48000.size() },
    { lowpass6000At24000.data(), lowpass6000At24000.size() },
    { lowpass6000At48000.data(), lowpass6000At48000.size() },
    { lowpass8000At48000.data(), lowpass8000At48000.size() },
    { lowpass12000At48000.data(), lowpass12000At48000.size() },
};

static PCM_FILTER_COEFFICIENTS *sets[std::size( builtIn )];

PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreate( int64_t type )
{
    KIT_CHECK( PCM_FILTER_TYPE_OK( type ) );
    return kit::retain( sets[type] );
}

PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFrom( PCM_FILTER_COEFFICIENTS *source )
{
    KIT_CHECK( source );
    return pcmFilterCoefficientsCreateFromSamplesCopy( source->backing, source->length );
}

PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFromSamplesCopy( const PCM_SAMPLE *coefficients, int64_t length )
{
    KIT_CHECK( coefficients );
    KIT_CHECK( length > 0 );
    auto taps = kit::allocate<PCM_SAMPLE>( length );
    pcm___SamplesCopy( taps.get(), coefficients, length );
    PCM_FILTER_COEFFICIENTS *coeff = pcmFilterCoefficientsCreateFromSamplesUse( taps.get(), length );
    (void)taps.release();
    return coeff;
}

PCM_FILTER_COEFFICIENTS *pcmFilterCoefficientsCreateFromSamplesUse( PCM_SAMPLE *coefficients, int64_t length )
{
    KIT_CHECK( coefficients );
    KIT_CHECK( length > 0 );
    auto *coeff = kit::create<PCM_FILTER_COEFFICIENTS>( &pcm___sort_PCM_FILTER_COEFFICIENTS );
    coeff->backing = coefficients;
    coeff->length = length;
    kit___ObjDbgSetAllocationSizeN( &coeff->header, length, KIT_SIZEOF( PCM_SAMPLE ) );
    return coeff;
}

const PCM_SAMPLE *pcmFilterCoefficientsBacking( PCM_FILTER_COEFFICIENTS *coeff )
{
    KIT_CHECK( coeff );
    return coeff->backing;
}

int64_t pcmFilterCoefficientsLength( PCM_FILTER_COEFFICIENTS *coeff )
{
    KIT_CHECK( coeff );
    return coeff->length;
}

void pcm___FilterCoefficientsStartup( void )
{
    for ( auto &set : sets ) set = nullptr;
    for ( size_t type = 0; type < std::size( builtIn ); ++type )
        sets[type] = pcmFilterCoefficientsCreateFromSamplesCopy( builtIn[type].taps, builtIn[type].length );
}

void pcm___FilterCoefficientsShutdown( void )
{
    for ( auto &set : sets ) kit::releaseAndPoison( set );
}
