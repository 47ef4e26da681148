// The transport over BlueZ: failures of the service and the bus. Runs with a simulated dongle and
// org.bluez on a private bus.
#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "conformance/framework/simulator.h"
#include "link/fragmentation.h"
#include "unit/ble/transport_fixture.h"
#include "unit/link/link_support.h"
#include "unit/test_system.h"

// The back end's time limits: the library's own, unless a test shortens them.
#define GetBluezLimits LibraryBluezLimits
#include "transport/ble/bluez_limits.cpp"
#undef GetBluezLimits

namespace tarvik {
namespace {

std::atomic<const BluezLimits*> shortened{nullptr};

}  // namespace

const BluezLimits& GetBluezLimits() {
    const BluezLimits* limits = shortened;
    return limits != nullptr ? *limits : LibraryBluezLimits();
}

namespace test {
namespace {

// Uses these limits while it lives.
class ShortLimits {
public:
    explicit ShortLimits(const BluezLimits& limits) : limits_(limits) { shortened = &limits_; }
    ~ShortLimits() { shortened = nullptr; }
    ShortLimits(const ShortLimits&) = delete;
    ShortLimits& operator=(const ShortLimits&) = delete;

private:
    const BluezLimits limits_;
};

constexpr std::uint32_t kScanMs = 60;  // some advertisements
constexpr std::uint32_t kTypeTest = TypeCode("TEST");
constexpr std::uint64_t kDongle = 0x0242524E5801;

class BluezService : public conformance::Simulator {
public:
    BluezService() : Simulator("BRENNIX_BLUEZ_CONTROL") {}
    void Fail(int count, const std::string& method, const std::string& error,
              const std::string& text) {
        Command("fail " + std::to_string(count) + " " + method + " " + error + " " + text);
    }
};

class BluezTest : public BleTransportFixture {
protected:
    void SetUp() override {
        bluez_.Command("start");
        radio_.Reset();
        radio_.Command(R"(radio {"interval_ms": 10})");
        BleTransportFixture::SetUp();
    }
    void TearDown() override {
        bluez_.Command("start");
        BleTransportFixture::TearDown();
        EXPECT_EQ(radio_.Violations(), 0u);
    }

    static std::vector<DeviceReport> Scan() { return ScanFor(kScanMs); }
    // A scan that hears the dongle: on a busy machine not every scan does.
    static std::vector<DeviceReport> ScanThatHears() {
        std::vector<DeviceReport> reports;
        EXPECT_TRUE(Eventually([&] {
            const LogCapture log;
            reports = Scan();
            return log.Mentions("[BLE] Connecting to device: ");
        }));
        return reports;
    }
    // Scans until the dongle is found: after a loss it takes a moment to advertise again.
    static DeviceQueues* Connect() {
        std::vector<DeviceReport> reports;
        Eventually([&] {
            reports = Scan();
            return !reports.empty();
        });
        EXPECT_EQ(reports.size(), 1u);
        return reports.empty() ? nullptr : reports[0].queues;
    }
    // The service has been asked to connect the dongle, which takes its time.
    bool ConnectionBegins() {
        return Eventually(
            [this] { return Contains(radio_.Command("radio"), "\"connecting\":true"); });
    }
    // A scan that finds nothing and logs the reason.
    void ExpectScanFails(const std::string& why) {
        LogCapture log;
        EXPECT_EQ(Scan().size(), 0u);
        EXPECT_TRUE(log.Mentions("[BLE] BLE scanning failed: " + why)) << log.Text();
    }
    // As above, for a scan that an event ends.
    template <typename Event>
    void ExpectScanFailsWhen(Event happens) {
        DuringAScan(happens, [this] { ExpectScanFails(""); });
    }
    // The scan lasts until `happens` has returned. Time is set forward again and again, since the
    // scan may look at its beginning only after the first time.
    template <typename Event, typename Run>
    void DuringAScan(Event happens, Run run) {
        FakeTick tick(TickMs());
        std::atomic<bool> over{false};
        Thread scan([&over, run] {
            run();
            over = true;
        });
        EXPECT_TRUE(Logs("[BLE] Started BLE scanning, status: 1"));
        happens();
        EXPECT_TRUE(Eventually([&] {
            tick.Advance(kScanMs);
            return over.load();
        }));
    }
    // The radio's command returns before the service knows of the change.
    void SwitchAdapter(const std::string& state) {
        radio_.Command("adapter " + state);
        EXPECT_TRUE(Eventually([&] { return bluez_.Command("adapter") == state; }));
    }
    void ExpectScanWorks() { EXPECT_NE(Connect(), nullptr); }
    // `lose` loses the connected dongle. After `restore` a scan finds it with the same queues.
    template <typename Lose, typename Restore>
    void ExpectLostAndFound(Lose lose, Restore restore) {
        DeviceQueues* queues = Connect();
        ASSERT_NE(queues, nullptr);
        lose();
        EXPECT_TRUE(Eventually([&] { return !queues->available; }));
        restore();
        EXPECT_EQ(Connect(), queues);
    }
    bool Logs(const std::string& line) {
        return Eventually([&] { return log_.Has(line); });
    }

