// The doctor with the Linux Bluetooth service.

#include "conformance/framework/radio.h"
#include "doctor_run.h"

namespace {

class Service : public conformance::Simulator {
public:
    Service() : Simulator("BRENNIX_BLUEZ_CONTROL") {}
};

class DpduDoctorBluez : public DoctorTest {
protected:
    void SetUp() override {
        DoctorTest::SetUp();
        service_.Command("start");
        radio_.Simulator::Reset();
    }
    void TearDown() override {
        service_.Command("mute off");
        service_.Command("start");
        radio_.Simulator::Reset();
        DoctorTest::TearDown();
    }
    static Examined RunWithBluetooth(const Variables& environment = {}) {
        nlohmann::ordered_json config = SerialConfig();
        config["useSerial"] = false;
        config["useBle"] = true;
        WriteConfig(config.dump());
        return RunDoctor({"--library", LibraryUnderTest()}, environment);
    }

    Service service_;
    conformance::Radio radio_;
};

TEST_F(DpduDoctorBluez, WithoutAnAdapterIsWrong) {
    radio_.Command("adapter absent");
    ExpectWrong(RunWithBluetooth(), "bluetooth-adapter", "there is no Bluetooth adapter");
}

TEST_F(DpduDoctorBluez, ThatDoesNotRunIsWrong) {
    service_.Command("stop");
    ExpectWrong(RunWithBluetooth(), "bluetooth-service", "is not running");
}

TEST_F(DpduDoctorBluez, ThatDoesNotAnswerIsWrong) {
    service_.Command("mute on");
    ExpectWrong(RunWithBluetooth(), "bluetooth-silent", "does not answer");
}

TEST_F(DpduDoctorBluez, ThatRefusesThisUserIsWrong) {
    service_.Command("fail 1 StartDiscovery org.freedesktop.DBus.Error.AccessDenied no rights");
    ExpectWrong(RunWithBluetooth(), "bluetooth-rights", "no permission");
}

TEST_F(DpduDoctorBluez, ThatFailsOtherwiseIsWrongAndItsMessageIsShown) {
    service_.Command("fail 1 StartDiscovery org.bluez.Error.Failed out of luck");
    ExpectWrong(RunWithBluetooth(), "bluetooth-failed", "out of luck");
}

TEST_F(DpduDoctorBluez, WithoutTheMessageBusIsWrong) {
    ExpectWrong(RunWithBluetooth({{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/such/bus"}}),
                "bluetooth-bus", "message bus");
}

// The loader takes the first file of this name and gives up, as it is no library.
TEST_F(DpduDoctorBluez, WithoutItsClientLibraryIsWrong) {
    std::ofstream(Folder() / "libsdbus-c++.so.1") << "";
    ExpectWrong(RunWithBluetooth({{"LD_LIBRARY_PATH", TextOf(Folder())}}), "bluetooth-library",
                "libsdbus-c++.so.1 cannot be loaded");
}

}  // namespace
