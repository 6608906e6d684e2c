#include "bridge_call.h"

#include <cstring>

namespace host {

static constexpr struct {
    const char *id; // a static payload type, or null
    const char *name;
    LineFormat line;
} codecs[] = {
    { "8", "PCMA", { pcm::Encoding::alaw, 8000 } },
    { "0", "PCMU", { pcm::Encoding::mulaw, 8000 } },
    { nullptr, "L16", { pcm::Encoding::int16 | pcm::Encoding::bigEndian, 16000 } },
    { nullptr, "L16", { pcm::Encoding::int16 | pcm::Encoding::bigEndian, 48000 } },
    { "11", "L16", { pcm::Encoding::int16 | pcm::Encoding::bigEndian, 44100 } },
};
static constexpr char eventName[] = "telephone-event";
static constexpr uint8_t muteEvent = 10, leaveEvent = 11; // * and #
static constexpr uint64_t mediaTimeout = 30000, sourceTimeout = 500;
static constexpr uint32_t minBufferedPackets = 2, maxBufferedPackets = 16;
static constexpr int excessPackets = 5, excessTicks = 25; // see dropExcess
static constexpr int maxSequenceJump = 100;
static constexpr size_t maxPayload = 1400; // fits into an Ethernet frame

CallCounts &CallCounts::operator+=( const CallCounts &other )
{
    late += other.late;
    lost += other.lost;
    concealed += other.concealed;
    return *this;
}

Call::Call( const CallSettings &settings, const std::string &roomName ) : roomName( roomName ), settings( settings )
{
}

// The release of the session ends the call at the other side.
Call::~Call() = default;

void Call::openMedia( const sa &local )
{
    constexpr uint16_t minPort = 16384, maxPort = 32766;
    const auto receive = []( const sa *source, const rtp_header *header, mbuf *packet, void *call ) {
        static_cast<Call *>( call )->receivePacket( source, *header, packet );
    };
    struct rtp_sock *newRtp = nullptr;
    check( rtp_listen( &newRtp, IPPROTO_UDP, &local, minPort, maxPort, true, receive, nullptr, this ),
        "cannot open an RTP port" );
    rtp.reset( newRtp );
    jbuf *newBuffer = nullptr;
    check( jbuf_alloc( &newBuffer, minBufferedPackets, maxBufferedPackets ), "cannot create a jitter buffer" );
    buffer.reset( newBuffer );

    sdp_session *newDescription = nullptr;
    check( sdp_session_alloc( &newDescription, &local ), "cannot describe a session" );
    description.reset( newDescription );
    check( sdp_media_add( &media, newDescription, sdp_media_audio, sa_port( rtp_local( newRtp ) ), sdp_proto_rtpavp ),
        "cannot describe a session" );
    int error = sdp_media_set_lattr( media, true, "ptime", "20" );
    for ( const auto &codec : codecs )
        error |= sdp_format_add( nullptr, media, false, codec.id, codec.name, uint32_t( codec.line.rate ), 1, nullptr,
            nullptr, const_cast<void *>( static_cast<const void *>( &codec ) ), false, nullptr );
    error |= sdp_format_add(
        nullptr, media, false, nullptr, eventName, TELEV_SRATE, 1, nullptr, nullptr, nullptr, false, "0-15" );
    check( error ? ENOMEM : 0, "cannot describe a session" );
}

// Reads the description of the other side and selects its first supported codec. Removes the others from the answer,
// so that the payload type of the stream does not change. Returns false if there is no such codec.
bool Call::negotiate( mbuf *text, bool isOffer )
{
    if ( sdp_decode( description.get(), text, isOffer ) ) return false;
    const sdp_format *selected = nullptr;
    for ( const le *item = list_head( sdp_media_format_lst( media, false ) ); item && !selected; item = item->next ) {
        const auto *format = static_cast<const sdp_format *>( item->data );
        if ( format->sup && format->data ) selected = format;
    }
    if ( !selected ) return false;
    sentType = selected->pt;
    receivedType = eventType = -1;
    for ( le *item = list_head( sdp_media_format_lst( media, true ) ); item; item = item->next ) {
        auto *format = static_cast<sdp_format *>( item->data );
        if ( !format->data && format->sup ) eventType = format->pt;
        if ( format->data && format->data != selected->data ) format->sup = false;
        if ( format->data == selected->data ) receivedType = format->pt;
    }
    const LineFormat chosen = static_cast<decltype( &codecs[0] )>( selected->data )->line;
    if ( !activeParty || chosen.encoding.word() != line.encoding.word() || chosen.rate != line.rate ) {
        line = chosen;
        activeParty.emplace( line, settings.quality, settings.roomRate );
        flush();
    }
    sa reports;
    sdp_media_raddr_rtcp( media, &reports );
    rtcp_start( rtp.get(), "pcm-bridge", &reports );
    lastMediaTime = tmr_jiffies();
    return true;
}

Ref<mbuf> Call::describe( bool isOffer )
{
    mbuf *text = nullptr;
    check( sdp_encode( &text, description.get(), isOffer ), "cannot describe a session" );
    return Ref<mbuf>( text );
}

uint16_t Call::answer( sipsess_sock *sessions, const sip_msg *msg )
{
    sa local = msg->dst;
    sa_set_port( &local, 0 );
    openMedia( local );
    const bool hasOffer = mbuf_get_left( msg->mb );
    if ( hasOffer && !negotiate( msg->mb, true ) ) return 488;

    const auto onOffer = []( mbuf **answer, const sip_msg *reinvite, void *call ) {
        auto *self = static_cast<Call *>( call );
        const bool isOffer = mbuf_get_left( reinvite->mb );
        if ( isOffer && !self->negotiate( reinvite->mb, true ) ) return ENOTSUP;
        return sdp_encode( answer, self->description.get(), !isOffer );
    };
    const auto onAnswer = []( const sip_msg *reply, void *call ) {
        return static_cast<Call *>( call )->negotiate( reply->mb, false ) ? 0 : ENOTSUP;
    };
    const auto onEstablished = []( const sip_msg *, void *call ) { static_cast<Call *>( call )->established = true; };
    const auto onClose = []( int, const sip_msg *, void *call ) { static_cast<Call *>( call )->ended = true; };
    sipsess *newSession = nullptr;
    check( sipsess_accept( &newSession, sessions, msg, 200, "OK", roomName.c_str(), "application/sdp",
               describe( !hasOffer ).get(), nullptr, nullptr, false, onOffer, onAnswer, onEstablished, nullptr,
               nullptr, onClose, this, nullptr ),
        "cannot answer a call" );
    session.reset( newSession );
    return 0;
}

bool Call::isEnded() const
{
    if ( !activeParty ) return ended || established; // the other side has not described its media
    return ended || tmr_jiffies() - lastMediaTime > mediaTimeout;
}

CallCounts Call::counts() const
{
    jbuf_stat statistics = {};
    if ( buffer ) jbuf_stats( buffer.get(), &statistics );
    CallCounts counts = playedCounts;
    counts.late = statistics.n_late;
    return counts;
}

void Call::flush()
{
    jbuf_flush( buffer.get() );
    bufferedPackets = 0;
    nextSequence.reset();
}

// Another source may be a phone that restarts its stream, a phone whose address is translated (NAT), or an attacker
// who guesses the port. Packets from the address in the session description take precedence. Otherwise, another
// source is accepted only when the current one is silent.
bool Call::isCurrentSource( const sa *source, const rtp_header &header )
{
    const uint64_t now = tmr_jiffies();
    const bool isSame = sourceId == header.ssrc && sa_cmp( source, &sourceAddress, SA_ALL );
    const bool isExpected = sa_cmp( source, sdp_media_raddr( media ), SA_ALL );
    const bool wasExpected = lastPacketTime && sa_cmp( &sourceAddress, sdp_media_raddr( media ), SA_ALL );
    const bool isActive = lastPacketTime && now - lastPacketTime < sourceTimeout;
    if ( !isSame && ( wasExpected > isExpected || ( isActive && wasExpected == isExpected ) ) ) return false;
    const int jump = int16_t( header.seq - newestSequence );
    if ( !isSame || std::abs( jump ) > maxSequenceJump ) { // a new stream
        flush();
        newestSequence = header.seq;
    }
    if ( jump > 0 ) newestSequence = header.seq;
    sourceAddress = *source;
    sourceId = header.ssrc;
    lastPacketTime = now;
    return true;
}

void Call::receivePacket( const sa *source, const rtp_header &header, mbuf *packet )
{
    if ( !activeParty || !isCurrentSource( source, header ) ) return;
    if ( header.pt == receivedType ) lastMediaTime = lastPacketTime;
    if ( header.pt == eventType ) receiveEvent( header, mbuf_buf( packet ), mbuf_get_left( packet ) );
    // Other packets take their turn too, so that they do not count as lost.
    if ( !jbuf_put( buffer.get(), &header, packet ) )
        bufferedPackets = std::min( bufferedPackets + 1, int( maxBufferedPackets ) );
}

// An event is sent in several packets with the same timestamp.
void Call::receiveEvent( const rtp_header &header, const uint8_t *bytes, size_t length )
{
    if ( length < 4 || eventTimestamp == header.ts ) return;
    eventTimestamp = header.ts;
    if ( bytes[0] == muteEvent ) activeParty->isMuted = !activeParty->isMuted;
    if ( bytes[0] == leaveEvent ) ended = true;
}

bool Call::conceal()
{
    if ( !activeParty->conceal() ) return false;
    ++playedCounts.concealed;
    return true;
}

// Returns the next packet, or null if there are too few of them.
Ref<mbuf> Call::takePacket( rtp_header &header )
{
    void *packet = nullptr;
    if ( jbuf_get( buffer.get(), &header, &packet ) ) return nullptr;
    --bufferedPackets;
    return Ref<mbuf>( static_cast<mbuf *>( packet ) );
}

// After an interruption of the network, many packets arrive at once, and all later ones would be played late. Drops
// one every half second until the buffer is short again.
void Call::dropExcess()
{
    fewestBuffered = std::min( fewestBuffered, bufferedPackets );
    if ( ++ticksOfFewest < excessTicks ) return;
    rtp_header header = {};
    if ( fewestBuffered >= excessPackets && takePacket( header ) ) nextSequence = uint16_t( header.seq + 1 );
    fewestBuffered = bufferedPackets;
    ticksOfFewest = 0;
}

void Call::receiveTick( int64_t frames )
{
    dropExcess();
    while ( activeParty->queuedFrames() < frames ) {
        rtp_header header = {};
        const Ref<mbuf> packet = takePacket( header );
        if ( packet && header.pt == receivedType ) {
            playPacket( header, *packet );
        } else if ( packet ) { // no audio in this tick
            nextSequence = uint16_t( header.seq + 1 );
            return;
        } else {
            if ( !conceal() ) return;
            ++concealedAhead;
        }
    }
}

// Replaces the packets that are missing before this one, except those that were replaced when the buffer was empty,
// and those that a full buffer has dropped in order to catch up.
void Call::playPacket( const rtp_header &header, const mbuf &packet )
{
    jbuf_stat statistics = {};
    jbuf_stats( buffer.get(), &statistics );
    const int dropped = int( statistics.n_overflow - std::exchange( overflows, statistics.n_overflow ) );
    const int missing = nextSequence ? int16_t( header.seq - *nextSequence ) : 0;
    if ( missing > 0 ) playedCounts.lost += uint64_t( missing );
    for ( int i = concealedAhead + dropped; i < missing && conceal(); ++i ) continue;
    concealedAhead = 0;
    nextSequence = uint16_t( header.seq + 1 );
    (void)activeParty->receive( std::as_bytes( std::span( mbuf_buf( &packet ), mbuf_get_left( &packet ) ) ) );
}

void Call::sendTick( const pcm::Buffer &payload )
{
    const sa *destination = sdp_media_raddr( media );
    const size_t length = payload.bytes().size(), parts = ( length + maxPayload - 1 ) / maxPayload,
                 part = length / parts;
    const bool isWanted = ( sdp_media_dir( media ) & SDP_SENDONLY ) && sa_isset( destination, SA_ALL );
    for ( size_t at = 0; isWanted && at < length; at += part ) {
        const Ref<mbuf> packet( mbuf_alloc( RTP_HEADER_SIZE + part ) );
        if ( !packet ) break;
        packet->pos = packet->end = RTP_HEADER_SIZE;
        (void)mbuf_write_mem( packet.get(), reinterpret_cast<const uint8_t *>( payload.bytes().data() ) + at, part );
        packet->pos = RTP_HEADER_SIZE;
        const auto timestamp = uint32_t( sentTimestamp + at / size_t( line.encoding.sizeofSample() ) );
        (void)rtp_send( rtp.get(), destination, false, std::exchange( isFirstPacket, false ), uint8_t( sentType ),
            timestamp, packet.get() );
    }
    sentTimestamp += uint32_t( line.rate / 50 );
}

} // namespace host
