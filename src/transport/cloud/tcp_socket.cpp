#include "transport/cloud/tcp_socket.h"

#include "support/memory.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/tcp_addresses.h"
#include "transport/cloud/tcp_connect.h"
#include "transport/cloud/tcp_system.h"

namespace tarvik {

// Its calls never block, so an abort is always noticed.
struct TcpSocket {
    SystemSocket system = kNoSocket;
    std::atomic<bool> aborted{false};
    bool peer_ended = false;  // only the receive thread uses it
};

void StartNetwork() { SystemStartNetwork(); }

void EndNetwork() { SystemEndNetwork(); }

int ResolveTcp(const char* host, const char* port, TcpAddresses** addresses) {
    addrinfo* first = nullptr;
    const int result = SystemResolve(host, port, &first);
    if (result != 0) return result;
    *addresses = NewTracked<TcpAddresses>(TcpAddresses{first});
    if (*addresses != nullptr) return 0;
    SystemFreeAddresses(first);
    return kSystemOutOfMemory;
}

void FreeTcpAddresses(TcpAddresses* addresses) {
    SystemFreeAddresses(addresses->first);
    DeleteTracked(addresses);
}

TcpSocket* ConnectTcp(const TcpAddresses& addresses, const std::atomic<bool>& abort) {
    const SystemSocket connected = ConnectToFirst(addresses, abort, kNoConnectLimit).socket;
    if (connected == kNoSocket) return nullptr;
    auto* socket = NewTracked<TcpSocket>();
    if (socket != nullptr) {
        socket->system = connected;
    } else {
        SystemClose(connected);
    }
    return socket;
}

void AbortTcp(TcpSocket* socket) {
    socket->aborted = true;
    SystemShutDown(socket->system);
}

void CloseTcp(TcpSocket* socket) {
    SystemClose(socket->system);
    DeleteTracked(socket);
}

TcpWait WaitForTcpData(TcpSocket* socket, std::int32_t timeout_ms) {
    const TcpReadiness found = SystemAwaitData(socket->system, timeout_ms);
    if (found == TcpReadiness::kFailed || socket->aborted) return TcpWait::kFailed;
    if (found == TcpReadiness::kTimeout) return TcpWait::kTimeout;
    socket->peer_ended = found == TcpReadiness::kPeerEnded;
    return TcpWait::kReadable;
}

bool TcpPeerEnded(const TcpSocket* socket) { return socket->peer_ended; }

int PeekTcp(TcpSocket* socket, void* data, std::uint32_t size) {
    return SystemPeek(socket->system, data, size);
}

int ReadTcp(TcpSocket* socket, void* data, std::uint32_t size) {
    return SystemRead(socket->system, data, size);
}

bool SendTcp(TcpSocket* socket, const void* data, std::uint32_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (!socket->aborted) {
        const int sent = SystemSend(socket->system, bytes, size);
        if (sent < 0) return false;
        bytes += sent;
        size -= static_cast<std::uint32_t>(sent);
        if (size == 0) return true;
        SystemAwaitRoom(socket->system, GetCloudLimits().send_poll_ms);
    }
    return false;
}

}  // namespace tarvik