    conformance::Simulator radio_;
    BluezService bluez_;
    LogCapture log_;
};

// ---------------------------------------------------------------- scanning

TEST_F(BluezTest, ScanWithoutAnAdapterFailsAndTheNextOneTriesAgain) {
    SwitchAdapter("absent");
    ExpectScanFails("there is no Bluetooth adapter");
    SwitchAdapter("on");
    ExpectScanWorks();
}

TEST_F(BluezTest, ScanWithTheAdapterSwitchedOffFails) {
    SwitchAdapter("off");
    ExpectScanFails("the Bluetooth adapter is switched off");
    SwitchAdapter("on");
    ExpectScanWorks();
}

// Discovery has ended by then, but the scan goes on to the dongles that are connected.
TEST_F(BluezTest, SwitchingTheAdapterOffDuringTheScanIsLogged) {
    DuringAScan([this] { SwitchAdapter("off"); }, [] { EXPECT_TRUE(Scan().empty()); });
    EXPECT_TRUE(
        Logs("[BLE] Discovery did not end as it should: "
             "the Bluetooth adapter is switched off (Resource Not Ready)"));
    EXPECT_TRUE(Logs("[BLE] BleUpdateDevices complete, added 0 devices"));
    SwitchAdapter("on");
    ExpectScanWorks();
}

TEST_F(BluezTest, ScanWithoutPermissionFails) {
    bluez_.Fail(1, "StartDiscovery", "org.freedesktop.DBus.Error.AccessDenied", "rejected");
    ExpectScanFails("no permission to use the Bluetooth service (rejected)");
    bluez_.Fail(1, "SetDiscoveryFilter", "org.bluez.Error.NotAuthorized", "not you");
    ExpectScanFails("no permission to use the Bluetooth adapter (not you)");
    ExpectScanWorks();
}

TEST_F(BluezTest, ScanFailsWhenTheAdapterIsNotReady) {
    bluez_.Fail(1, "StartDiscovery", "org.bluez.Error.NotReady", "Resource Not Ready");
    ExpectScanFails("the Bluetooth adapter is switched off (Resource Not Ready)");
}

TEST_F(BluezTest, DiscoveryThatDoesNotEndKeepsNoConnectedDongleFromTheScan) {
    ExpectScanWorks();
    bluez_.Fail(1, "StopDiscovery", "org.bluez.Error.Failed", "Operation failed");
    EXPECT_EQ(Scan().size(), 1u);
    EXPECT_TRUE(log_.Has(
        "[BLE] Discovery did not end as it should: org.bluez.Error.Failed: Operation failed"));
    EXPECT_EQ(Scan().size(), 1u);  // uses that discovery, and ends it
}

TEST_F(BluezTest, OtherErrorsAreLoggedUnchanged) {
    bluez_.Fail(1, "StartDiscovery", "org.bluez.Error.Failed", "out of luck");
    ExpectScanFails("org.bluez.Error.Failed: out of luck");
}

TEST_F(BluezTest, ScanWithoutTheServiceFailsUntilTheServiceStarts) {
    bluez_.Command("stop");
    ExpectScanFails("the Bluetooth service is not running");
    bluez_.Command("start");
    ExpectScanWorks();
}

TEST_F(BluezTest, StoppingTheServiceEndsTheScan) {
    ExpectScanFailsWhen([this] { bluez_.Command("stop"); });
    bluez_.Command("start");
    ExpectScanWorks();
}

TEST_F(BluezTest, RestartingTheServiceEndsTheScan) {
    ExpectScanFailsWhen([this] {
        bluez_.Command("stop");
        bluez_.Command("start");
    });
    ExpectScanWorks();
}

TEST_F(BluezTest, KnownDeviceOutOfRangeIsNotFound) {
    ExpectScanWorks();
    radio_.Unplug();
    EXPECT_TRUE(Logs("[BLE] Connection to 02:42:52:4E:58:01 lost"));
    LogCapture log;
    EXPECT_EQ(Scan().size(), 0u);
    EXPECT_TRUE(log.Has("[BLE] Stopped BLE scanning, found 0 potential devices"));
    radio_.Replug();
    ExpectScanWorks();
}

// Discovers as another program does, and has seen the dongle.
class OtherProgram {
public:
    OtherProgram() {
        adapter_->callMethod("SetDiscoveryFilter")
            .onInterface("org.bluez.Adapter1")
            .withArguments(std::map<std::string, sdbus::Variant>{
                {"Transport", sdbus::Variant(std::string("le"))}});
        adapter_->callMethod("StartDiscovery").onInterface("org.bluez.Adapter1");
    }
    ~OtherProgram() { adapter_->callMethod("StopDiscovery").onInterface("org.bluez.Adapter1"); }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;

