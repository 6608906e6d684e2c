#include "bridge_server.h"

#include "bridge_call.h"

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <map>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <thread>
#include <unistd.h>

namespace host {

constexpr int64_t ticksPerSecond = 50;
constexpr uint64_t maxLateTicks = 10; // of a process that was stopped
constexpr uint64_t closeTimeout = 2000;

/// Runs jobs on several threads and waits until all are done. The calling thread is one of them.
class Workers {
public:
    explicit Workers( int64_t count ) : start( count ), finish( count )
    {
        while ( --count > 0 )
            threads.emplace_back( [this] {
                for ( ;; ) {
                    start.arrive_and_wait();
                    if ( stopping ) return;
                    work();
                    finish.arrive_and_wait();
                }
            } );
    }
    Workers( const Workers & ) = delete;
    ~Workers()
    {
        stopping = true;
        start.arrive_and_wait();
    }

    void run( size_t count, std::function<void( size_t )> newJob )
    {
        job = std::move( newJob );
        jobs = count;
        next = 0;
        start.arrive_and_wait();
        work();
        finish.arrive_and_wait();
    }

private:
    void work()
    {
        for ( size_t i; ( i = next++ ) < jobs; ) job( i );
    }

    std::function<void( size_t )> job;
    size_t jobs = 0;
    std::atomic<size_t> next = 0;
    bool stopping = false;
    std::barrier<> start, finish;
    std::vector<std::jthread> threads;
};

/// A file descriptor in libre's event loop.
class Watch {
public:
    Watch( int file, std::function<void()> handler ) : file( file ), handler( std::move( handler ) )
    {
        const auto call = []( int, void *watch ) { static_cast<Watch *>( watch )->handler(); };
        check( file < 0 ? errno : fd_listen( file, FD_READ, call, this ), "cannot start the event loop" );
    }
    Watch( const Watch & ) = delete;
    ~Watch()
    {
        fd_close( file );
        close( file );
    }

private:
    int file;
    std::function<void()> handler;
};

// Starts libre. All calls must be closed before it ends.
struct Libre {
    Libre()
    {
        check( libre_init(), "cannot start libre" );
        rlimit limit = {};
        getrlimit( RLIMIT_NOFILE, &limit );
        limit.rlim_cur = std::min( limit.rlim_max, rlim_t( 65536 ) );
        setrlimit( RLIMIT_NOFILE, &limit );
        fd_setsize( int( limit.rlim_cur ) );
    }
    Libre( const Libre & ) = delete;
    ~Libre() { libre_close(); }
};

// libre prints a line on standard error for each malformed SIP message. Discards these lines, because a pipe that
// nobody reads would stop the ticks.
class QuietStandardError {
public:
    QuietStandardError() : saved( fcntl( STDERR_FILENO, F_DUPFD_CLOEXEC, 3 ) )
    {
        const int null = open( "/dev/null", O_WRONLY | O_CLOEXEC );
        if ( saved < 0 || null < 0 ) failWithErrno( "cannot start", errno );
        warningStream = fdopen( fcntl( saved, F_DUPFD_CLOEXEC, 3 ), "w" );
        dup2( null, STDERR_FILENO );
        close( null );
    }
    QuietStandardError( const QuietStandardError & ) = delete;
    ~QuietStandardError()
    {
        dup2( saved, STDERR_FILENO );
        close( saved );
        std::fclose( std::exchange( warningStream, stderr ) );
    }

private:
    int saved;
};

class Server {
public:
    explicit Server( const ServerSettings &settings );
    Server( const Server & ) = delete;
    ~Server() { tmr_cancel( &closeTimer ); }

    void run();

private:
    void listen();
    void listenOn( const sa &address );
    void onInvite( const sip_msg *msg );
    bool onRequest( const sip_msg *msg );
    void tick();
    void updateRooms();
    std::string recordingPath( const std::string &roomName ) const;
    Recorder *recorderOf( const std::string &roomName );
    void printStatus();
    void shutDown();

    const ServerSettings settings;
    CallSettings callSettings;
    Libre libre;
    sigset_t signals;
    Workers workers;

    Ref<sip> stack;
    Ref<sip_lsnr> requests;
    Ref<sipsess_sock> sessions;
    tmr closeTimer{};
    bool closing = false;

    std::map<std::string, std::unique_ptr<Recorder>> recorders; // by room
    std::map<std::string, std::unique_ptr<ConferenceRoom>> rooms;
    struct Entry {
        std::unique_ptr<Call> call;
        ConferenceRoom *room = nullptr; // that the call has joined
    };
    std::list<Entry> calls;

