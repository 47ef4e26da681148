#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "conformance/framework/items.h"
#include "conformance/framework/library.h"
#include "conformance/framework/link.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/relay.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/settings.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {

enum class Way { kTcp, kWebSocket, kSecureWebSocket, kProxy, kSecureProxy };

inline std::string NameOf(Way way) {
    switch (way) {
        case Way::kTcp:
            return "Tcp";
        case Way::kWebSocket:
            return "WebSocket";
        case Way::kSecureWebSocket:
            return "SecureWebSocket";
        case Way::kProxy:
            return "Proxy";
        case Way::kSecureProxy:
            return "SecureProxy";
    }
    return "";
}

// A dongle behind the relay that this program was started with. Nothing is constructed yet.
class RelayFixture : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(Relay::TcpAddress().empty()) << "needs a relay";
        Pdu();
        relay_.Reset();
    }
    void TearDown() override { Pdu().PDUDestruct(); }

    static Settings SettingsFor(Way way) {
        Settings settings = {.useCloud = true, .disableCertValidation = true};
        settings.serverPublicKey = Relay::PublicKey();
        settings.useWebsocket = way != Way::kTcp;
        const bool secure = way == Way::kSecureWebSocket || way == Way::kSecureProxy;
        if (way == Way::kTcp) {
            settings.serverAddress = Relay::TcpAddress();
        } else {
            settings.websocketAddress =
                secure ? Relay::SecureWebSocketAddress() : Relay::WebSocketAddress();
        }
        settings.useProxy = way == Way::kProxy || way == Way::kSecureProxy;
        if (settings.useProxy) settings.proxyAddress = Relay::ProxyAddress();
        return settings;
    }
    static void Construct(const Settings& settings) {
        settings.Store();
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    }
    // The module that a scan finds, connected.
    static UNUM32 ConnectModule() {
        const UNUM32 hMod = FindModule();
        EXPECT_NE(hMod, PDU_HANDLE_UNDEF);
        EXPECT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
        return hMod;
    }
    static std::string ReadVinOf(UNUM32 hMod) {
        EngineLink link(hMod);
        const Outcome outcome = link.Request(ReadVin(), PositiveRead());
        return outcome.results.size() == 1 ? Hex(outcome.results[0].data) : "";
    }
    bool Logs(const std::string& line, std::size_t count = 1) {
        return Eventually([&] { return log_.Count(line) >= count; });
    }
    bool IsConnected(std::size_t times = 1) { return Logs("[Cloud] Connected", times); }

    // Number of connections to the relay's proxy since it started.
    std::uint64_t ProxyRequests() {
        return nlohmann::json::parse(relay_.Command("proxy")).at("requests");
    }

    // Number of connections that the relay itself has accepted since it started.
    std::uint64_t RelayConnections() {
        return nlohmann::json::parse(relay_.Command("stats")).at("connections");
    }

    // Whether this is the engine control unit's answer to ReadVin.
    static bool IsVin(const std::string& answer) { return answer.starts_with("62 F1 90 "); }

    Relay relay_;
    LogCapture log_;
    StdoutCapture console_;
};

// All ways to the relay. Under Wine without the proxies: its HTTP service ignores a session's
// proxy.
inline std::vector<Way> AllWays() {
    std::vector<Way> ways = {Way::kTcp, Way::kWebSocket, Way::kSecureWebSocket};
    if (kSpeed != Speed::kWine) ways.insert(ways.end(), {Way::kProxy, Way::kSecureProxy});
    return ways;
}

class EachWay : public RelayFixture, public testing::WithParamInterface<Way> {};

}  // namespace conformance
