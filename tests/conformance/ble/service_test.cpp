// The Linux Bluetooth service: stopped, restarted, silent or refusing.
#include <chrono>
#include <cstdlib>

#include "conformance/ble/ble_fixture.h"
#include "conformance/framework/closed_streams.h"
#include "conformance/framework/fresh_process.h"

namespace conformance {
namespace {

class Service : public Simulator {
public:
    Service() : Simulator("BRENNIX_BLUEZ_CONTROL") {}
};

class BluetoothService : public BleDongles {
protected:
    void SetUp() override {
        service.Command("start");
        BleDongles::SetUp();
    }
    void TearDown() override {
        service.Command("mute off");
        BleDongles::TearDown();
    }
    // A scan that finds nothing and logs the reason.
    void ExpectFailedScan() {
        const LogCapture lines;
        EXPECT_EQ(Scan(), 0);
        EXPECT_TRUE(lines.HasLike("[BLE] BLE scanning failed: *"));
    }

    Service service;
};

TEST_F(BluetoothService, ScanFailsWhileStoppedAndWorksAfterTheStart) {
    service.Command("stop");
    Construct();
    ExpectFailedScan();
    service.Command("start");
    EXPECT_TRUE(ScanUntil(1));
}

TEST_F(BluetoothService, RestartLosesTheConnectionAndTheNextScanFindsTheDongle) {
    Construct();
    ASSERT_TRUE(ScanUntil(1));
    service.Command("stop");
    service.Command("start");
    EXPECT_TRUE(Logs("[BLE] Connection to 02:42:52:4E:58:01 lost"));
    ASSERT_TRUE(ScanUntil(1));
    EXPECT_TRUE(IsVin(VinOf(ModuleOf(0))));
}

TEST_F(BluetoothService, SilenceDelaysDestructOnceAndNotForEachDongle) {
    radio.Reset(3);
    Construct();
    ASSERT_TRUE(ScanUntil(3));
    modules.reset();
    service.Command("mute on");
    EXPECT_TRUE(EndsInTime([] { Pdu().PDUDestruct(); }, std::chrono::seconds(12)));
    for (const char* const call : {"StopNotify", "Disconnect"}) {
        const std::string line =
            std::string("[BLE] ") + call + " failed: the Bluetooth service does not answer*";
        EXPECT_TRUE(Logs(line, 3));
        EXPECT_EQ(log.CountLike(line), 3u);
    }
    service.Command("mute off");
    EXPECT_TRUE(NoneIsConnected());
}

TEST_F(BluetoothService, RefusalOfTheScanIsLogged) {
    Construct();
    service.Command("fail 1 StartDiscovery org.freedesktop.DBus.Error.AccessDenied no rights");
    ExpectFailedScan();
    EXPECT_TRUE(ScanUntil(1));
}

TEST_F(BluetoothService, AbortedConnectionIsTriedAgain) {
    radio.Set(0, R"({"refuse": "le-connection-abort-by-local", "refuse_count": 1})");
    Construct();
    EXPECT_TRUE(ScanUntil(1));  // its login may be too late for the first scan
    EXPECT_FALSE(log.Has("[BLE] Failed to connect to device"));
}

// Registered before the library is loaded, so it runs after the library's own exit handlers, but
// before the configuration's folder is deleted.
void ScanOnceMore() {
    const LogCapture log;
    bool good = Pdu().PDUConstruct(nullptr, nullptr) == PDU_STATUS_NOERROR;
    PDU_MODULE_ITEM* modules = nullptr;
    good = Pdu().PDUGetModuleIds(&modules) == PDU_STATUS_NOERROR && good;
    Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(modules));
    good = Pdu().PDUDestruct() == PDU_STATUS_NOERROR && good;
    if (!good || !log.HasLike("[BLE] BLE scanning failed: * (the process is ending)"))
        std::_Exit(EXIT_FAILURE);
}

TEST(StandardStreams, StayClosedWithADongleOnBluetooth) {
    UseDongleWithClosedStreams([] {
        Radio().Reset();
        return Settings{.useBle = true};
    });
}

FRESH_PROCESS_TEST(BluezProcessEnd, LaterScanFindsNothing) {
    Radio().Reset();
    Settings{.useBle = true}.Store();
    ASSERT_EQ(std::atexit(ScanOnceMore), 0);
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    FindModule();
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
}

}  // namespace
}  // namespace conformance
