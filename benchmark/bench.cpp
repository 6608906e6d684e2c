// The speed of the library's jobs, with what they are held against beside them.

#include "bench.h"

#include "kit/kit.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <random>
#include <samplerate.h>
#ifdef __SSE2__
    #include <emmintrin.h>
#endif

static void *block( int place )
{
    constexpr size_t page = 4096, apart = 1088, size = mostSamples * 8 + 2 * page;
    void *bytes = std::aligned_alloc( page, size );
    std::memset( bytes, 0, size );
    return static_cast<uint8_t *>( bytes ) + size_t( place ) * apart;
}

const Blocks blocks = [] {
    Blocks made = { static_cast<float *>( block( 0 ) ), static_cast<float *>( block( 1 ) ),
        static_cast<uint8_t *>( block( 2 ) ), static_cast<uint8_t *>( block( 3 ) ) };
    std::minstd_rand random( 1 );
    std::uniform_real_distribution<float> fullScale( -1.0f, 1.0f );
    for ( int64_t i = 0; i < mostSamples; ++i ) {
        made.samples[i] = fullScale( random );
        made.signs[i] = fullScale( random ) < 0 ? -1.0f : 1.0f;
    }
    made.samples[5] = 1.0f; // is clamped
    return made;
}();

static float *outSamples() { return reinterpret_cast<float *>( blocks.out ); }

void addCopy( const std::string &job, int64_t bytesPerSample )
{
    add( job, mostSamples, "copy", [=] {
        return [=] {
            std::memcpy( blocks.out, blocks.samples, size_t( bytesPerSample * mostSamples / 2 ) );
            return mostSamples;
        };
    } );
}

[[noreturn]] void failDiffering( const std::string &job, const std::string &who )
{
    std::fprintf( stderr, "%s: what \"%s\" gives is not what we give\n", job.c_str(), who.c_str() );
    std::exit( 1 );
}

const void *Conversion::source() const
{
    if ( !decodes ) return blocks.samples;
    pcm___Convert( blocks.encoded, encoding, blocks.samples, 0, mostSamples );
    return blocks.encoded;
}

void Conversion::verify( const std::string &who, int64_t samples ) const
{
    if ( who == "ours" ) return;
    int64_t slot = decodes ? 4 : pcmEncodingSizeofSample( encoding );
    std::vector<uint8_t> ours( size_t( slot * samples ) );
    pcm___Convert( ours.data(), decodes ? 0 : encoding, decodes ? blocks.encoded : (void *)blocks.samples,
        decodes ? encoding : 0, samples );
    if ( std::memcmp( ours.data(), blocks.out, ours.size() ) == 0 ) return;
    if ( who == "naive" || who == "limit" ) failDiffering( job(), who );

    // Others may be off by a step, which in G.711 is wide.
    std::vector<float> mine( size_t( samples ), 0.0f ), theirs = mine;
    PCM_ENCODING from = decodes ? 0 : encoding;
    pcm___Convert( mine.data(), 0, ours.data(), from, samples );
    pcm___Convert( theirs.data(), 0, blocks.out, from, samples );
    for ( size_t i = 0; i < mine.size(); ++i )
        if ( !( std::fabs( mine[i] - theirs[i] ) < 0.04f ) ) failDiffering( job(), who );
}

// Kernels

using Kernel = void ( * )( float *dest, const float *source, int64_t samples );

static void addKernel( const char *job, const float *source, int64_t bytes, Kernel ours, Kernel naive, Kernel limit )
{
    auto addOne = [=]( const char *who, Kernel kernel ) {
        for ( int64_t samples : blockSizes )
            add( job, samples, who, [=] {
                auto fresh = [=] { std::memcpy( blocks.out, blocks.samples, mostSamples * sizeof( float ) ); };
                fresh();
                ours( outSamples(), source, samples );
                std::vector<float> expected( outSamples(), outSamples() + samples );
                fresh();
                kernel( outSamples(), source, samples );
                if ( std::memcmp( expected.data(), outSamples(), size_t( samples ) * sizeof( float ) ) )
                    failDiffering( job, who );
                return [=] {
                    kernel( outSamples(), source, samples );
                    return samples;
                };
            } );
    };
    addOne( "ours", ours );
    addOne( "naive", naive );
    if ( limit ) addOne( "limit", limit );
    addCopy( job, bytes );
}

#ifdef __SSE2__
template <class Op> static void wide( float *dest, const float *source, int64_t samples, Op op )
{
    int64_t i = 0;
    for ( ; i + 16 <= samples; i += 16 ) {
        __m128 results[4];
        for ( int r = 0; r < 4; ++r )
            results[r] = op( _mm_loadu_ps( dest + i + 4 * r ), _mm_loadu_ps( source + i + 4 * r ) );
        for ( int r = 0; r < 4; ++r ) _mm_storeu_ps( dest + i + 4 * r, results[r] );
    }
    for ( ; i < samples; ++i ) dest[i] = _mm_cvtss_f32( op( _mm_set_ss( dest[i] ), _mm_set_ss( source[i] ) ) );
}

