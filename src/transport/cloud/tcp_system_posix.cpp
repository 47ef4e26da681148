#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/posix/standard_descriptors.h"
#include "transport/cloud/tcp_system.h"

namespace tarvik {
namespace {

constexpr int kProbes = 2;  // of an idle connection

int FileOf(SystemSocket socket) { return static_cast<int>(socket); }

void SetOption(int file, int level, int option, int value) {
    ::setsockopt(file, level, option, &value, sizeof value);
}

// Of an attempt to connect that is decided.
TcpProgress ResultOf(int file) {
    int error = 0;
    socklen_t size = sizeof error;
    const int asked = ::getsockopt(file, SOL_SOCKET, SO_ERROR, &error, &size);
    return asked == 0 && error == 0 ? TcpProgress::kDone : TcpProgress::kFailed;
}

// What poll reports: 0 when time ran out, below 0 when it failed.
int Await(SystemSocket socket, short events, int timeout_ms) {
    pollfd watched = {FileOf(socket), events, 0};
    const int count = ::poll(&watched, 1, timeout_ms);
    if (count < 0) return errno == EINTR ? 0 : -1;
    return count == 0 ? 0 : watched.revents;
}

}  // namespace

const int kSystemOutOfMemory = EAI_MEMORY;

void SystemStartNetwork() {}
void SystemEndNetwork() {}

int SystemResolve(const char* host, const char* port, addrinfo** first) {
    const StandardDescriptorsTaken standard;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    return ::getaddrinfo(host, port, &hints, first);
}

void SystemFreeAddresses(addrinfo* first) { ::freeaddrinfo(first); }

const addrinfo* SystemNextAddress(const addrinfo& address) { return address.ai_next; }

SystemSocket SystemOpenSocket(const addrinfo& address) {
    const StandardDescriptorsTaken standard;
    const int type = address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC;
    const int file = ::socket(address.ai_family, type, address.ai_protocol);
    if (file < 0) return kNoSocket;
    SetOption(file, IPPROTO_TCP, TCP_NODELAY, 1);
    return file;
}

void SystemShutDown(SystemSocket socket) { ::shutdown(FileOf(socket), SHUT_RDWR); }

void SystemClose(SystemSocket socket) { ::close(FileOf(socket)); }

TcpProgress SystemBeginConnect(SystemSocket socket, const addrinfo& address) {
    if (::connect(FileOf(socket), address.ai_addr, address.ai_addrlen) == 0) {
        return TcpProgress::kDone;
    }
    return errno == EINPROGRESS ? TcpProgress::kPending : TcpProgress::kFailed;
}

void SystemAwaitConnects(std::span<ConnectAttempt> attempts, std::int32_t timeout_ms) {
    std::array<pollfd, kMaxConnectAttempts> watched;
    std::ranges::transform(attempts, watched.begin(), [](const ConnectAttempt& attempt) {
        return pollfd{FileOf(attempt.socket), POLLOUT, 0};
    });
    const int count = ::poll(watched.data(), attempts.size(), timeout_ms);
    const bool failed = count < 0 && errno != EINTR;
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        if (failed) attempts[i].progress = TcpProgress::kFailed;
        if (count > 0 && watched[i].revents != 0) attempts[i].progress = ResultOf(watched[i].fd);
    }
}

void SystemDetectDeadPeer(SystemSocket socket, std::int32_t idle_ms, std::int32_t dead_ms) {
    const int file = FileOf(socket);
    SetOption(file, IPPROTO_TCP, TCP_KEEPIDLE, idle_ms / 1000);
    SetOption(file, IPPROTO_TCP, TCP_KEEPINTVL, (dead_ms - idle_ms) / 1000 / kProbes);
    SetOption(file, IPPROTO_TCP, TCP_KEEPCNT, kProbes);
    SetOption(file, IPPROTO_TCP, TCP_USER_TIMEOUT, dead_ms);
    SetOption(file, SOL_SOCKET, SO_KEEPALIVE, 1);
}

TcpReadiness SystemAwaitData(SystemSocket socket, std::int32_t timeout_ms) {
    const int events = Await(socket, POLLIN | POLLRDHUP, timeout_ms);
    if (events < 0 || (events & POLLNVAL) != 0) return TcpReadiness::kFailed;
    if (events == 0) return TcpReadiness::kTimeout;
    const bool ended = (events & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
    return ended ? TcpReadiness::kPeerEnded : TcpReadiness::kReadable;
}

void SystemAwaitRoom(SystemSocket socket, std::int32_t timeout_ms) {
    Await(socket, POLLOUT, timeout_ms);
}

int SystemPeek(SystemSocket socket, void* data, std::uint32_t size) {
    return static_cast<int>(::recv(FileOf(socket), data, size, MSG_PEEK));
}

int SystemRead(SystemSocket socket, void* data, std::uint32_t size) {
    return static_cast<int>(::recv(FileOf(socket), data, size, 0));
}

int SystemSend(SystemSocket socket, const void* data, std::uint32_t size) {
    const ssize_t sent = ::send(FileOf(socket), data, size, MSG_NOSIGNAL);
    if (sent < 0) return errno == EAGAIN || errno == EINTR ? 0 : -1;
    return static_cast<int>(sent);
}

}  // namespace tarvik