    bool SeesDongle() const {
        return Eventually([this] {
            std::map<sdbus::ObjectPath,
                     std::map<std::string, std::map<std::string, sdbus::Variant>>>
                objects;
            root_->callMethod("GetManagedObjects")
                .onInterface("org.freedesktop.DBus.ObjectManager")
                .storeResultsTo(objects);
            const auto device =
                objects.find(sdbus::ObjectPath("/org/bluez/hci0/dev_02_42_52_4E_58_01"));
            return device != objects.end() && device->second["org.bluez.Device1"].contains("RSSI");
        });
    }

private:
    const std::unique_ptr<sdbus::IConnection> connection_ = sdbus::createSystemBusConnection();
    const std::unique_ptr<sdbus::IProxy> root_ = sdbus::createProxy(*connection_, "org.bluez", "/");
    const std::unique_ptr<sdbus::IProxy> adapter_ =
        sdbus::createProxy(*connection_, "org.bluez", "/org/bluez/hci0");
};

TEST_F(BluezTest, DongleIsFoundThatWasReportedToAnotherProgramOnly) {
    bluez_.Command("report-once on");
    {
        const OtherProgram other;
        ASSERT_TRUE(other.SeesDongle());
        Scan();
        EXPECT_TRUE(log_.Mentions("[BLE] Connecting to device: ")) << log_.Text();
        kBleTransport.Deinit();
    }
    bluez_.Command("report-once off");
}

// ---------------------------------------------------------------- two adapters

class BluezAdapters : public BluezTest {
protected:
    // Adds a second adapter, "on" or "off", that knows the device with this address.
    void Add(const std::string& second) {
        bluez_.Command("stop");
        bluez_.Command("start " + second);
    }
    void TearDown() override {
        kBleTransport.Deinit();
        bluez_.Command("stop");
        BluezTest::TearDown();
    }
};

TEST_F(BluezAdapters, DongleThatBothKnowIsConnectedThroughThePoweredOne) {
    Add("off 02:42:52:4E:58:01");
    EXPECT_EQ(ScanThatHears().size(), 1u) << log_.Text();
}

TEST_F(BluezAdapters, DongleThatOnlyTheUnusedOneHearsIsNotFound) {
    Add("on 02:42:52:4E:58:FF");
    EXPECT_EQ(ScanThatHears().size(), 1u);
    EXPECT_TRUE(log_.Has("[BLE] Stopped BLE scanning, found 1 potential devices")) << log_.Text();
}

// ---------------------------------------------------------------- the bus

// Replaces the address of the system bus while it lives.
class BusAddress {
public:
    explicit BusAddress(const std::string& address) {
        SetVariable("DBUS_SYSTEM_BUS_ADDRESS", address.c_str());
    }
    ~BusAddress() { SetVariable("DBUS_SYSTEM_BUS_ADDRESS", before_.c_str()); }
    BusAddress(const BusAddress&) = delete;
    BusAddress& operator=(const BusAddress&) = delete;

private:
    const std::string before_ = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
};

TEST_F(BluezTest, ScanWithoutAMessageBusFails) {
    const BusAddress nowhere("unix:path=/nonexistent/bus");
    ExpectScanFails("the system's message bus cannot be reached");
}

// A bus of the test's own, which the test can end. It starts the services of a folder.
class OwnBus {
public:
    explicit OwnBus(const std::string& data_home = "/nonexistent") {
        const std::string command = "XDG_DATA_HOME=" + data_home +
                                    " dbus-daemon --session --fork --address=unix:tmpdir=/tmp "
                                    "--print-address=1 --print-pid=1";
        std::FILE* output = ::popen(command.c_str(), "r");
        char address[256] = "";
        if (output == nullptr) return;
        if (std::fscanf(output, "%255s %d", address, &process_) == 2) address_ = address;
        ::pclose(output);
    }
    ~OwnBus() { End(); }
    OwnBus(const OwnBus&) = delete;
    OwnBus& operator=(const OwnBus&) = delete;

