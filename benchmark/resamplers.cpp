// Sample rate conversion. The limit is libsamplerate without the library's packets.

#include "jobs.h"
#include "registry.h"

#include <memory>
#include <samplerate.h>

void addResamplers()
{
    constexpr struct {
        const char *job;
        int64_t type;
        int converter;
    } resamplers[] = {
        { "rate 8 to 16 kHz linear", PCM_SRC_TYPE_LINEAR, SRC_LINEAR },
        { "rate 8 to 16 kHz sinc", PCM_SRC_TYPE_SINC_FASTEST, SRC_SINC_FASTEST },
    };
    for ( auto resampler : resamplers )
        for ( int64_t samples : streamBlockSizes ) {
            addJob( resampler.job, samples, "ours", [=] {
                return [=, pkt = inputPacket( 1, samples ),
                           src = Handle( pcmSrcTryCreate( resampler.type, 16000, 8000, 1 ) )] {
                    pcmSrcWrite( src.obj, pkt.obj );
                    pcmPacketRelease( pcmSrcRead( src.obj ) );
                    return samples;
                };
            } );
            addJob( resampler.job, samples, "limit", [=] {
                int error;
                std::shared_ptr<SRC_STATE> state( src_new( resampler.converter, 1, &error ), src_delete );
                return [=] {
                    SRC_DATA data = {};
                    data.data_in = buffers.samples;
                    data.input_frames = long( samples );
                    data.data_out = buffers.outputSamples();
                    data.output_frames = long( 2 * samples );
                    data.src_ratio = 2.0;
                    src_process( state.get(), &data );
                    return samples;
                };
            } );
        }
}
