// Other audio and signal processing libraries, each with the function that is closest to the job.

#include "jobs.h"
#include "registry.h"

#include <cstring>
#include <memory>

/// Conversions of 20 ms between telephone rates.
static constexpr struct {
    const char *job;
    int from, to;

    int64_t framesIn() const { return from / 50; }
    int64_t framesOut() const { return to / 50; }
} telephoneRates[] = {
    { "telephone 8 to 16 kHz", 8000, 16000 },
    { "telephone 48 to 8 kHz", 48000, 8000 },
};

static constexpr struct {
    const char *job;
    int from, to;
} downmixes[] = {
    { "downmix 2 to 1", 2, 1 },
    { "downmix 1 to 2", 1, 2 },
    { "downmix 6 to 2", 6, 2 },
};

#ifdef BENCH_VOLK
    #include <volk/volk.h>

// `fullScale` is the integer value of full scale. For 32 bits it is the largest float below 2^31, since 2^31 itself
// would overflow.
template <auto decode, auto encode, class Int>
static void addVolkIntegers( const Encoding &encoding, float fullScale )
{
    addConversion( Conversion{ encoding, true }, "VOLK", [=]( void *dest, const void *source, int64_t n ) {
        ( *decode )( static_cast<float *>( dest ), static_cast<const Int *>( source ), fullScale, unsigned( n ) );
    } );
    addConversion( Conversion{ encoding, false }, "VOLK", [=]( void *dest, const void *source, int64_t n ) {
        ( *encode )( static_cast<Int *>( dest ), static_cast<const float *>( source ), fullScale, unsigned( n ) );
    } );
}

template <class Run> static void addVolkKernel( const char *job, Run run )
{
    for ( int64_t samples : blockSizes )
        addJob( job, samples, "VOLK", [=] {
            float *dest = buffers.outputSamples();
            buffers.resetOutput();
            return [=] {
                run( dest, unsigned( samples ) );
                return samples;
            };
        } );
}

static void addVolk()
{
    addVolkIntegers<&volk_8i_s32f_convert_32f, &volk_32f_s32f_convert_8i, int8_t>( encodings::int8, 128 );
    addVolkIntegers<&volk_16i_s32f_convert_32f, &volk_32f_s32f_convert_16i, int16_t>( encodings::int16, 32768 );
    addVolkIntegers<&volk_32i_s32f_convert_32f, &volk_32f_s32f_convert_32i, int32_t>(
        encodings::int32, 0x1.fffffep30f );
    addVolkKernel( "add", []( float *dest, unsigned n ) { volk_32f_x2_add_32f( dest, dest, buffers.signs, n ); } );
    addVolkKernel(
        "mul", []( float *dest, unsigned n ) { volk_32f_x2_multiply_32f( dest, dest, buffers.signs, n ); } );
    addVolkKernel( "scale", []( float *dest, unsigned n ) { volk_32f_s32f_multiply_32f( dest, dest, -1.0f, n ); } );
}
#endif

#ifdef BENCH_FFMPEG
extern "C" {
    #include <libavutil/channel_layout.h>
    #include <libswresample/swresample.h>
}

struct StreamFormat {
    AVSampleFormat format;
    int channels, rate;
};

/// Returns a function of destination, its size, source and number of frames.
static auto createSwr( StreamFormat to, StreamFormat from )
{
    AVChannelLayout toLayout, fromLayout;
    av_channel_layout_default( &toLayout, to.channels );
    av_channel_layout_default( &fromLayout, from.channels );
    SwrContext *context = nullptr;
    swr_alloc_set_opts2( &context, &toLayout, to.format, to.rate, &fromLayout, from.format, from.rate, 0, nullptr );
    swr_init( context );
    std::shared_ptr<SwrContext> swr( context, []( SwrContext *released ) { swr_free( &released ); } );
    return [=]( void *dest, int64_t maxFrames, const void *source, int64_t frames ) {
        auto *out = static_cast<uint8_t *>( dest );
        auto *in = static_cast<const uint8_t *>( source );
        swr_convert( swr.get(), &out, int( maxFrames ), &in, int( frames ) );
    };
}

