#include <gtest/gtest.h>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

class SilentPort : public SerialDongle {
protected:
    // Constructs again with a dongle that receives and records everything but sends nothing.
    void ConstructWithMutedDongle() {
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        simulator.Command("mute");
        simulator.Command("record clear");
        const LogCapture log;
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        ASSERT_TRUE(Eventually([&] { return log.Has(kGivenUp); }));
        ASSERT_TRUE(Eventually([&] { return log.Has(kClosed); }));
    }
    // Constructs again with a dongle that answers only the third SYNC. False if the library gave
    // the port up.
    bool ConnectsAtTheThirdSync() {
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        simulator.Command("ignore SYNC 2");
        simulator.Command("record clear");
        const LogCapture log;
        EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        bool found = false;
        EXPECT_TRUE(Eventually([&] {
            found = GetModuleIds()->NumEntries > 0;
            return found || log.Has(kGivenUp);
        }));
        return found;
    }
    std::uint64_t Opens() {
        return nlohmann::json::parse(simulator.Command("stats"))[0].at("opens");
    }

    static constexpr char kGivenUp[] =
        "[ConnectSerialPort] COM5: No response from device. Closing again.";
    static constexpr char kClosed[] = "[SerialThreadFunc] COM5 Instance stopped";
};

TEST_F(SilentPort, IsGivenUpAfterThreeSyncs) {
    std::uint64_t syncs = 0;
    ASSERT_TRUE(Eventually([&] {
        StdoutCapture console;
        ConstructWithMutedDongle();
        EXPECT_EQ(console.LinesWith("COM5: "),
                  "COM5: New device detected\n"
                  "COM5: Connecting to new device\n"
                  "COM5: Send SYNC\n"
                  "COM5: Send SYNC\n"
                  "COM5: Send SYNC\n"
                  "COM5: Device did not respond\n");
        syncs = simulator.Count("in SYNC");
        // On a busy machine a SYNC that is not written when the port is closed is lost.
        return syncs >= 3 || HasFailure();
    }));
    EXPECT_EQ(syncs, 3u);
}

TEST_F(SilentPort, IsClosedAndNotListed) {
    const LogCapture log;
    ConstructWithMutedDongle();
    EXPECT_TRUE(Eventually([&] { return log.Has(kClosed); }));
    EXPECT_EQ(GetModuleIds()->NumEntries, 0u);
}

// Reading the module list takes as long as two port scans.
TEST_F(SilentPort, IsNotTriedAgainEvenIfItWouldAnswer) {
    ConstructWithMutedDongle();
    const std::uint64_t opens = Opens();
    const std::uint64_t syncs = simulator.Count("in SYNC");
    simulator.Command("mute off");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(GetModuleIds()->NumEntries, 0u);
    EXPECT_EQ(simulator.Count("in SYNC"), syncs);
    EXPECT_EQ(Opens(), opens);
}

TEST_F(SilentPort, WorksAfterItReappears) {
    const LogCapture log;
    ConstructWithMutedDongle();
    simulator.Command("mute off");
    simulator.Unplug();
    EXPECT_TRUE(Eventually(
        [&] { return log.Has("[SerialConnect]   COM5 got disconnected, set to unused"); }));
    EXPECT_FALSE(log.Has("[SerialConnect]   COM5 Still connected, wait for cleanup"));
    simulator.Replug();
    hMod = FindModule();
    EngineLink link(hMod);
    EXPECT_EQ(link.Request(ReadVin(), PositiveRead()).results.size(), 1u);
}

TEST_F(SilentPort, AnswerToTheThirdSyncIsAccepted) {
    // The library waits 100 ms for the answer, which may be too short on a busy machine.
    ASSERT_TRUE(Eventually([this] { return ConnectsAtTheThirdSync() || HasFailure(); }));
    EXPECT_EQ(simulator.Count("in SYNC"), 3u);
    hMod = FindModule();
    EngineLink link(hMod);
    EXPECT_EQ(link.Request(ReadVin(), PositiveRead()).results.size(), 1u);
}

TEST_F(SilentPort, DestructDuringTheHandshakeEndsInTime) {
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    simulator.Command("mute");
    simulator.Command("record clear");
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    ASSERT_TRUE(simulator.WaitFor(1, "in SYNC"));
    EXPECT_TRUE(EndsInTime([] { Pdu().PDUDestruct(); }));
}

using ForeignPort = SerialDongle;

// Port 9 is also listed, with other ids than the dongle's port.
TEST_F(ForeignPort, IsNeitherOpenedNorLogged) {
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const LogCapture log;
    StdoutCapture console;
    Construct(FirstSettings());
    EXPECT_EQ(GetModuleIds()->NumEntries, 1u);
    EXPECT_TRUE(console.Has("COM5: Connected successfully\n"));
    EXPECT_FALSE(console.Has("COM9"));
    EXPECT_FALSE(console.Has("Failed to open serial port"));
    EXPECT_FALSE(log.HasLike("*COM9*"));
    EXPECT_FALSE(log.HasLike("*port 9*"));
}

}  // namespace
}  // namespace conformance