    const std::string& address() const { return address_; }
    void End() {
        if (process_ > 0) ::kill(process_, SIGTERM);
        process_ = -1;
    }

private:
    pid_t process_ = -1;
    std::string address_;
};

TEST_F(BluezTest, ScanAfterTheBusWasLostConnectsItAgain) {
    {
        OwnBus bus;
        ASSERT_FALSE(bus.address().empty());
        const BusAddress own(bus.address());
        ExpectScanFails("the Bluetooth service is not running");
        bus.End();
        EXPECT_TRUE(Eventually(
            [&] { return log_.Mentions("[BLE] The connection to the message bus has ended"); }));
        ExpectScanFails("the system's message bus cannot be reached");
    }
    ExpectScanWorks();
}

// A bus that accepts connections and never answers.
class MuteBus {
public:
    MuteBus() {
        const std::string name = "brennix-mute-" + std::to_string(::getpid());
        sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
        name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
        const auto size = offsetof(sockaddr_un, sun_path) + 1 + name.size();
        if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), static_cast<socklen_t>(size)) !=
                0 ||
            ::listen(socket_, 8) != 0) {
            return;
        }
        address_ = "unix:abstract=" + name;
    }
    ~MuteBus() { ::close(socket_); }
    MuteBus(const MuteBus&) = delete;
    MuteBus& operator=(const MuteBus&) = delete;

    const std::string& address() const { return address_; }

private:
    const int socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string address_;
};

TEST_F(BluezTest, BusThatDoesNotAnswerBlocksNeitherScanNorDeinit) {
    {
        BluezLimits limits = LibraryBluezLimits();
        limits.open_bus_ms = 200;
        const ShortLimits in_use(limits);
        const MuteBus bus;
        ASSERT_FALSE(bus.address().empty());
        const BusAddress mute(bus.address());
        ExpectScanFails("the system's message bus does not answer");
        kBleTransport.Deinit();
        EXPECT_TRUE(log_.Has("[BLE] BLE subsystem deinitialized"));
    }
    kBleTransport.Init();
    ExpectScanWorks();
}

TEST_F(BluezTest, ScanFailsWhenTheServiceDoesNotAnswer) {
    BluezLimits limits = LibraryBluezLimits();
    limits.objects_ms = 200;
    const ShortLimits in_use(limits);
    const OwnBus bus;
    ASSERT_FALSE(bus.address().empty());
    const BusAddress own(bus.address());
    const auto mute = sdbus::createSystemBusConnection("org.bluez");  // its loop does not run
    ExpectScanFails("the Bluetooth service does not answer");
}

// The folder of a bus that starts org.bluez for a call. As on a computer without an adapter, what
// it starts never takes the name.
class ServiceThatNeverComes {
public:
    ServiceThatNeverComes() {
        std::filesystem::create_directories(services());
        std::ofstream(services() / "org.bluez.service")
            << "[D-BUS Service]\nName=org.bluez\nExec=/usr/bin/tail -f /dev/null --pid="
            << ::getpid() << '\n';
    }
    ~ServiceThatNeverComes() { std::filesystem::remove_all(folder_); }
    ServiceThatNeverComes(const ServiceThatNeverComes&) = delete;
    ServiceThatNeverComes& operator=(const ServiceThatNeverComes&) = delete;

