// Other libraries of the field, each at the nearest job that it has.

#include "bench.h"

#include <memory>

[[maybe_unused]] static constexpr PCM_ENCODING isUnsigned = PCM_ENCODING_UNSIGNED, big = PCM_ENCODING_BIG_ENDIAN;

#ifdef BENCH_VOLK
    #include <volk/volk.h>

// VOLK is told what full scale is in the integers; of 32 bits, the float below it, since 2^31 wraps round.
template <auto decode, auto encode, class Int>
static void addVolkIntegers( const char *name, PCM_ENCODING encoding, float full )
{
    addConversion( Conversion{ name, encoding, true }, "VOLK", [=]( int64_t ) {
        return [=]( void *dest, const void *source, int64_t n ) {
            ( *decode )( static_cast<float *>( dest ), static_cast<const Int *>( source ), full, unsigned( n ) );
        };
    } );
    addConversion( Conversion{ name, encoding, false }, "VOLK", [=]( int64_t ) {
        return [=]( void *dest, const void *source, int64_t n ) {
            ( *encode )( static_cast<Int *>( dest ), static_cast<const float *>( source ), full, unsigned( n ) );
        };
    } );
}

template <class Run> static void addVolkKernel( const char *job, Run run )
{
    for ( int64_t samples : blockSizes )
        add( job, samples, "VOLK", [=] {
            auto *dest = reinterpret_cast<float *>( blocks.out );
            std::memcpy( dest, blocks.samples, mostSamples * sizeof( float ) );
            return [=] {
                run( dest, unsigned( samples ) );
                return samples;
            };
        } );
}

static void addVolk()
{
    addVolkIntegers<&volk_8i_s32f_convert_32f, &volk_32f_s32f_convert_8i, int8_t>( "int8", PCM_ENCODING_INT_8, 128 );
    addVolkIntegers<&volk_16i_s32f_convert_32f, &volk_32f_s32f_convert_16i, int16_t>(
        "int16", PCM_ENCODING_INT_16, 32768 );
    addVolkIntegers<&volk_32i_s32f_convert_32f, &volk_32f_s32f_convert_32i, int32_t>(
        "int32", PCM_ENCODING_INT_32, 0x1.fffffep30f );
    addVolkKernel( "add", []( float *dest, unsigned n ) { volk_32f_x2_add_32f( dest, dest, blocks.signs, n ); } );
    addVolkKernel(
        "mul", []( float *dest, unsigned n ) { volk_32f_x2_multiply_32f( dest, dest, blocks.signs, n ); } );
    addVolkKernel( "scale", []( float *dest, unsigned n ) { volk_32f_s32f_multiply_32f( dest, dest, -1.0f, n ); } );
}
#endif

#ifdef BENCH_FFMPEG
extern "C" {
    #include <libavutil/channel_layout.h>
    #include <libswresample/swresample.h>
}

static void addFfmpeg()
{
    constexpr struct {
        const char *name;
        PCM_ENCODING encoding;
        AVSampleFormat format;
    } forms[] = {
        { "uint8", PCM_ENCODING_INT_8 | isUnsigned, AV_SAMPLE_FMT_U8 },
        { "int16", PCM_ENCODING_INT_16, AV_SAMPLE_FMT_S16 },
        { "int32", PCM_ENCODING_INT_32, AV_SAMPLE_FMT_S32 },
        { "float32", PCM_ENCODING_FLOAT_32, AV_SAMPLE_FMT_FLT },
    };
    for ( auto form : forms )
        for ( bool decodes : { true, false } )
            addConversion( Conversion{ form.name, form.encoding, decodes }, "FFmpeg", [=]( int64_t ) {
                AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
                AVSampleFormat from = decodes ? form.format : AV_SAMPLE_FMT_FLT;
                AVSampleFormat to = decodes ? AV_SAMPLE_FMT_FLT : form.format;
                SwrContext *made = nullptr;
                swr_alloc_set_opts2( &made, &mono, to, 8000, &mono, from, 8000, 0, nullptr );
                swr_init( made );
                std::shared_ptr<SwrContext> swr( made, []( SwrContext *old ) { swr_free( &old ); } );
                return [=]( void *dest, const void *source, int64_t n ) {
                    auto *out = static_cast<uint8_t *>( dest );
                    auto *in = static_cast<const uint8_t *>( source );
                    swr_convert( swr.get(), &out, int( n ), &in, int( n ) );
                };
            } );
}
#endif

#ifdef BENCH_SNDFILE
    #include <sndfile.h>

