#include "control/control_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace brennix {

namespace {

// A longer line does not come from a test.
constexpr std::size_t kMaxLine = 1 << 20;

int Listen(std::uint16_t* port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(*port);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (fd < 0 || ::bind(fd, generic, size) != 0 || ::listen(fd, 16) != 0 ||
        ::getsockname(fd, generic, &size) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "control port " + std::to_string(*port));
    }
    *port = ntohs(address.sin_port);
    return fd;
}

}  // namespace

ControlServer::ControlServer(EventLoop* loop, Record* record, Runner run, std::uint16_t port)
    : loop_(loop), record_(record), run_(std::move(run)), port_(port) {
    listener_ = Listen(&port_);
    loop_->Watch(listener_, EPOLLIN, [this](std::uint32_t) { Accept(); });
    // Waits are checked once a round, however many packets it had.
    record_->SetListener([this] {
        if (waits_ == 0 || check_planned_) return;
        check_planned_ = true;
        loop_->After(std::chrono::milliseconds(0), [this] { CheckWaits(); });
    });
}

ControlServer::~ControlServer() {
    record_->SetListener({});
    while (!connections_.empty())
        Drop(connections_.begin()->second);
    loop_->Unwatch(listener_);
    ::close(listener_);
}

std::string ControlServer::Address() const { return "127.0.0.1:" + std::to_string(port_); }

void ControlServer::Accept() {
    const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    auto connection = std::make_shared<Connection>();
    connection->fd = fd;
    connections_[fd] = connection;
    loop_->Watch(fd, EPOLLIN,
                 [this, connection](std::uint32_t events) { OnReady(connection, events); });
}

// By value: what the caller refers to may be the watch that goes.
void ControlServer::Drop(ConnectionPtr connection) {
    if (connections_.erase(connection->fd) == 0) return;
    if (connection->wait) EndWait(connection, {});
    loop_->Unwatch(connection->fd);
    ::close(connection->fd);
}

void ControlServer::OnReady(const ConnectionPtr& connection, std::uint32_t events) {
    if ((events & EPOLLOUT) != 0) Flush(connection.get());
    if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) == 0) return;
    std::array<char, 65536> buffer;
    const ssize_t size = ::read(connection->fd, buffer.data(), buffer.size());
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size <= 0) return Drop(connection);
    connection->received.append(buffer.data(), static_cast<std::size_t>(size));
    RunLines(connection);
    if (connection->received.size() > kMaxLine) Drop(connection);
}

// While a wait is open, the connection's further lines stay unread.
void ControlServer::RunLines(const ConnectionPtr& connection) {
    while (!connection->wait) {
        const std::size_t end = connection->received.find('\n');
        if (end == std::string::npos) return;
        std::string line = connection->received.substr(0, end);
        connection->received.erase(0, end + 1);
        if (line.ends_with('\r')) line.pop_back();
        const CommandResult result = run_(line);
        if (result.wait) {
            StartWait(connection, *result.wait);
        } else {
            Send(connection, result.answer);
        }
    }
}

void ControlServer::StartWait(const ConnectionPtr& connection, const PendingWait& wait) {
    connection->wait = wait;
    ++waits_;
    connection->wait_timer = loop_->After(wait.limit, [this, connection] {
        const std::uint64_t count = record_->Count(connection->wait->filter);
        EndWait(connection, "error: time is up with " + std::to_string(count) + " entries");
        RunLines(connection);
    });
    if (!check_planned_) CheckWaits();
}

void ControlServer::EndWait(const ConnectionPtr& connection, const std::string& answer) {
    loop_->Cancel(connection->wait_timer);
    connection->wait.reset();
    --waits_;
    if (!answer.empty()) Send(connection, answer);
}

void ControlServer::CheckWaits() {
    check_planned_ = false;
    // A copy, since executing further lines may close connections.
    const std::map<int, ConnectionPtr> connections = connections_;
    for (const auto& [fd, connection] : connections) {
        if (!connection->wait) continue;
        const std::uint64_t count = record_->Count(connection->wait->filter);
        if (count < connection->wait->count) continue;
        EndWait(connection, "ok " + std::to_string(count));
        RunLines(connection);
    }
}

void ControlServer::Send(const ConnectionPtr& connection, const std::string& line) {
    connection->outgoing += line + "\n";
    Flush(connection.get());
}

void ControlServer::Flush(Connection* connection) {
    std::string& text = connection->outgoing;
    while (!text.empty()) {
        const ssize_t sent = ::send(connection->fd, text.data(), text.size(), MSG_NOSIGNAL);
        if (sent <= 0) break;
        text.erase(0, static_cast<std::size_t>(sent));
    }
    loop_->Change(connection->fd, text.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT);
}

}  // namespace brennix
