// The Linux Bluetooth service: stopped, restarted, silent or refusing.
#include <chrono>

#include "conformance/ble/ble_fixture.h"

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

}  // namespace
}  // namespace conformance