static constexpr Kernel addLimit = []( float *dest, const float *source, int64_t samples ) {
    wide( dest, source, samples, []( __m128 a, __m128 b ) { return _mm_add_ps( a, b ); } );
};
static constexpr Kernel mulLimit = []( float *dest, const float *source, int64_t samples ) {
    wide( dest, source, samples, []( __m128 a, __m128 b ) { return _mm_mul_ps( a, b ); } );
};
static constexpr Kernel scaleLimit = []( float *dest, const float *source, int64_t samples ) {
    __m128 factor = _mm_set1_ps( *source );
    wide( dest, dest, samples, [=]( __m128 a, __m128 ) { return _mm_mul_ps( a, factor ); } );
};
#else
static constexpr Kernel addLimit = nullptr, mulLimit = nullptr, scaleLimit = nullptr;
#endif

static void addKernels()
{
    addKernel(
        "add", blocks.signs, 12, pcm___SamplesAdd,
        []( float *dest, const float *source, int64_t samples ) {
            for ( int64_t i = 0; i < samples; ++i ) dest[i] += source[i];
        },
        addLimit );
    addKernel(
        "mul", blocks.signs, 12, pcm___SamplesMul,
        []( float *dest, const float *source, int64_t samples ) {
            for ( int64_t i = 0; i < samples; ++i ) dest[i] *= source[i];
        },
        mulLimit );
    static const float factor = -1.0f; // keeps the size of the samples, however often they are scaled
    addKernel(
        "scale", &factor, 8,
        []( float *dest, const float *source, int64_t samples ) { pcm___SamplesScale( dest, samples, *source ); },
        []( float *dest, const float *source, int64_t samples ) {
            float by = *source;
            for ( int64_t i = 0; i < samples; ++i ) dest[i] *= by;
        },
        scaleLimit );
}

// A packet in one block. Whoever keeps one counts himself, in a way that threads may share.
struct LimitPacket {
    std::atomic<int64_t> holders{ 1 };
    int64_t header[7];
    float samples[];

    static LimitPacket *create( int64_t frames )
    {
        return new ( std::malloc( sizeof( LimitPacket ) + size_t( frames ) * sizeof( float ) ) ) LimitPacket;
    }
    void release()
    {
        if ( holders == 1 || --holders == 0 ) std::free( this );
    }
};

// Filters

std::vector<float> firTaps( int taps )
{
    std::vector<float> set( size_t( taps ), 0.0f );
    for ( size_t k = 0; k < set.size(); ++k ) set[k] = blocks.samples[k] / float( taps );
    return set;
}

std::string firJob( int taps, int channels )
{
    return "FIR " + std::to_string( taps ) + ( channels == 1 ? "" : " x " + std::to_string( channels ) );
}

static float limited( float sum ) { return -1.0f > sum ? -1.0f : 1.0f < sum ? 1.0f : sum; }

// Filters outputs from `first` on out of `line`, where the history stands before the block.
using Fir = void ( * )(
    float *dest, const float *line, const std::vector<float> &taps, int channels, int64_t first, int64_t samples );

static void firNaive(
    float *dest, const float *line, const std::vector<float> &taps, int channels, int64_t first, int64_t samples )
{
    for ( int64_t i = first; i < samples; ++i ) {
        float sum = 0.0f;
        for ( size_t k = 0; k < taps.size(); ++k )
            sum += line[i + int64_t( k ) * channels] * taps[taps.size() - 1 - k];
        dest[i] = limited( sum );
    }
}

#ifdef __SSE2__
static void firLimit(
    float *dest, const float *line, const std::vector<float> &taps, int channels, int64_t first, int64_t samples )
{
    constexpr int width = 8;
    int64_t i = first;
    for ( ; i + 4 * width <= samples; i += 4 * width ) {
        __m128 sums[width] = {};
        const float *at = line + i;
        for ( size_t k = taps.size(); k-- > 0; at += channels ) {
            __m128 tap = _mm_set1_ps( taps[k] );
            for ( int w = 0; w < width; ++w )
                sums[w] = _mm_add_ps( sums[w], _mm_mul_ps( _mm_loadu_ps( at + 4 * w ), tap ) );
        }
        for ( int w = 0; w < width; ++w )
            _mm_storeu_ps(
                dest + i + 4 * w, _mm_max_ps( _mm_set1_ps( -1.0f ), _mm_min_ps( _mm_set1_ps( 1.0f ), sums[w] ) ) );
    }
    firNaive( dest, line, taps, channels, i, samples );
}
#endif

