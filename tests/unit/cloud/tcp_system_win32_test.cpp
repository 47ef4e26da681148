// Windows's TCP, with a peer on this host.
#include <winsock2.h>
// The next two need it first.
#include <mstcpip.h>
#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "transport/cloud/tcp_connect.h"
#include "transport/cloud/tcp_socket.h"
#include "unit/cloud/adjusted_limits.h"
#include "unit/test_support.h"

namespace {

// What the library asked of Winsock last. Wine cannot return these values.
tcp_keepalive asked_probes{};
DWORD asked_max_retransmission = 0;

template <typename Function>
Function SystemsOwn(const char* name) {
    return reinterpret_cast<Function>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ws2_32.dll"), name)));
}

int WSAAPI RecordIoctl(SOCKET socket, DWORD code, LPVOID in, DWORD in_size, LPVOID out,
                       DWORD out_size, LPDWORD got, LPWSAOVERLAPPED overlapped,
                       LPWSAOVERLAPPED_COMPLETION_ROUTINE routine) {
    if (code == SIO_KEEPALIVE_VALS && in_size == sizeof asked_probes)
        std::memcpy(&asked_probes, in, sizeof asked_probes);
    static const auto system = SystemsOwn<decltype(&RecordIoctl)>("WSAIoctl");
    return system(socket, code, in, in_size, out, out_size, got, overlapped, routine);
}

int WSAAPI RecordOption(SOCKET socket, int level, int option, const char* value, int size) {
    constexpr int kMaxRetransmission = 5;
    if (level == IPPROTO_TCP && option == kMaxRetransmission)
        std::memcpy(&asked_max_retransmission, value, sizeof asked_max_retransmission);
    static const auto system = SystemsOwn<decltype(&RecordOption)>("setsockopt");
    return system(socket, level, option, value, size);
}

}  // namespace

// The linker takes these for the imports.
extern "C" {
extern decltype(&RecordIoctl) __imp_WSAIoctl;
decltype(&RecordIoctl) __imp_WSAIoctl = RecordIoctl;
extern decltype(&RecordOption) __imp_setsockopt;
decltype(&RecordOption) __imp_setsockopt = RecordOption;
}

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

    // The first address does not connect.
    void ExpectConnectedPast(Listener& first) {
        Listener relay(4);
        Connect(first.Info(), relay.Info());
        ASSERT_NE(connected_.socket, kNoSocket);
        EXPECT_EQ(connected_.address, relay.Info());
    }

    AdjustedLimits limits_;
    TcpConnection connected_;
};

TEST_F(WinsockConnect, GoesPastAnAddressThatDoesNotAnswer) {
    limits_->connect_stagger_ms = 10;
    Listener hole(0);
    hole.Fill();
    ExpectConnectedPast(hole);
}

TEST_F(WinsockConnect, GoesPastAnAddressThatRefuses) {
    Listener closed(4);
    closed.Stop();
    ExpectConnectedPast(closed);
}

TEST_F(WinsockConnect, FailsIfAllAddressesRefuse) {
    Listener first(4), second(4);
    first.Stop();
    second.Stop();
    Connect(first.Info(), second.Info());
    EXPECT_EQ(connected_.socket, kNoSocket);
    EXPECT_FALSE(connected_.timed_out);
}

TEST_F(WinsockConnect, PeerThatIsGoneIsNoticedAfter30Seconds) {
    asked_probes = {};
    asked_max_retransmission = 0;
    Listener relay(4);
    Connect(relay.Info(), nullptr);
    ASSERT_NE(connected_.socket, kNoSocket);
    EXPECT_EQ(asked_probes.onoff, 1u);
    EXPECT_EQ(asked_probes.keepalivetime, 20'000u);
    EXPECT_EQ(asked_probes.keepaliveinterval, 1'000u);  // ten probes
    EXPECT_EQ(asked_max_retransmission, 30u);
    int probes = 0;
    int size = sizeof probes;
    ::getsockopt(static_cast<SOCKET>(connected_.socket), SOL_SOCKET, SO_KEEPALIVE,
                 reinterpret_cast<char*>(&probes), &size);
    EXPECT_EQ(probes, 1);
}

}  // namespace
}  // namespace tarvik::test
