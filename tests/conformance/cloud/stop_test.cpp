// PDUDestruct while the connection waits for something that does not come.
#include <chrono>

#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/callbacks.h"

namespace conformance {
namespace {

class CloudStop : public EachWay {
protected:
    static std::string LineBeforeConnecting(Way way) {
        return way == Way::kTcp ? "Connecting to 127.0.0.1:*" : "     - Secure:   *";
    }
    static Settings SilentSettingsFor(Way way, const std::string& address) {
        Settings settings = SettingsFor(way);
        if (settings.useProxy) {
            settings.proxyAddress = address;
        } else if (way == Way::kTcp) {
            settings.serverAddress = address;
        } else {
            settings.websocketAddress =
                (way == Way::kSecureWebSocket ? "wss://" : "ws://") + address + "/dongles";
        }
        return settings;
    }
    // Far less than the system itself waits for an answer.
    static void ExpectEndSoon() {
        const auto begin = std::chrono::steady_clock::now();
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        const auto passed = std::chrono::steady_clock::now() - begin;
        EXPECT_LT(passed, std::chrono::seconds(5));
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(passed);
        RecordProperty("stop_ms", static_cast<int>(ms.count()));
    }
};

INSTANTIATE_TEST_SUITE_P(Over, CloudStop, testing::ValuesIn(AllWays()),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(CloudStop, EndsAnUnansweredConnectionAttempt) {
    const SilentPort silent;
    Construct(SilentSettingsFor(GetParam(), silent.Address()));
    ASSERT_TRUE(Eventually([&] { return log_.HasLike(LineBeforeConnecting(GetParam())); }));
    const auto failed = [&] { return log_.Has("[Cloud] Connect failed, retry"); };
    EXPECT_FALSE(Eventually(failed, std::chrono::milliseconds(200)));
    ExpectEndSoon();
    EXPECT_TRUE(log_.Has("[Cloud] ---DISCONNECTED---"));
}

// The callback runs on the thread that receives from the relay, which PDUDestruct cannot wait for.
TEST_P(CloudStop, MayBeCalledFromTheCallbackThatReportsADongle) {
    Construct(SettingsFor(GetParam()));
    ASSERT_TRUE(IsConnected());
    CallbackSpy spy;
    auto ended = std::make_shared<Gate>();
    spy.OnCall([ended](const CallbackCall&) {
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        ended->Open();
    });
    Pdu().PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, spy.Function());
    relay_.Command("login");
    ASSERT_TRUE(ended->Wait());
    EXPECT_TRUE(log_.Has("[Cloud] ---DISCONNECTED---"));

    Construct(SettingsFor(GetParam()));
    EXPECT_TRUE(IsConnected(2));
}

class GivenUp : public CloudStop {};
INSTANTIATE_TEST_SUITE_P(Over, GivenUp, testing::Values(Way::kTcp, Way::kWebSocket),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(GivenUp, ConnectionIsEndedByDestruct) {
    relay_.Listen(false);
    Construct(SettingsFor(GetParam()));
    ASSERT_TRUE(Logs("[Cloud] Failed, waiting for disconnect"));
    ExpectEndSoon();
    EXPECT_TRUE(log_.Has("[Cloud] ---DISCONNECTED---"));
}

}  // namespace
}  // namespace conformance
