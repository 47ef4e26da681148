// The WebSocket client on Boost.Beast, with a relay that this program plays byte by byte.
#include <gtest/gtest.h>
#include <netinet/tcp.h>
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
#include "unit/cloud/loopback_listener.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

constexpr std::uint8_t kBinaryOpcode = 0x2;
constexpr std::uint8_t kPingOpcode = 0x9;
constexpr std::uint8_t kPongOpcode = 0xA;

// ---------------------------------------------------------------- the relay

struct Frame {
    std::uint8_t opcode;
    std::string payload;
};

class PlayedRelay {
public:
    PlayedRelay() = default;
    ~PlayedRelay() {
        if (connection_ >= 0) ::close(connection_);
    }
    PlayedRelay(const PlayedRelay&) = delete;
    PlayedRelay& operator=(const PlayedRelay&) = delete;

    const sockaddr_in& Address() const { return listener_.Address(); }
    std::uint16_t Port() const { return listener_.Port(); }
    void StopListening() const { listener_.Stop(); }

    // Accepts a client and upgrades its connection.
    void Accept() {
        connection_ = listener_.Accept();
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
    void SendPing(const std::string& payload) const {
        const char head[] = {static_cast<char>(0x80 | kPingOpcode),
                             static_cast<char>(payload.size())};
        Send(std::string(head, sizeof head) + payload);
    }

    // The next frame of the client, which must be whole, masked and short. None: patience has run
    // out, or the client has gone.
    std::optional<Frame> NextFrame() const {
        const std::string head = Read(2);
        if (head.size() < 2) return std::nullopt;
        const auto first = static_cast<std::uint8_t>(head[0]);
        const auto second = static_cast<std::uint8_t>(head[1]);
        EXPECT_EQ(first & 0xF0, 0x80);
        EXPECT_EQ(second & 0x80, 0x80);
        EXPECT_LT(second & 0x7F, 126);
        const std::string mask = Read(4);
        std::string payload = Read(second & 0x7Fu);
        for (std::size_t i = 0; i < payload.size(); ++i)
            payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
        return Frame{static_cast<std::uint8_t>(first & 0x0F), payload};
    }
    // Skips others. False: there is none.
    bool EventuallyGets(std::uint8_t opcode, const std::string& payload) const {
        while (const std::optional<Frame> frame = NextFrame()) {
            if (frame->opcode == opcode && frame->payload == payload) return true;
        }
        return false;
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

    const LoopbackListener listener_{4};
    int connection_ = -1;
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
    // Of the client's end of the connection; -1: there is none.
    int OptionOfConnection(int level, int option) const {
        for (int file = 0; file < 1024; ++file) {
            sockaddr_in peer{};
            socklen_t size = sizeof peer;
            if (::getpeername(file, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
            if (peer.sin_port != relay_.Address().sin_port) continue;
            int value = -1;
            size = sizeof value;
            ::getsockopt(file, level, option, &value, &size);
            return value;
        }
        return -1;
    }

    AdjustedLimits limits_;
    ChosenAddresses addresses_;
    PlayedRelay relay_;
    WebSocketClient* client_ = CreateWebSocketClient();
    bool connected_ = false;
    std::atomic<int> received_{0};
    std::optional<Thread> receiver_;
};

// ---------------------------------------------------------------- pongs

class Pongs : public BeastClient {
protected:
    void SetUp() override {
        BeastClient::SetUp();
        addresses_.Add(relay_.Address());
    }
    void ConnectWithPongsEvery(std::int32_t interval_ms) {
        limits_->websocket_pong_ms = interval_ms;
        ConnectToRelay();
    }
};

TEST_F(Pongs, AreSentAgainAndAgainWhileTheConnectionIsIdle) {
    ASSERT_NO_FATAL_FAILURE(ConnectWithPongsEvery(10));
    for (int i = 0; i < 3; ++i) {
        const std::optional<Frame> frame = relay_.NextFrame();
        ASSERT_TRUE(frame.has_value()) << i;
        EXPECT_EQ(frame->opcode, kPongOpcode);
        EXPECT_EQ(frame->payload, "");
    }
}

TEST_F(Pongs, DoNotReplaceTheAnswerToAPing) {
    ASSERT_NO_FATAL_FAILURE(ConnectWithPongsEvery(1));
    for (int i = 0; i < 20; ++i) {
        const std::string text = "ping " + std::to_string(i);
        relay_.SendPing(text);
        ASSERT_TRUE(relay_.EventuallyGets(kPongOpcode, text)) << i;
    }
    EXPECT_TRUE(relay_.EventuallyGets(kPongOpcode, ""));
}

TEST_F(Pongs, LeavePacketsWhole) {
    ASSERT_NO_FATAL_FAILURE(ConnectWithPongsEvery(1));
    for (int i = 0; i < 50; ++i) {
        const std::string packet = "packet " + std::to_string(i);
        ASSERT_EQ(
            SendToWebSocket(client_, packet.data(), static_cast<std::uint32_t>(packet.size())), 0u);
        relay_.Send(std::string("\x82\x01x", 3));
        ASSERT_TRUE(relay_.EventuallyGets(kBinaryOpcode, packet)) << i;
    }
    EXPECT_TRUE(Eventually([this] { return received_ == 50; }));
    EXPECT_TRUE(relay_.EventuallyGets(kPongOpcode, ""));
}

TEST_F(Pongs, AreNotSentBeforeTheirInterval) {
    ASSERT_NO_FATAL_FAILURE(ConnectWithPongsEvery(3'600'000));
    relay_.SendPing("first");
    const std::optional<Frame> frame = relay_.NextFrame();
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->payload, "first");
}

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

TEST_F(BeastConnection, NoticesThatThePeerIsGone) {
    addresses_.Add(relay_.Address());
    ASSERT_NO_FATAL_FAILURE(ConnectToRelay());
    EXPECT_EQ(OptionOfConnection(SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(OptionOfConnection(IPPROTO_TCP, TCP_USER_TIMEOUT), 30'000);
    EXPECT_EQ(OptionOfConnection(IPPROTO_TCP, TCP_NODELAY), 1);
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
