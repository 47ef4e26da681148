// Hosts without standard streams.
#include "conformance/framework/closed_streams.h"

#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/fresh_process.h"

namespace conformance {
namespace {

class ClosedStreams : public RelayFixture {
public:
    static void UseDongleOver(Way way) { UseDongleWithClosedStreams(SettingsFor(way)); }
};

FRESH_PROCESS_TEST(StandardStreams, StayClosedOverTcp) { ClosedStreams::UseDongleOver(Way::kTcp); }

FRESH_PROCESS_TEST(StandardStreams, StayClosedOverASecureWebSocket) {
    ClosedStreams::UseDongleOver(Way::kSecureWebSocket);
}

}  // namespace
}  // namespace conformance
