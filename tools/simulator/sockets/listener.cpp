#include "sockets/listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace brennix {

namespace {

constexpr int kBacklog = 256;

}  // namespace

Listener::Listener(EventLoop* loop, const std::string& host, std::uint16_t port,
                   std::function<void(int)> accepted)
    : loop_(loop), accepted_(std::move(accepted)), host_(host), port_(port) {
    Bind(host_, &port_);
    address_ = host_ + ":" + std::to_string(port_);
    Switch(true);
}

Listener::~Listener() {
    if (on_) loop_->Unwatch(fd_);
    ::close(fd_);
}

void Listener::Bind(const std::string& host, std::uint16_t* port) {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(*port);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) errno = EADDRNOTAVAIL;
    if (address.sin_addr.s_addr == 0 && host != "0.0.0.0") {
        throw std::system_error(errno, std::generic_category(), host);
    }
    if (fd_ < 0 || ::bind(fd_, generic, size) != 0 || ::getsockname(fd_, generic, &size) != 0) {
        const int error = errno;
        ::close(fd_);
        throw std::system_error(error, std::generic_category(), host + ":" + std::to_string(*port));
    }
    *port = ntohs(address.sin_port);
}

// A socket that is bound but does not listen keeps the port and refuses connections.
void Listener::Switch(bool on) {
    if (on == on_) return;
    on_ = on;
    if (on) {
        if (::listen(fd_, kBacklog) != 0) {
            throw std::system_error(errno, std::generic_category(), address_);
        }
        loop_->Watch(fd_, EPOLLIN, [this](std::uint32_t) { Accept(); });
        return;
    }
    loop_->Unwatch(fd_);
    ::close(fd_);
    Bind(host_, &port_);
}

void Listener::Accept() {
    const int fd = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0) accepted_(fd);
}

}  // namespace brennix
