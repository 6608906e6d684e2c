// The functions of plain.c, with pcm.hpp.
#include <pcm/pcm.hpp>

using namespace pcm;

extern "C" {

int64_t queries( Packet &pkt ) { return pkt.frames() * pkt.channels(); }

void edits( Packet &pkt, Packet &source )
{
    pkt.append( source );
    pkt.writeInner( 1, source, 2, 3 );
    pkt.delLeading( 5 );
}

float ends( Packet &pkt )
{
    auto all = pkt.samples();
    return all.front() + all.back();
}

void overwrites( Packet &pkt ) { pkt.mutableBacking()[7] = 1; }

void passes( Queue &from, Queue &to ) { to.write( from.read() ); }

void filters( Filter &filter, Packet &pkt, PCM_SAMPLE *dest )
{
    filter.write( pkt );
    filter.gather( { dest, 160 }, 160 );
}

void resamples( Src &src, Packet &pkt, PCM_SAMPLE *dest )
{
    src.write( pkt );
    int64_t frames = src.frames();
    src.gatherAdd( { dest, 1000 }, frames );
}

void sounds( DualTone &tones, PCM_SAMPLE *dest )
{
    tones.a.gather( { dest, 160 } );
    tones.gatherAdd( { dest, 160 } );
    noise::gatherAdd( { dest, 160 } );
}

int64_t widths( PCM_ENCODING encoding ) { return ( encoding | Encoding::int24 | Encoding::pack32 ).sizeofFrame( 2 ); }

int64_t encodes( Packet &pkt ) { return pkt.encode( Encoding::int16 | Encoding::bigEndian ).length(); }

int64_t decodes( Buffer &bytes )
{
    auto pkt = Packet::tryDecode( bytes, Encoding::alaw, 1 );
    return pkt ? pkt->frames() : -1;
}

void kernels( PCM_SAMPLE *dest, const PCM_SAMPLE *source )
{
    samples::scale( { dest, 160 }, 0.5 );
    samples::add( { dest, 160 }, { source, 160 } );
    samples::copy( { dest, 0, 2 }, { source, 1, 2 }, 80 );
}

int64_t rests( Queue &queue )
{
    Packet pkt = queue.gather( 160 );
    return queue.frames();
}
}
