#include "sockets/line_socket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace brennix {

LineSocket::LineSocket(EventLoop* loop, int fd, Handlers handlers)
    : handlers_(std::move(handlers)),
      socket_(loop, fd, nullptr,
              {.received = [this](ByteSpan bytes) { OnBytes(bytes); },
               .ended = [this](const std::string&) { handlers_.ended(); }}) {}

void LineSocket::Send(const std::string& line) {
    const std::string bytes = line + "\n";
    socket_.Send(AsBytes(bytes));
}

void LineSocket::OnBytes(ByteSpan bytes) {
    received_.append(bytes.begin(), bytes.end());
    std::size_t begin = 0;
    for (std::size_t end; (end = received_.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        std::string_view line = std::string_view(received_).substr(begin, end - begin);
        if (line.ends_with('\r')) line.remove_suffix(1);
        handlers_.received(line);
    }
    received_.erase(0, begin);
}

int ConnectToPort(std::uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        if (fd >= 0) ::close(fd);
        throw std::system_error(error, std::generic_category(), "port " + std::to_string(port));
    }
    ::fcntl(fd, F_SETFL, O_NONBLOCK);
    return fd;
}

}  // namespace brennix
