#include "conformance/framework/process_end.h"

#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/fresh_process.h"

namespace conformance {
namespace {

class EndingProcess : public RelayFixture {
public:
    static void RequestOver(Way way) {
        ExitWhileRequestsRun();
        Relay().Reset();
        Construct(SettingsFor(way));
        KeepRequesting(ConnectModule());
    }
};

FRESH_PROCESS_TEST(CloudProcessEnd, MayComeWhileRequestsRunOverTcp) {
    EndingProcess::RequestOver(Way::kTcp);
}

TEST(CloudProcessEnd, MayComeWhileRequestsRunOverASecureWebSocket) {
    if (IsProcessFor(RunningTest())) return EndingProcess::RequestOver(Way::kSecureWebSocket);
    // OpenSSL frees nothing of what it allocates after its own exit handler.
    const ProgramRun run =
        RunTestInFreshProcess(RunningTest(), {{"ASAN_OPTIONS", "detect_leaks=0"}});
    EXPECT_EQ(run.exit_code, 0) << run.output;
}

}  // namespace
}  // namespace conformance