static void addFfmpeg()
{
    constexpr struct {
        Encoding encoding;
        AVSampleFormat format;
    } formats[] = {
        { encodings::uint8, AV_SAMPLE_FMT_U8 },
        { encodings::int16, AV_SAMPLE_FMT_S16 },
        { encodings::int32, AV_SAMPLE_FMT_S32 },
        { encodings::float32, AV_SAMPLE_FMT_FLT },
    };
    for ( auto format : formats )
        for ( bool decoding : { true, false } )
            addPreparedConversion( Conversion{ format.encoding, decoding }, "FFmpeg", [=]( int64_t ) {
                const StreamFormat encoded = { format.format, 1, 8000 }, floats = { AV_SAMPLE_FMT_FLT, 1, 8000 };
                auto swr = decoding ? createSwr( floats, encoded ) : createSwr( encoded, floats );
                return [=]( void *dest, const void *source, int64_t n ) { swr( dest, n, source, n ); };
            } );
    for ( auto rates : telephoneRates )
        addJob( rates.job, rates.framesIn(), "FFmpeg", [=] {
            auto swr = createSwr( { AV_SAMPLE_FMT_FLT, 1, rates.to }, { AV_SAMPLE_FMT_FLT, 1, rates.from } );
            return [=] {
                swr( buffers.output, rates.framesOut() + 16, buffers.samples, rates.framesIn() );
                return rates.framesIn();
            };
        } );
    for ( auto mix : downmixes )
        for ( int64_t frames : streamBlockSizes )
            addJob( mix.job, frames, "FFmpeg", [=] {
                auto swr = createSwr( { AV_SAMPLE_FMT_FLT, mix.to, 8000 }, { AV_SAMPLE_FMT_FLT, mix.from, 8000 } );
                return [=] {
                    swr( buffers.output, frames, buffers.samples, frames );
                    return frames;
                };
            } );
}
#endif

#ifdef BENCH_SOXR
    #include <soxr.h>

static void addSoxr()
{
    for ( auto rates : telephoneRates )
        addJob( rates.job, rates.framesIn(), "soxr", [=] {
            const soxr_quality_spec_t quality = soxr_quality_spec( SOXR_LQ, 0 );
            std::shared_ptr<soxr> state(
                soxr_create( rates.from, rates.to, 1, nullptr, nullptr, &quality, nullptr ), soxr_delete );
            return [=] {
                size_t used, made;
                soxr_process( state.get(), buffers.samples, size_t( rates.framesIn() ), &used, buffers.output,
                    size_t( rates.framesOut() + 16 ), &made );
                return rates.framesIn();
            };
        } );
}
#endif

#ifdef BENCH_SPEEXDSP
    #include <speex/speex_resampler.h>

static void addSpeexdsp()
{
    for ( auto rates : telephoneRates )
        addJob( rates.job, rates.framesIn(), "speexdsp", [=] {
            std::shared_ptr<SpeexResamplerState> state(
                speex_resampler_init( 1, unsigned( rates.from ), unsigned( rates.to ), 3, nullptr ),
                speex_resampler_destroy );
            return [=] {
                auto used = unsigned( rates.framesIn() ), made = unsigned( rates.framesOut() + 16 );
                speex_resampler_process_float(
                    state.get(), 0, buffers.samples, &used, buffers.outputSamples(), &made );
                return rates.framesIn();
            };
        } );
}
#endif

#ifdef BENCH_SNDFILE
    #include <sndfile.h>

// An in-memory file without an end, which repeats the same bytes.
struct EndlessFile {
    uint8_t *bytes;
    sf_count_t period, position;
};

static sf_count_t copyEndless( void *dest, const void *source, sf_count_t count, EndlessFile *file ) noexcept
{
    std::memcpy( dest, source, size_t( count ) );
    file->position += count;
    if ( file->position >= file->period ) file->position = 0;
    return count;
}

static SF_VIRTUAL_IO endlessIo = {
    []( void * ) { return sf_count_t{ 1 } << 50; },
    []( sf_count_t, int, void * ) { return sf_count_t{ 0 }; },
    []( void *dest, sf_count_t count, void *user ) {
        auto *file = static_cast<EndlessFile *>( user );
        return copyEndless( dest, file->bytes + file->position, count, file );
    },
    []( const void *source, sf_count_t count, void *user ) {
        auto *file = static_cast<EndlessFile *>( user );
        return copyEndless( file->bytes + file->position, source, count, file );
    },
    []( void *user ) { return static_cast<EndlessFile *>( user )->position; },
};

