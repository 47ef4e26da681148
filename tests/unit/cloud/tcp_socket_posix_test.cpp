// The system's TCP, with a peer on this host, and when the system refuses something.

#include "transport/cloud/tcp_socket.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "transport/cloud/tcp_connect.h"
#include "unit/cloud/black_hole.h"
#include "unit/cloud/loopback_listener.h"
#include "unit/faults/system_call_fault.h"
#include "unit/faults/tracked_memory_fault.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

class Tcp : public testing::Test {
protected:
    Tcp() { EXPECT_EQ(ResolveTcp("127.0.0.1", port_.c_str(), &addresses_), 0); }
    ~Tcp() override { FreeTcpAddresses(addresses_); }

    TcpSocket* Connect() const { return ConnectTcp(*addresses_, never_); }
    TcpSocket* ConnectWhile(const char* function, int error,
                            int failures = SystemCallFault::kAlways) const {
        const SystemCallFault fault(function, error, failures);
        return Connect();
    }

    static int OptionOf(SystemSocket socket, int level, int option) {
        int value = -1;
        socklen_t size = sizeof value;
        EXPECT_EQ(::getsockopt(static_cast<int>(socket), level, option, &value, &size), 0);
        return value;
    }

    const LoopbackListener listener_{4};
    const std::string port_ = std::to_string(listener_.Port());
    TcpAddresses* addresses_ = nullptr;
    const std::atomic<bool> never_{false};
};

// With the peer's end of the connection.
class ConnectedTcp : public Tcp {
protected:
    void SetUp() override {
        socket_ = Connect();
        ASSERT_NE(socket_, nullptr);
        peer_ = listener_.Accept();
        ASSERT_GE(peer_, 0);
    }
    void TearDown() override {
        if (peer_ >= 0) ::close(peer_);
        if (socket_ != nullptr) CloseTcp(socket_);
    }

