#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "unit/cloud/loopback_listener.h"

namespace tarvik::test {

// An address of this host that answers no attempt to connect: its listener's queue is full.
class BlackHole {
public:
    BlackHole() {
        // Until one is not answered, the system answers for the listener.
        while (waiting_.size() < 8)
            AddWaiting();
    }
    ~BlackHole() {
        for (const int waiting : waiting_)
            ::close(waiting);
    }
    BlackHole(const BlackHole&) = delete;
    BlackHole& operator=(const BlackHole&) = delete;

    const sockaddr_in& Address() const { return listener_.Address(); }

private:
    void AddWaiting() {
        const int waiting = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        ASSERT_GE(waiting, 0);
        waiting_.push_back(waiting);
        ::connect(waiting, reinterpret_cast<const sockaddr*>(&Address()), sizeof Address());
    }

    const LoopbackListener listener_{0};
    std::vector<int> waiting_;
};

}  // namespace tarvik::test
