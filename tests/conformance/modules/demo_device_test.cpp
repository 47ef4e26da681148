#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/waiting.h"

using namespace conformance;

namespace {

using DemoDevice = LoadedLibrary;

}  // namespace

TEST_F(DemoDevice, IsFoundAndIgnoredByItsModel) {
    Settings{.dummyDevice = true}.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    for (int seen = 0, scans = 0; seen < 2; ++scans) {
        ASSERT_LT(scans, 20);
        const LogCapture log;
        StdoutCapture console;
        const auto modules = GetModuleIds();
        ASSERT_NE(modules, nullptr);
        EXPECT_EQ(modules->NumEntries, 0u);
        if (!log.HasLike("*detected client*")) continue;  // answered too late on a busy machine
        ++seen;
        EXPECT_TRUE(
            log.HasLike("[add_client_cbr] add_client_cbr: detected client 'Demo Device, "
                        "nonfunctional' (MAC: 4D:41:43:41:44:44, Transport: 2)"));
        EXPECT_TRUE(log.Has("[add_client_cbr] Ignoring unsupported device model: 0x00000000"));
        // The answer may be that to the previous scan; this scan's answer will follow.
        EXPECT_TRUE(Eventually([&] { return log.HasLike("[*] Answering as demo device."); }));
        EXPECT_TRUE(log.Has("[UpdateModuleList] Detected 0 devices from transports"));
        EXPECT_TRUE(console.Has("[Dummy] DummyUpdateDevices: scanning for devices"));
        EXPECT_TRUE(
            console.Has("[Dummy] DummyUpdateDevices received: 'Demo Device, "
                        "nonfunctional' with mac 4D:41:43:41:44:44"));
        EXPECT_TRUE(console.Has("[Dummy] DummyUpdateDevices done"));
    }
}

TEST_F(DemoDevice, IsNotScannedWhenSwitchedOff) {
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    StdoutCapture console;
    const auto modules = GetModuleIds();
    EXPECT_EQ(modules->NumEntries, 0u);
    EXPECT_FALSE(console.Has("[Dummy]"));
}
