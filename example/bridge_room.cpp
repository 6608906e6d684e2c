#include "bridge_room.h"

#include <cstdio>
#include <exception>

namespace host {

std::FILE *warningStream = stderr;

void warnOfCall( const std::string &message )
{
    std::fprintf( warningStream, "pcm-bridge: warning: %s\n", message.c_str() );
    std::fflush( warningStream );
}

Recorder::Recorder( const std::string &path, int64_t rate ) : path( path )
{
    writer.emplace( path, selectContainer( path, "" ), AudioFormat{ pcm::Encoding::int16, rate, 1 } );
}

// An exception must not end the calls.
template <class Task> void Recorder::attempt( Task task )
{
    try {
        if ( writer ) task();
    } catch ( const std::exception &error ) {
        warnOfCall( "the recording " + path + " is discarded: " + error.what() );
        writer.reset();
    }
}

void Recorder::write( const pcm::Packet &pkt )
{
    attempt( [&] { writer->write( pkt.encode( writer->format().encoding ) ); } );
    isEmpty = false;
}

bool Recorder::finish()
{
    if ( !isEmpty ) attempt( [&] { writer->finish(); } );
    return writer.has_value();
}

Player::Player( const std::string &path, int64_t rate )
    : reader( path ), resampler( pcm::SrcType::sincMediumQuality, reader.format().rate, rate, 1 )
{
}

pcm::Packet Player::read( int64_t frames )
{
    const AudioFormat format = reader.format();
    while ( !ended && resampler.available() < frames ) {
        auto pkt = pcm::Packet::tryDecode( reader.read( packetFrames( format.rate, format.rate, format.channels ) ),
            format.encoding, format.channels );
        ended = !pkt || !pkt->frames();
        if ( ended ) break;
        pkt->channelsAdjustReplaceWithDownmix( 1 );
        resampler.write( *pkt );
    }
    frames = std::min( frames, resampler.remaining() );
    resampler.flush( frames );
    return resampler.gather( frames );
}

// Two tones of 100 ms.
static pcm::Packet createSignal( int64_t rate, int64_t firstHertz, int64_t secondHertz )
{
    pcm::Packet signal = pcm::Tone::tryCreate( rate, firstHertz ).value().gather( rate / 10 );
    signal.append( pcm::Tone::tryCreate( rate, secondHertz ).value().gather( rate / 10 ) );
    signal.levelAdjust( -24 );
    return signal;
}

ConferenceRoom::ConferenceRoom( int64_t rate, const std::string &playPath, Recorder *recorder )
    : rate( rate ), room( rate ), recorder( recorder )
{
    try {
        if ( !playPath.empty() ) player.emplace( playPath, rate );
    } catch ( const std::exception &error ) {
        warnOfCall( error.what() );
    }
}

void ConferenceRoom::join( Caller &caller )
{
    callers.push_back( &caller );
    room.announce( createSignal( rate, 523, 659 ) );
}

void ConferenceRoom::leave( Caller &caller )
{
    std::erase( callers, &caller );
    room.announce( createSignal( rate, 659, 523 ) );
}

void ConferenceRoom::play()
{
    if ( !player ) return;
    try {
        pcm::Packet pkt = player->read( rate / 50 );
        room.announce( pkt );
        if ( !pkt.frames() ) player.reset();
    } catch ( const std::exception &error ) {
        warnOfCall( error.what() );
        player.reset();
    }
}

void ConferenceRoom::tick() noexcept
{
    // A caller who is alone hears a low tone after one second and then every five seconds.
    lonelyTicks = callers.size() == 1 ? lonelyTicks + 1 : 0;
    if ( lonelyTicks % 250 == 50 ) room.announce( createSignal( rate, 392, 392 ) );
    play();

    std::vector<Party *> parties;
    for ( Caller *caller : callers ) {
        caller->receiveTick( rate / 50 );
        parties.push_back( &caller->party() );
    }
    size_t next = 0;
    pcm::Packet sum =
        room.tick( parties, [&]( Party &, const pcm::Buffer &heard ) { callers[next++]->sendTick( heard ); } );
    if ( recorder ) recorder->write( sum );
}

} // namespace host
