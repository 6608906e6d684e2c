// Sample rate conversion. The limit is libsamplerate without the library's packets.

#include "jobs.h"
#include "registry.h"

#include <memory>
#include <samplerate.h>

// The library's own conversion between telephony rates: insert zeros, filter and drop frames. Each job converts 20
// ms.

static void addTelephony( const char *job, int64_t frames, int64_t filterType, int64_t extend, int64_t reduce )
{
    addJob( job, frames, "ours", [=] {
        Handle coefficients( pcmFilterCoefficientsCreate( filterType ) );
        return [=, input = inputPacket( 1, frames ),
                   filter = Handle( pcmFilterCreate( coefficients.obj, 1 ) )]() mutable {
            PCM_PACKET *pkt = pcmPacketRetain( input.obj );
            if ( extend > 1 ) pcmFramesExtend( &pkt, extend );
            pcmFilterWrite( &filter.obj, pkt );
            pcmPacketRelease( pkt );
            pkt = pcmFilterRead( &filter.obj );
            if ( extend > 1 ) pcmLevelAdjustLinearGain( &pkt, double( extend ) ); // the zeros lower the level
            if ( reduce > 1 ) pcmFramesReduce( &pkt, reduce );
            pcmPacketRelease( pkt );
            return frames;
        };
    } );
}

void addResamplers()
{
    addTelephony( "telephone 8 to 16 kHz", 160, PCM_FILTER_TYPE_LOWPASS_4000_AT_16000, 2, 1 );
    addTelephony( "telephone 48 to 8 kHz", 960, PCM_FILTER_TYPE_LOWPASS_4000_AT_48000, 1, 6 );
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
