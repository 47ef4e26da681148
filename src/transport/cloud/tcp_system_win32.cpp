#include <winsock2.h>
#include <ws2tcpip.h>

#include "transport/cloud/keep_alive_win32.h"
#include "transport/cloud/tcp_system.h"

namespace tarvik {
namespace {

static_assert(sizeof(SystemSocket) == sizeof(SOCKET));
static_assert(static_cast<SOCKET>(kNoSocket) == INVALID_SOCKET);

constexpr int kTcpMaxRetransmission = 5;  // TCP_MAXRT, in seconds; MinGW's headers lack it

SOCKET HandleOf(SystemSocket socket) { return static_cast<SOCKET>(socket); }

// What WSAPoll reports: 0 when time ran out, below 0 when it failed.
int Await(SystemSocket socket, short events, int timeout_ms) {
    WSAPOLLFD watched = {HandleOf(socket), events, 0};
    const int count = ::WSAPoll(&watched, 1, timeout_ms);
    return count <= 0 ? count : watched.revents;
}

bool SetUp(SOCKET handle) {
    const BOOL yes = TRUE;
    ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&yes), sizeof yes);
    u_long non_blocking = 1;
    return ::ioctlsocket(handle, static_cast<long>(FIONBIO), &non_blocking) == 0;
}

}  // namespace

const int kSystemOutOfMemory = EAI_MEMORY;

void SystemStartNetwork() {
    WSADATA data;
    ::WSAStartup(MAKEWORD(2, 2), &data);
}

void SystemEndNetwork() { ::WSACleanup(); }

int SystemResolve(const char* host, const char* port, addrinfo** first) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    return ::getaddrinfo(host, port, &hints, first);
}

void SystemFreeAddresses(addrinfo* first) { ::freeaddrinfo(first); }

const addrinfo* SystemNextAddress(const addrinfo& address) { return address.ai_next; }

SystemSocket SystemOpenSocket(const addrinfo& address) {
    const SOCKET handle = ::socket(address.ai_family, address.ai_socktype, address.ai_protocol);
    if (handle == INVALID_SOCKET) return kNoSocket;
    if (SetUp(handle)) return static_cast<SystemSocket>(handle);
    ::closesocket(handle);
    return kNoSocket;
}

void SystemShutDown(SystemSocket socket) { ::shutdown(HandleOf(socket), SD_BOTH); }

void SystemClose(SystemSocket socket) { ::closesocket(HandleOf(socket)); }

TcpProgress SystemBeginConnect(SystemSocket socket, const addrinfo& address) {
    const auto size = static_cast<int>(address.ai_addrlen);
    if (::connect(HandleOf(socket), address.ai_addr, size) == 0) return TcpProgress::kDone;
    const bool begun = ::WSAGetLastError() == WSAEWOULDBLOCK;
    return begun ? TcpProgress::kPending : TcpProgress::kFailed;
}

// Not WSAPoll: before Windows 10 2004 it does not report a failed connection.
void SystemAwaitConnects(std::span<ConnectAttempt> attempts, std::int32_t timeout_ms) {
    fd_set connected, failed;
    FD_ZERO(&connected);
    FD_ZERO(&failed);
    for (const ConnectAttempt& attempt : attempts) {
        FD_SET(HandleOf(attempt.socket), &connected);
        FD_SET(HandleOf(attempt.socket), &failed);
    }
    timeval limit = {timeout_ms / 1000, timeout_ms % 1000 * 1000};
    const int count = ::select(0, nullptr, &connected, &failed, &limit);
    if (count == 0) return;
    for (ConnectAttempt& attempt : attempts) {
        if (count < 0 || FD_ISSET(HandleOf(attempt.socket), &failed)) {
            attempt.progress = TcpProgress::kFailed;
        } else if (FD_ISSET(HandleOf(attempt.socket), &connected)) {
            attempt.progress = TcpProgress::kDone;
        }
    }
}

void SystemDetectDeadPeer(SystemSocket socket, std::int32_t idle_ms, std::int32_t dead_ms) {
    tcp_keepalive probes = KeepAlive(idle_ms, dead_ms);
    DWORD unused = 0;
    ::WSAIoctl(HandleOf(socket), SIO_KEEPALIVE_VALS, &probes, sizeof probes, nullptr, 0, &unused,
               nullptr, nullptr);
    const DWORD dead_s = static_cast<DWORD>(dead_ms) / 1000;
    ::setsockopt(HandleOf(socket), IPPROTO_TCP, kTcpMaxRetransmission,
                 reinterpret_cast<const char*>(&dead_s), sizeof dead_s);
}

TcpReadiness SystemAwaitData(SystemSocket socket, std::int32_t timeout_ms) {
    const int events = Await(socket, POLLIN, timeout_ms);
    if (events < 0 || (events & POLLNVAL) != 0) return TcpReadiness::kFailed;
    if (events == 0) return TcpReadiness::kTimeout;
    const bool ended = (events & (POLLHUP | POLLERR)) != 0;
    return ended ? TcpReadiness::kPeerEnded : TcpReadiness::kReadable;
}

void SystemAwaitRoom(SystemSocket socket, std::int32_t timeout_ms) {
    Await(socket, POLLOUT, timeout_ms);
}

int SystemPeek(SystemSocket socket, void* data, std::uint32_t size) {
    return ::recv(HandleOf(socket), static_cast<char*>(data), static_cast<int>(size), MSG_PEEK);
}

int SystemRead(SystemSocket socket, void* data, std::uint32_t size) {
    return ::recv(HandleOf(socket), static_cast<char*>(data), static_cast<int>(size), 0);
}

int SystemSend(SystemSocket socket, const void* data, std::uint32_t size) {
    const auto* bytes = static_cast<const char*>(data);
    const int sent = ::send(HandleOf(socket), bytes, static_cast<int>(size), 0);
    if (sent < 0) return ::WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
    return sent;
}

}  // namespace tarvik
