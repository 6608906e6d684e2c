#ifndef SIP_SERVER_H
#define SIP_SERVER_H

#include "conference.h"

#include <list>

namespace host {

/// Answers SIP calls and exchanges RTP packets with callers, by means of libre. One thread does everything.
class SipServer {
public:
    struct Statistics {
        int64_t callers = 0;   ///< now
        int64_t late = 0;      ///< packets that came after their time
        int64_t lost = 0;      ///< packets that never came
        int64_t concealed = 0; ///< replacements for 20 ms, also for pauses of a caller
    };

    /// The rooms. An exception from tick() ends run(); one from join() rejects the call.
    class Handler {
    public:
        virtual ~Handler() = default;
        virtual std::unique_ptr<Party> join( const std::string &room, pcm::Encoding encoding, int64_t rate ) = 0;
        virtual void leave( const std::string &room, Party &party ) = 0;
        virtual void tick() = 0;
        virtual void printStatus( const Statistics &statistics ) = 0; ///< once per second
    };

    /// `address` is "ADDRESS:PORT". Fails if it cannot be used.
    SipServer( const std::string &address, int64_t maxCallers, Handler &handler );
    SipServer( const SipServer & ) = delete;
    ~SipServer();

    /// Serves calls until the process receives SIGINT or SIGTERM. Then hangs up.
    void run();

    struct Implementation; ///< known to sip_server.cpp only

private:
    std::unique_ptr<Implementation> implementation;
};

} // namespace host

#endif
