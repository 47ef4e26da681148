// The relay is lost a thousand times. A loss takes the library four pauses of 100 ms, so several
// clients, each a process of its own, meet them in parallel, half of them over a WebSocket.
#include <chrono>
#include <cstdio>
#include <thread>

#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/steadiness.h"

namespace conformance {
namespace {

constexpr std::size_t kClients = Rounds(20, 2, 2);
constexpr std::uint32_t kLosses = Rounds(50, 15, 15);  // of each
constexpr std::uint32_t kWarmUp = Rounds(10, 5, 5);
constexpr std::uint32_t kRequestEvery = 5;
// A few pages. If every loss left something behind, it would be more.
constexpr Allowance kAllowance = {.memory = 64 << 10};

class RelayLosses : public RelayFixture {
protected:
    void SetUp() override {
        if (!IsProcessFor(RunningTest())) return RelayFixture::SetUp();
        Pdu();  // does not reset the relay, which has other clients
    }

    // The relay's name for this device, which has made its key by now.
    std::string OwnDevice() {
        constexpr char kBegin[] = "[CloudSec] [I] Sending device identification: UUID=";
        std::string device;
        for (const std::string& line : log_.Lines()) {
            if (line.starts_with(kBegin)) device = line.substr(sizeof kBegin - 1);
        }
        EXPECT_FALSE(device.empty()) << "no identification is logged";
        std::erase(device, ':');
        return device;
    }
    // The number of this client's connection after this one; 0: there is none yet.
    std::uint64_t ConnectionAfter(std::uint64_t other) {
        for (const auto& client : nlohmann::json::parse(relay_.Command("clients"))) {
            const auto number = client["client"].get<std::uint64_t>();
            if (client["device"] == device_ && client["user"] != "" && number > other) {
                return number;
            }
        }
        // Shorter than the library takes to reconnect, and bearable for the relay that all clients
        // ask.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return 0;
    }
    void AwaitConnection() {
        const std::uint64_t other = connection_;
        ASSERT_TRUE(Eventually([&] { return (connection_ = ConnectionAfter(other)) != 0; }));
    }
    void LoseRelay() {
        relay_.Command("#" + std::to_string(connection_) + " kill");
        AwaitConnection();
    }
    void Ask(Link* link) const {
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod_), PDU_STATUS_NOERROR);
        const Outcome outcome = link->Request(ReadVin(), PositiveRead());
        ASSERT_EQ(outcome.results.size(), 1u);
        EXPECT_TRUE(IsVin(Hex(outcome.results[0].data)));
    }
    void RunClient() {
        Construct(SettingsFor(ProcessNumber() % 2 == 0 ? Way::kTcp : Way::kWebSocket));
        hMod_ = FindModule();
        device_ = OwnDevice();
        AwaitConnection();
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod_), PDU_STATUS_NOERROR);
        EngineLink link(hMod_);  // one for all: the library keeps some memory of each link
        ProcessFigures before;
        for (std::uint32_t i = 0; i < kWarmUp + kLosses && !HasFailure(); ++i) {
            LoseRelay();
            if (i % kRequestEvery == 0) Ask(&link);
            if (i + 1 == kWarmUp) before = MeasureProcess();
        }
        const ProcessFigures after = MeasureSettled(before, kAllowance);
        console_.Text();
        ExpectSteady(std::to_string(kLosses) + " losses", before, after, kAllowance);
    }

    UNUM32 hMod_ = PDU_HANDLE_UNDEF;
    std::string device_;
    std::uint64_t connection_ = 0;
};

TEST_F(RelayLosses, LeaveNothingBehindAndRequestsAfterThemSucceed) {
    if (IsProcessFor(RunningTest())) return RunClient();
    for (const ProgramRun& run : RunTestInProcesses(RunningTest(), kClients)) {
        EXPECT_EQ(run.exit_code, 0) << run.output;
        const std::size_t at = run.output.find(std::to_string(kLosses) + " losses: ");
        ASSERT_NE(at, std::string::npos) << run.output;
        std::fprintf(stderr, "%s\n", run.output.substr(at, run.output.find('\n', at) - at).c_str());
    }
}

}  // namespace
}  // namespace conformance
