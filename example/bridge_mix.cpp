#include "bridge_mix.h"

namespace host {

// The telephone filters need integer ratios. 44.1 kHz, for example, is converted by libsamplerate.
static Resampler createResampler( Quality quality, int64_t inRate, int64_t outRate )
{
    if ( !quality && !TelephoneConverter::supports( inRate, outRate ) ) quality = pcm::SrcType::sincMediumQuality;
    Resampler resampler( quality, inRate, outRate, 1 );
    resampler.startLive();
    return resampler;
}

Party::Party( const LineFormat &line, Quality quality, int64_t roomRate )
    : line( line ), toRoom( createResampler( quality, line.rate, roomRate ) ),
      toLine( createResampler( quality, roomRate, line.rate ) )
{
}

bool Party::receive( std::span<const std::byte> payload )
{
    if ( int64_t( payload.size() ) > line.rate / 5 * line.encoding.sizeofSample() ) return false;
    pcm::Buffer bytes( payload );
    auto pkt = pcm::Packet::tryDecode( bytes, line.encoding, 1 );
    if ( !pkt ) return false;
    toRoom.write( *pkt );
    lastPayload = std::move( bytes );
    concealedPackets = 0;
    return true;
}

bool Party::conceal()
{
    if ( !lastPayload || concealedPackets == 10 ) return false;
    pcm::Packet pkt = pcm::Packet::tryDecode( lastPayload, line.encoding, 1 ).value();
    pkt.levelAdjust( -6.0 * ++concealedPackets );
    toRoom.write( pkt );
    return true;
}

void Party::speak( std::span<PCM_SAMPLE> sum )
{
    own.reset();
    if ( toRoom.available() < int64_t( sum.size() ) ) return; // silence
    pcm::Packet said = toRoom.gather( int64_t( sum.size() ) );
    if ( isMuted ) return;
    pcm::samples::add( sum, said.samples() );
    own = std::move( said );
}

pcm::Buffer Party::hear( const pcm::Packet &all )
{
    if ( own ) { // all - own
        own->levelAdjustLinearGain( -1 );
        pcm::samples::add( own->mutableSamples(), all.samples() );
    }
    toLine.write( own ? *own : all );
    pcm::Packet heard = toLine.gather( std::min( toLine.available(), line.rate / 50 ) );
    heard.setFrames( line.rate / 50 );
    return heard.encode( line.encoding );
}

void Room::announce( const pcm::Packet &pkt )
{
    upcoming.setFrames( std::max( upcoming.frames(), pkt.frames() ) );
    pcm::samples::add( upcoming.mutableSamples().first( size_t( pkt.frames() ) ), pkt.samples() );
}

void Room::addAnnouncements( pcm::Packet &all )
{
    const int64_t count = std::min( upcoming.frames(), frames );
    if ( !count ) return;
    pcm::samples::add( all.mutableSamples().first( size_t( count ) ), upcoming.samples() );
    upcoming.delLeading( count );
}

} // namespace host
