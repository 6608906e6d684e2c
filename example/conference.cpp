// The core of a conference bridge: decode, convert the rate, queue, add, subtract, encode.

#include "conference.h"

namespace host {

static constexpr int64_t primingFrames = 24; // at least the delay of the filters of --quality telephone

// A live stream must return 20 ms for every 20 ms from the start, so a converter begins with a little silence.
static std::unique_ptr<RateConverter> createConverter( int64_t inRate, int64_t outRate )
{
    if ( inRate == outRate ) return nullptr;
    auto converter = createRateConverter( parseQuality( "telephone" ), inRate, outRate, 1 );
    converter->write( pcm::silence::gather( primingFrames ) );
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
    auto pkt = pcm::Packet::tryDecode( pcm::Buffer( bytes ), encoding, 1 );
    if ( !pkt ) return false;
    if ( toRoom ) {
        toRoom->write( *pkt );
        pkt = toRoom->gather( toRoom->frames() );
    }
    input.write( *pkt );
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
    mix = pcm::silence::gather( frames );
    for ( Party *party : parties ) {
        // Without input, gather() returns what there is; the rest of the tick is silent.
        party->voice = party->input.gather( std::min( frames, party->input.frames() ) );
        party->voice.setFrames( frames );
        party->last = party->voice;
        if ( party->isMuted ) party->voice = pcm::silence::gather( frames );
        pcm::samples::add( mix.mutableSamples(), party->voice.samples() );
    }

    pcm::Packet announcement = announcements.gather( std::min( frames, announcements.frames() ) );
    announcement.setFrames( frames );
    for ( Party *party : parties ) {
        // Nobody hears their own voice: mix - voice. `last` shares the samples of `voice`; mutableSamples() copies
        // them before they change.
        const std::span<PCM_SAMPLE> heard = party->voice.mutableSamples();
        pcm::samples::scale( heard, -1 );
        pcm::samples::add( heard, mix.samples() );
        pcm::samples::add( heard, announcement.samples() );
        if ( party->fromRoom ) {
            party->fromRoom->write( party->voice );
            party->voice = party->fromRoom->gather( party->framesOut );
        }
        party->encoded = party->voice.encode( party->encoding );
    }
}

} // namespace host
