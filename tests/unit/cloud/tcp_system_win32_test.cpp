// Windows's TCP, with a peer on this host.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "transport/cloud/tcp_connect.h"
#include "transport/cloud/tcp_socket.h"
#include "unit/cloud/adjusted_limits.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

// A listener of this host, and its address.
class Listener {
public:
    explicit Listener(int backlog) : socket_(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
        int size = sizeof address_;
        EXPECT_EQ(::bind(socket_, Generic(), size), 0);
        EXPECT_EQ(::listen(socket_, backlog), 0);
        EXPECT_EQ(::getsockname(socket_, Generic(), &size), 0);
        info_.ai_family = AF_INET;
        info_.ai_socktype = SOCK_STREAM;
        info_.ai_protocol = IPPROTO_TCP;
        info_.ai_addr = Generic();
        info_.ai_addrlen = sizeof address_;
    }
    ~Listener() {
        for (const SOCKET waiting : waiting_)
            ::closesocket(waiting);
        Stop();
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Its port then refuses.
    void Stop() {
        if (socket_ != INVALID_SOCKET) ::closesocket(socket_);
        socket_ = INVALID_SOCKET;
    }
    // It then answers nobody.
    void Fill() {
        while (waiting_.size() < 8) {
            waiting_.push_back(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
            u_long non_blocking = 1;
            ::ioctlsocket(waiting_.back(), static_cast<long>(FIONBIO), &non_blocking);
            ::connect(waiting_.back(), Generic(), sizeof address_);
        }
    }
    addrinfo* Info() { return &info_; }

private:
    sockaddr* Generic() { return reinterpret_cast<sockaddr*>(&address_); }

    SOCKET socket_;
    sockaddr_in address_{};
    addrinfo info_{};
    std::vector<SOCKET> waiting_;
};

class WinsockConnect : public testing::Test {
protected:
    WinsockConnect() { StartNetwork(); }
    ~WinsockConnect() override {
        if (connected_.socket != kNoSocket) SystemClose(connected_.socket);
        EndNetwork();
    }

    // To `first` or `second`.
    void Connect(addrinfo* first, addrinfo* second) {
        first->ai_next = second;
        std::atomic<bool> impatient{false};
        std::atomic<bool> done{false};
        Thread limit([&] { impatient = !Eventually([&] { return done.load(); }); });
        connected_ = ConnectToFirst({first}, impatient, kNoConnectLimit);
        done = true;
    }

    AdjustedLimits limits_;
    TcpConnection connected_;
};

TEST_F(WinsockConnect, GoesPastAnAddressThatDoesNotAnswer) {
    limits_->connect_stagger_ms = 10;
    Listener hole(0);
    hole.Fill();
    Listener relay(4);
    Connect(hole.Info(), relay.Info());
    ASSERT_NE(connected_.socket, kNoSocket);
    EXPECT_EQ(connected_.address, relay.Info());
}

TEST_F(WinsockConnect, GoesPastAnAddressThatRefuses) {
    Listener closed(4);
    closed.Stop();
    Listener relay(4);
    Connect(closed.Info(), relay.Info());
    ASSERT_NE(connected_.socket, kNoSocket);
    EXPECT_EQ(connected_.address, relay.Info());
}

TEST_F(WinsockConnect, FailsIfAllAddressesRefuse) {
    Listener first(4), second(4);
    first.Stop();
    second.Stop();
    Connect(first.Info(), second.Info());
    EXPECT_EQ(connected_.socket, kNoSocket);
    EXPECT_FALSE(connected_.timed_out);
}

}  // namespace
}  // namespace tarvik::test
