// A tick of a conference: 20 ms of A-law from each party, mixed so that each party hears all others, encoded as
// A-law. The time is that per party.

#include "jobs.h"
#include "registry.h"

#include "pcm/pcm.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>

constexpr size_t tickSamples = 160;
constexpr size_t partyCounts[] = { 10, 100, 1000 };

static std::string conferenceJob( size_t parties ) { return "conference of " + std::to_string( parties ); }

// Fills buffers.encoded with the audio of all parties, quiet enough that their sum does not clip.
static void encodeSpeech( size_t parties )
{
    std::vector<float> speech( buffers.samples, buffers.samples + parties * tickSamples );
    const float gain = 0.3f / std::sqrt( float( parties ) );
    for ( float &sample : speech ) sample *= gain;
    pcm___Convert( buffers.encoded, PCM_ENCODING_G711_ALAW, speech.data(), 0, int64_t( speech.size() ) );
}

// Compares buffers.output with sums of doubles. Implementations round differently before the last encoding.
static void verifyReplies( size_t parties, const std::string &implementation )
{
    std::vector<float> in( parties * tickSamples ), out( in );
    pcm___Convert( in.data(), 0, buffers.encoded, PCM_ENCODING_G711_ALAW, int64_t( in.size() ) );
    pcm___Convert( out.data(), 0, buffers.output, PCM_ENCODING_G711_ALAW, int64_t( out.size() ) );
    for ( size_t i = 0; i < tickSamples; ++i ) {
        double sum = 0;
        for ( size_t party = 0; party < parties; ++party ) sum += double( in[party * tickSamples + i] );
        for ( size_t at = i; at < in.size(); at += tickSamples )
            if ( !( std::fabs( sum - double( in[at] ) - double( out[at] ) ) < 0.04 ) )
                failMismatch( conferenceJob( parties ), implementation );
    }
}

// `createTick` takes the number of parties and returns a function that reads buffers.encoded and writes
// buffers.output.
template <class CreateTick> static void addConference( const std::string &implementation, CreateTick createTick )
{
    for ( size_t parties : partyCounts )
        addJob( conferenceJob( parties ), tickSamples, implementation, [=] {
            encodeSpeech( parties );
            auto tick = createTick( parties );
            tick();
            verifyReplies( parties, implementation );
            return [=]() mutable {
                tick();
                return int64_t( parties );
            };
        } );
}

static auto createTick( size_t parties )
{
    std::vector<pcm::Queue> queues;
    for ( size_t i = 0; i < parties; ++i ) queues.emplace_back( 1 );
    return [=]() mutable {
        auto *in = reinterpret_cast<const std::byte *>( buffers.encoded );
        uint8_t *out = buffers.output;
        for ( pcm::Queue &queue : queues ) {
            pcm::Buffer payload( std::span( in, tickSamples ) );
            queue.write( pcm::Packet::tryDecode( payload, pcm::Encoding::alaw, 1 ).value() );
            in += tickSamples;
        }
        pcm::Packet sum = pcm::silence::gather( tickSamples );
        std::vector<pcm::Packet> said;
        for ( pcm::Queue &queue : queues ) {
            said.push_back( queue.gather( tickSamples ) );
            pcm::samples::add( sum.mutableSamples(), said.back().samples() );
        }
        for ( pcm::Packet &own : said ) {
            own.levelAdjustLinearGain( -1 );
            pcm::samples::add( own.mutableSamples(), sum.samples() );
            pcm::Buffer reply = own.encode( pcm::Encoding::alaw );
            std::memcpy( out, reply.bytes().data(), tickSamples );
            out += tickSamples;
        }
    };
}

#ifdef BENCH_AVCODEC
extern "C" {
    #include <libavcodec/avcodec.h>
    #include <libavutil/channel_layout.h>
}

// The codecs convert between A-law and 16 bits, so the sums are 32-bit integers.
class FfmpegParty {
public:
    FfmpegParty()
        : decoder( open( avcodec_find_decoder( AV_CODEC_ID_PCM_ALAW ) ) ),
          encoder( open( avcodec_find_encoder( AV_CODEC_ID_PCM_ALAW ) ) ), input( av_packet_alloc() ),
          output( av_packet_alloc() ), said( av_frame_alloc() ), heard( av_frame_alloc() )
    {
        av_new_packet( input, int( tickSamples ) );
        heard->format = AV_SAMPLE_FMT_S16;
        heard->ch_layout = AV_CHANNEL_LAYOUT_MONO;
        heard->nb_samples = int( tickSamples );
        av_frame_get_buffer( heard, 0 );
    }
    FfmpegParty( const FfmpegParty & ) = delete;
    ~FfmpegParty()
    {
        avcodec_free_context( &decoder );
        avcodec_free_context( &encoder );
        av_packet_free( &input );
        av_packet_free( &output );
        av_frame_free( &said );
        av_frame_free( &heard );
    }

    void decode( const uint8_t *payload, int32_t *sum )
    {
        std::memcpy( input->data, payload, tickSamples );
        avcodec_send_packet( decoder, input );
        avcodec_receive_frame( decoder, said );
        auto *samples = reinterpret_cast<const int16_t *>( said->data[0] );
        for ( size_t i = 0; i < tickSamples; ++i ) sum[i] += samples[i];
    }

    void encode( uint8_t *payload, const int32_t *sum )
    {
        av_frame_make_writable( heard );
        auto *own = reinterpret_cast<const int16_t *>( said->data[0] );
        auto *samples = reinterpret_cast<int16_t *>( heard->data[0] );
        for ( size_t i = 0; i < tickSamples; ++i )
            samples[i] = int16_t( std::clamp( sum[i] - own[i], -32768, 32767 ) );
        avcodec_send_frame( encoder, heard );
        avcodec_receive_packet( encoder, output );
        std::memcpy( payload, output->data, tickSamples );
    }

private:
    static AVCodecContext *open( const AVCodec *codec )
    {
        AVCodecContext *context = avcodec_alloc_context3( codec );
        context->sample_rate = 8000;
        context->sample_fmt = AV_SAMPLE_FMT_S16;
        context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
        avcodec_open2( context, codec, nullptr );
        return context;
    }

    AVCodecContext *decoder, *encoder;
    AVPacket *input, *output;
    AVFrame *said, *heard;
};

static auto createFfmpegTick( size_t parties )
{
    auto all = std::make_shared<std::deque<FfmpegParty>>( parties );
    return [=] {
        int32_t sum[tickSamples] = {};
        const uint8_t *in = buffers.encoded;
        uint8_t *out = buffers.output;
        for ( FfmpegParty &party : *all ) party.decode( std::exchange( in, in + tickSamples ), sum );
        for ( FfmpegParty &party : *all ) party.encode( std::exchange( out, out + tickSamples ), sum );
    };
}
#endif

void addConferences()
{
    addConference( "ours", createTick );
#ifdef BENCH_AVCODEC
    addConference( "FFmpeg", createFfmpegTick );
#endif
}
