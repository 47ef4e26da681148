// One connection to the relay, over TCP or a WebSocket, that carries packets as the library's do.

#ifndef TOOLS_DPDU_DOCTOR_RELAY_LINK_H
#define TOOLS_DPDU_DOCTOR_RELAY_LINK_H

#include <atomic>
#include <memory>
#include <string>

#include "doctor/check.h"
#include "link/packet.h"
#include "support/config.h"

namespace dpdu {

// One thread receives, one sends.
class RelayLink {
public:
    virtual ~RelayLink() = default;
    // False: the connection has ended. Without a packet: none has come yet.
    virtual bool Receive(tarvik::PacketPtr* packet) = 0;
    virtual bool Send(const tarvik::Packet& packet) = 0;
    // Ends what the two are doing, now and later. Any thread.
    virtual void Abort() = 0;
};

struct RelayOpening {
    std::unique_ptr<RelayLink> link;  // null: no connection
    std::string relay;                // the address as users know it
};

// Connects as the configuration says. Without a link, it has reported why, unless the run stops.
RelayOpening OpenRelay(const tarvik::Config& config, CheckRun* run);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_RELAY_LINK_H
