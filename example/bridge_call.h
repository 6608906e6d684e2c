#ifndef BRIDGE_CALL_H
#define BRIDGE_CALL_H

// One call: SIP session, session description and RTP stream, through libre.

#include "bridge_room.h"

#include <re.h>

namespace host {

struct MemDeref {
    void operator()( void *object ) const { mem_deref( object ); }
};
/// Owns a reference to an object of libre.
template <class T> using Ref = std::unique_ptr<T, MemDeref>;

/// Fails with a message and the text of an errno value, unless it is 0.
inline void check( int error, const std::string &message )
{
    if ( error ) failWithErrno( message, error );
}

/// Counts packets.
struct CallCounts {
    uint64_t late = 0;      ///< arrived after their turn
    uint64_t lost = 0;      ///< missing when it was their turn, including late ones
    uint64_t concealed = 0; ///< replaced by a repetition

    CallCounts &operator+=( const CallCounts &other );
};

struct CallSettings {
    Quality quality;
    int64_t roomRate;
};

class Call : public Caller {
public:
    Call( const CallSettings &settings, const std::string &roomName );
    ~Call() override;

    /// Answers an INVITE. Returns 0, or the SIP status code with which to reject it.
    uint16_t answer( sipsess_sock *sessions, const sip_msg *msg );

    const std::string roomName;

    /// The caller has received the answer, so that media can flow.
    bool isEstablished() const { return established; }
    /// The call is over: the caller left, or there was no media for 30 s.
    bool isEnded() const;
    CallCounts counts() const;

    Party &party() override { return *activeParty; }
    void receiveTick( int64_t frames ) override;
    void sendTick( const pcm::Buffer &payload ) override;

private:
    void openMedia( const sa &local );
    bool negotiate( mbuf *description, bool isOffer );
    Ref<mbuf> describe( bool isOffer );
    void flush();
    void receivePacket( const sa *source, const rtp_header &header, mbuf *packet );
    void receiveEvent( const rtp_header &header, const uint8_t *bytes, size_t length );
    bool isCurrentSource( const sa *source, const rtp_header &header );
    Ref<mbuf> takePacket( rtp_header &header );
    void dropExcess();
    void playPacket( const rtp_header &header, const mbuf &packet );
    bool conceal();

    CallSettings settings;
    LineFormat line{};
    std::optional<Party> activeParty; // once the session is negotiated
    bool established = false, ended = false;

    Ref<sdp_session> description;
    sdp_media *media = nullptr; // belongs to the description
    int receivedType = -1, sentType = -1, eventType = -1;
    Ref<jbuf> buffer;
    Ref<struct rtp_sock> rtp;
    Ref<sipsess> session;

    // Received packets. Only one source is accepted until it pauses.
    sa sourceAddress{};
    uint32_t sourceId = 0;
    uint16_t newestSequence = 0;
    uint64_t lastPacketTime = 0, lastMediaTime = 0; // in ms
    std::optional<uint32_t> eventTimestamp;         // of the last event
    int bufferedPackets = 0, fewestBuffered = 0, ticksOfFewest = 0;

    // Played packets.
    std::optional<uint16_t> nextSequence;
    int concealedAhead = 0; // packets that were not there in time and may still arrive
    uint32_t overflows = 0;
    CallCounts playedCounts;

    uint32_t sentTimestamp = 0;
    bool isFirstPacket = true;
};

} // namespace host

#endif
