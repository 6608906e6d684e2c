// A conference bridge for telephones: each caller of sip:ROOM@HOST hears all others in the room.
//
// conference.cpp mixes, sip_server.cpp answers calls and moves packets, and this file has the rooms and the options.

#include "audio_file.h"
#include "command_line.h"
#include "conference.h"
#include "progress.h"
#include "report.h"
#ifdef HAS_SIP
    #include "sip_server.h"
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <thread>

using namespace host;

struct Options {
    std::string listen = "127.0.0.1:5060", record, play;
    std::optional<int64_t> threads, maxCallers, rate, load;
    bool status = false;
};

static const char footer[] = "Any softphone can call a room: sip:ROOM@ADDRESS. The first call opens the room.\n"
                             "Callers may use PCMA or PCMU at 8 kHz, or L16 at 16, 44.1 or 48 kHz. They press\n"
                             "* to mute themselves and again to speak, and # to leave. A short tone announces\n"
                             "each caller who joins or leaves, and repeats while a caller is alone. A call\n"
                             "without media for 30 s ends. SIGINT and SIGTERM hang up and complete the\n"
                             "recordings.\n"
                             "\n"
                             "  bridge --listen 192.0.2.1:5060 --status\n"
                             "  bridge --record meeting.wav --play welcome.wav\n"
                             "  bridge --load 100";

static void addOptions( CommandLine &line, Options &options )
{
    line.beginGroup( "Network" );
    line.addOption( "--listen", "ADDRESS:PORT", options.listen,
        "where to answer calls (default: 127.0.0.1:5060, which only this machine can reach)" );
    line.addOption( "--callers", "N", options.maxCallers, 10000, "most calls at a time (default: 100)" );
    line.beginGroup( "Rooms" );
    line.addOption( "--rate", "HZ", options.rate, 48000, "sample rate of the rooms: 8000, 16000 (default) or 48000" );
    line.addOption( "--threads", "N", options.threads, 256, "threads that mix rooms (default: 1)" );
    line.addOption( "--record", "FILE", options.record,
        "record the mix of all callers; the second room and later ones are recorded to FILE with -ROOM before its "
        "extension" );
    line.addOption( "--play", "FILE", options.play, "play a file to each room when it opens" );
    line.beginGroup( "Reports" );
    line.addFlag( "--status", options.status,
        "print a line per second: callers, packets that were late, lost and concealed, and the time of a tick" );
    line.addOption( "--load", "N", options.load, 1000000,
        "without a network: mix N synthetic callers in one room, and print how many one core could serve" );
}

using Clock = std::chrono::steady_clock;

// Mixes A-law callers for a second and prints how many parties a core can serve in real time.
static void measureLoad( int64_t count )
{
    constexpr int64_t rate = 8000;
    Conference conference( rate );
    std::vector<std::unique_ptr<Party>> parties;
    std::vector<pcm::Buffer> sent;
    for ( int64_t i = 0; i < count; ++i ) {
        parties.push_back( std::make_unique<Party>( pcm::Encoding::alaw, rate, rate ) );
        conference.parties.push_back( parties.back().get() );
        pcm::Packet tone = pcm::Tone::tryCreate( rate, 200 + i % 3000 )->gather( rate / ticksPerSecond );
        tone.adjustGain( 1 / double( count ) );
        sent.push_back( tone.encode( pcm::Encoding::alaw ) );
    }
    int64_t ticks = 0;
    const auto start = Clock::now();
    std::chrono::duration<double> elapsed{};
    for ( ; elapsed.count() < 1; ++ticks, elapsed = Clock::now() - start ) {
        stopIfInterrupted();
        for ( size_t i = 0; i < parties.size(); ++i ) parties[i]->write( sent[i].bytes() );
        conference.tick();
    }
    const double perParty = elapsed.count() / double( ticks ) / double( count );
    std::printf( "%lld parties: %.0f ns per party and tick of 20 ms, %.0f parties per core\n",
        static_cast<long long>( count ), 1e9 * perParty, 1 / perParty / ticksPerSecond );
}

#ifdef HAS_SIP

// A room with its announcements and its recording.
class Room {
public:
    Room( const std::string &recordPath, const std::string &playPath, int64_t rate )
        : conference( rate ), rate( rate )
    {
        if ( !recordPath.empty() ) {
            const Container &container = selectContainer( recordPath, "" );
            AudioFormat format = { pcm::Encoding::int16, rate, 1 };
            if ( !supportsFormat( container, format ) ) format.encoding = pcm::Encoding::float32;
            recording.emplace( recordPath, container, format );
        }
        if ( !playPath.empty() ) play( playPath );
    }

    void join( Party *party )
    {
        conference.parties.push_back( party );
        announce( 440 );
    }

    void leave( Party *party )
    {
        std::erase( conference.parties, party );
        if ( !conference.parties.empty() ) announce( 350 );
    }

