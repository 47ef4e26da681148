// Hosts without standard streams.
#include "conformance/framework/closed_streams.h"

#include "conformance/cloud/relay_fixture.h"

namespace conformance {
namespace {

// Not a fixture, which would load the library while the streams are open.
struct RelaySettings : RelayFixture {
    using RelayFixture::SettingsFor;
};

TEST(StandardStreams, StayClosedOverTcp) {
    UseDongleWithClosedStreams([] { return RelaySettings::SettingsFor(Way::kTcp); });
}

TEST(StandardStreams, StayClosedOverASecureWebSocket) {
    UseDongleWithClosedStreams([] { return RelaySettings::SettingsFor(Way::kSecureWebSocket); });
}

}  // namespace
}  // namespace conformance
