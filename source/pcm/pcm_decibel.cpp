#include "pcm_decibel.h"

#include "kit/kit_check.hh"

#include <cmath>

double pcmDecibelFromGain( double gain )
{
    KIT_CHECK( !kitRealIsNan( gain ) );
    KIT_CHECK( kitRealIsFinite( gain ) );
    KIT_CHECK( gain >= 0 );
    if ( kitRealEquals( gain, 0.0 ) ) return -200.0;
    double decibel = std::log10( gain ) * 20.0;
    KIT_CHECK( !kitRealIsNan( decibel ) );
    KIT_CHECK( kitRealIsFinite( decibel ) );
    if ( kitRealCompare( decibel, -200.0 ) <= 0 ) return -200.0;
    if ( kitRealCompare( decibel, 200.0 ) >= 0 ) return 200.0;
    return decibel;
}

double pcmDecibelToGain( double decibel )
{
    KIT_CHECK( !kitRealIsNan( decibel ) );
    KIT_CHECK( kitRealIsFinite( decibel ) );
    if ( kitRealEquals( decibel, 0.0 ) ) return 1.0;
    if ( kitRealCompare( decibel, -200.0 ) <= 0 )
        decibel = -200.0;
    else if ( kitRealCompare( decibel, 200.0 ) >= 0 )
        decibel = 200.0;
    double gain = std::pow( 10.0, decibel / 20.0 );
    KIT_CHECK( !kitRealIsNan( gain ) );
    KIT_CHECK( kitRealIsFinite( gain ) );
    return gain;
}
