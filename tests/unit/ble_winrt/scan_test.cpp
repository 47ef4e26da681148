#include "unit/ble_winrt/fixture.h"

namespace tarvik::test {
namespace {

constexpr std::int32_t kStarted = 1;
constexpr std::int32_t kAborted = 4;

class WinrtScan : public WinrtRadio {
protected:
    void Start() {
        scan = radio->CreateScan(record);
        scan->Start();
    }
    void TearDown() override {
        scan.reset();
        WinrtRadio::TearDown();
    }

    ScanRecord record;
    std::unique_ptr<BleScan> scan;
};

TEST_F(WinrtScan, ReportsAddressSignalStrengthAndName) {
    simulator.Command(R"(radio {"rssi": -71})");
    Start();
    EXPECT_EQ(scan->Status(), kStarted);
    ASSERT_TRUE(Eventually([&] { return !record.Entries().empty(); }));
    const ScanRecord::Entry entry = record.Entries().front();
    EXPECT_EQ(entry.address, kDongleAddress);
    EXPECT_EQ(entry.rssi, -71);
    EXPECT_EQ(entry.name, "Brennix");
    EXPECT_TRUE(record.Errors().empty());
}

TEST_F(WinrtScan, ReportsANameInTheScanResponse) {
    simulator.Command(R"(radio {"name_in_response": true})");
    Start();
    EXPECT_TRUE(Eventually([&] { return record.Heard("Brennix"); }));
}

TEST_F(WinrtScan, ReportsAnAdvertisementWithoutAName) {
    simulator.Command(R"(radio {"name": null})");
    Start();
    ASSERT_TRUE(Eventually([&] { return !record.Entries().empty(); }));
    EXPECT_EQ(record.Entries().front().name, "");
}

TEST_F(WinrtScan, EndsWithStop) {
    Start();
    ASSERT_TRUE(Eventually([&] { return record.Heard("Brennix"); }));
    scan->Stop();
    EXPECT_NE(scan->Status(), kStarted);
    EXPECT_TRUE(Eventually([&] { return RadioSays("\"scanning\":0"); }));
    scan->Stop();  // does nothing
}

TEST_F(WinrtScan, StopsWhenItIsDestroyed) {
    Start();
    scan.reset();
    EXPECT_TRUE(Eventually([&] { return RadioSays("\"scanning\":0"); }));
}

TEST_F(WinrtScan, CanBeFollowedByAnother) {
    for (int i = 0; i < 3; ++i) {
        Start();
        const std::size_t before = record.Entries().size();
        EXPECT_TRUE(Eventually([&] { return record.Entries().size() > before; }));
        scan->Stop();
    }
}

// Stays in its first call until `leave` is opened.
class SlowScanHandler : public BleScan::Handler {
public:
    void Advertised(const BleAdvertisement&) noexcept override {
        ++calls;
        entered.Open();
        leave.Wait();
    }
    void Failed(const BleError&) noexcept override {}

    std::atomic<int> calls{0};
    conformance::Gate entered;
    conformance::Gate leave;
};

TEST_F(WinrtScan, StopWaitsForHandlersAndNoneRunsAfterIt) {
    SlowScanHandler handler;
    scan = radio->CreateScan(handler);
    scan->Start();
    ASSERT_TRUE(handler.entered.Wait());
    conformance::Gate stopped;
    conformance::Thread stopper([&] {
        radio->EnterThread();
        scan->Stop();
        stopped.Open();
        radio->LeaveThread();
    });
    EXPECT_FALSE(stopped.Wait(std::chrono::milliseconds(200)));
    handler.leave.Open();
    EXPECT_TRUE(stopped.Wait());
    // An advertisement that was being delivered when the handler was removed comes now.
    const int calls = handler.calls;
    EXPECT_EQ(TakeReport().find("never removed"), std::string::npos);
    EXPECT_EQ(handler.calls, calls);
}

// ---------------------------------------------------------------- faults

TEST_F(WinrtScan, DoesNotStartWithTheAdapterOff) {
    simulator.Command("adapter off");
    EXPECT_NE(ErrorOf([&] { Start(); }).find("is Bluetooth switched on?"), std::string::npos);
    EXPECT_EQ(scan->Status(), kAborted);
}

TEST_F(WinrtScan, ReportsThatTheAdapterWasSwitchedOff) {
    Start();
    simulator.Command("adapter off");
    ASSERT_TRUE(Eventually([&] { return !record.Errors().empty(); }));
    EXPECT_EQ(record.Errors().front(),
              "The scan was aborted: there is no Bluetooth radio, or it is switched off");
    EXPECT_EQ(scan->Status(), kAborted);
    scan->Stop();
}

TEST_F(WinrtScan, ThrowsTheSystemsTextWhenItCannotStart) {
    for (const char* function :
         {"ActivateInstance", "put_ScanningMode", "add_Received", "add_Stopped", "Start"}) {
        PlanFault(function, "fail 0x80070005");
        const std::string error = ErrorOf([&] { Start(); });
        EXPECT_NE(error.find("0x80070005"), std::string::npos) << function << ": " << error;
        EXPECT_GT(error.size(), sizeof "(0x80070005)") << function << ": " << error;
        scan.reset();
        EXPECT_EQ(TakeReport(), "") << function;
    }
}

// Windows promises none of these.
TEST_F(WinrtScan, SuccessWithoutAnObjectIsAnError) {
    PlanFault("ActivateInstance", "null");
    EXPECT_NE(ErrorOf([&] { Start(); }).find("(0x80004003)"), std::string::npos);
    for (const char* function : {"get_Advertisement", "get_DataSections", "GetAt", "Buffer"}) {
        const std::size_t before = record.Errors().size();
        PlanFault(function, "null");
        Start();
        EXPECT_TRUE(Eventually([&] { return record.Errors().size() > before; })) << function;
        scan.reset();
        EXPECT_NE(record.Errors().back().find("0x80004003"), std::string::npos) << function;
        EXPECT_EQ(TakeReport(), "") << function;
    }
}

TEST_F(WinrtScan, NameWithoutBytesIsNoName) {
    PlanFault("get_Data", "null");
    Start();
    ASSERT_TRUE(Eventually([&] { return !record.Entries().empty(); }));
    EXPECT_EQ(record.Entries().front().name, "");
}

TEST_F(WinrtScan, ReportsAnUnreadableAdvertisement) {
    for (const char* function : {"get_BluetoothAddress", "get_RawSignalStrengthInDBm",
                                 "get_Advertisement", "get_DataSections", "get_Size", "GetAt",
                                 "get_DataType", "get_Data", "get_Length", "Buffer"}) {
        const std::size_t before = record.Errors().size();
        PlanFault(function, "fail 0x8000000E");
        Start();
        EXPECT_TRUE(Eventually([&] { return record.Errors().size() > before; })) << function;
        scan.reset();
        EXPECT_NE(record.Errors().back().find("0x8000000E"), std::string::npos) << function;
        EXPECT_EQ(TakeReport(), "") << function;
    }
}

}  // namespace
}  // namespace tarvik::test