    CallCounts endedCounts;
    int64_t ticks = 0;
    double busySeconds = 0, longestTick = 0; // in this second
    bool recordingFailed = false;
};

// The threads inherit the mask, so that signals only reach the event loop.
static sigset_t blockSignals()
{
    sigset_t signals;
    sigemptyset( &signals );
    for ( int number : { SIGINT, SIGTERM, SIGHUP } ) sigaddset( &signals, number );
    sigprocmask( SIG_BLOCK, &signals, nullptr );
    std::signal( SIGPIPE, SIG_IGN ); // the reader of the status may leave
    stopIfInterrupted();
    return signals;
}

Server::Server( const ServerSettings &settings )
    : settings( settings ), callSettings{ parseQuality( settings.quality ), settings.rate },
      signals( blockSignals() ), workers( settings.threads )
{
    if ( settings.record == standardStream ) fail( "--record: standard output has the messages; use a file" );
    if ( !settings.record.empty() ) {
        (void)Recorder( recordingPath( "room" ), settings.rate ); // reports errors at once
        if ( isSameFile( settings.record, settings.play ) )
            fail( "cannot write " + settings.record + ": it is also the file that --play reads" );
    }
    if ( !settings.play.empty() ) (void)Player( settings.play, settings.rate ); // reports errors at once
    listen();
}

void Server::listenOn( const sa &address )
{
    char text[64];
    re_snprintf( text, sizeof text, "%J", &address );
    for ( sip_transp transport : { SIP_TRANSP_UDP, SIP_TRANSP_TCP } )
        check( sip_transp_add( stack.get(), transport, &address ), std::string( "cannot listen on " ) + text );
    std::printf( "listening on %s\n", text );
    std::fflush( stdout );
}

void Server::listen()
{
    sa address;
    if ( sa_decode( &address, settings.address.c_str(), settings.address.size() ) || !sa_port( &address ) )
        fail( "--listen: \"" + settings.address + "\" is not of the form ADDRESS:PORT, such as 127.0.0.1:5060" );

    sip *newStack = nullptr;
    check( sip_alloc(
               &newStack, nullptr, 64, 64, 64, "pcm bridge", []( void * ) { re_cancel(); }, nullptr ),
        "cannot start SIP" );
    stack.reset( newStack );
    if ( sa_is_any( &address ) ) { // answers must contain an address that callers can reach
        std::vector<sa> all;
        const auto add = []( const char *, const sa *found, void *list ) {
            static_cast<std::vector<sa> *>( list )->push_back( *found );
            return false;
        };
        net_if_apply( add, &all );
        for ( sa &found : all )
            if ( sa_af( &found ) == sa_af( &address ) ) {
                sa_set_port( &found, sa_port( &address ) );
                listenOn( found );
            }
    } else {
        listenOn( address );
    }

    sipsess_sock *newSessions = nullptr;
    check( sipsess_listen(
               &newSessions, newStack, 64,
               []( const sip_msg *msg, void *server ) { static_cast<Server *>( server )->onInvite( msg ); }, this ),
        "cannot start SIP" );
    sessions.reset( newSessions );
    sip_lsnr *newRequests = nullptr;
    check( sip_listen(
               &newRequests, newStack, true,
               []( const sip_msg *msg, void *server ) { return static_cast<Server *>( server )->onRequest( msg ); },
               this ),
        "cannot start SIP" );
    requests.reset( newRequests );
}

// Names become parts of file names.
static bool isRoomName( const std::string &name )
{
    constexpr char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";
    return !name.empty() && name.size() <= 64 && name[0] != '.' && name.find_first_not_of( letters ) == name.npos;
}

void Server::onInvite( const sip_msg *msg )
{
    const auto reject = [&]( uint16_t status, const char *reason ) {
        (void)sip_treply( nullptr, stack.get(), msg, status, reason );
    };
    const std::string roomName( msg->uri.user.p ? msg->uri.user.p : "", msg->uri.user.l );
    if ( closing ) return reject( 503, "Service Unavailable" );
    if ( !isRoomName( roomName ) ) return reject( 404, "Not Found" );
    if ( int64_t( calls.size() ) >= settings.maxCallers ) return reject( 486, "Busy Here" );
    try {
        auto call = std::make_unique<Call>( callSettings, roomName );
        if ( uint16_t status = call->answer( sessions.get(), msg ) ) return reject( status, "Not Acceptable Here" );
        calls.push_back( { std::move( call ) } );
    } catch ( const std::exception &error ) {
        warnOfCall( error.what() );
        reject( 500, "Server Internal Error" );
    }
}

// Phones and proxies send OPTIONS to see whether the bridge is alive.
bool Server::onRequest( const sip_msg *msg )
{
    if ( pl_strcmp( &msg->met, "OPTIONS" ) ) return false;
    (void)sip_treplyf( nullptr, nullptr, stack.get(), msg, false, 200, "OK",
        "Allow: INVITE,ACK,BYE,CANCEL,OPTIONS\r\nAccept: application/sdp\r\nContent-Length: 0\r\n\r\n" );
    return true;
}

// Returns the argument of --record with the name of a room instead of "%".
std::string Server::recordingPath( const std::string &roomName ) const
{
    std::string path = settings.record;
    if ( size_t placeholder = path.find( '%' ); placeholder != path.npos ) path.replace( placeholder, 1, roomName );
    return path;
}

// Without "%" in its name, there is one recording, which belongs to the first room.
Recorder *Server::recorderOf( const std::string &roomName )
{
    if ( settings.record.empty() ) return nullptr;
    if ( auto found = recorders.find( roomName ); found != recorders.end() ) return found->second.get();
    const bool isForEachRoom = settings.record.find( '%' ) != std::string::npos;
    if ( int64_t( recorders.size() ) >= ( isForEachRoom ? settings.maxCallers : 1 ) ) return nullptr;
    auto &recorder = recorders[roomName];
    try {
        recorder = std::make_unique<Recorder>( recordingPath( roomName ), settings.rate );
    } catch ( const std::exception &error ) {
        warnOfCall( error.what() );
        recordingFailed = true;
    }
    return recorder.get();
}

// Moves calls into their rooms when they are established, and out when they have ended.
void Server::updateRooms()
{
    for ( auto entry = calls.begin(); entry != calls.end(); ) {
        Call &call = *entry->call;
        if ( call.isEnded() ) {
            endedCounts += call.counts();
            if ( entry->room ) entry->room->leave( call );
            entry = calls.erase( entry );
            continue;
        }
        if ( call.isEstablished() && !entry->room ) {
            auto &room = rooms[call.roomName];
            if ( !room )
                room = std::make_unique<ConferenceRoom>( settings.rate, settings.play, recorderOf( call.roomName ) );
            entry->room = room.get();
            room->join( call );
        }
        ++entry;
    }
    std::erase_if( rooms, []( const auto &item ) { return item.second->isEmpty(); } );
}

void Server::tick()
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    updateRooms();
    std::vector<ConferenceRoom *> open;
    for ( auto &[name, room] : rooms ) open.push_back( room.get() );
    workers.run( open.size(), [&]( size_t i ) { open[i]->tick(); } );
    const double seconds = std::chrono::duration<double>( Clock::now() - start ).count();
    busySeconds += seconds;
    longestTick = std::max( longestTick, seconds );
    if ( ++ticks % ticksPerSecond == 0 ) printStatus();
}