// A file in memory without an end, the same bytes again and again.
struct EndlessFile {
    uint8_t *bytes;
    sf_count_t period, at;
};

static sf_count_t endlessCopy( void *to, const void *from, sf_count_t count, EndlessFile *file )
{
    std::memcpy( to, from, size_t( count ) );
    file->at += count;
    if ( file->at >= file->period ) file->at = 0;
    return count;
}

static SF_VIRTUAL_IO endlessIo = {
    []( void * ) { return sf_count_t{ 1 } << 50; },
    []( sf_count_t, int, void * ) { return sf_count_t{ 0 }; },
    []( void *to, sf_count_t count, void *user ) {
        auto *file = static_cast<EndlessFile *>( user );
        return endlessCopy( to, file->bytes + file->at, count, file );
    },
    []( const void *from, sf_count_t count, void *user ) {
        auto *file = static_cast<EndlessFile *>( user );
        return endlessCopy( file->bytes + file->at, from, count, file );
    },
    []( void *user ) { return static_cast<EndlessFile *>( user )->at; },
};

static void addSndfile()
{
    constexpr struct {
        const char *name;
        PCM_ENCODING encoding;
        int format;
    } forms[] = {
        { "int8", PCM_ENCODING_INT_8, SF_FORMAT_PCM_S8 },
        { "uint8", PCM_ENCODING_INT_8 | isUnsigned, SF_FORMAT_PCM_U8 },
        { "int16", PCM_ENCODING_INT_16, SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE },
        { "int16 BE", PCM_ENCODING_INT_16 | big, SF_FORMAT_PCM_16 | SF_ENDIAN_BIG },
        { "int24", PCM_ENCODING_INT_24, SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE },
        { "int24 BE", PCM_ENCODING_INT_24 | big, SF_FORMAT_PCM_24 | SF_ENDIAN_BIG },
        { "int32", PCM_ENCODING_INT_32, SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE },
        { "int32 BE", PCM_ENCODING_INT_32 | big, SF_FORMAT_PCM_32 | SF_ENDIAN_BIG },
        { "float32", PCM_ENCODING_FLOAT_32, SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE },
        { "float32 BE", PCM_ENCODING_FLOAT_32 | big, SF_FORMAT_FLOAT | SF_ENDIAN_BIG },
        { "A-law", PCM_ENCODING_G711_ALAW, SF_FORMAT_ALAW },
        { "mu-law", PCM_ENCODING_G711_MULAW, SF_FORMAT_ULAW },
    };
    for ( auto form : forms )
        for ( bool decodes : { true, false } )
            addConversion( Conversion{ form.name, form.encoding, decodes }, "libsndfile", [=]( int64_t samples ) {
                auto file = std::make_shared<EndlessFile>();
                file->bytes = decodes ? blocks.encoded : blocks.out;
                file->period = samples * pcmEncodingSizeofSample( form.encoding );
                SF_INFO info = {};
                info.samplerate = 8000;
                info.channels = 1;
                info.format = SF_FORMAT_RAW | form.format;
                SNDFILE *opened = sf_open_virtual( &endlessIo, decodes ? SFM_READ : SFM_WRITE, &info, file.get() );
                sf_command( opened, SFC_SET_CLIPPING, nullptr, SF_TRUE ); // as we do
                std::shared_ptr<SNDFILE> sound( opened, sf_close );
                return [=]( void *dest, const void *source, int64_t n ) {
                    if ( decodes )
                        sf_read_float( sound.get(), static_cast<float *>( dest ), n );
                    else
                        sf_write_float( sound.get(), static_cast<const float *>( source ), n );
                    benchmark::DoNotOptimize( file->at );
                };
            } );
}
#endif

#ifdef BENCH_GSTREAMER
    #include <gst/audio/audio.h>

