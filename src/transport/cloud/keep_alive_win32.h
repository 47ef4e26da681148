#pragma once

#include <winsock2.h>
// mstcpip.h needs it first.
#include <mstcpip.h>

#include <cstdint>

namespace tarvik {

// Probes that begin once a connection has been idle for `idle_ms`, and of which the last is
// unanswered at `dead_ms`.
inline tcp_keepalive KeepAlive(std::int32_t idle_ms, std::int32_t dead_ms) {
    constexpr ULONG kProbes = 10;  // fixed in Windows
    return {
        .onoff = 1,
        .keepalivetime = static_cast<ULONG>(idle_ms),
        .keepaliveinterval = static_cast<ULONG>(dead_ms - idle_ms) / kProbes,
    };
}

}  // namespace tarvik