static PCM_FILTER *createFilter( int taps, int channels )
{
    Own set( pcmFilterCoefficientsCreateFromSamplesCopy( firTaps( taps ).data(), taps ) );
    return pcmFilterCreate( set.obj, channels );
}

static void addFirLoop( const char *who, int taps, int channels, int64_t samples, Fir fir )
{
    std::string job = firJob( taps, channels );
    add( job, samples, who, [=] {
        int64_t history = int64_t( taps - 1 ) * channels;
        std::vector<float> line( size_t( history + samples ), 0.0f );
        auto filter = [=, set = firTaps( taps )]( float *dest ) mutable {
            std::memcpy( &line[size_t( history )], blocks.samples, size_t( samples ) * sizeof( float ) );
            fir( dest, line.data(), set, channels, 0, samples );
            std::memmove( line.data(), &line[size_t( samples )], size_t( history ) * sizeof( float ) );
        };
        filter( outSamples() );
        Own ours( createFilter( taps, channels ) );
        Own pkt( pcmPacketCreateFromSamplesCopy( blocks.samples, channels, samples / channels ) );
        pcmFilterWrite( &ours.obj, pkt.obj );
        Own out( pcmFilterRead( &ours.obj ) );
        if ( std::memcmp( pcmPacketBacking( out.obj ), outSamples(), size_t( samples ) * sizeof( float ) ) )
            failDiffering( job, who );
        return [=]() mutable { // a packet goes in, and another one comes out of a queue
            auto *made = LimitPacket::create( samples );
            filter( made->samples );
            ++made->holders;
            made->release();
            made->release();
            return samples;
        };
    } );
}

static void addFilters()
{
    for ( int taps : firLengths )
        for ( int channels : { 1, 2 } )
            for ( int64_t samples : blockSizes ) {
                add( firJob( taps, channels ), samples, "ours", [=] {
                    PCM_PACKET *pkt = pcmPacketCreateFromSamplesCopy( blocks.samples, channels, samples / channels );
                    return [=, pkt = Own( pkt ), filter = Own( createFilter( taps, channels ) )]() mutable {
                        pcmFilterWrite( &filter.obj, pkt.obj );
                        pcmPacketRelease( pcmFilterRead( &filter.obj ) );
                        return samples;
                    };
                } );
                addFirLoop( "naive", taps, channels, samples, firNaive );
#ifdef __SSE2__
                addFirLoop( "limit", taps, channels, samples, firLimit );
#endif
            }
}

// Packets and queues

static constexpr int64_t packetFrames = 160;

struct OurQueue {
    Own<PCM_PACKET> pkt{ pcmPacketCreateFromSamplesCopy( blocks.samples, 1, packetFrames ) };
    Own<PCM_PACKET_QUEUE> queue{ pcmPacketQueueCreate( 1 ) };

    void write() { pcmPacketQueueWrite( &queue.obj, pkt.obj ); }
    int64_t frames() { return pcmPacketQueueFrames( queue.obj ); }
    void gather( float *dest, int64_t frames ) { pcmPacketQueueGatherSamples( &queue.obj, dest, frames ); }
    void gatherPacket( int64_t frames ) { pcmPacketRelease( pcmPacketQueueGather( &queue.obj, frames ) ); }
};

// The walk that every queue makes; they differ in how they hold what is queued.
template <class Self> struct PlainQueue {
    int64_t held = 0, begun = 0;

    int64_t frames() { return held; }
    void gather( float *dest, int64_t frames )
    {
        auto *self = static_cast<Self *>( this );
        held -= frames;
        while ( frames > 0 ) {
            int64_t n = std::min( frames, packetFrames - begun );
            std::memcpy( dest, self->front() + begun, size_t( n ) * sizeof( float ) );
            dest += n, frames -= n, begun += n;
            if ( begun == packetFrames ) self->pop(), begun = 0;
        }
    }
};

struct NaiveQueue : PlainQueue<NaiveQueue> {
    using Packet = std::shared_ptr<std::vector<float>>;
    Packet pkt = std::make_shared<std::vector<float>>( blocks.samples, blocks.samples + packetFrames );
    std::deque<Packet> packets;

    void write() { packets.push_back( pkt ), held += packetFrames; }
    const float *front() { return packets.front()->data(); }
    void pop() { packets.pop_front(); }
    void gatherPacket( int64_t frames )
    {
        auto made = std::make_shared<std::vector<float>>( frames );
        gather( made->data(), frames );
        benchmark::DoNotOptimize( made->data() );
    }
};

struct LimitQueue : PlainQueue<LimitQueue> {
    LimitPacket *pkt = LimitPacket::create( packetFrames ), *ring[8];
    unsigned in = 0, out = 0;

