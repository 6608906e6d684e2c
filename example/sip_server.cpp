#include "sip_server.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <netinet/in.h>
#include <optional>

extern "C" {
#include <re.h>
}

namespace host {

static constexpr int silentTicksLimit = 30 * ticksPerSecond;
static constexpr uint32_t minJitterPackets = 3, maxJitterPackets = 10;
static constexpr int maxGap = 10; // packets; a larger step of the sequence number is a new stream
static constexpr int64_t maxPacketTicks = 10;
static constexpr uint16_t firstMediaPort = 10000, lastMediaPort = 60000;
static constexpr int eventStar = 10, eventPound = 11;

// Objects of libre are reference-counted.
struct ReleaseRe {
    void operator()( void *object ) const { mem_deref( object ); }
};
template <class T> using Re = std::unique_ptr<T, ReleaseRe>;

// Passes the address of an owning pointer to a function that stores an object there.
template <class T, class Create> static int createRe( Re<T> &owner, Create create )
{
    T *object = nullptr;
    const int error = create( &object );
    owner.reset( object );
    return error;
}

static const struct Codec {
    const char *id; // the static payload type, or null
    const char *name;
    uint32_t rate;
    PCM_ENCODING encoding;
} codecs[] = {
    { nullptr, "L16", 48000, PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN },
    { nullptr, "L16", 44100, PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN },
    { nullptr, "L16", 16000, PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN },
    { "8", "PCMA", 8000, PCM_ENCODING_G711_ALAW },
    { "0", "PCMU", 8000, PCM_ENCODING_G711_MULAW },
};

struct Call;

struct SipServer::Implementation {
    Implementation( const std::string &address, int64_t maxCallers, Handler &handler );
    ~Implementation();

    void accept( const sip_msg *msg );
    void remove( Call *call ); // the call ends with the current event
    void tick();
    void scheduleTick();
    void stop();

    // Runs a callback of libre, which exceptions must not cross.
    template <class Run> void guarded( Run run ) noexcept
    {
        try {
            run();
        } catch ( ... ) {
            if ( !failure ) failure = std::current_exception();
            stop();
        }
    }

    Handler &handler;
    int64_t maxCallers;
    sa listenAddress{};
    Re<sip> stack;
    Re<sipsess_sock> sessions;
    std::list<std::unique_ptr<Call>> calls;
    Statistics statistics;
    tmr timer{};
    uint64_t firstTick = 0, ticks = 0;
    bool isStopping = false;
    std::exception_ptr failure;
};

// A call and its stream of RTP packets in each direction.
struct Call {
    Call( SipServer::Implementation &server, std::string room ) : server( server ), room( std::move( room ) ) {}
    ~Call()
    {
        session.reset(); // hangs up
        if ( party ) server.handler.leave( room, *party );
    }

    void offerMedia( const sa &address );
    bool negotiate( mbuf *description, bool isOffer );
    Re<mbuf> describe( bool isOffer );
    void receive( const sa &source, const rtp_header &header, mbuf *payload );
    void receiveEvent( const rtp_header &header, mbuf *payload );
    void readInput();
    void send();

