// The doctor with dongles in Bluetooth range.

#include "conformance/framework/radio.h"
#include "doctor_run.h"

namespace {

class DpduDoctorBluetooth : public DoctorTest {
protected:
    void SetUp() override {
        DoctorTest::SetUp();
        radio_.Simulator::Reset();
    }
    void TearDown() override {
        radio_.Simulator::Reset();
        DoctorTest::TearDown();
    }
    static nlohmann::ordered_json BluetoothConfig() {
        nlohmann::ordered_json config = SerialConfig();
        config["useSerial"] = false;
        config["useBle"] = true;
        return config;
    }

    conformance::Radio radio_;
};

TEST_F(DpduDoctorBluetooth, DongleInRangeIsFineAndStaysDisconnected) {
    const Examined examined = RunWith(BluetoothConfig());
    ExpectFine(examined, "bluetooth-dongle", "02:42:52:4E:58:01 (");
    EXPECT_EQ(radio_.Count("in"), 0u);
    EXPECT_EQ(radio_.Violations(), 0u);
}

TEST_F(DpduDoctorBluetooth, NoDongleInRangeIsWrongOnlyWithoutAnotherTransport) {
    radio_.Unplug();
    ExpectWrong(RunWith(BluetoothConfig()), "bluetooth-none", "2 seconds");
    nlohmann::ordered_json config = BluetoothConfig();
    config["useSerial"] = true;
    EXPECT_TRUE(RunWith(config).Has("bluetooth-none-others", "2 seconds"));
}

TEST_F(DpduDoctorBluetooth, AdapterThatIsSwitchedOffIsWrong) {
    radio_.Command("adapter off");
    ExpectWrong(RunWith(BluetoothConfig()), "bluetooth-off");
}

}  // namespace
