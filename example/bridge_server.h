#ifndef BRIDGE_SERVER_H
#define BRIDGE_SERVER_H

// The event loop of the bridge: accepts calls, runs the ticks of all rooms and shuts down cleanly.

#include "host.h"

namespace host {

struct ServerSettings {
    std::string address = "127.0.0.1:5060";
    std::string quality = "telephone", record, play;
    int64_t rate = 8000, threads = 1, maxCallers = 100;
    bool printsStatus = false;
};

/// Runs until SIGTERM, SIGINT or SIGHUP. Fails if the address is not available or a recording failed.
void serve( const ServerSettings &settings );

} // namespace host

#endif
