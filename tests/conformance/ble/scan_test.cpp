// Which dongles a scan finds, and how it reports the others.
#include "conformance/ble/ble_fixture.h"

namespace conformance {
namespace {

using BleScan = BleDongles;

constexpr char kWorks[] =
    R"({"refuse": "", "service": true, "characteristic": true, "services_status": 0, )"
    R"("subscribe_status": 0})";

TEST_F(BleScan, FindsADongleByItsAdvertisementAndAsksItsCar) {
    Construct();
    ASSERT_TRUE(ScanUntil(1));
    ASSERT_EQ(modules->NumEntries, 1u);
    const UNUM32 hMod = ModuleOf(0);
    EXPECT_STREQ(modules->pModuleData[0].pVendorModuleName,
                 "VendorName='Tarvik' ModuleName='Brennix demo' SerialNumber='02:42:52:4E:58:01' "
                 "PersonalVciID='Brennix demo' ConnectionType='BLE' Status='available'");
    EXPECT_STREQ(modules->pModuleData[0].pVendorAdditionalInfo, "Interface='Bluetooth'");
    ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
    EXPECT_TRUE(IsVin(VinOf(hMod)));
    EXPECT_TRUE(log.Has("[BLE] Started BLE scanning, status: 1"));
    EXPECT_EQ(log.MissingOf({"[BLE] BleUpdateDevices: scanning for devices (timeout: 2000 ms)",
                             "[BLE] Found Brennix device: 02:42:52:4E:58:01, RSSI: -60 dBm",
                             "[BLE] Stopped BLE scanning, found 1 potential devices",
                             "[BLE] Connecting to device: 02:42:52:4E:58:01",
                             "[BLE] Found target characteristic", "[BLE] Notifications enabled",
                             "[BLE] Device connected and ready",
                             "[BLE] Successfully connected and added device",
                             "[BLE] BleUpdateDevices complete, added 1 devices"}),
              "");
}

TEST_F(BleScan, ConnectsOnceADongleThatAdvertisesRepeatedlyOrWhileConnected) {
    radio.Set(0, R"({"advertises_connected": true, "interval_ms": 5})");
    Construct();
    ASSERT_TRUE(ScanUntil(1));
    EXPECT_EQ(Scan(), 1);
    EXPECT_GE(radio.State()["advertised"].get<int>(), 2);
    EXPECT_EQ(Connections(), 1);
    EXPECT_EQ(modules->NumEntries, 1u);
}

TEST_F(BleScan, IgnoresOtherNamesAndReadsANameInTheScanResponse) {
    radio.Reset(6);
    radio.Set(0, R"({"name_in_response": true})");
    radio.Set(1, R"({"name": "Brennix 2"})");
    radio.Set(2, R"({"name": "Brenni"})");
    radio.Set(3, R"({"name": "brennix"})");
    radio.Set(4, R"({"name": null})");
    radio.Set(5, R"({"name": ""})");
    Construct();
    ASSERT_TRUE(ScanUntil(1));
    EXPECT_NE(ModuleOf(0), PDU_HANDLE_UNDEF);
    EXPECT_EQ(radio.Connected(), 1);
    EXPECT_EQ(log.CountLike("[BLE] Found Brennix device: *"), 1u);
}

// Each of the other dongles fails in its own way.
TEST_F(BleScan, ReportsOnlyDonglesThatAnswerAndTheOthersWhenTheyDo) {
    radio.Reset(8);
    radio.Set(1, R"({"refuse": "no"})");
    radio.Set(2, R"({"service": false})");
    radio.Set(3, R"({"characteristic": false})");
    radio.Set(4, R"({"subscribe_status": 3})");
    radio.Set(5, R"({"services_status": 1})");
    // Enough for however many scans dongle 0 needs to answer.
    radio.Run(6, R"(dongle {"busy_identify": 1000})");
    radio.Run(7, "ignore IDEN 1000");
    Construct();
    ASSERT_TRUE(ScanUntil(1));
    EXPECT_NE(ModuleOf(0), PDU_HANDLE_UNDEF);
    EXPECT_TRUE(log.Has("[BLE] Failed to connect to device"));
    EXPECT_TRUE(log.Has("[BLE] Target service not found"));
    EXPECT_TRUE(log.Has("[BLE] Target characteristic not found"));
    EXPECT_TRUE(log.Has("[BLE] Failed to enable notifications"));
    EXPECT_TRUE(log.Has("[BLE] Device returned BUSY"));
    EXPECT_TRUE(log.Has("[BLE] Timeout waiting for login packet"));
    EXPECT_EQ(radio.Connected(), 3);

    for (int dongle = 1; dongle < 6; ++dongle)
        radio.Set(dongle, kWorks);
    radio.Run(6, R"(dongle {"busy_identify": 0})");
    radio.Run(7, "ignore IDEN 0");
    EXPECT_TRUE(ScanUntil(8));
}

TEST_F(BleScan, ScanFindsNothingWhenTheAdapterIsOffOrAbsent) {
    Construct();
    for (const char* const state : {"off", "absent"}) {
        radio.Command(std::string("adapter ") + state);
        const LogCapture lines;
        EXPECT_TRUE(Eventually([&] {
            EXPECT_EQ(Scan(), 0);
            return lines.HasLike("[BLE] BLE scanning failed: *");
        })) << state;
    }
    radio.Command("adapter on");
    EXPECT_TRUE(ScanUntil(1));
}

TEST_F(BleScan, FindsTheDongleAgainAfterASecondConstruct) {
    for (int round = 0; round < 2; ++round) {
        Construct();
        ASSERT_TRUE(ScanUntil(1));
        EXPECT_TRUE(IsVin(VinOf(ModuleOf(0))));
        modules.reset();
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        EXPECT_TRUE(NoneIsConnected());
    }
}

TEST_F(BleScan, DestructEndsARunningScan) {
    Construct();
    ASSERT_EQ(radio.Connected(), 0);
    Thread scanning([] { GetModuleIds(); });
    ASSERT_TRUE(Eventually([&] { return radio.State()["scanning"].get<int>() == 1; }));
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(Eventually([&] { return radio.State()["scanning"].get<int>() == 0; }));
}

}  // namespace
}  // namespace conformance