static void addSndfile()
{
    constexpr struct {
        Encoding encoding;
        int format;
    } formats[] = {
        { encodings::int8, SF_FORMAT_PCM_S8 },
        { encodings::uint8, SF_FORMAT_PCM_U8 },
        { encodings::int16, SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE },
        { encodings::int16BE, SF_FORMAT_PCM_16 | SF_ENDIAN_BIG },
        { encodings::int24, SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE },
        { encodings::int24BE, SF_FORMAT_PCM_24 | SF_ENDIAN_BIG },
        { encodings::int32, SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE },
        { encodings::int32BE, SF_FORMAT_PCM_32 | SF_ENDIAN_BIG },
        { encodings::float32, SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE },
        { encodings::float32BE, SF_FORMAT_FLOAT | SF_ENDIAN_BIG },
        { encodings::alaw, SF_FORMAT_ALAW },
        { encodings::mulaw, SF_FORMAT_ULAW },
    };
    for ( auto format : formats )
        for ( bool decoding : { true, false } )
            addPreparedConversion( Conversion{ format.encoding, decoding }, "libsndfile", [=]( int64_t samples ) {
                auto file = std::make_shared<EndlessFile>();
                file->bytes = decoding ? buffers.encoded : buffers.output;
                file->period = samples * pcmEncodingSizeofSample( format.encoding.word );
                SF_INFO info = {};
                info.samplerate = 8000;
                info.channels = 1;
                info.format = SF_FORMAT_RAW | format.format;
                SNDFILE *handle = sf_open_virtual( &endlessIo, decoding ? SFM_READ : SFM_WRITE, &info, file.get() );
                sf_command( handle, SFC_SET_CLIPPING, nullptr, SF_TRUE ); // clamps, as our library does
                std::shared_ptr<SNDFILE> sndfile( handle, sf_close );
                return [=]( void *dest, const void *source, int64_t n ) {
                    if ( decoding )
                        sf_read_float( sndfile.get(), static_cast<float *>( dest ), n );
                    else
                        sf_write_float( sndfile.get(), static_cast<const float *>( source ), n );
                    useValue( file->position );
                };
            } );
}
#endif

#ifdef BENCH_GSTREAMER
    #include <gst/audio/audio.h>

static GstAudioInfo gstreamerFormat( GstAudioFormat format, int channels )
{
    GstAudioChannelPosition positions[64];
    gst_audio_channel_positions_from_mask( channels, gst_audio_channel_get_fallback_mask( channels ), positions );
    GstAudioInfo info;
    gst_audio_info_set_format( &info, format, 8000, channels, positions );
    return info;
}

/// Returns a function of destination, source and number of frames.
static auto createGstreamer( GstAudioInfo to, GstAudioInfo from )
{
    std::shared_ptr<GstAudioConverter> converter(
        gst_audio_converter_new( GST_AUDIO_CONVERTER_FLAG_NONE, &from, &to, nullptr ), gst_audio_converter_free );
    return [=]( void *dest, const void *source, int64_t frames ) {
        void *in = const_cast<void *>( source );
        gst_audio_converter_samples(
            converter.get(), GST_AUDIO_CONVERTER_FLAG_NONE, &in, gsize( frames ), &dest, gsize( frames ) );
    };
}