    TcpWait WaitWhile(int error) const {
        const SystemCallFault fault("poll", error);
        return WaitForTcpData(socket_, 60'000);
    }
    bool SendWhile(int error, int failures = SystemCallFault::kAlways) const {
        const SystemCallFault fault("send", error, failures);
        return SendTcp(socket_, "four", 4);
    }

    TcpSocket* socket_ = nullptr;
    int peer_ = -1;
};

TEST_F(Tcp, AddressesNeedMemory) {
    TcpAddresses* addresses = nullptr;
    int result = 0;
    {
        const RefusedRequests none(1, 1);
        result = ResolveTcp("127.0.0.1", port_.c_str(), &addresses);
    }
    EXPECT_NE(result, 0);
    EXPECT_EQ(addresses, nullptr);
}

TEST_F(Tcp, ConnectionNeedsMemoryAndIsClosedWithoutIt) {
    const int next = NextDescriptor();
    TcpSocket* socket = nullptr;
    {
        const RefusedRequests none(1, 1);
        socket = Connect();
    }
    EXPECT_EQ(socket, nullptr);
    EXPECT_EQ(NextDescriptor(), next);
}

TEST_F(Tcp, IsNotConnectedIfTheSystemRefusesAnyPart) {
    const int next = NextDescriptor();
    EXPECT_EQ(ConnectWhile("socket", EMFILE), nullptr);
    EXPECT_EQ(ConnectWhile("connect", ENETUNREACH), nullptr);
    EXPECT_EQ(ConnectWhile("poll", ENOMEM), nullptr);
    EXPECT_EQ(NextDescriptor(), next);
}

TEST_F(Tcp, SignalDoesNotEndAnAttemptToConnect) {
    TcpSocket* socket = ConnectWhile("poll", EINTR, 2);
    ASSERT_NE(socket, nullptr);
    CloseTcp(socket);
}

TEST_F(Tcp, RefusedConnectionIsNull) {
    listener_.Stop();
    EXPECT_EQ(Connect(), nullptr);
}

TEST_F(Tcp, AddressThatDoesNotAnswerLeavesNoDescriptorBehind) {
    const BlackHole hole;
    addrinfo unanswered = *addresses_->first;
    sockaddr_in address = hole.Address();
    unanswered.ai_addr = reinterpret_cast<sockaddr*>(&address);
    unanswered.ai_next = addresses_->first;
    const TcpAddresses both = {&unanswered};
    const int next = NextDescriptor();
    std::atomic<bool> impatient{false};
    std::atomic<bool> done{false};
    Thread limit([&] { impatient = !Eventually([&] { return done.load(); }); });
    TcpSocket* socket = ConnectTcp(both, impatient);
    done = true;
    limit.Join();
    ASSERT_NE(socket, nullptr);
    CloseTcp(socket);
    EXPECT_EQ(NextDescriptor(), next);
}

TEST_F(Tcp, PeerThatIsGoneIsNoticedAfter30Seconds) {
    const SystemSocket socket = ConnectToFirst(*addresses_, never_, kNoConnectLimit).socket;
    ASSERT_NE(socket, kNoSocket);
    EXPECT_EQ(OptionOf(socket, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(OptionOf(socket, IPPROTO_TCP, TCP_KEEPIDLE), 20);
    EXPECT_EQ(OptionOf(socket, IPPROTO_TCP, TCP_KEEPINTVL), 5);
    EXPECT_EQ(OptionOf(socket, IPPROTO_TCP, TCP_KEEPCNT), 2);
    EXPECT_EQ(OptionOf(socket, IPPROTO_TCP, TCP_USER_TIMEOUT), 30'000);
    SystemClose(socket);
}

// A dead link cannot be had on this host, but to TCP_USER_TIMEOUT a peer that takes nothing is one.
TEST_F(Tcp, PeerThatTakesNothingEndsTheConnection) {
    const SystemSocket socket = ConnectToFirst(*addresses_, never_, kNoConnectLimit).socket;
    ASSERT_NE(socket, kNoSocket);
    SystemDetectDeadPeer(socket, 0, 100);
    const std::vector<char> much(1 << 20, 'x');
    EXPECT_TRUE(Eventually([&] { return SystemSend(socket, much.data(), 1 << 20) < 0; }));
    SystemClose(socket);
}

TEST_F(ConnectedTcp, SignalEndsAWaitAsATimeOutAndAnErrorFailsIt) {
    EXPECT_EQ(WaitWhile(EINTR), TcpWait::kTimeout);
    EXPECT_EQ(WaitWhile(ENOMEM), TcpWait::kFailed);
    EXPECT_EQ(WaitForTcpData(socket_, 0), TcpWait::kTimeout);
}

TEST_F(ConnectedTcp, SendGoesOnAfterASignalAndFailsAtAnError) {
    EXPECT_TRUE(SendWhile(EINTR, 2));
    char bytes[8] = {};
    EXPECT_EQ(::read(peer_, bytes, sizeof bytes), 4);
    EXPECT_STREQ(bytes, "four");
    EXPECT_FALSE(SendWhile(ECONNRESET));
}

TEST_F(ConnectedTcp, SendWaitsUntilThePeerMakesRoom) {
    const std::vector<char> much(16'000'000, 'x');
    std::atomic<bool> sent{false};
    Thread sender([&] { sent = SendTcp(socket_, much.data(), 16'000'000); });
    std::size_t received = 0;
    std::vector<char> piece(1 << 20);
    while (received < much.size()) {
        const ssize_t got = ::read(peer_, piece.data(), piece.size());
        ASSERT_GT(got, 0);
        received += static_cast<std::size_t>(got);
    }
    sender.Join();
    EXPECT_TRUE(sent);
    EXPECT_EQ(received, much.size());
}

TEST_F(ConnectedTcp, AbortEndsASendThatWaitsForRoom) {
    const std::vector<char> much(64'000'000, 'x');
    std::atomic<bool> sent{true};
    Thread sender([&] { sent = SendTcp(socket_, much.data(), 64'000'000); });
    char first = 0;
    EXPECT_EQ(::recv(peer_, &first, 1, MSG_PEEK), 1);
    AbortTcp(socket_);
    sender.Join();
    EXPECT_FALSE(sent);
    EXPECT_FALSE(SendTcp(socket_, "four", 4));
}

TEST_F(ConnectedTcp, PeerThatEndsIsSeenAfterItsLastBytes) {
    ASSERT_EQ(::write(peer_, "end", 3), 3);
    ::close(peer_);
    peer_ = -1;
    EXPECT_TRUE(Eventually([&] {
        return WaitForTcpData(socket_, 100) == TcpWait::kReadable && TcpPeerEnded(socket_);
    }));
    char bytes[8] = {};
    EXPECT_EQ(PeekTcp(socket_, bytes, sizeof bytes), 3);
    EXPECT_EQ(ReadTcp(socket_, bytes, sizeof bytes), 3);
    EXPECT_STREQ(bytes, "end");
    EXPECT_EQ(ReadTcp(socket_, bytes, sizeof bytes), 0);
}

}  // namespace
}  // namespace tarvik::test
