#include <gtest/gtest.h>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"
#include "conformance/replug/recovery.h"

namespace conformance {
namespace {

class Unplug : public SerialDongle {
protected:
    // Steps 2 and 3 of the recovery, and the module part of step 4.
    void Recover() {
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        Construct(FirstSettings());
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
    }

    // A request that the dongle has received and will not answer.
    UNUM32 StartUnanswered(Link* link) {
        simulator.Command(R"(next 1 {"lost": true})");
        const UNUM32 hCoP = link->StartRequest(ReadVin(), PositiveRead());
        EXPECT_TRUE(simulator.WaitFor(1, "in CREQ"));
        return hCoP;
    }

    void ExpectFirstRequestToSucceed() {
        EngineLink link(hMod);
        const Outcome outcome = link.Request(ReadVin(), PositiveRead());
        EXPECT_EQ(outcome.results.size(), 1u);
        EXPECT_TRUE(outcome.errors.empty());
        EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    }
};

TEST_F(Unplug, HandlesOfTheModuleAndItsLinksStayValid) {
    EngineLink link(hMod);
    simulator.Unplug();
    ASSERT_TRUE(ScanUntilNotAvailable(hMod));
    PDU_VERSION_DATA version{};
    EXPECT_EQ(Pdu().PDUGetVersion(hMod, &version), PDU_STATUS_NOERROR);
    EXPECT_EQ(link.State(), PDU_CLLST_ONLINE);
    EXPECT_EQ(link.Disconnect(), PDU_STATUS_NOERROR);
    EXPECT_EQ(link.Connect(), PDU_STATUS_NOERROR);
}

TEST_F(Unplug, PortIsStoppedWhenItsDeviceLeavesTheList) {
    const LogCapture log;
    simulator.Command("unplug device");
    EXPECT_TRUE(Eventually(
        [&] { return log.Has("[SerialConnect]   COM5 Still connected, wait for cleanup"); }));
    EXPECT_TRUE(Eventually([&] { return log.Has("[SerialThreadFunc] COM5 Instance stopped"); }));
    EXPECT_TRUE(Eventually([&] {
        return log.HasLike("[SerialConnect] Closing Thread handle 0x* (MonitorThread) for port 5");
    }));
    EXPECT_EQ(log.MissingOf({
                  "[SerialConnect]   COM5 Still connected, wait for cleanup",
                  "[SerialThreadFunc] COM5 Instance is stopping, waiting for threads",
                  "[SerialThreadFunc] Closing Thread handle 0x* (TxThread) for port 5",
                  "[SerialThreadFunc] Closing Thread handle 0x* (RxThread) for port 5",
                  "[SerialThreadFunc] COM5 Instance stopped",
              }),
              "");
}

TEST_F(Unplug, ReappearingPortIsConnectedLikeANewOne) {
    simulator.Unplug();
    ASSERT_TRUE(ScanUntilNotAvailable(hMod));
    const LogCapture log;
    StdoutCapture console;
    const std::uint64_t syncs = simulator.Count("in SYNC");
    simulator.Replug();
    EXPECT_TRUE(simulator.WaitFor(syncs + 1, "in SYNC"));
    EXPECT_TRUE(EventuallyConnected([&] { return log.Has("[SerialRxThreadFunc] Synchronized"); }));
    EXPECT_TRUE(EventuallyConnected([&] {
        GetModuleIds();
        return log.Has("[UpdateModuleList] Updating existing device at index 0");
    }));
    const std::string& text = console.Text();
    std::size_t at = 0;
    for (const char* line :
         {"COM5: New device detected\n", "COM5: Connecting to new device\n", "COM5: Send SYNC\n",
          "Synchronized\n", "COM5: Connected successfully\n"}) {
        at = text.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << text;
    }
}

TEST_F(Unplug, RecoverySequenceMakesTheFirstRequestSucceed) {
    simulator.Unplug();
    ASSERT_TRUE(ScanUntilNotAvailable(hMod));
    simulator.Replug();
    Recover();
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_READY);
    ExpectFirstRequestToSucceed();
}

TEST_F(Unplug, RecoverySucceedsWhenTheDongleComesBackAfterTheConstruct) {
    simulator.Unplug();
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(GetModuleIds()->NumEntries, 0u);
    simulator.Replug();
    hMod = FindModule();
    ExpectFirstRequestToSucceed();
}

// Otherwise the exchange would wait three times ten seconds.
TEST_F(Unplug, RequestInFlightEndsWithError257) {
    EngineLink link(hMod);
    const UNUM32 hCoP = StartUnanswered(&link);
    simulator.Unplug();
    ExpectError(link.WaitFor(hCoP), 0x101);
}

TEST_F(Unplug, FunctionalRequestInFlightEndsWithError259) {
    CarLink link(hMod);
    const UNUM32 hCoP = StartUnanswered(&link);
    simulator.Unplug();
    ExpectError(link.WaitFor(hCoP), 0x103);
}

TEST_F(Unplug, QueuedRequestsAllEndWithError257) {
    EngineLink link(hMod);
    std::vector<UNUM32> handles = {StartUnanswered(&link)};
    for (int i = 1; i < 20; ++i)
        handles.push_back(link.StartRequest(ReadVin(), PositiveRead()));
    simulator.Unplug();
    for (const UNUM32 hCoP : handles)
        ExpectError(link.WaitFor(hCoP), 0x101);
}

TEST_F(Unplug, RequestWithoutADongleEndsWithError257) {
    EngineLink link(hMod);
    simulator.Unplug();
    ASSERT_TRUE(ScanUntilNotAvailable(hMod));
    ExpectError(link.Request(ReadVin(), PositiveRead()), 0x101);
}

// The answer has 40 bytes: 8 of the header, 12 of fixed fields, 20 of data.
TEST_F(Unplug, DongleLostDuringAnAnswerEndsTheRequestAndCanReturn) {
    for (const char* cut : {"cut 1", "cut 7", "cut 8", "cut 9", "cut 20", "cut 39"}) {
        SCOPED_TRACE(cut);
        {
            EngineLink link(hMod);
            simulator.Command(cut);
            ExpectError(link.Request(ReadVin(), PositiveRead()), 0x101);
        }
        ASSERT_TRUE(ScanUntilNotAvailable(hMod));
        EXPECT_EQ(GetModuleIds()->pModuleData[0].ModuleStatus, PDU_MODST_AVAIL);
        simulator.Replug();
        Recover();
        ExpectFirstRequestToSucceed();
    }
}

TEST_F(Unplug, PartOfAFragmentedAnswerIsDiscarded) {
    EngineLink link(hMod);
    simulator.Command(R"(behaviour {"fragment": 20})");
    simulator.Command("cut 50");  // the third fragment of 20 bytes is incomplete
    ExpectError(link.Request(ReadVin(), PositiveRead()), 0x101);
    simulator.Replug();
    Recover();
    ExpectFirstRequestToSucceed();
}

TEST_F(Unplug, AnswerInSmallPiecesIsNotTakenForAnUnplug) {
    EngineLink link(hMod);
    simulator.Command("pieces 1 2");
    EXPECT_EQ(link.Request(ReadVin(), PositiveRead()).results.size(), 1u);
}

TEST_F(Unplug, ReceiverLooksForSyncAfterAnOversizedHeaderAndKeepsThePort) {
    EngineLink link(hMod);
    const auto opens = [this] {
        return nlohmann::json::parse(simulator.Command("stats"))[0].at("opens");
    };
    const nlohmann::json before = opens();
    const LogCapture log;
    simulator.Command("send 53455243 88130000");  // length 5000
    EXPECT_TRUE(
        Eventually([&] { return log.Has("[SerialRxThreadFunc] Invalid header size 5000"); }));
    simulator.Command("garbage 100");
    EXPECT_TRUE(Eventually([&] { return log.Has("[SerialRxThreadFunc] Synchronized"); }));
    EXPECT_EQ(link.Request(ReadVin(), PositiveRead()).results.size(), 1u);
    EXPECT_EQ(opens(), before);
}

TEST_F(Unplug, NextScanReconnectsAPortThatStoppedByItself) {
    const LogCapture log;
    StdoutCapture console;
    const std::uint64_t syncs = simulator.Count("in SYNC");
    simulator.Command("packet CRYP 00112233445566778899AABBCCDDEEFF");
    EXPECT_TRUE(Eventually([&] { return log.Has("[SerialThreadFunc] COM5 Instance stopped"); }));
    EXPECT_TRUE(simulator.WaitFor(syncs + 1, "in SYNC"));
    // There was no scan meanwhile, so the module stays available.
    EXPECT_TRUE(EventuallyConnected([&] { return log.Has("[SerialRxThreadFunc] Synchronized"); }));
    ExpectFirstRequestToSucceed();
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_AVAIL);
    EXPECT_TRUE(console.Has("Decryption failed\n"));
    EXPECT_FALSE(log.Has("[SerialConnect]   COM5 Still connected, wait for cleanup"));
}

TEST_F(Unplug, DestructRightAfterAnUnplugEndsInTime) {
    EngineLink link(hMod);
    simulator.Unplug();
    EXPECT_TRUE(EndsInTime([] { Pdu().PDUDestruct(); }));
    simulator.Replug();
    Construct(FirstSettings());
    ExpectFirstRequestToSucceed();
}

}  // namespace
}  // namespace conformance
