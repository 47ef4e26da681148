// The WebSocket: its URL, the steps of connecting, and packets in its messages.
#include "transport/cloud/websocket_receive.h"
#include "transport/cloud/websocket_url.h"
#include "unit/cloud/cloud_fixture.h"
#include "unit/cloud/failure_boxes.h"
#include "unit/faults/calendar_fault.h"
#include "unit/faults/tracked_memory_fault.h"

namespace tarvik::test {
namespace {

// ---------------------------------------------------------------- the URL

struct UrlRow {
    std::string text, server;
    std::uint32_t port;
    std::string endpoint;
    bool secure;
};

TEST(WebSocketUrlText, IsSplitIntoItsParts) {
    const UrlRow rows[] = {
        {"ws://relay", "relay", 80, "/", false},
        {"wss://relay", "relay", 443, "/", true},
        {"wss://relay:8443/x:y", "relay", 8443, "/x:y", true},
        {"ws://relay/x:y", "relay", 80, "/x:y", false},
        {"ws://relay:81", "relay", 81, "/", false},
        {"ws://relay:/", "relay", 0, "/", false},
        {"ws://relay:http/", "relay", 0, "/", false},
        {"ws://relay:80x/", "relay", 80, "/", false},
        {"ws://relay:99999/", "relay", 99999, "/", false},
        {"ws://relay:123456789/", "relay", 123456789, "/", false},
        {"ws://relay:-1/", "relay", 0xFFFFFFFF, "/", false},
        {"ws://a:1:2/", "a", 1, "/", false},
        {"ws://", "", 80, "/", false},
        {"ws:///path", "", 80, "/path", false},
        {"ws://relay/a?b=c#d", "relay", 80, "/a?b=c#d", false},
        {"ws://" + std::string(255, 's'), std::string(255, 's'), 80, "/", false},
        {"ws://s/" + std::string(254, 'p'), "s", 80, "/" + std::string(254, 'p'), false},
    };
    for (const UrlRow& row : rows) {
        WebSocketUrl url{};
        ASSERT_TRUE(ParseWebSocketUrl(row.text.c_str(), &url)) << row.text;
        EXPECT_EQ(url.server, row.server) << row.text;
        EXPECT_EQ(url.port, row.port) << row.text;
        EXPECT_EQ(url.endpoint, row.endpoint) << row.text;
        EXPECT_EQ(url.secure, row.secure) << row.text;
    }
}

TEST(WebSocketUrlText, EachRefusalHasItsLogLine) {
    const std::pair<std::string, const char*> rows[] = {
        {"", "Invalid WebSocket URL scheme. Expected ws:// or wss://"},
        {"http://relay", "Invalid WebSocket URL scheme. Expected ws:// or wss://"},
        {"WS://relay", "Invalid WebSocket URL scheme. Expected ws:// or wss://"},
        {"ws:/relay", "Invalid WebSocket URL scheme. Expected ws:// or wss://"},
        {"ws://relay:1234567890", "Port number too long"},
        {"ws://" + std::string(256, 's'), "Server name too long"},
        {"ws://s/" + std::string(255, 'p'), "Endpoint path too long"},
    };
    for (const auto& [text, refusal] : rows) {
        LogCapture log;
        WebSocketUrl url{};
        EXPECT_FALSE(ParseWebSocketUrl(text.c_str(), &url)) << text;
        EXPECT_EQ(log.Lines(), std::vector<std::string>{refusal}) << text;
    }
}

// ---------------------------------------------------------------- connecting

class WebSocketCarrier : public CloudFixture {
protected:
    void SetUp() override {
        CloudFixture::SetUp();
        config.useWebsocket = true;
    }
};

TEST_F(WebSocketCarrier, LogsItsTarget) {
    ASSERT_TRUE(Connect());
    EXPECT_EQ(network_.Target(), "relay.test:4712/dongles");
    for (const char* line : {"Using WebSockets...", "   URL:      'ws://relay.test:4712/dongles'",
                             "     - Server:   'relay.test'", "     - Port:     4712",
                             "     - Endpoint: '/dongles'", "     - Secure:   No"}) {
        EXPECT_TRUE(log_.Has(line)) << line;
    }
    EXPECT_FALSE(log_.Mentions("Proxy"));
    EXPECT_FALSE(log_.Mentions("certificate"));
}

TEST_F(WebSocketCarrier, LogsProxyAndUncheckedCertificates) {
    SetText(config.websocketAddress, "wss://relay.test");
    SetText(config.proxyAddress, "proxy.test:3128");
    config.useProxy = true;
    config.disableCertValidation = true;
    ASSERT_TRUE(Connect());
    EXPECT_TRUE(log_.Has("     - Proxy:    'proxy.test:3128'"));
    EXPECT_TRUE(log_.Has("     - Secure:   Yes"));
    EXPECT_TRUE(log_.Has("   Disabling certificate checks"));
}

TEST_F(WebSocketCarrier, LogsAnInvalidUrl) {
    SetText(config.websocketAddress, "http://relay.test");
    kCloudTransport.Start();
    EXPECT_TRUE(Logs("Failed to parse WebSocket URL"));
    EXPECT_TRUE(Logs("[Cloud] Connect failed, retry"));
}

TEST_F(WebSocketCarrier, EachFailedStepIsLoggedAndTheNextAttemptSucceeds) {
    config.useProxy = true;
    SetText(config.proxyAddress, "proxy.test");
    config.disableCertValidation = true;
    struct Row {
        WebSocketStep step;
        const char* line;
    };
    const Row rows[] = {
        {WebSocketStep::kServerText, "Failed to convert server address to UTF-16"},
        {WebSocketStep::kEndpointText, "Failed to convert server endpoint to UTF-16"},
        {WebSocketStep::kProxyText, "Failed to convert proxy address to UTF-16"},
        {WebSocketStep::kOpen, "WinHttpOpen Failed: 12152"},
        {WebSocketStep::kProxy, "WinHttpSetOption Failed: 12152"},
        {WebSocketStep::kConnect, "WinHttpConnect to relay.test:4712 Failed: 12152"},
        {WebSocketStep::kOpenRequest, "WinHttpOpenRequest Failed: 12152"},
        {WebSocketStep::kCertificates,
         "Failed to set security flags, WinHttpSetOption Failed: 12152"},
        {WebSocketStep::kUpgradeOption, "WinHttpSetOption Failed: 12152"},
        {WebSocketStep::kSend, "WinHttpSendRequest Failed: 12152"},
        {WebSocketStep::kReceive, "WinHttpReceiveResponse Failed: 12152"},
        {WebSocketStep::kComplete, "WinHttpWebSocketCompleteUpgrade Failed: 12152"},
    };
    for (const auto& row : rows) {
        const std::string line = row.line;
        LogCapture log;
        network_.FailWebSocket(row.step, kErrorInvalidResponse, 1);
        EXPECT_TRUE(Connect()) << line;
        EXPECT_EQ(log.Count(line), 1u) << line;
        kCloudTransport.Stop();
    }
}

TEST_F(WebSocketCarrier, StopClosesTheHandlesInOrder) {
    ASSERT_TRUE(Connect());
    kCloudTransport.Stop();
    std::vector<std::string> closed;
    for (const std::string& line : log_.Lines()) {
        if (line.starts_with("WinHttpCloseHandle") || line.starts_with("WebsocketDisconnect")) {
            closed.push_back(line);
        }
    }
    EXPECT_EQ(closed, (std::vector<std::string>{
                          "WinHttpCloseHandle (abort WebSocket)", "WebsocketDisconnect",
                          "WinHttpCloseHandle (connection)", "WinHttpCloseHandle (session)",
                          "WebsocketDisconnect ended"}));
}

// ---------------------------------------------------------------- the message box

std::string ConfigFile() {
    char path[kMaxPath];
    return ResolveConfigPath(path) ? path : "<unknown>";
}

TEST_F(WebSocketCarrier, TwoFailuresWithinTenSecondsShowOneBox) {
    const FailureBoxes boxes;
    network_.FailWebSocket(WebSocketStep::kSend, kErrorNameNotResolved);
    kCloudTransport.Start();
    ASSERT_TRUE(Logs("WinHttpSendRequest Failed: 12007", 3));
    EXPECT_EQ(boxes.Texts().size(), 1u);
    kCloudTransport.Stop();
    AdvanceCalendar(10);
    kCloudTransport.Start();
    EXPECT_TRUE(Eventually([&] { return boxes.Texts().size() == 2; }));
}

TEST_F(WebSocketCarrier, BoxNamesWhatToCheck) {
    struct Row {
        std::uint32_t error;
        bool proxy;
        std::string text;
    };
    const std::string file = "Check config file '" + ConfigFile() + "'.";
    const Row rows[] = {
        {kErrorNameNotResolved, true,
         "Failed to resolve 'relay.test' using Proxy 'proxy.test'.\n"
         "Are you sure the Proxy settings are correct?\n"},
        {kErrorNameNotResolved, false,
         "Failed to resolve 'relay.test'.\nAre you sure the settings are correct?\n"
         "Maybe you need to set the proxy first?\n"},
        {kErrorCannotConnect, true,
         "Failed to connect to 'ws://relay.test:4712/dongles' using Proxy 'proxy.test'.\n"
         "Are you sure the Proxy settings are correct?\n"},
        {kErrorCannotConnect, false,
         "Failed to connect to 'ws://relay.test:4712/dongles'.\n"
         "Are you sure the settings are correct?\n"},
    };
    SetText(config.proxyAddress, "proxy.test");
    for (const Row& row : rows) {
        const FailureBoxes boxes;
        config.useProxy = row.proxy;
        network_.FailWebSocket(WebSocketStep::kSend, row.error);
        kCloudTransport.Start();
        ASSERT_TRUE(Eventually([&] { return !boxes.Texts().empty(); })) << row.text;
        kCloudTransport.Stop();
        EXPECT_EQ(boxes.Texts().at(0), row.text + file);
        EXPECT_EQ(boxes.Captions().at(0), "Tarvik PDU DLL - Connection failure");
    }
}

TEST_F(WebSocketCarrier, OtherFailuresShowNoBox) {
    const FailureBoxes boxes;
    network_.FailWebSocket(WebSocketStep::kSend, kErrorSecureFailure);
    kCloudTransport.Start();
    ASSERT_TRUE(Logs("WinHttpSendRequest Failed: 12175", 2));
    EXPECT_TRUE(boxes.Texts().empty());
}

// ---------------------------------------------------------------- messages

TEST_F(WebSocketCarrier, SendsAPacketAsOneMessage) {
    ASSERT_TRUE(Connect());
    PacketPtr packet = MakePacket(kTypeTspr, 4072);
    ASSERT_TRUE(EnqueueTransmitPacket(&cloud->queues, packet));
    ASSERT_TRUE(network_.EventuallySends(kTypeTspr));
    EXPECT_EQ(network_.Sent().back().size(), 4096u);
}

TEST_F(WebSocketCarrier, ReceivesPacketsHoweverTheyAreDividedIntoMessages) {
    ASSERT_TRUE(Connect());
    Bytes stream;
    for (std::uint8_t i = 0; i < 3; ++i) {
        const Bytes packet = WirePacket(kTypeSync, Bytes(i * std::size_t{5}, i));
        stream.insert(stream.end(), packet.begin(), packet.end());
    }
    for (std::size_t size = 1; size <= stream.size(); ++size) {
        for (std::size_t at = 0; at < stream.size(); at += size) {
            const std::size_t end = std::min(stream.size(), at + size);
            network_.Deliver(Bytes(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                   stream.begin() + static_cast<std::ptrdiff_t>(end)));
        }
        for (std::uint32_t i = 0; i < 3; ++i) {
            const PacketPtr packet = Arrives(kTypeSync);
            ASSERT_NE(packet, nullptr) << size;
            EXPECT_EQ(packet->length, MIN_PKT_SIZE + i * 5);
        }
    }
    EXPECT_EQ(network_.Connections(), 1u);
}

TEST_F(WebSocketCarrier, SkipsOnlyTheHeaderOfAnImpossibleLength) {
    ASSERT_TRUE(Connect());
    for (const std::uint32_t length : {5000u, 7u, 0u, 4097u, 0xFFFFFFFFu})
        network_.Deliver(Header(length));
    network_.Deliver(WirePacket(kTypeSync, {1}));
    EXPECT_NE(Arrives(kTypeSync), nullptr);
    EXPECT_TRUE(
        log_.Has("[WebSocketRxThreadFunc] Invalid packet length: 5000 (min: 8, max: 4096)"));
    EXPECT_EQ(network_.Connections(), 1u);
}

TEST_F(WebSocketCarrier, EndsTheConnectionOnATextMessage) {
    for (const auto& [kind, number] :
         {std::pair{MessageKind::kText, 2}, std::pair{MessageKind::kTextFragment, 3},
          std::pair{MessageKind::kClose, 4}}) {
        LogCapture log;
        ASSERT_TRUE(Connect());
        network_.Deliver({'h', 'i'}, kind);
        const std::string line =
            "[WebSocketReceiveFull] Unexpected buffer type: " + std::to_string(number);
        EXPECT_TRUE(Eventually([&] { return log.Has(line); })) << line;
        EXPECT_TRUE(Eventually([&] { return log.Has("[Cloud] RxThread exited. Reconnecting."); }));
        kCloudTransport.Stop();
    }
}

TEST_F(WebSocketCarrier, ReconnectsWhenTheStreamEndsAfterAnyByteOfAPacket) {
    ExpectReconnectionAfterAnyByteOfAPacket();
    EXPECT_TRUE(log_.Has("[WebSocketRxThreadFunc] Failed to receive header"));
    EXPECT_TRUE(log_.Has("[WebSocketRxThreadFunc] Failed to receive payload"));
    EXPECT_TRUE(log_.Has("[WebSocketReceiveFull] WinHttpWebSocketReceive failed: 12030"));
}

TEST_F(WebSocketCarrier, LogsTheReasonsOfFailedTransfers) {
    ASSERT_TRUE(Connect());
    network_.FailReceiving(kErrorInvalidOperation);
    EXPECT_TRUE(Logs("[WebSocketReceiveFull] ERROR_WINHTTP_OPERATION_CANCELLED, error: 4317"));
    ASSERT_TRUE(Logs("[Cloud] Connected", 2));
    network_.FailSending(kErrorOperationCancelled);
    network_.Deliver(WirePacket(kTypePing));
    EXPECT_TRUE(Logs("[WebSocketTxThreadFunc] ERROR_WINHTTP_OPERATION_CANCELLED, error: 12017"));
    ASSERT_TRUE(Logs("[Cloud] Connected", 3));
    network_.FailSending(kErrorTimeout);
    network_.Deliver(WirePacket(kTypePing));
    EXPECT_TRUE(Logs("[WebSocketTxThreadFunc] ret: 12002, GetLastError: 12002"));
}

// The rest of the packet would be taken for headers.
TEST_F(WebSocketCarrier, PacketWithoutMemoryForItFailsTheReception) {
    std::uint8_t header[MIN_PKT_SIZE];
    StoreU32(header, kTypePing);
    StoreU32(header + 4, 64);
    const WebSocketSource source = {
        [](void* context, void* data, std::uint32_t size, std::uint32_t* bytes, MessageKind* kind) {
            std::memcpy(data, context, size);
            *bytes = size;
            *kind = MessageKind::kBinary;
            return std::uint32_t{0};
        },
        header};
    PacketPtr packet;
    bool received = true;
    {
        const RefusedRequests none(1, 1'000);
        received = ReceiveWebSocketPacket(source, &packet);
    }
    EXPECT_FALSE(received);
    EXPECT_EQ(packet, nullptr);
    EXPECT_TRUE(log_.Has("[WebSocketRxThreadFunc] Failed to realloc"));
}

TEST_F(WebSocketCarrier, ReadingNothingSucceedsAtOnce) {
    std::uint32_t received = 1;
    EXPECT_TRUE(WebSocketReceiveFull({nullptr, nullptr}, nullptr, 0, &received));
    EXPECT_EQ(received, 0u);
}

}  // namespace
}  // namespace tarvik::test
