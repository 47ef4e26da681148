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

FRESH_PROCESS_TEST(CloudProcessEnd, MayComeWhileRequestsRunOverASecureWebSocket) {
    EndingProcess::RequestOver(Way::kSecureWebSocket);
}

}  // namespace
}  // namespace conformance