    SipServer::Implementation &server;
    const std::string room;
    Re<sipsess> session;
    Re<sdp_session> description;
    sdp_media *media = nullptr;
    Re<struct rtp_sock> rtp;
    Re<jbuf> jitter;
    const Codec *codec = nullptr; // none before negotiation
    int payloadType = 0, eventType = -1;
    std::unique_ptr<Party> party;
    std::optional<uint32_t> source;   // the SSRC of the stream that is heard
    std::optional<uint16_t> lastRead; // the sequence number that was read last
    uint16_t lastReceived = 0;
    std::optional<uint32_t> lastEvent; // its timestamp
    int ticksSinceMedia = 0;
    uint32_t sentTimestamp = 0;
    uint32_t lateBefore = 0;
    bool isEnded = false;
};

void Call::offerMedia( const sa &address )
{
    sa local = address;
    sa_set_port( &local, 0 );
    const auto onPacket = []( const sa *from, const rtp_header *header, mbuf *payload, void *arg ) noexcept {
        auto *call = static_cast<Call *>( arg );
        call->server.guarded( [&] { call->receive( *from, *header, payload ); } );
    };
    int error = createRe( rtp, [&]( struct rtp_sock **made ) {
        return rtp_listen( made, IPPROTO_UDP, &local, firstMediaPort, lastMediaPort, false, onPacket, nullptr, this );
    } );
    if ( !error )
        error =
            createRe( jitter, []( jbuf **made ) { return jbuf_alloc( made, minJitterPackets, maxJitterPackets ); } );
    if ( !error )
        error = createRe( description, [&]( sdp_session **made ) { return sdp_session_alloc( made, &local ); } );
    if ( !error )
        error = sdp_media_add(
            &media, description.get(), sdp_media_audio, sa_port( rtp_local( rtp.get() ) ), sdp_proto_rtpavp );
    for ( const Codec &offered : codecs )
        if ( !error )
            error = sdp_format_add( nullptr, media, false, offered.id, offered.name, offered.rate, 1, nullptr,
                nullptr, const_cast<Codec *>( &offered ), false, nullptr );
    if ( !error )
        error = sdp_format_add(
            nullptr, media, false, nullptr, "telephone-event", 8000, 1, nullptr, nullptr, nullptr, false, "0-15" );
    if ( error ) failWithErrno( "cannot receive the media of a call", error );
}

// Selects the codec. Returns false if the other side offers none that is supported.
bool Call::negotiate( mbuf *remote, bool isOffer )
{
    if ( sdp_decode( description.get(), remote, isOffer ) ) return false;
    const sdp_format *format = sdp_media_rformat( media, nullptr );
    if ( !format || !format->data || !sa_isset( sdp_media_raddr( media ), SA_ALL ) ) return false;
    payloadType = format->pt;
    const sdp_format *events = sdp_media_rformat( media, "telephone-event" );
    eventType = events ? events->pt : -1;
    const auto *selected = static_cast<const Codec *>( format->data );
    if ( selected == codec ) return true;
    if ( party ) server.handler.leave( room, *party );
    party.reset();
    codec = selected;
    party = server.handler.join( room, codec->encoding, codec->rate );
    return true;
}

Re<mbuf> Call::describe( bool isOffer )
{
    Re<mbuf> encoded;
    const int error =
        createRe( encoded, [&]( mbuf **made ) { return sdp_encode( made, description.get(), isOffer ); } );
    if ( error ) failWithErrno( "cannot describe the media of a call", error );
    return encoded;
}

// Called for every packet. Nothing in it is trusted.
void Call::receive( const sa &from, const rtp_header &header, mbuf *payload )
{
    if ( isEnded || !party || !sa_cmp( &from, sdp_media_raddr( media ), SA_ADDR ) ) return;
    if ( header.pt == eventType ) return receiveEvent( header, payload );
    const size_t bytes = mbuf_get_left( payload ),
                 sampleSize = size_t( pcm::Encoding( codec->encoding ).sizeofSample() );
    const size_t maxBytes = size_t( codec->rate / ticksPerSecond * maxPacketTicks ) * sampleSize;
    if ( header.pt != payloadType || !bytes || bytes > maxBytes || bytes % sampleSize ) return;
    // Another source replaces the present one only after that has been silent for a second.
    if ( source && *source != header.ssrc && ticksSinceMedia < ticksPerSecond ) return;
    const int step = int16_t( header.seq - lastReceived );
    if ( source != header.ssrc || step > 100 || step < -100 ) {
        jbuf_flush( jitter.get() );
        lastRead.reset();
    }
    source = header.ssrc;
    lastReceived = header.seq;
    ticksSinceMedia = 0;
    Re<mbuf> copy( mbuf_alloc( bytes ) );
    if ( !copy || mbuf_write_mem( copy.get(), mbuf_buf( payload ), bytes ) ) throw std::bad_alloc();
    jbuf_put( jitter.get(), &header, copy.get() ); // takes a reference unless the packet is late or a duplicate
}

// RFC 4733. All packets of an event have the same timestamp.
void Call::receiveEvent( const rtp_header &header, mbuf *payload )
{
    constexpr size_t eventSize = 4;
    ticksSinceMedia = 0;
    if ( lastEvent == header.ts || mbuf_get_left( payload ) < eventSize ) return;
    lastEvent = header.ts;
    const int event = mbuf_read_u8( payload );
    if ( event == eventStar ) party->isMuted = !party->isMuted;
    if ( event == eventPound ) server.remove( this );
}

// Moves packets to the party until it has 20 ms.
void Call::readInput()
{
    rtp_header header;
    void *object;
    while ( !party->isReady() && !jbuf_get( jitter.get(), &header, &object ) ) {
        const Re<mbuf> payload( static_cast<mbuf *>( object ) );
        const int gap = lastRead ? int16_t( header.seq - *lastRead ) - 1 : 0;
        lastRead = header.seq;
        for ( int i = 0; i < std::min( gap, maxGap ); ++i, ++server.statistics.lost, ++server.statistics.concealed )
            party->conceal();
        party->write( std::as_bytes( std::span( payload->buf, payload->end ) ) );
    }
    if ( !party->isReady() && lastRead ) {
        party->conceal();
        ++server.statistics.concealed;
    }
    jbuf_stat counts{};
    jbuf_stats( jitter.get(), &counts );
    server.statistics.late += counts.n_late - std::exchange( lateBefore, counts.n_late );
}

void Call::send()
{
    const std::span<const std::byte> bytes = party->output();
    Re<mbuf> packet( mbuf_alloc( RTP_HEADER_SIZE + bytes.size() ) );
    if ( !packet ) throw std::bad_alloc();
    packet->pos = packet->end = RTP_HEADER_SIZE;
    mbuf_write_mem( packet.get(), reinterpret_cast<const uint8_t *>( bytes.data() ), bytes.size() );
    packet->pos = RTP_HEADER_SIZE;
    const bool isFirst = !sentTimestamp;
    rtp_send(
        rtp.get(), sdp_media_raddr( media ), false, isFirst, uint8_t( payloadType ), sentTimestamp, packet.get() );
    sentTimestamp += codec->rate / ticksPerSecond;
}

// ---- Server

static SipServer::Implementation *runningServer;

SipServer::Implementation::Implementation( const std::string &address, int64_t maxCallers, Handler &handler )
    : handler( handler ), maxCallers( maxCallers )
{
    const std::string message = "cannot listen on " + address;
    if ( sa_decode( &listenAddress, address.c_str(), address.size() ) || !sa_port( &listenAddress ) )
        fail( message + ": use ADDRESS:PORT, for example 127.0.0.1:5060" );
    if ( const int error = libre_init() ) failWithErrno( message, error );
    fd_setsize( int( 4 * maxCallers + 64 ) );
    tmr_init( &timer );
    const auto onExit = []( void * ) noexcept { re_cancel(); };
    int error = createRe(
        stack, [&]( sip **made ) { return sip_alloc( made, nullptr, 256, 256, 256, "bridge", onExit, this ); } );
    for ( sip_transp transport : { SIP_TRANSP_UDP, SIP_TRANSP_TCP } )
        if ( !error ) error = sip_transp_add( stack.get(), transport, &listenAddress );
    const auto onCall = []( const sip_msg *msg, void *arg ) noexcept {
        auto *server = static_cast<Implementation *>( arg );
        try {
            server->accept( msg );
        } catch ( const std::exception &exception ) {
            warn( std::string( "a call is rejected: " ) + exception.what() );
            sip_treply( nullptr, server->stack.get(), msg, 500, "Server Error" );
        }
    };
    if ( !error )
        error = createRe(
            sessions, [&]( sipsess_sock **made ) { return sipsess_listen( made, stack.get(), 256, onCall, this ); } );
    if ( error ) failWithErrno( message, error );
    runningServer = this;
}

SipServer::Implementation::~Implementation()
{
    runningServer = nullptr;
    tmr_cancel( &timer );
    calls.clear();
    sessions.reset();
    stack.reset();
    libre_close();
}

void SipServer::Implementation::accept( const sip_msg *msg )
{
    if ( isStopping || int64_t( calls.size() ) >= maxCallers ) {
        sip_treply( nullptr, stack.get(), msg, 486, "Busy Here" );
        return;
    }
    auto call = std::make_unique<Call>( *this, std::string( msg->uri.user.p, msg->uri.user.l ) );
    call->offerMedia( sa_is_any( &listenAddress ) ? msg->dst : listenAddress );
    const bool hasOffer = msg->mb && mbuf_get_left( msg->mb );
    if ( hasOffer && !call->negotiate( msg->mb, true ) ) {
        sip_treply( nullptr, stack.get(), msg, 488, "Not Acceptable Here" );
        return;
    }
    const auto onOffer = []( mbuf **answer, const sip_msg *update, void *arg ) noexcept -> int {
        auto *callee = static_cast<Call *>( arg );
        int error = EPROTO;
        callee->server.guarded( [&] {
            if ( mbuf_get_left( update->mb ) && !callee->negotiate( update->mb, true ) ) return;
            *answer = callee->describe( !mbuf_get_left( update->mb ) ).release();
            error = 0;
        } );
        return error;
    };
    const auto onAnswer = []( const sip_msg *reply, void *arg ) noexcept -> int {
        auto *callee = static_cast<Call *>( arg );
        bool isAccepted = false;
        callee->server.guarded( [&] { isAccepted = callee->negotiate( reply->mb, false ); } );
        return isAccepted ? 0 : EPROTO;
    };
    const auto onClose = []( int, const sip_msg *, void *arg ) noexcept {
        auto *callee = static_cast<Call *>( arg );
        callee->server.remove( callee );
    };
    const Re<mbuf> description = call->describe( !hasOffer );
    const int error = createRe( call->session, [&]( sipsess **made ) {
        return sipsess_accept(
            made, sessions.get(), msg, 200, "OK", "bridge", "application/sdp", description.get(), nullptr, nullptr,
            false, onOffer, onAnswer, []( const sip_msg *, void * ) {}, nullptr, nullptr, onClose, call.get(),
            nullptr );
    } );
    if ( error ) failWithErrno( "cannot answer", error );
    calls.push_back( std::move( call ) );
}

void SipServer::Implementation::remove( Call *call ) { call->isEnded = true; }

void SipServer::Implementation::tick()
{
    for ( const std::unique_ptr<Call> &call : calls ) {
        if ( ++call->ticksSinceMedia >= silentTicksLimit ) remove( call.get() );
        if ( call->party ) call->readInput();
    }
    std::erase_if( calls, []( const std::unique_ptr<Call> &call ) { return call->isEnded; } );
    handler.tick();
    for ( const std::unique_ptr<Call> &call : calls )
        if ( call->party ) call->send();
    if ( ++ticks % ticksPerSecond == 0 ) {
        statistics.callers = int64_t( calls.size() );
        handler.printStatus( statistics );
    }
}

void SipServer::Implementation::scheduleTick()
{
    const uint64_t now = tmr_jiffies(), due = firstTick + ticks * 1000 / ticksPerSecond;
    tmr_start(
        &timer, due > now ? due - now : 0,
        []( void *arg ) noexcept {
            auto *server = static_cast<Implementation *>( arg );
            server->guarded( [&] { server->tick(); } );
            if ( !server->isStopping ) server->scheduleTick();
        },
        this );
}

// Hangs up. The SIP stack then completes its transactions and calls its exit handler.
void SipServer::Implementation::stop()
{
    if ( std::exchange( isStopping, true ) ) return re_cancel();
    tmr_cancel( &timer );
    calls.clear();
    sipsess_close_all( sessions.get() );
    sip_close( stack.get(), false );
    // A caller that is gone does not answer. Do not wait for it.
    tmr_start(
        &timer, 1000, []( void * ) noexcept { re_cancel(); }, nullptr );
}

SipServer::SipServer( const std::string &address, int64_t maxCallers, Handler &handler )
    : implementation( std::make_unique<Implementation>( address, maxCallers, handler ) )
{
}

SipServer::~SipServer() = default;

void SipServer::run()
{
    implementation->firstTick = tmr_jiffies();
    implementation->scheduleTick();
    const int error = re_main( []( int ) { runningServer->stop(); } );
    if ( implementation->failure ) std::rethrow_exception( implementation->failure );
    if ( error ) failWithErrno( "cannot serve calls", error );
}

} // namespace host
