// The WebSocket client on Boost.Beast, with a relay that this program plays byte by byte.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "transport/cloud/websocket_client.h"
#include "unit/cloud/adjusted_limits.h"
#include "unit/cloud/black_hole.h"
#include "unit/cloud/chosen_addresses.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

// ---------------------------------------------------------------- the relay

class PlayedRelay {
public:
    PlayedRelay() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        auto* generic = reinterpret_cast<sockaddr*>(&address_);
        EXPECT_EQ(::bind(listener_, generic, size), 0);
        EXPECT_EQ(::listen(listener_, 4), 0);
        EXPECT_EQ(::getsockname(listener_, generic, &size), 0);
    }
    ~PlayedRelay() {
        if (connection_ >= 0) ::close(connection_);
        ::close(listener_);
    }
    PlayedRelay(const PlayedRelay&) = delete;
    PlayedRelay& operator=(const PlayedRelay&) = delete;

    const sockaddr_in& Address() const { return address_; }
    std::uint16_t Port() const { return ntohs(address_.sin_port); }
    void StopListening() { ::shutdown(listener_, SHUT_RDWR); }

    // Accepts a client and upgrades its connection.
    void Accept() {
        connection_ = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection_ < 0) return;
        const timeval patience = {kPatience.count(), 0};
        ::setsockopt(connection_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        std::string request;
        while (request.find("\r\n\r\n") == std::string::npos) {
            const std::string more = Read(1);
            if (more.empty()) return;
            request += more;
        }
        Send(
            "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Accept: " +
            AcceptText(request) + "\r\n\r\n");
    }

    void Send(const std::string& bytes) const {
        EXPECT_EQ(::send(connection_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

private:
    std::string Read(std::size_t size) const {
        std::string bytes(size, '\0');
        const ssize_t got = ::recv(connection_, bytes.data(), size, MSG_WAITALL);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }
    static std::string AcceptText(const std::string& request) {
        constexpr std::string_view kName = "Sec-WebSocket-Key: ";
        const std::size_t begin = request.find(kName) + kName.size();
        const std::string text = request.substr(begin, request.find('\r', begin) - begin) +
                                 "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
        std::array<unsigned char, SHA_DIGEST_LENGTH> digest;
        ::SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
        std::array<unsigned char, 32> encoded;
        ::EVP_EncodeBlock(encoded.data(), digest.data(), static_cast<int>(digest.size()));
        return reinterpret_cast<const char*>(encoded.data());
    }

    int listener_;
    int connection_ = -1;
    sockaddr_in address_{};
};

// ---------------------------------------------------------------- the client

class BeastClient : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(client_, nullptr); }
    ~BeastClient() override {
        AbortWebSocket(client_);
        if (receiver_) receiver_->Join();
        CloseWebSocket(client_, nullptr);
    }

    // Returns the error of the step that resolves and connects, and 0 without one.
    std::uint32_t Connect() {
        const WebSocketTarget target = {
            .server = "127.0.0.1",
            .port = relay_.Port(),
            .endpoint = "/",
            .secure = false,
            .check_certificate = true,
            .use_proxy = false,
            .proxy = "",
            .user_agent = "test",
        };
        std::uint32_t send_error = 0;
        const auto report = [](void* context, WebSocketStep step, std::uint32_t error) {
            if (step == WebSocketStep::kSend) *static_cast<std::uint32_t*>(context) = error;
        };
        connected_ = ConnectWebSocket(client_, target, {report, &send_error});
        return send_error;
    }
    // Connects and starts to receive.
    void ConnectToRelay() {
        Thread relay([this] { relay_.Accept(); });
        EXPECT_EQ(Connect(), 0u);
        if (!connected_) relay_.StopListening();
        relay.Join();
        ASSERT_TRUE(connected_);
        receiver_.emplace([this] {
            std::array<std::uint8_t, 64> data;
            std::uint32_t bytes = 0;
            MessageKind kind{};
            while (ReceiveFromWebSocket(client_, data.data(), data.size(), &bytes, &kind) == 0)
                ++received_;
        });
    }
    AdjustedLimits limits_;
    ChosenAddresses addresses_;
    PlayedRelay relay_;
    WebSocketClient* client_ = CreateWebSocketClient();
    bool connected_ = false;
    std::atomic<int> received_{0};
    std::optional<Thread> receiver_;
};

// ---------------------------------------------------------------- connecting

using BeastConnection = BeastClient;

TEST_F(BeastConnection, IsMadePastAnAddressThatDoesNotAnswer) {
    const BlackHole hole;
    addresses_.Add(hole.Address());
    addresses_.Add(relay_.Address());
    limits_->connect_stagger_ms = 10;
    limits_->websocket_connect_s = 10;
    ConnectToRelay();
}

TEST_F(BeastConnection, ReportsThatNoAddressAccepts) {
    relay_.StopListening();
    addresses_.Add(relay_.Address());
    addresses_.Add(relay_.Address());
    EXPECT_EQ(Connect(), kErrorCannotConnect);
}

TEST_F(BeastConnection, ReportsThatTheLimitOfAllAddressesHasPassed) {
    const BlackHole hole;
    addresses_.Add(hole.Address());
    limits_->websocket_connect_s = 0;
    EXPECT_EQ(Connect(), kErrorTimeout);
}

TEST_F(BeastConnection, EndsWithAnAbortWhileNoAddressAnswers) {
    const BlackHole hole;
    addresses_.Add(hole.Address());
    limits_->websocket_connect_s = 3600;
    Thread aborter([this] { AbortWebSocket(client_); });
    const std::uint32_t error = Connect();
    aborter.Join();
    EXPECT_EQ(error, kErrorOperationCancelled);
}

}  // namespace
}  // namespace tarvik::test
