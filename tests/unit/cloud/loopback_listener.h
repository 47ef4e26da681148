#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace tarvik::test {

// Listens on a free port of this host. Linux only.
class LoopbackListener {
public:
    explicit LoopbackListener(int queue_length)
        : file_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        auto* generic = reinterpret_cast<sockaddr*>(&address_);
        EXPECT_EQ(::bind(file_, generic, size), 0);
        EXPECT_EQ(::listen(file_, queue_length), 0);
        EXPECT_EQ(::getsockname(file_, generic, &size), 0);
    }
    ~LoopbackListener() { ::close(file_); }
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    const sockaddr_in& Address() const { return address_; }
    std::uint16_t Port() const { return ntohs(address_.sin_port); }
    // Waits for a client. Below 0: there is none.
    int Accept() const { return ::accept4(file_, nullptr, nullptr, SOCK_CLOEXEC); }
    void Stop() const { ::shutdown(file_, SHUT_RDWR); }

private:
    int file_;
    sockaddr_in address_{};
};

}  // namespace tarvik::test