    std::string folder() const { return folder_.string(); }

private:
    std::filesystem::path services() const { return folder_ / "dbus-1" / "services"; }

    const std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() / ("brennix-bus-" + std::to_string(::getpid()));
};

TEST_F(BluezTest, ServiceThatTheBusWouldStartInVainIsNotCalled) {
    BluezLimits limits = LibraryBluezLimits();
    limits.objects_ms = 200;
    const ShortLimits in_use(limits);
    const ServiceThatNeverComes service;
    const OwnBus bus(service.folder());
    ASSERT_FALSE(bus.address().empty());
    const BusAddress own(bus.address());
    ExpectScanFails("the Bluetooth service is not running (org.bluez has no owner)");
}

// ---------------------------------------------------------------- connecting

TEST_F(BluezTest, AbortedConnectionIsTriedAgain) {
    bluez_.Fail(1, "Connect", "org.bluez.Error.Failed", "le-connection-abort-by-local");
    EXPECT_EQ(ScanThatHears().size(), 1u);
    EXPECT_TRUE(
        log_.Has("[BLE] Connect failed: org.bluez.Error.Failed: le-connection-abort-by-local"));
}

TEST_F(BluezTest, ConnectionAbortedTwiceFails) {
    bluez_.Fail(2, "Connect", "org.bluez.Error.Failed", "le-connection-abort-by-local");
    EXPECT_EQ(ScanThatHears().size(), 0u);
    EXPECT_TRUE(log_.Has("[BLE] Failed to connect to device"));
    ExpectScanWorks();
}

TEST_F(BluezTest, RefusedConnectionIsNotTriedAgain) {
    bluez_.Fail(1, "Connect", "org.bluez.Error.Failed", "le-connection-refused");
    EXPECT_EQ(ScanThatHears().size(), 0u);
    EXPECT_TRUE(log_.Has("[BLE] Failed to connect to device"));
    ExpectScanWorks();
}

TEST_F(BluezTest, SubscriptionWithoutPermissionIsAccessDenied) {
    bluez_.Fail(1, "StartNotify", "org.bluez.Error.NotPermitted", "Notify acquired");
    StdoutCapture console;
    EXPECT_EQ(ScanThatHears().size(), 0u);
    EXPECT_TRUE(Contains(console.Text(), "  ERROR: Failed to enable notifications (status: 3)\n"));
    ExpectScanWorks();
}

TEST_F(BluezTest, DeviceThatAnotherProgramLeftConnectedIsFound) {
    ExpectScanWorks();
    kBleTransport.Deinit();
    const auto other = sdbus::createSystemBusConnection();
    const auto device =
        sdbus::createProxy(*other, "org.bluez", "/org/bluez/hci0/dev_02_42_52_4E_58_01");
    device->callMethod("Connect").onInterface("org.bluez.Device1");
    kBleTransport.Init();
    ExpectScanWorks();
    kBleTransport.Deinit();  // before the other program leaves the bus
}

TEST_F(BluezTest, DeinitDoesNotWaitForADongleThatIsSlowToConnect) {
    radio_.Command(R"(radio {"connect_ms": 600000})");
    Thread scan([] { EXPECT_EQ(ScanThatHears().size(), 0u); });
    // An attempt that is given up before it reaches the service logs nothing.
    ASSERT_TRUE(ConnectionBegins());
    kBleTransport.Deinit();
    scan.Join();
    EXPECT_TRUE(log_.Has("[BLE] Connection error: connecting was given up"));
}

TEST_F(BluezTest, ClosingTheEarlierOfTwoDevicesKeepsTheConnection) {
    ExpectScanWorks();  // now BlueZ knows the dongle
    kBleTransport.Deinit();
    const auto is_connected = [this] {
        return Contains(radio_.Command("radio"), "\"connected\":true");
    };
    const std::unique_ptr<BleRadio> radio = OpenBleRadio();
    std::unique_ptr<BleDevice> before = radio->Open(kDongle);
    std::unique_ptr<BleDevice> now = radio->Open(kDongle);
    ASSERT_NE(now, nullptr);
    before.reset();
    EXPECT_TRUE(is_connected());
    now.reset();
    EXPECT_TRUE(Eventually([&] { return !is_connected(); }));
}

