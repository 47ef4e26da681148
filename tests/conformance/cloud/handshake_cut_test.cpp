// The connection ends after each byte that the relay sends for the handshake. A failed attempt
// takes a second, so several clients, each a process of its own, meet the cuts in parallel.
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/rounds.h"

namespace conformance {
namespace {

// An NHS2 with the relay's welcome, and a sealed DEVA.
constexpr std::size_t kHandshakeBytes = 104 + 40;
constexpr std::size_t kStride = Rounds(1, 20, 20);
constexpr std::size_t kClients = Rounds(24, 3, 3);
constexpr char kFailures[] = "failed attempts: ";
// On a busy machine the relay rarely answers after more than a second: the attempt fails, too.
constexpr std::size_t kLateAnswers = 3;

class HandshakeCut : public EachWay {
protected:
    void SetUp() override {
        if (!IsProcessFor(RunningTest())) return EachWay::SetUp();
        Pdu();  // does not reset the relay, which has the cuts
    }

    // Each cuts one connection, whichever comes first.
    std::size_t AddCuts() {
        std::size_t cuts = 0;
        for (std::size_t byte = 1; byte < kHandshakeBytes; byte += kStride, ++cuts)
            relay_.Fault(CutAfter(byte));
        return cuts;
    }
    static std::string CutAfter(std::size_t byte) {
        return "once bytes " + std::to_string(byte) + " cut";
    }

    // ---- the processes ----

    // False: the library has given up, after seven failures.
    bool ComesUp() {
        const std::size_t before = log_.Count("[Cloud] Failed, waiting for disconnect");
        for (;;) {
            if (log_.Has("[Cloud] Connected")) return true;
            if (log_.Count("[Cloud] Failed, waiting for disconnect") > before) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    // Ends with a connection. The caller's test limits the time.
    void RunClient() {
        Construct(SettingsFor(GetParam()));
        while (!ComesUp()) {
            ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
            Construct(SettingsFor(GetParam()));
        }
        const std::size_t failures = log_.Count("[Cloud] Connect failed, retry") +
                                     log_.Count("[Cloud] Failed, waiting for disconnect");
        EXPECT_EQ(failures, log_.Count("[CloudSec] [E] Timeout waiting for HS2") +
                                log_.Count("[CloudSec] [E] Failed to read ident ack"))
            << "an attempt failed for another reason than a missing answer";
        std::fprintf(stderr, "%s%zu\n", kFailures, failures);
    }
    // Returns the number of failed attempts of all clients.
    static std::size_t RunClients() {
        std::size_t failures = 0;
        for (const ProgramRun& run : RunTestInProcesses(RunningTest(), kClients)) {
            EXPECT_EQ(run.exit_code, 0) << run.output;
            const std::size_t at = run.output.find(kFailures);
            if (at == std::string::npos) continue;
            failures += std::strtoul(run.output.c_str() + at + sizeof kFailures - 1, nullptr, 10);
        }
        return failures;
    }
};

INSTANTIATE_TEST_SUITE_P(Over, HandshakeCut, testing::Values(Way::kTcp, Way::kWebSocket),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(HandshakeCut, AfterAnyByteFailsTheAttemptAndALaterOneSucceeds) {
    if (IsProcessFor(RunningTest())) return RunClient();
    const std::size_t cuts = AddCuts();
    const std::size_t failures = RunClients();
    EXPECT_GE(failures, cuts);
    EXPECT_LE(failures, cuts + kLateAnswers);
    EXPECT_EQ(relay_.Command("fault").find("bytes"), std::string::npos) << "cuts are left";
}

TEST_P(HandshakeCut, AfterTheLastByteEndsAConnectionThatComesBack) {
    relay_.Fault(CutAfter(kHandshakeBytes));
    Construct(SettingsFor(GetParam()));
    ASSERT_TRUE(IsConnected(2));
    EXPECT_TRUE(log_.HasLike("[Cloud] *xThread exited. Reconnecting."));
    EXPECT_FALSE(log_.Has("[Cloud] Connect failed, retry"));
    const UNUM32 hMod = ConnectModule();
    EXPECT_TRUE(IsVin(ReadVinOf(hMod)));
}

}  // namespace
}  // namespace conformance
