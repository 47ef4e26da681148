#pragma once

#include <atomic>
#include <cstdint>

#include "transport/cloud/tcp_addresses.h"
#include "transport/cloud/tcp_system.h"

// How a connection to one of a name's addresses comes about, for both carriers.
namespace tarvik {

struct TcpConnection {
    SystemSocket socket = kNoSocket;
    const addrinfo* address = nullptr;  // one of TcpAddresses
    bool timed_out = false;             // why there is no socket
};

inline constexpr std::uint64_t kNoConnectLimit = UINT64_MAX;

// Tries the addresses in their order. The next attempt begins as soon as one has failed, or after
// connect_stagger_ms beside those that have not answered. The first that connects wins, and the
// other sockets are closed. No socket: all have failed, `limit_ms` has passed, or *abort was set,
// which it notices within connect_poll_ms. Once connected, a peer that SystemDetectDeadPeer takes
// for dead after link_dead_ms ends the connection.
TcpConnection ConnectToFirst(const TcpAddresses& addresses, const std::atomic<bool>& abort,
                             std::uint64_t limit_ms);

}  // namespace tarvik
