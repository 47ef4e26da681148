#include "transport/cloud/tcp_socket.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "support/memory.h"
#include "transport/cloud/tcp_addresses_posix.h"

namespace tarvik {

static constexpr int kLookForAbortMs = 50;

// Non-blocking, so that no call holds a thread beyond an abort.
struct TcpSocket {
    int file = -1;
    std::atomic<bool> aborted{false};
    bool peer_ended = false;  // the receive thread's
};

void StartNetwork() {}
void EndNetwork() {}

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

// What poll reports: 0 when time ran out, below 0 when it failed.
static int Await(int file, short events, int timeout_ms) {
    pollfd watched = {file, events, 0};
    const int count = ::poll(&watched, 1, timeout_ms);
    if (count < 0) return errno == EINTR ? 0 : -1;
    return count == 0 ? 0 : watched.revents;
}

static bool AwaitConnection(int file, const std::atomic<bool>& abort) {
    while (!abort) {
        const int events = Await(file, POLLOUT, kLookForAbortMs);
        if (events < 0) return false;
        if (events == 0) continue;
        int error = 0;
        socklen_t size = sizeof error;
        return ::getsockopt(file, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
    }
    return false;
}

static bool Connect(int file, const addrinfo& address, const std::atomic<bool>& abort) {
    const int yes = 1;
    ::setsockopt(file, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (::connect(file, address.ai_addr, address.ai_addrlen) == 0) return true;
    return errno == EINPROGRESS && AwaitConnection(file, abort);
}

static int OpenConnection(const addrinfo& address, const std::atomic<bool>& abort) {
    const int type = address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC;
    const int file = ::socket(address.ai_family, type, address.ai_protocol);
    if (file < 0) return -1;
    if (Connect(file, address, abort)) return file;
    ::close(file);
    return -1;
}

TcpSocket* ConnectTcp(const TcpAddresses& addresses, const std::atomic<bool>& abort) {
    for (const addrinfo* at = addresses.first; at != nullptr && !abort; at = at->ai_next) {
        const int file = OpenConnection(*at, abort);
        if (file < 0) continue;
        if (auto* socket = NewTracked<TcpSocket>()) {
            socket->file = file;
            return socket;
        }
        ::close(file);
    }
    return nullptr;
}

void AbortTcp(TcpSocket* socket) {
    socket->aborted = true;
    ::shutdown(socket->file, SHUT_RDWR);
}

void CloseTcp(TcpSocket* socket) {
    ::close(socket->file);
    DeleteTracked(socket);
}

TcpWait WaitForTcpData(TcpSocket* socket, std::int32_t timeout_ms) {
    const int events = Await(socket->file, POLLIN | POLLRDHUP, timeout_ms);
    if (events < 0 || (events & POLLNVAL) != 0 || socket->aborted) return TcpWait::kFailed;
    if (events == 0) return TcpWait::kTimeout;
    socket->peer_ended = (events & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
    return TcpWait::kReadable;
}

bool TcpPeerEnded(const TcpSocket* socket) { return socket->peer_ended; }

int PeekTcp(TcpSocket* socket, void* data, std::uint32_t size) {
    return static_cast<int>(::recv(socket->file, data, size, MSG_PEEK));
}

int ReadTcp(TcpSocket* socket, void* data, std::uint32_t size) {
    return static_cast<int>(::recv(socket->file, data, size, 0));
}

bool SendTcp(TcpSocket* socket, const void* data, std::uint32_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (!socket->aborted) {
        const ssize_t sent = ::send(socket->file, bytes, size, MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN && errno != EINTR) return false;
        if (sent > 0) {
            bytes += sent;
            size -= static_cast<std::uint32_t>(sent);
        }
        if (size == 0) return true;
        Await(socket->file, POLLOUT, kLookForAbortMs);
    }
    return false;
}

}  // namespace tarvik