static void addGstreamer()
{
    gst_init( nullptr, nullptr );
    constexpr struct {
        Encoding encoding;
        GstAudioFormat format;
    } formats[] = {
        { encodings::int8, GST_AUDIO_FORMAT_S8 },
        { encodings::uint8, GST_AUDIO_FORMAT_U8 },
        { encodings::int16, GST_AUDIO_FORMAT_S16LE },
        { encodings::uint16, GST_AUDIO_FORMAT_U16LE },
        { encodings::int16BE, GST_AUDIO_FORMAT_S16BE },
        { encodings::int24, GST_AUDIO_FORMAT_S24LE },
        { encodings::uint24, GST_AUDIO_FORMAT_U24LE },
        { encodings::int24BE, GST_AUDIO_FORMAT_S24BE },
        { encodings::int24BeforePadding, GST_AUDIO_FORMAT_S24_32LE },
        { encodings::int32, GST_AUDIO_FORMAT_S32LE },
        { encodings::uint32, GST_AUDIO_FORMAT_U32LE },
        { encodings::int32BE, GST_AUDIO_FORMAT_S32BE },
        { encodings::float32BE, GST_AUDIO_FORMAT_F32BE },
    };
    for ( auto format : formats )
        for ( bool decoding : { true, false } )
            addPreparedConversion( Conversion{ format.encoding, decoding }, "GStreamer", [=]( int64_t ) {
                GstAudioInfo encoded = gstreamerFormat( format.format, 1 ),
                             floats = gstreamerFormat( GST_AUDIO_FORMAT_F32LE, 1 );
                return decoding ? createGstreamer( floats, encoded ) : createGstreamer( encoded, floats );
            } );
    for ( auto mix : downmixes )
        for ( int64_t frames : streamBlockSizes )
            addJob( mix.job, frames, "GStreamer", [=] {
                auto convert = createGstreamer( gstreamerFormat( GST_AUDIO_FORMAT_F32LE, mix.to ),
                    gstreamerFormat( GST_AUDIO_FORMAT_F32LE, mix.from ) );
                return [=] {
                    convert( buffers.output, buffers.samples, frames );
                    return frames;
                };
            } );
}
#endif

#ifdef BENCH_SPANDSP
extern "C" {
    #include <spandsp/telephony.h>
    // these use telephony.h, and g711.h uses bit_operations.h
    #include <spandsp/bit_operations.h>
    #include <spandsp/g711.h>
}

template <auto expand, auto compress> static void addSpandspLaw( const Encoding &encoding )
{
    addConversion( Conversion{ encoding, true }, "spandsp", []( void *dest, const void *source, int64_t n ) {
        for ( int64_t i = 0; i < n; ++i )
            static_cast<float *>( dest )[i] = expand( static_cast<const uint8_t *>( source )[i] ) * 0x1p-15f;
    } );
    addConversion( Conversion{ encoding, false }, "spandsp", []( void *dest, const void *source, int64_t n ) {
        for ( int64_t i = 0; i < n; ++i )
            static_cast<uint8_t *>( dest )[i] = compress( int( static_cast<const float *>( source )[i] * 32767.0f ) );
    } );
}
#endif

#ifdef BENCH_LIQUID
    #include <complex>
    #include <liquid/liquid.h>

static void addLiquid()
{
    for ( int64_t samples : blockSizes )
        addJob( "tone", samples, "liquid-dsp", [=] {
            std::shared_ptr<nco_crcf_s> oscillator( nco_crcf_create( LIQUID_VCO ), nco_crcf_destroy );
            nco_crcf_set_frequency( oscillator.get(), 0.345f );
            return [=] {
                for ( int64_t i = 0; i < samples; ++i ) {
                    buffers.outputSamples()[i] = nco_crcf_sin( oscillator.get() );
                    nco_crcf_step( oscillator.get() );
                }
                return samples;
            };
        } );
    for ( int taps : firLengths )
        for ( int64_t samples : blockSizes )
            addJob( firJob( taps, 1 ), samples, "liquid-dsp", [=] {
                std::vector<float> coefficients = firTaps( taps );
                std::shared_ptr<firfilt_rrrf_s> filter(
                    firfilt_rrrf_create( coefficients.data(), unsigned( taps ) ), firfilt_rrrf_destroy );
                return [=] {
                    firfilt_rrrf_execute_block(
                        filter.get(), buffers.samples, unsigned( samples ), buffers.outputSamples() );
                    return samples;
                };
            } );
}
#endif

void addOthers()
{
#ifdef BENCH_VOLK
    addVolk();
#endif
#ifdef BENCH_FFMPEG
    addFfmpeg();
#endif
#ifdef BENCH_SOXR
    addSoxr();
#endif
#ifdef BENCH_SPEEXDSP
    addSpeexdsp();
#endif
#ifdef BENCH_SNDFILE
    addSndfile();
#endif
#ifdef BENCH_GSTREAMER
    addGstreamer();
#endif
#ifdef BENCH_SPANDSP
    addSpandspLaw<alaw_to_linear, linear_to_alaw>( encodings::alaw );
    addSpandspLaw<ulaw_to_linear, linear_to_ulaw>( encodings::mulaw );
#endif
#ifdef BENCH_LIQUID
    addLiquid();
#endif
}
