// A conference bridge that telephones call.
//
// bridge_mix.h mixes what the callers say, bridge_room.h adds tones and files, bridge_call.h has the network stream
// of a caller, and bridge_server.h accepts calls.

#include "bridge_mix.h"
#include "bridge_server.h"
#include "command_line.h"

#include <cstdio>
#include <ctime>
#include <deque>

using namespace host;

static const char footer[] = "A call to sip:ROOM@HOST joins the room ROOM, where each caller hears all others.\n"
                             "Levels do not change. Phones use PCMA or PCMU at 8 kHz, or L16 at 16, 44.1 or\n"
                             "48 kHz. The key * mutes and unmutes a caller, # leaves. Short tones signal that\n"
                             "a caller has joined or left, or is alone. Lost packets are replaced by a\n"
                             "repetition. A call that receives no media for 30 s ends.\n"
                             "\n"
                             "With --rate 8000, G.711 calls pass without rate conversion. Use a higher rate\n"
                             "for phones with L16. The telephone filters convert in integer ratios; other\n"
                             "ratios use the quality medium.\n"
                             "\n"
                             "SIGTERM, SIGINT and SIGHUP end all calls, complete the recordings and exit\n"
                             "with 0.\n"
                             "\n"
                             "  pcm-bridge --listen 198.51.100.7:5060 --record calls/%.wav --status\n"
                             "  pcm-bridge --rate 16000 --play welcome.wav\n"
                             "  pcm-bridge --load 1000";

struct Options {
    ServerSettings settings;
    std::optional<int64_t> rate, threads, maxCallers, load;
};

static void addOptions( CommandLine &line, Options &options )
{
    ServerSettings &settings = options.settings;
    line.beginGroup( "Network" );
    line.addOption( "--listen", "ADDRESS:PORT", settings.address,
        "where to accept SIP calls over UDP and TCP (default: 127.0.0.1:5060)" );
    line.addOption( "--callers", "N", options.maxCallers, 5000, "most calls at once (default: 100)" );
    line.beginGroup( "Rooms" );
    line.addOption(
        "--rate", "HZ", options.rate, 48000, "sample rate of the rooms: 8000 (default), 16000, 24000 or 48000" );
    line.addOption( "--quality", "NAME", settings.quality,
        "quality of rate conversion: telephone (default), best, medium, fast, hold or linear" );
    line.addOption( "--threads", "N", options.threads, 256, "threads that run the rooms (default: 1)" );
    line.addOption( "--record", "FILE", settings.record,
        "record the sum of the callers of the first room, or, if FILE contains %, of each room; % becomes its name. "
        "Files are complete when pcm-bridge has ended" );
    line.addOption( "--play", "FILE", settings.play, "play a file into each room from its start" );
    line.beginGroup( "Reports" );
    line.addFlag( "--status", settings.printsStatus,
        "print a line per second: callers, packets since the start, and the load of a tick in per cent" );
    line.addOption( "--load", "N", options.load, 1000000,
        "do not listen; measure the time of a tick with N synthetic A-law callers in one room" );
}

// Runs ticks for two seconds of processor time.
static void measureLoad( int64_t callers, Quality quality, int64_t rate )
{
    std::vector<pcm::Buffer> payloads;
    for ( int i = 0; i < 16; ++i ) {
        pcm::Packet speech = pcm::noise::gather( 160 );
        speech.levelAdjust( -20 );
        payloads.push_back( speech.encode( pcm::Encoding::alaw ) );
    }
    Room room( rate );
    std::deque<Party> all;
    std::vector<Party *> parties;
    for ( int64_t i = 0; i < callers; ++i )
        parties.push_back( &all.emplace_back( LineFormat{ pcm::Encoding::alaw, 8000 }, quality, rate ) );

    int64_t ticks = 0, bytes = 0;
    const std::clock_t start = std::clock();
    std::clock_t used = 0;
    for ( ; ticks < 10 || used < 2 * CLOCKS_PER_SEC; ++ticks, used = std::clock() - start ) {
        stopIfInterrupted();
        for ( size_t i = 0; i < parties.size(); ++i )
            parties[i]->receive( payloads[( i + size_t( ticks ) ) % payloads.size()].bytes() );
        room.tick( parties, [&]( Party &, const pcm::Buffer &payload ) { bytes += payload.length(); } );
    }
    if ( bytes != ticks * callers * 160 ) fail( "internal error: packets are missing" );
    const double tick = double( used ) / CLOCKS_PER_SEC / double( ticks ), party = tick / double( callers );
    std::printf(
        "%lld callers in a room of %lld Hz: %.3f ms per tick of 20 ms, %.0f ns per caller, %.0f callers per core\n",
        static_cast<long long>( callers ), static_cast<long long>( rate ), tick * 1e3, party * 1e9, 0.02 / party );
}

int main( int argc, char **argv )
{
    CommandLine line( "pcm-bridge", "Connects telephone calls in conference rooms.", footer );
    Options options;
    addOptions( line, options );
    return line.run( argc, argv, [&] {
        ServerSettings &settings = options.settings;
        settings.rate = options.rate.value_or( settings.rate );
        settings.threads = options.threads.value_or( settings.threads );
        settings.maxCallers = options.maxCallers.value_or( settings.maxCallers );
        if ( settings.rate != 8000 && settings.rate != 16000 && settings.rate != 24000 && settings.rate != 48000 )
            fail( "--rate: " + std::to_string( settings.rate ) +
                  " Hz is not supported; use 8000, 16000, 24000 or 48000" );
        if ( options.load )
            measureLoad( *options.load, parseQuality( settings.quality ), settings.rate );
        else
            serve( settings );
    } );
}
