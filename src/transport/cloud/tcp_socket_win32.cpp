#include "transport/cloud/tcp_socket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include "support/memory.h"

namespace tarvik {

static constexpr int kLookForAbortMs = 50;

// Non-blocking, so that no call holds a thread beyond an abort.
struct TcpSocket {
    SOCKET handle = INVALID_SOCKET;
    std::atomic<bool> aborted{false};
    bool peer_ended = false;  // the receive thread's
};

struct TcpAddresses {
    addrinfo* first = nullptr;
};

void StartNetwork() {
    WSADATA data;
    ::WSAStartup(MAKEWORD(2, 2), &data);
}

void EndNetwork() { ::WSACleanup(); }

int ResolveTcp(const char* host, const char* port, TcpAddresses** addresses) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* first = nullptr;
    const int result = ::getaddrinfo(host, port, &hints, &first);
    if (result != 0) return result;
    *addresses = NewTracked<TcpAddresses>(TcpAddresses{first});
    if (*addresses != nullptr) return 0;
    ::freeaddrinfo(first);
    return EAI_MEMORY;
}

void FreeTcpAddresses(TcpAddresses* addresses) {
    ::freeaddrinfo(addresses->first);
    DeleteTracked(addresses);
}

// What WSAPoll reports: 0 when time ran out, below 0 when it failed.
static int Await(SOCKET handle, short events, int timeout_ms) {
    WSAPOLLFD watched = {handle, events, 0};
    const int count = ::WSAPoll(&watched, 1, timeout_ms);
    return count <= 0 ? count : watched.revents;
}

// Not WSAPoll: before Windows 10 2004 it does not report a connection that failed.
static bool AwaitConnection(SOCKET handle, const std::atomic<bool>& abort) {
    while (!abort) {
        fd_set connected, failed;
        FD_ZERO(&connected);
        FD_ZERO(&failed);
        FD_SET(handle, &connected);
        FD_SET(handle, &failed);
        timeval limit = {0, kLookForAbortMs * 1000};
        const int count = ::select(0, nullptr, &connected, &failed, &limit);
        if (count < 0) return false;
        if (count > 0) return FD_ISSET(handle, &connected) && !FD_ISSET(handle, &failed);
    }
    return false;
}

static bool Connect(SOCKET handle, const addrinfo& address, const std::atomic<bool>& abort) {
    const BOOL yes = TRUE;
    ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&yes), sizeof yes);
    u_long non_blocking = 1;
    if (::ioctlsocket(handle, static_cast<long>(FIONBIO), &non_blocking) != 0) return false;
    if (::connect(handle, address.ai_addr, static_cast<int>(address.ai_addrlen)) == 0) return true;
    return ::WSAGetLastError() == WSAEWOULDBLOCK && AwaitConnection(handle, abort);
}

static SOCKET OpenConnection(const addrinfo& address, const std::atomic<bool>& abort) {
    const SOCKET handle = ::socket(address.ai_family, address.ai_socktype, address.ai_protocol);
    if (handle == INVALID_SOCKET) return INVALID_SOCKET;
    if (Connect(handle, address, abort)) return handle;
    ::closesocket(handle);
    return INVALID_SOCKET;
}

TcpSocket* ConnectTcp(const TcpAddresses& addresses, const std::atomic<bool>& abort) {
    for (const addrinfo* at = addresses.first; at != nullptr && !abort; at = at->ai_next) {
        const SOCKET handle = OpenConnection(*at, abort);
        if (handle == INVALID_SOCKET) continue;
        if (auto* socket = NewTracked<TcpSocket>()) {
            socket->handle = handle;
            return socket;
        }
        ::closesocket(handle);
    }
    return nullptr;
}

void AbortTcp(TcpSocket* socket) {
    socket->aborted = true;
    ::shutdown(socket->handle, SD_BOTH);
}

void CloseTcp(TcpSocket* socket) {
    ::closesocket(socket->handle);
    DeleteTracked(socket);
}

TcpWait WaitForTcpData(TcpSocket* socket, std::int32_t timeout_ms) {
    const int events = Await(socket->handle, POLLIN, timeout_ms);
    if (events < 0 || (events & POLLNVAL) != 0 || socket->aborted) return TcpWait::kFailed;
    if (events == 0) return TcpWait::kTimeout;
    socket->peer_ended = (events & (POLLHUP | POLLERR)) != 0;
    return TcpWait::kReadable;
}

bool TcpPeerEnded(const TcpSocket* socket) { return socket->peer_ended; }

int PeekTcp(TcpSocket* socket, void* data, std::uint32_t size) {
    return ::recv(socket->handle, static_cast<char*>(data), static_cast<int>(size), MSG_PEEK);
}

int ReadTcp(TcpSocket* socket, void* data, std::uint32_t size) {
    return ::recv(socket->handle, static_cast<char*>(data), static_cast<int>(size), 0);
}

bool SendTcp(TcpSocket* socket, const void* data, std::uint32_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (!socket->aborted) {
        const int sent = ::send(socket->handle, bytes, static_cast<int>(size), 0);
        if (sent < 0 && ::WSAGetLastError() != WSAEWOULDBLOCK) return false;
        if (sent > 0) {
            bytes += sent;
            size -= static_cast<std::uint32_t>(sent);
        }
        if (size == 0) return true;
        Await(socket->handle, POLLOUT, kLookForAbortMs);
    }
    return false;
}

}  // namespace tarvik
