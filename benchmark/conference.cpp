// A tick of a telephone conference: 20 ms of A-law from each party are decoded and mixed, and each party gets the mix
// without its own voice in A-law. With the library, this is the code of the example program `bridge`.

#include "../example/conference.h"
#include "jobs.h"
#include "registry.h"

#include <memory>
#include <vector>

static constexpr int64_t rate = 8000, frames = rate / host::ticksPerSecond;
static constexpr int64_t partyCounts[] = { 10, 100, 1000 };

#ifdef BENCH_AVCODEC
extern "C" {
    #include <libavcodec/avcodec.h>
    #include <libavutil/channel_layout.h>
    #include <libswresample/swresample.h>
}

/// A caller with FFmpeg's libraries: its A-law codec and its conversion of integers to floats and back. FFmpeg has no
/// public function that adds floats, so these are plain loops.
class FfmpegParty {
public:
    FfmpegParty()
    {
        decoder = open( avcodec_find_decoder( AV_CODEC_ID_PCM_ALAW ) );
        encoder = open( avcodec_find_encoder( AV_CODEC_ID_PCM_ALAW ) );
        AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
        swr_alloc_set_opts2( &toFloats, &mono, AV_SAMPLE_FMT_FLT, rate, &mono, AV_SAMPLE_FMT_S16, rate, 0, nullptr );
        swr_alloc_set_opts2(
            &toIntegers, &mono, AV_SAMPLE_FMT_S16, rate, &mono, AV_SAMPLE_FMT_FLT, rate, 0, nullptr );
        swr_init( toFloats );
        swr_init( toIntegers );
        frame->format = AV_SAMPLE_FMT_S16;
        frame->nb_samples = frames;
        frame->sample_rate = rate;
        frame->ch_layout = mono;
        av_frame_get_buffer( frame, 0 );
    }
    FfmpegParty( const FfmpegParty & ) = delete;

    void read( const uint8_t *bytes, float *mix )
    {
        packet->data = const_cast<uint8_t *>( bytes );
        packet->size = frames;
        avcodec_send_packet( decoder, packet );
        avcodec_receive_frame( decoder, decoded );
        auto *out = reinterpret_cast<uint8_t *>( voice );
        swr_convert( toFloats, &out, frames, const_cast<const uint8_t **>( decoded->data ), frames );
        for ( int i = 0; i < frames; ++i ) mix[i] += voice[i];
    }

    void write( const float *mix )
    {
        for ( int i = 0; i < frames; ++i ) voice[i] = mix[i] - voice[i];
        const auto *in = reinterpret_cast<const uint8_t *>( voice );
        swr_convert( toIntegers, frame->data, frames, &in, frames );
        avcodec_send_frame( encoder, frame );
        avcodec_receive_packet( encoder, encoded );
        benchmark::DoNotOptimize( encoded->data );
        av_packet_unref( encoded );
    }

private:
    static AVCodecContext *open( const AVCodec *codec )
    {
        AVCodecContext *context = avcodec_alloc_context3( codec );
        context->sample_fmt = AV_SAMPLE_FMT_S16;
        context->sample_rate = rate;
        context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
        avcodec_open2( context, codec, nullptr );
        return context;
    }

    // Never released, like the other data of the benchmark.
    AVCodecContext *decoder, *encoder;
    SwrContext *toFloats = nullptr, *toIntegers = nullptr;
    AVPacket *packet = av_packet_alloc(), *encoded = av_packet_alloc();
    AVFrame *decoded = av_frame_alloc(), *frame = av_frame_alloc();
    float voice[frames];
};

static void addFfmpegConference( int64_t count )
{
    addJob( "conference, parties", count, "FFmpeg", [=] {
        auto *parties = new std::vector<FfmpegParty *>;
        for ( int64_t i = 0; i < count; ++i ) parties->push_back( new FfmpegParty );
        return [=] {
            float mix[frames] = {};
            for ( FfmpegParty *party : *parties ) party->read( buffers.encoded, mix );
            for ( FfmpegParty *party : *parties ) party->write( mix );
            return count;
        };
    } );
}
#else
static void addFfmpegConference( int64_t ) {}
#endif

void addConference()
{
    for ( int64_t count : partyCounts ) {
        addJob( "conference, parties", count, "ours", [=] {
            static const pcm::Module module;
            auto parties = std::make_shared<std::vector<std::unique_ptr<host::Party>>>();
            auto conference = std::make_shared<host::Conference>( rate );
            for ( int64_t i = 0; i < count; ++i ) {
                parties->push_back( std::make_unique<host::Party>( pcm::Encoding::alaw, rate, rate ) );
                conference->parties.push_back( parties->back().get() );
            }
            return [=] {
                for ( const auto &party : *parties )
                    party->write( std::as_bytes( std::span( buffers.encoded, size_t( frames ) ) ) );
                conference->tick();
                return count;
            };
        } );
        addFfmpegConference( count );
    }
}
