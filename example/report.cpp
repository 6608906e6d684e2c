#include "report.h"

#include <algorithm>
#include <cmath>

namespace host {

std::FILE *wordsBeside( const std::string &output ) { return sameFile( output, "/dev/stdout" ) ? stderr : stdout; }

void Report::file( const char *side, int64_t frames, const AudioFormat &format, const std::string &encoding,
    const std::string &path ) const
{
    std::fprintf( to, "%-4s %lld frames, %s s, %lld Hz, %lld channel%s, %s: %s\n", side, (long long)frames,
        fixed( double( frames ) / double( format.rate ), 3 ).c_str(), (long long)format.rate,
        (long long)format.channels, format.channels == 1 ? "" : "s", encoding.c_str(), path.c_str() );
}

void Report::peak( double highest, pcm::Encoding encoding ) const
{
    pcm::Encoding clipping = encoding.base() & ~pcm::Encoding::float32;
    std::fprintf( to, "peak %s%s\n", decibels( highest ).c_str(),
        highest > 1 && clipping ? " before it was clipped to full scale" : "" );
}

float highestOf( const pcm::Packet &pkt, float peak )
{
    for ( PCM_SAMPLE sample : pkt.samples() ) peak = std::max( peak, std::fabs( sample ) ); // a NaN stays out
    return peak;
}

} // namespace host
