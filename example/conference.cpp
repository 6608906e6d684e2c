// The core of a conference bridge: decode, convert the rate, queue, add, subtract, encode.

#include "conference.h"

namespace host {

// A live stream must return 20 ms for every 20 ms from the start, so a converter begins with as much silence as it
// delays its output.
static std::unique_ptr<RateConverter> createConverter( int64_t inRate, int64_t outRate )
{
    if ( inRate == outRate ) return nullptr;
    const bool isInteger = inRate % outRate == 0 || outRate % inRate == 0; // not for 44.1 kHz
    auto converter = createRateConverter( parseQuality( isInteger ? "telephone" : "medium" ), inRate, outRate, 1 );
    converter->write( pcm::silence::gather( isInteger ? 24 : inRate / ticksPerSecond ) );
    return converter;
}

Party::Party( pcm::Encoding encoding, int64_t rate, int64_t roomRate )
    : encoding( encoding ), framesIn( roomRate / ticksPerSecond ), framesOut( rate / ticksPerSecond ),
      toRoom( createConverter( rate, roomRate ) ), fromRoom( createConverter( roomRate, rate ) ),
      last( pcm::silence::gather( framesIn ) )
{
}

bool Party::write( std::span<const std::byte> bytes )
{
    const int64_t sampleSize = encoding.sizeofSample(), samples = int64_t( bytes.size() ) / sampleSize;
    if ( int64_t( bytes.size() ) != samples * sampleSize ) return false;
    auto block = pcm::allocate<PCM_SAMPLE>( samples );
    pcm::convert( std::as_writable_bytes( std::span( block.get(), size_t( samples ) ) ), pcm::Encoding::samples,
        bytes, encoding, samples );
    pcm::Packet pkt = pcm::Packet::use( std::move( block ), 1, samples ); // now the packet owns the block
    if ( toRoom ) {
        toRoom->write( pkt );
        pkt = toRoom->gather( toRoom->frames() );
    }
    input.write( pkt );
    return true;
}

void Party::conceal()
{
    // Speech changes little within 20 ms, so a quieter copy is less audible than a gap. Each further copy is quieter.
    last.adjustLevel( -6 );
    input.write( last );
}

void Conference::tick()
{
    const int64_t frames = rate / ticksPerSecond;
    pcm::samples::zero( mix );
    for ( Party *party : parties ) {
        // Takes whole packets out of the queue where it can, without a copy. What is missing becomes silence.
        party->last = party->input.gather( std::min( frames, party->input.frames() ) );
        party->last.setFrames( frames );
        if ( !party->isMuted ) pcm::samples::add( mix, party->last.samples() );
    }

    pcm::Packet announcement = announcements.gather( std::min( frames, announcements.frames() ) );
    for ( Party *party : parties ) {
        // Nobody hears their own voice: mix - voice. A 32-bit float has room for the sum of any number of callers.
        pcm::samples::copy( heard, party->last.samples() );
        pcm::samples::scale( heard, party->isMuted ? 0 : -1 );
        pcm::samples::add( heard, mix );
        pcm::samples::add( std::span( heard ).first( size_t( announcement.frames() ) ), announcement.samples() );
        party->encode( heard );
    }
}

void Party::encode( std::span<const PCM_SAMPLE> heard )
{
    pcm::Packet converted;
    if ( fromRoom ) {
        fromRoom->write( pcm::Packet( heard, 1 ) );
        converted = fromRoom->gather( framesOut );
        heard = converted.samples();
    }
    encoded.resize( size_t( framesOut * encoding.sizeofSample() ) );
    pcm::convert( encoded, encoding, std::as_bytes( heard ), pcm::Encoding::samples, framesOut );
}

} // namespace host