static void addGstreamer()
{
    gst_init( nullptr, nullptr );
    constexpr PCM_ENCODING in32 = PCM_ENCODING_INT_24 | PCM_ENCODING_PACK_32 | PCM_ENCODING_PAD_AFTER;
    constexpr struct {
        const char *name;
        PCM_ENCODING encoding;
        GstAudioFormat format;
    } forms[] = {
        { "int8", PCM_ENCODING_INT_8, GST_AUDIO_FORMAT_S8 },
        { "uint8", PCM_ENCODING_INT_8 | isUnsigned, GST_AUDIO_FORMAT_U8 },
        { "int16", PCM_ENCODING_INT_16, GST_AUDIO_FORMAT_S16LE },
        { "uint16", PCM_ENCODING_INT_16 | isUnsigned, GST_AUDIO_FORMAT_U16LE },
        { "int16 BE", PCM_ENCODING_INT_16 | big, GST_AUDIO_FORMAT_S16BE },
        { "int24", PCM_ENCODING_INT_24, GST_AUDIO_FORMAT_S24LE },
        { "uint24", PCM_ENCODING_INT_24 | isUnsigned, GST_AUDIO_FORMAT_U24LE },
        { "int24 BE", PCM_ENCODING_INT_24 | big, GST_AUDIO_FORMAT_S24BE },
        { "int24 before pad", in32, GST_AUDIO_FORMAT_S24_32LE },
        { "int32", PCM_ENCODING_INT_32, GST_AUDIO_FORMAT_S32LE },
        { "uint32", PCM_ENCODING_INT_32 | isUnsigned, GST_AUDIO_FORMAT_U32LE },
        { "int32 BE", PCM_ENCODING_INT_32 | big, GST_AUDIO_FORMAT_S32BE },
        { "float32 BE", PCM_ENCODING_FLOAT_32 | big, GST_AUDIO_FORMAT_F32BE },
    };
    for ( auto form : forms )
        for ( bool decodes : { true, false } )
            addConversion( Conversion{ form.name, form.encoding, decodes }, "GStreamer", [=]( int64_t ) {
                GstAudioInfo coded, floats;
                gst_audio_info_set_format( &coded, form.format, 8000, 1, nullptr );
                gst_audio_info_set_format( &floats, GST_AUDIO_FORMAT_F32LE, 8000, 1, nullptr );
                std::shared_ptr<GstAudioConverter> converter(
                    gst_audio_converter_new( GST_AUDIO_CONVERTER_FLAG_NONE, decodes ? &coded : &floats,
                        decodes ? &floats : &coded, nullptr ),
                    gst_audio_converter_free );
                return [=]( void *dest, const void *source, int64_t n ) {
                    void *in = const_cast<void *>( source );
                    gst_audio_converter_samples(
                        converter.get(), GST_AUDIO_CONVERTER_FLAG_NONE, &in, gsize( n ), &dest, gsize( n ) );
                };
            } );
}
#endif

#ifdef BENCH_SPANDSP
extern "C" {
    #include <spandsp/telephony.h>
    // in this order
    #include <spandsp/bit_operations.h>
    #include <spandsp/g711.h>
}

template <auto expand, auto compress> static void addSpandspLaw( const char *name, PCM_ENCODING encoding )
{
    addConversion( Conversion{ name, encoding, true }, "spandsp", [=]( int64_t ) {
        return [=]( void *dest, const void *source, int64_t n ) {
            for ( int64_t i = 0; i < n; ++i )
                static_cast<float *>( dest )[i] = expand( static_cast<const uint8_t *>( source )[i] ) * 0x1p-15f;
        };
    } );
    addConversion( Conversion{ name, encoding, false }, "spandsp", [=]( int64_t ) {
        return [=]( void *dest, const void *source, int64_t n ) {
            for ( int64_t i = 0; i < n; ++i )
                static_cast<uint8_t *>( dest )[i] =
                    compress( int( static_cast<const float *>( source )[i] * 32767.0f ) );
        };
    } );
}
#endif

#ifdef BENCH_LIQUID
    #include <complex>
    #include <liquid/liquid.h>

static void addLiquid()
{
    for ( int taps : firLengths )
        for ( int64_t samples : blockSizes )
            add( firJob( taps, 1 ), samples, "liquid-dsp", [=] {
                std::vector<float> set = firTaps( taps );
                std::shared_ptr<firfilt_rrrf_s> filter(
                    firfilt_rrrf_create( set.data(), unsigned( taps ) ), firfilt_rrrf_destroy );
                return [=] {
                    firfilt_rrrf_execute_block(
                        filter.get(), blocks.samples, unsigned( samples ), reinterpret_cast<float *>( blocks.out ) );
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
#ifdef BENCH_SNDFILE
    addSndfile();
#endif
#ifdef BENCH_GSTREAMER
    addGstreamer();
#endif
#ifdef BENCH_SPANDSP
    addSpandspLaw<alaw_to_linear, linear_to_alaw>( "A-law", PCM_ENCODING_G711_ALAW );
    addSpandspLaw<ulaw_to_linear, linear_to_ulaw>( "mu-law", PCM_ENCODING_G711_MULAW );
#endif
#ifdef BENCH_LIQUID
    addLiquid();
#endif
}
