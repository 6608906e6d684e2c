#include "report.h"

#include <algorithm>
#include <cmath>

namespace host {

std::FILE *messageStream( const std::string &outputPath )
{
    return outputPath == standardStream || isSameFile( outputPath, "/dev/stdout" ) ? stderr : stdout;
}

void Report::printFile( const char *direction, int64_t frames, const AudioFormat &format, const std::string &encoding,
    const std::string &path ) const
{
    std::fprintf( stream, "%-4s %lld frames, %s s, %lld Hz, %lld channel%s, %s: %s\n", direction, (long long)frames,
        formatFixed( double( frames ) / double( format.rate ), 3 ).c_str(), (long long)format.rate,
        (long long)format.channels, format.channels == 1 ? "" : "s", encoding.c_str(), path.c_str() );
}

void Report::printPeak( double peak, pcm::Encoding encoding ) const
{
    bool clips( encoding.base() & ~pcm::Encoding::float32 );
    std::fprintf( stream, "peak %s%s\n", formatDecibels( peak ).c_str(),
        peak > 1 && clips ? " before clipping to full scale" : "" );
}

float updatedPeak( float peak, const pcm::Packet &pkt )
{
    for ( PCM_SAMPLE sample : pkt.samples() ) peak = std::max( peak, std::fabs( sample ) ); // ignores NaN
    return peak;
}

} // namespace host