void Server::printStatus()
{
    CallCounts counts = endedCounts;
    for ( const Entry &entry : calls ) counts += entry.call->counts();
    if ( settings.printsStatus ) {
        std::printf(
            "callers %zu, rooms %zu, packets late %llu, lost %llu, concealed %llu, load %.1f %%, peak %.1f %%\n",
            calls.size(), rooms.size(), static_cast<unsigned long long>( counts.late ),
            static_cast<unsigned long long>( counts.lost ), static_cast<unsigned long long>( counts.concealed ),
            busySeconds * 100, longestTick * ticksPerSecond * 100 );
        std::fflush( stdout );
    }
    busySeconds = longestTick = 0;
}

// Completes the recordings, hangs up on all callers and waits for their answers.
void Server::shutDown()
{
    if ( closing ) return re_cancel(); // the second signal
    closing = true;
    for ( auto &[name, recorder] : recorders )
        if ( recorder && !recorder->finish() ) recordingFailed = true;
    rooms.clear();
    calls.clear();
    sip_close( stack.get(), false ); // calls re_cancel when all transactions have ended
    const auto giveUp = []( void *server ) {
        auto *self = static_cast<Server *>( server );
        sip_close( self->stack.get(), true );
        tmr_start(
            &self->closeTimer, closeTimeout, []( void * ) { re_cancel(); }, nullptr );
    };
    tmr_start( &closeTimer, closeTimeout, giveUp, this );
}

void Server::run()
{
    const int timerFile = timerfd_create( CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC );
    constexpr timespec period = { 0, 1000000000 / ticksPerSecond };
    constexpr itimerspec periods = { period, period };
    timerfd_settime( timerFile, 0, &periods, nullptr );
    const Watch timer( timerFile, [=, this] {
        uint64_t expirations = 0;
        if ( read( timerFile, &expirations, sizeof expirations ) != sizeof expirations || closing ) return;
        for ( uint64_t i = 0; i < std::min( expirations, maxLateTicks ); ++i ) tick();
    } );
    const int signalFile = signalfd( -1, &signals, SFD_NONBLOCK | SFD_CLOEXEC );
    const Watch signalWatch( signalFile, [=, this] {
        signalfd_siginfo information;
        if ( read( signalFile, &information, sizeof information ) == sizeof information ) shutDown();
    } );
    {
        QuietStandardError quiet;
        check( re_main( nullptr ), "the event loop failed" );
    }
    if ( recordingFailed ) fail( "a recording is incomplete and was discarded" );
}

void serve( const ServerSettings &settings ) { Server( settings ).run(); }

} // namespace host
