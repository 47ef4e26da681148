#pragma once

#include <arpa/inet.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace tarvik::test {

// An address of this host that answers no attempt to connect: its listener's queue is full.
class BlackHole {
public:
    BlackHole() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        auto* generic = reinterpret_cast<sockaddr*>(&address_);
        EXPECT_EQ(::bind(listener_, generic, size), 0);
        EXPECT_EQ(::listen(listener_, 0), 0);
        EXPECT_EQ(::getsockname(listener_, generic, &size), 0);
        // Until one is not answered, the system answers for the listener.
        while (waiting_.size() < 8)
            AddWaiting();
    }
    ~BlackHole() {
        for (const int waiting : waiting_)
            ::close(waiting);
        ::close(listener_);
    }
    BlackHole(const BlackHole&) = delete;
    BlackHole& operator=(const BlackHole&) = delete;

    const sockaddr_in& Address() const { return address_; }

private:
    void AddWaiting() {
        const int waiting = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        ASSERT_GE(waiting, 0);
        waiting_.push_back(waiting);
        ::connect(waiting, reinterpret_cast<sockaddr*>(&address_), sizeof address_);
    }

    int listener_;
    sockaddr_in address_{};
    std::vector<int> waiting_;
};

}  // namespace tarvik::test