    void tick()
    {
        constexpr int64_t aloneTicks = 5 * ticksPerSecond;
        ticksAlone = conference.parties.size() == 1 ? ticksAlone + 1 : 0;
        if ( ticksAlone % aloneTicks == aloneTicks - 1 ) announce( 425 );
        conference.tick();
        if ( recording )
            recording->write( pcm::Packet( conference.sum(), 1 ).encode( recording->format().encoding ) );
    }

    void finish()
    {
        if ( recording ) recording->finish();
    }

private:
    // A tone of 0.1 s between short silences.
    void announce( int64_t hertz )
    {
        pcm::Packet tone = pcm::Tone::tryCreate( rate, hertz )->gather( rate / 10 );
        tone.adjustLevel( -25 );
        conference.announcements.write( tone );
        conference.announcements.write( pcm::silence::gather( rate / 10 ) );
    }

    void play( const std::string &path )
    {
        AudioReader reader( path );
        Resampler resampler( parseQuality( "medium" ), reader.format().rate, rate, 1 );
        while ( auto pkt = pcm::Packet::tryDecode(
                    reader.read( reader.format().rate ), reader.format().encoding, reader.format().channels ) ) {
            if ( !pkt->frames() ) break;
            pkt->replaceWithDownmix( 1 );
            resampler.write( *pkt );
        }
        resampler.flush( resampler.remaining() );
        conference.announcements.write( resampler.gather( resampler.remaining() ) );
    }

    Conference conference;
    int64_t rate;
    std::optional<AudioWriter> recording;
    int64_t ticksAlone = 0;
};

// The rooms of the bridge. Called by the thread of the SIP server, except that several threads mix.
class Bridge : public SipServer::Handler {
public:
    explicit Bridge( const Options &options )
        : options( options ), rate( options.rate.value_or( 16000 ) ), threads( options.threads.value_or( 1 ) )
    {
        if ( rate != 8000 && rate != 16000 && rate != 48000 ) fail( "--rate: use 8000, 16000 or 48000" );
        if ( !options.record.empty() ) selectContainer( options.record, "" ); // fails before any call
        if ( !options.play.empty() ) AudioReader( options.play );
    }

    std::unique_ptr<Party> join( const std::string &name, pcm::Encoding encoding, int64_t callerRate ) override
    {
        std::unique_ptr<Room> &room = rooms[name];
        if ( !room ) room = std::make_unique<Room>( recordPath( name ), options.play, rate );
        auto party = std::make_unique<Party>( encoding, callerRate, rate );
        room->join( party.get() );
        return party;
    }

    void leave( const std::string &name, Party &party ) override { rooms.at( name )->leave( &party ); }

    void tick() override
    {
        const auto start = Clock::now();
        std::vector<Room *> work;
        for ( auto &[name, room] : rooms ) work.push_back( room.get() );
        std::atomic<size_t> next = 0;
        const auto mix = [&] {
            for ( size_t i; ( i = next++ ) < work.size(); ) work[i]->tick();
        };
        std::vector<std::thread> others;
        for ( int64_t i = 1; i < std::min( threads, int64_t( work.size() ) ); ++i ) others.emplace_back( mix );
        mix();
        for ( std::thread &thread : others ) thread.join();
        longestTick = std::max( longestTick, std::chrono::duration<double>( Clock::now() - start ).count() );
    }

    void printStatus( const SipServer::Statistics &statistics ) override
    {
        if ( !options.status ) return;
        std::printf( "callers %lld  late %lld  lost %lld  concealed %lld  load %.1f %%\n",
            static_cast<long long>( statistics.callers ), static_cast<long long>( statistics.late ),
            static_cast<long long>( statistics.lost ), static_cast<long long>( statistics.concealed ),
            100 * std::exchange( longestTick, 0 ) * ticksPerSecond );
        std::fflush( stdout );
    }

    void finish()
    {
        for ( auto &[name, room] : rooms ) room->finish();
    }

private:
    // The first room has the file itself.
    std::string recordPath( const std::string &name ) const
    {
        if ( options.record.empty() || rooms.size() == 1 ) return options.record;
        std::string safe = name;
        std::replace( safe.begin(), safe.end(), '/', '_' );
        return std::string( options.record ).insert( options.record.rfind( '.' ), "-" + safe );
    }

    const Options &options;
    int64_t rate, threads;
    std::map<std::string, std::unique_ptr<Room>> rooms; // until the end, because of their recordings
    double longestTick = 0;
};

static void serve( const Options &options )
{
    Bridge bridge( options );
    SipServer server( options.listen, options.maxCallers.value_or( 100 ), bridge );
    server.run();
    bridge.finish();
}

#else

static void serve( const Options & ) { fail( "built without libre, which answers calls; only --load is available" ); }

#endif

int main( int argc, char **argv )
{
    CommandLine line( "bridge", "A conference bridge that any softphone can call.", footer );
    Options options;
    addOptions( line, options );
    return line.run( argc, argv, [&] { options.load ? measureLoad( *options.load ) : serve( options ); } );
}
