#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct addrinfo;

// The calls that differ between the systems' sockets. tcp_socket.cpp does everything else.
namespace tarvik {

using SystemSocket = std::intptr_t;
inline constexpr SystemSocket kNoSocket = -1;

void SystemStartNetwork();
void SystemEndNetwork();

// getaddrinfo for a stream of any address family: 0, or its error code.
int SystemResolve(const char* host, const char* port, addrinfo** first);
void SystemFreeAddresses(addrinfo* first);
const addrinfo* SystemNextAddress(const addrinfo& address);
extern const int kSystemOutOfMemory;  // an error code of getaddrinfo

// A socket for this address that never blocks and sends without delay.
SystemSocket SystemOpenSocket(const addrinfo& address);
void SystemShutDown(SystemSocket socket);
void SystemClose(SystemSocket socket);

enum class TcpProgress : std::uint8_t { kDone, kPending, kFailed };
TcpProgress SystemBeginConnect(SystemSocket socket, const addrinfo& address);

struct ConnectAttempt {
    SystemSocket socket;
    const addrinfo* address;
    TcpProgress progress;
};
inline constexpr std::size_t kMaxConnectAttempts = 16;
// Waits until one of these attempts, 1 to kMaxConnectAttempts, is decided, and updates their
// progress.
void SystemAwaitConnects(std::span<ConnectAttempt> attempts, std::int32_t timeout_ms);

// Ends the connection if for `dead_ms` the peer has acknowledged nothing of what was sent, probes
// included, which begin once the connection has been idle for `idle_ms`. Linux also ends one whose
// peer acknowledges, but takes nothing of what is to be sent for as long; Windows keeps it. What
// the system does not offer is left out.
void SystemDetectDeadPeer(SystemSocket socket, std::int32_t idle_ms, std::int32_t dead_ms);

enum class TcpReadiness : std::uint8_t { kReadable, kPeerEnded, kTimeout, kFailed };
TcpReadiness SystemAwaitData(SystemSocket socket, std::int32_t timeout_ms);
void SystemAwaitRoom(SystemSocket socket, std::int32_t timeout_ms);

// At most `size` bytes: their number, or below 1 for the end and for failures.
int SystemPeek(SystemSocket socket, void* data, std::uint32_t size);
int SystemRead(SystemSocket socket, void* data, std::uint32_t size);
// The number of bytes taken, 0 if there is no room now, below 0 for failures.
int SystemSend(SystemSocket socket, const void* data, std::uint32_t size);

}  // namespace tarvik
