// The relay's HTTP proxy, seen from a client.

#include <gtest/gtest.h>

#include "device.h"

namespace brennix::test {
namespace {

TEST(RelayProxy, ConnectsToTheRelayByName) {
    RunningRelay relay;
    relay.Command("proxy map relay.test:443 " + relay.Place("TCP"));
    Socket socket(relay.Place("PROXY"));
    socket.Send("CONNECT relay.test:443 HTTP/1.1\r\nHost: relay.test:443\r\n\r\n");
    EXPECT_TRUE(socket.ReadUntil("\r\n\r\n").starts_with("HTTP/1.1 200"));
    EXPECT_EQ(relay.Command("proxy"), "ok {\"requests\":1,\"tunnels\":1}");
}

TEST(RelayProxy, ReportsAnUnknownTarget) {
    RunningRelay relay;
    Socket socket(relay.Place("PROXY"));
    socket.Send("CONNECT nowhere.test:443 HTTP/1.1\r\nHost: nowhere.test:443\r\n\r\n");
    EXPECT_TRUE(socket.ReadUntil("\r\n\r\n").starts_with("HTTP/1.1 502"));
    EXPECT_TRUE(socket.IsAtEnd());
}

TEST(RelayProxy, ForwardsARequestWithAnAbsoluteUrl) {
    RunningRelay relay;
    const std::string server = relay.WebSocketAddress();
    Socket socket(relay.Place("PROXY"));
    socket.Send("GET http://" + server + "/dongles?a=b HTTP/1.1\r\nHost: " + server +
                "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                "Sec-WebSocket-Version: 13\r\n\r\n");
    EXPECT_TRUE(socket.ReadUntil("\r\n\r\n").starts_with("HTTP/1.1 101"));
    EXPECT_EQ(relay.Command("proxy"), "ok {\"requests\":1,\"tunnels\":1}");
    socket.Send(MaskedFrame(0x89, Bytes{7, 8}));  // forwards what follows, in both directions
    EXPECT_EQ(socket.Read(4), (Bytes{0x8A, 2, 7, 8}));
}

TEST(RelayProxy, RejectsOtherMethodsAndMalformedHeads) {
    RunningRelay relay;
    const struct {
        const char* request;
        const char* answer;
    } rows[] = {
        {"GET /dongles HTTP/1.1\r\nHost: a\r\n\r\n", "HTTP/1.1 405"},
        {"nonsense\r\n\r\n", "HTTP/1.1 400"},
    };
    for (const auto& row : rows) {
        Socket socket(relay.Place("PROXY"));
        socket.Send(std::string(row.request));
        EXPECT_TRUE(socket.ReadUntil("\r\n").starts_with(row.answer)) << row.request;
    }
}

TEST(RelayProxy, RejectsAHeadThatIsTooLong) {
    RunningRelay relay;
    Socket socket(relay.Place("PROXY"));
    socket.Send("CONNECT 127.0.0.1:1 HTTP/1.1\r\nHost: " + std::string(9000, 'a'));
    EXPECT_TRUE(socket.ReadUntil("\r\n").starts_with("HTTP/1.1 431"));
}

TEST(RelayProxy, AnswersWithTheSetStatusUntilItIsCleared) {
    RunningRelay relay;
    EXPECT_TRUE(relay.Command("proxy refuse 407").starts_with("ok "));
    const std::string request =
        "CONNECT " + relay.Place("TCP") + " HTTP/1.1\r\nHost: " + relay.Place("TCP") + "\r\n\r\n";
    Socket refused(relay.Place("PROXY"));
    refused.Send(request);
    EXPECT_TRUE(refused.ReadUntil("\r\n\r\n").starts_with("HTTP/1.1 407"));
    EXPECT_TRUE(refused.IsAtEnd());
    EXPECT_TRUE(relay.Command("proxy refuse 0").starts_with("ok "));
    Socket taken(relay.Place("PROXY"));
    taken.Send(request);
    EXPECT_TRUE(taken.ReadUntil("\r\n\r\n").starts_with("HTTP/1.1 200"));
}

TEST(RelayProxy, EndsItsTunnelsOnCommand) {
    RunningRelay relay;
    Socket socket(relay.Place("PROXY"));
    socket.Send("CONNECT " + relay.Place("TCP") + " HTTP/1.1\r\nHost: a\r\n\r\n");
    ASSERT_TRUE(socket.ReadUntil("\r\n\r\n").starts_with("HTTP/1.1 200"));
    EXPECT_EQ(relay.Command("proxy kill"), "ok {\"requests\":1,\"tunnels\":0}");
    EXPECT_TRUE(socket.IsAtEnd());
}

}  // namespace
}  // namespace brennix::test