// The tick follows real time; the test can also advance it.
class BluezSlowDongle : public BluezTest {
protected:
    // The scan waits for the dongle, to which a connection is being made: only the scan reads the
    // tick repeatedly.
    bool ScanWaits() {
        if (!ConnectionBegins()) return false;
        const std::uint64_t before = tick_.Reads();
        return Eventually([&] { return tick_.Reads() >= before + 10; });
    }
    void TearDown() override {
        BluezTest::TearDown();
        done_ = true;
        clock_.Join();
    }

    FakeTick tick_{1000};
    std::atomic<bool> done_{false};
    Thread clock_{[this] {
        while (!done_) {
            tick_.Advance(1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }};
};

TEST_F(BluezSlowDongle, IsConnectedAfterItsScanGaveUpAndFoundByTheNextScan) {
    radio_.Command(R"(radio {"connect_ms": 600000})");
    Thread scan([] { EXPECT_EQ(ScanThatHears().size(), 0u); });
    ASSERT_TRUE(ScanWaits());
    tick_.Advance(31'000);
    scan.Join();
    EXPECT_TRUE(log_.Has("[BLE] Connection timeout"));
    EXPECT_EQ(Scan().size(), 0u) << "answers to other calls wake the waiting attempt";
    EXPECT_FALSE(log_.Mentions("[BLE] Connect failed"));
    radio_.Command(R"(radio {"connect_ms": 0})");
    EXPECT_NE(Connect(), nullptr);
    EXPECT_EQ(log_.Count("[BLE] Device connected and ready"), 1u);
    EXPECT_FALSE(log_.Mentions("[BLE] Connect failed"));
}

// ---------------------------------------------------------------- connected

TEST_F(BluezTest, DongleIsLostUntilAStoppedServiceIsBack) {
    ExpectLostAndFound([this] { bluez_.Command("stop"); }, [this] { bluez_.Command("start"); });
}

TEST_F(BluezTest, DongleWithALostLinkIsFoundAgain) {
    ExpectLostAndFound([this] { radio_.Command("lose"); }, [] {});
}

TEST_F(BluezTest, SwitchingTheAdapterOffLosesTheDongle) {
    ExpectLostAndFound([this] { radio_.Command("adapter off"); },
                       [this] { radio_.Command("adapter on"); });
}

TEST_F(BluezTest, PacketLongerThanTheMtuFailsAndIsNotCut) {
    radio_.Command(R"(radio {"mtu": 220})");
    DeviceQueues* queues = Connect();
    ASSERT_NE(queues, nullptr);
    PacketPtr fits = PacketOf(kTypeTest, Bytes(217 - 8));
    ASSERT_TRUE(EnqueueTransmitPacket(queues, fits));
    EXPECT_TRUE(Logs("[BLE-TX] Sent 217 bytes"));
    PacketPtr larger = PacketOf(kTypeTest, Bytes(218 - 8));
    ASSERT_TRUE(EnqueueTransmitPacket(queues, larger));
    EXPECT_TRUE(Logs("[BLE-TX] Failed to write: 2"));
    EXPECT_TRUE(log_.Has("[BLE] 218 bytes are too many for the link, whose MTU is 220"));
    radio_.Command("violations clear");  // of the unknown packet type
}

TEST_F(BluezTest, WriteThatTheServiceRefusesIsLogged) {
    DeviceQueues* queues = Connect();
    ASSERT_NE(queues, nullptr);
    bluez_.Fail(1, "WriteValue", "org.bluez.Error.Failed", "Failed to initiate write");
    PacketPtr identify = PacketOf(kTypeIden, {});
    ASSERT_TRUE(EnqueueTransmitPacket(queues, identify));
    EXPECT_TRUE(Logs("[BLE-TX] Failed to write: 2"));
    EXPECT_TRUE(
        log_.Has("[BLE] WriteValue failed: org.bluez.Error.Failed: Failed to initiate write"));
    EXPECT_TRUE(queues->available);
}

}  // namespace
}  // namespace test
}  // namespace tarvik