    void write() { ++pkt->holders, ring[in++ % 8] = pkt, held += packetFrames; }
    const float *front() { return ring[out % 8]->samples; }
    void pop() { ring[out++ % 8]->release(); }
    void gatherPacket( int64_t frames )
    {
        auto *made = LimitPacket::create( frames );
        gather( made->samples, frames );
        benchmark::DoNotOptimize( made );
        made->release();
    }
};

// One item is one operation: a packet in, or a piece out.
template <class Queue> static void addQueue( const char *who )
{
    for ( bool asPackets : { false, true } )
        for ( int64_t piece : { 480, 137 } )
            add(
                "queue " + std::to_string( piece ) + ( asPackets ? " packets" : " samples" ), packetFrames, who, [=] {
                    return [=, queue = Queue()]() mutable {
                        int64_t operations = 1;
                        for ( queue.write(); queue.frames() >= piece; ++operations )
                            asPackets ? queue.gatherPacket( piece ) : queue.gather( outSamples(), piece );
                        return operations;
                    };
                } );
}

template <class Run> static void addOperation( const char *job, const char *who, Run run )
{
    add( job, packetFrames, who, [=] {
        return [=] {
            run();
            return int64_t{ 1 };
        };
    } );
}

static void addPackets()
{
    addQueue<OurQueue>( "ours" );
    addQueue<NaiveQueue>( "naive" );
    addQueue<LimitQueue>( "limit" );

    constexpr size_t bytes = packetFrames * sizeof( float );
    addOperation( "packet", "ours",
        [] { pcmPacketRelease( pcmPacketCreateFromSamplesCopy( blocks.samples, 1, packetFrames ) ); } );
    addOperation( "packet", "naive", [] {
        auto pkt = std::make_shared<std::vector<float>>( blocks.samples, blocks.samples + packetFrames );
        benchmark::DoNotOptimize( pkt->data() );
    } );
    addOperation( "packet", "limit", [] {
        auto *made = LimitPacket::create( packetFrames );
        std::memcpy( made->samples, blocks.samples, bytes );
        benchmark::DoNotOptimize( made );
        made->release();
    } );
}

// Rates and tones

static void addRates()
{
    constexpr struct {
        const char *job;
        int64_t type;
        int converter;
    } kinds[] = {
        { "rate 8 to 16 kHz linear", PCM_SRC_TYPE_LINEAR, SRC_LINEAR },
        { "rate 8 to 16 kHz sinc", PCM_SRC_TYPE_SINC_FASTEST, SRC_SINC_FASTEST },
    };
    for ( auto kind : kinds )
        for ( int64_t samples : { 160, 480, 4096 } ) {
            add( kind.job, samples, "ours", [=] {
                PCM_PACKET *pkt = pcmPacketCreateFromSamplesCopy( blocks.samples, 1, samples );
                return [=, pkt = Own( pkt ), src = Own( pcmSrcTryCreate( kind.type, 16000, 8000, 1 ) )] {
                    pcmSrcWrite( src.obj, pkt.obj );
                    pcmPacketRelease( pcmSrcRead( src.obj ) );
                    return samples;
                };
            } );
            add( kind.job, samples, "limit", [=] {
                int error;
                std::shared_ptr<SRC_STATE> state( src_new( kind.converter, 1, &error ), src_delete );
                return [=] {
                    SRC_DATA data = {};
                    data.data_in = blocks.samples, data.input_frames = long( samples );
                    data.data_out = outSamples(), data.output_frames = long( 2 * samples );
                    data.src_ratio = 2.0;
                    src_process( state.get(), &data );
                    return samples;
                };
            } );
        }
}

static void addTones()
{
    constexpr int64_t rate = 8000, hertz = 440;
    for ( int64_t samples : { 160, 480, 4096 } ) {
        add( "tone", samples, "ours", [=] {
            return [=, tone = Own( pcmToneTryCreateWithFrequency( rate, hertz ) )] {
                pcmToneGatherSamples( tone.obj, outSamples(), samples );
                return samples;
            };
        } );
        add( "tone", samples, "limit", [=] {
            return [=] {
                double step = 2 * M_PI / ( double( rate ) / double( hertz ) );
                for ( int64_t i = 0; i < samples; ++i ) outSamples()[i] = float( std::sin( step * double( i ) ) );
                return samples;
            };
        } );
    }
}

int main( int count, char **words )
{
    benchmark::Initialize( &count, words );
    if ( benchmark::ReportUnrecognizedArguments( count, words ) ) return 1;
    kitModuleStartup( pcmModule() );
    addConversions();
    addKernels();
    addFilters();
    addPackets();
    addRates();
    addTones();
    addOthers();
    benchmark::RunSpecifiedBenchmarks();
    kitModuleShutdown( pcmModule() );
}
