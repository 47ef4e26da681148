// The radio over BlueZ, with a BlueZ that says what it should not, or at unexpected times. Needs no
// message bus: each test decides what org.bluez answers.
#include <atomic>
#include <map>
#include <mutex>

#include "transport/ble/ble_radio.h"
#include "transport/ble/bluez_limits.h"
#include "unit/ble/ble_error.h"
#include "unit/ble/bluez_messages.h"
#include "unit/faults/thread_start_fault.h"
#include "unit/test_support.h"

namespace tarvik {
namespace {

// The back end's time limits: patient, unless a test shortens one.
constexpr BluezLimits kPatientLimits = {
    .open_bus_ms = 20'000,
    .objects_ms = 20'000,
    .discovery_ms = 20'000,
    .discovery_retry_ms = 1,
    .connect_ms = 20'000,
    .connected_ms = 20'000,
    .resolve_ms = 20'000,
    .subscribe_ms = 20'000,
    .write_ms = 20'000,
    .close_ms = 20'000,
    .close_mute_ms = 20'000,
    .answer_grace_ms = 20'000,
};
BluezLimits limits = kPatientLimits;

}  // namespace

const BluezLimits& GetBluezLimits() { return limits; }

namespace test {
namespace {

constexpr std::uint64_t kDongle = 0x0242524E5801;
constexpr BleUuid kServiceUuid = {0x59, 0x46, 0x2f, 0x12, 0x95, 0x43, 0x99, 0x99,
                                  0x12, 0xc8, 0x58, 0xb4, 0x59, 0xa2, 0x71, 0xff};
constexpr BleUuid kCharacteristicUuid = {0x34, 0xa2, 0x42, 0xa7, 0x5b, 0xc9, 0x45, 0xd3,
                                         0x92, 0xe4, 0xaf, 0x6f, 0x91, 0x38, 0xff, 0x00};
constexpr std::uint32_t kScanMs = 20'000;  // what is left of a scan
constexpr char kDevice[] = "org.bluez.Device1";
constexpr char kService[] = "org.bluez.GattService1";
constexpr char kCharacteristic[] = "org.bluez.GattCharacteristic1";
constexpr char kLostBus[] = "the connection to the system's message bus is lost";

using Messages = std::vector<Message>;
using Answer = std::function<Messages(const BusCall& call)>;

// What org.bluez does: it works as it should, except where a test says otherwise.
class FakeBluez {
public:
    static FakeBluez& Get() {
        static auto* const bluez = new FakeBluez;
        return *bluez;
    }
    void Reset() {
        const std::lock_guard hold(lock_);
        answers_.clear();
        calls_.clear();
        bus_.SetHasService(true);
    }
    void On(const std::string& member, Answer answer) {
        const std::lock_guard hold(lock_);
        answers_[member] = std::move(answer);
    }
    void Fail(const std::string& member, const std::string& error, const std::string& text = "") {
        On(member, [=](const BusCall& call) { return Messages{ErrorReplyTo(call, error, text)}; });
    }
    void StaySilent(const std::string& member) {
        On(member, [](const BusCall&) { return Messages{}; });
    }
    // Signals that arrive just before the answer, so that the library has handled them when the
    // call returns.
    void SignalBefore(const std::string& member, const Messages& signals) {
        On(member, [=](const BusCall& call) {
            Messages messages = signals;
            messages.push_back(ReplyTo(call));
            return messages;
        });
    }
    void Send(const Message& signal) { bus_.Send(signal); }
    void EndConnection() { bus_.EndConnection(); }
    void SetIsThere(bool there) { bus_.SetHasService(there); }
    int Calls(const std::string& member) {
        const std::lock_guard hold(lock_);
        return calls_[member];
    }

private:
    FakeBluez() = default;
    Messages AnswerTo(const BusCall& call) {
        const std::lock_guard hold(lock_);
        ++calls_[call.member];
        const auto found = answers_.find(call.member);
        return found != answers_.end() ? found->second(call) : Messages{ReplyTo(call)};
    }

    std::mutex lock_;
    std::map<std::string, Answer> answers_;  // by method; guarded by lock_, as is the next
    std::map<std::string, int> calls_;
    MessageBus& bus_ = MessageBus::Start([this](const BusCall& call) { return AnswerTo(call); });
};

// Everything that the radio reports.
class Reports : public BleScan::Handler, public BleDevice::Handler {
public:
    void Advertised(const BleAdvertisement& advertisement) noexcept override {
        const std::lock_guard hold(lock_);
        names_.emplace_back(advertisement.name.begin(), advertisement.name.end());
        rssi_ = advertisement.rssi;
    }
    void Failed(const BleError&) noexcept override {}
    void Notified(std::span<const std::uint8_t> value) noexcept override {
        const std::lock_guard hold(lock_);
        values_.emplace_back(value.begin(), value.end());
    }
    void NotificationFailed(const BleError&) noexcept override {}
    void Lost() noexcept override { ++losses_; }

    std::vector<std::string> Names() const {
        const std::lock_guard hold(lock_);
        return names_;
    }
    std::vector<std::string> Values() const {
        const std::lock_guard hold(lock_);
        return values_;
    }
    std::int32_t rssi() const {
        const std::lock_guard hold(lock_);
        return rssi_;
    }
    int losses() const { return losses_; }

private:
    mutable std::mutex lock_;
    std::vector<std::string> names_;
    std::vector<std::string> values_;
    std::int32_t rssi_ = 0;
    std::atomic<int> losses_{0};
};

class BluezMessages : public testing::Test {
protected:
    void SetUp() override {
        limits = kPatientLimits;
        bluez_.Reset();
        radio_ = OpenBleRadio();
    }
    void TearDown() override { bluez_.Reset(); }  // so that closing needs no patience

    static Message Strength(const std::string& path, int rssi) {
        return PropertiesChanged(path, kDevice, [&](Marshal* out) { PutInt16(out, "RSSI", rssi); });
    }
    static Message Connected(bool connected) {
        return PropertiesChanged(kDevicePath, kDevice,
                                 [&](Marshal* out) { PutBool(out, "Connected", connected); });
    }
    static Message Notification(const std::string& path, const std::string& value) {
        return PropertiesChanged(path, kCharacteristic,
                                 [&](Marshal* out) { PutBytes(out, "Value", value); });
    }
    // What is advertised in a scan in which BlueZ sends these signals.
    std::vector<std::string> NamesHeard(const Messages& signals) {
        bluez_.SignalBefore("StartDiscovery", signals);
        Scan();
        return reports_.Names();
    }
    void Scan() {
        const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
        scan->Start();
        scan->Stop();
    }
    // In addition to those of the dongle.
    template <typename Put>
    void AddObjects(Put put) {
        bluez_.On("GetManagedObjects", [put](const BusCall& call) {
            Message reply = ReplyTo(call);
            reply.body = Objects(put);
            return Messages{reply};
        });
    }
    void SetObjects(std::function<void(Marshal*)> put) {
        bluez_.On("GetManagedObjects", [put](const BusCall& call) {
            Message reply = ReplyTo(call);
            Marshal body;
            body.Array(8, [&] { put(&body); });
            reply.body = body.bytes();
            return Messages{reply};
        });
    }

    // The objects of an adapter and the dongle, whose signal strength is known from before.
    void SetStrengthFromBefore(bool discovering) {
        SetObjects([=](Marshal* out) {
            PutObject(out, kAdapterPath, "org.bluez.Adapter1", [&] {
                PutBool(out, "Powered", true);
                PutBool(out, "Discovering", discovering);
            });
            PutObject(out, kDevicePath, kDevice, [&] {
                PutText(out, "Address", "02:42:52:4E:58:01");
                PutText(out, "Name", "Brennix");
                PutInt16(out, "RSSI", -70);
            });
        });
    }
    static Message Discovering(bool discovering) {
        return PropertiesChanged(kAdapterPath, "org.bluez.Adapter1",
                                 [&](Marshal* out) { PutBool(out, "Discovering", discovering); });
    }

    FakeBluez& bluez_ = FakeBluez::Get();
    Reports reports_;
    std::unique_ptr<BleRadio> radio_;
};

// ---------------------------------------------------------------- scanning

using BluezScanMessages = BluezMessages;

TEST_F(BluezScanMessages, DongleCountsWhenItsStrengthIsSignalled) {
    EXPECT_EQ(NamesHeard({Strength(kDevicePath, -71)}), std::vector<std::string>{"Brennix"});
    EXPECT_EQ(reports_.rssi(), -71);
}

TEST_F(BluezScanMessages, PropertiesOfWrongTypesAreIgnored) {
    const Message wrong = PropertiesChanged(kDevicePath, kDevice, [](Marshal* out) {
        PutText(out, "RSSI", "-60");
        PutInt16(out, "Name", 5);
        PutUint16(out, "Address", 6);
        PutText(out, "Connected", "yes");
        PutBool(out, "Value", true);
        PutBool(out, "MTU", true);
        PutText(out, "Service", "/not/a/path");
    });
    EXPECT_TRUE(NamesHeard({wrong}).empty());
    EXPECT_EQ(NamesHeard({wrong, Strength(kDevicePath, -60)}), std::vector<std::string>{"Brennix"});
}

TEST_F(BluezScanMessages, UnreadableSignalIsLoggedAndTheScanGoesOn) {
    const LogCapture log;
    Marshal number;
    number.U32(5);
    const Message unreadable =
        Signal("/", "org.freedesktop.DBus.ObjectManager", "InterfacesAdded", "u", number);
    EXPECT_EQ(NamesHeard({unreadable, Strength(kDevicePath, -60)}),
              std::vector<std::string>{"Brennix"});
    EXPECT_TRUE(log.Mentions("[BLE] A signal of the Bluetooth service cannot be read: "));
}

TEST_F(BluezScanMessages, UnreadableAnswerFailsTheScan) {
    bluez_.On("GetManagedObjects", [](const BusCall& call) {
        Message reply = ReplyTo(call);
        Marshal text;
        text.Text("no objects");
        reply.signature = "s";
        reply.body = text.bytes();
        return Messages{reply};
    });
    EXPECT_NE(ErrorOf([&] { Scan(); }), "");
    bluez_.Reset();
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "");
}

TEST_F(BluezScanMessages, DeviceWithAnUnreadableAddressIsIgnored) {
    for (const char* const address :
         {"", "02:42:52:4E:58:0", "02:42:52:4E:58:012", "ZZ:42:52:4E:58:01", "2::42:52:4E:58:01"}) {
        const Message odd = PropertiesChanged(kDevicePath, kDevice, [&](Marshal* out) {
            PutText(out, "Address", address);
            PutInt16(out, "RSSI", -60);
        });
        EXPECT_TRUE(NamesHeard({odd}).empty()) << address;
    }
}

TEST_F(BluezScanMessages, DeviceOfAnotherAdapterIsIgnored) {
    for (const char* const path : {"/org/bluez/hci1/dev_02_42_52_4E_58_01",
                                   "/org/bluez/hci00/dev_02_42_52_4E_58_01", "/org/bluez/hci0"}) {
        const Message other = PropertiesChanged(path, kDevice, [](Marshal* out) {
            PutText(out, "Address", "02:42:52:4E:58:01");
            PutText(out, "Name", "Brennix");
            PutInt16(out, "RSSI", -60);
        });
        EXPECT_TRUE(NamesHeard({other}).empty()) << path;
    }
}

TEST_F(BluezScanMessages, NameMayFollowTheStrength) {
    SetObjects([](Marshal* out) { PutAdapter(out); });
    const Message strength = PropertiesChanged(kDevicePath, kDevice, [](Marshal* out) {
        PutText(out, "Address", "02:42:52:4E:58:01");
        PutInt16(out, "RSSI", -60);
    });
    const Message name = PropertiesChanged(kDevicePath, kDevice,
                                           [](Marshal* out) { PutText(out, "Name", "Brennix"); });
    EXPECT_EQ(NamesHeard({strength, name}), (std::vector<std::string>{"", "Brennix"}));
}

TEST_F(BluezScanMessages, StrengthSignalledBeforeTheObjectsAreKnownCounts) {
    bluez_.SignalBefore("GetManagedObjects", {Strength(kDevicePath, -50)});
    Scan();
    EXPECT_EQ(reports_.Names(), std::vector<std::string>{"Brennix"});
    EXPECT_EQ(reports_.rssi(), -50);
}

// One that advertises is signalled. One that is left connected does not advertise.
TEST_F(BluezScanMessages, OldStrengthCountsOnlyForADeviceThatIsLeftConnected) {
    const auto device = [](bool connected, bool named) {
        return [=](Marshal* out) {
            PutAdapter(out);
            PutObject(out, kDevicePath, kDevice, [&] {
                PutBool(out, "Connected", connected);
                PutInt16(out, "RSSI", -90);
                if (named) PutText(out, "Address", "02:42:52:4E:58:01");
            });
        };
    };
    SetObjects(device(false, true));
    Scan();
    SetObjects(device(true, false));
    Scan();
    EXPECT_TRUE(reports_.Names().empty());
    SetObjects(device(true, true));
    Scan();
    EXPECT_EQ(reports_.Names().size(), 1u);
    EXPECT_EQ(reports_.rssi(), -90);
}

TEST_F(BluezScanMessages, SignalsOfOtherInterfacesAndRemovedObjectsAreIgnored) {
    const Message other = PropertiesChanged(kDevicePath, "org.bluez.Battery1",
                                            [](Marshal* out) { PutInt16(out, "RSSI", -60); });
    const Message service =
        PropertiesChanged(kDevicePath, kService, [](Marshal* out) { PutInt16(out, "RSSI", -60); });
    EXPECT_TRUE(NamesHeard({other, service, InterfacesRemoved(kDevicePath, kDevice)}).empty());
}

TEST_F(BluezScanMessages, ServiceThatGoesFailsTheScanAndOneThatComesDoesNot) {
    bluez_.SignalBefore("StartDiscovery", {OwnerChanged("", ":1.4")});
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "");
    bluez_.SignalBefore("StartDiscovery", {OwnerChanged(":1.4", "")});
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "the Bluetooth service has gone during the scan");
}

TEST_F(BluezScanMessages, ServiceThatGoesWhenDiscoveryIsStoppedFailsTheScan) {
    bluez_.SignalBefore("StopDiscovery", {OwnerChanged(":1.4", "")});
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "the Bluetooth service has gone during the scan");
}

// The kernel reports a device that it knows once, to the scan that was first.
TEST_F(BluezScanMessages, StrengthFromAnotherProgramsScanCountsWhileThatRuns) {
    SetStrengthFromBefore(false);
    Scan();
    EXPECT_TRUE(reports_.Names().empty());
    SetStrengthFromBefore(true);
    Scan();
    EXPECT_EQ(reports_.Names(), std::vector<std::string>{"Brennix"});
    EXPECT_EQ(reports_.rssi(), -70);
}

// The bus would start the service for a call, which would then wait in vain.
TEST_F(BluezScanMessages, ServiceThatIsNotThereIsNotCalled) {
    bluez_.SetIsThere(false);
    bluez_.StaySilent("GetManagedObjects");
    EXPECT_EQ(ErrorOf([&] { Scan(); }),
              "the Bluetooth service is not running (org.bluez has no owner)");
    EXPECT_EQ(bluez_.Calls("GetManagedObjects"), 0);
}

TEST_F(BluezScanMessages, ServiceThatIsBackIsCalledBeforeItsSignalHasCome) {
    bluez_.SetIsThere(false);
    EXPECT_NE(ErrorOf([&] { Scan(); }), "");
    bluez_.SetIsThere(true);
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "");
}

TEST_F(BluezScanMessages, ServiceThatHasGoneIsNotCalled) {
    bluez_.On("StartDiscovery", [&](const BusCall& call) {
        bluez_.SetIsThere(false);
        return Messages{OwnerChanged(":1.4", ""), ReplyTo(call)};
    });
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "the Bluetooth service has gone during the scan");
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 0);
    EXPECT_NE(ErrorOf([&] { Scan(); }), "");
    EXPECT_EQ(bluez_.Calls("GetManagedObjects"), 1);
}

TEST_F(BluezScanMessages, DiscoveryOfAnotherProgramIsUsedAndNotStopped) {
    const LogCapture log;
    SetStrengthFromBefore(true);
    bluez_.Fail("StartDiscovery", "org.bluez.Error.InProgress");
    const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
    scan->Start();
    EXPECT_EQ(scan->Status(), 1);
    scan->Poll(kScanMs);
    scan->Stop();
    EXPECT_EQ(bluez_.Calls("StartDiscovery"), 1);
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 0);
    EXPECT_FALSE(log.Mentions("refused"));
}

TEST_F(BluezScanMessages, DiscoveryOfAnotherProgramIsReplacedWhenItEnds) {
    SetStrengthFromBefore(true);
    bluez_.Fail("StartDiscovery", "org.bluez.Error.InProgress");
    const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
    scan->Start();
    EXPECT_EQ(scan->Status(), 1);
    bluez_.SignalBefore("StartDiscovery", {Discovering(true), Strength(kDevicePath, -71)});
    bluez_.Send(Discovering(false));
    EXPECT_TRUE(Eventually([&] {
        scan->Poll(kScanMs);
        return bluez_.Calls("StartDiscovery") == 2;
    }));
    EXPECT_EQ(scan->Status(), 1);
    EXPECT_EQ(reports_.rssi(), -71);
    scan->Stop();
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 1);
}

// BlueZ keeps it for this program.
TEST_F(BluezScanMessages, DiscoveryThatCouldNotBeStoppedIsUsedAndStoppedByTheNextScan) {
    bluez_.Fail("StopDiscovery", "org.bluez.Error.Failed");
    Scan();
    bluez_.Reset();
    SetStrengthFromBefore(true);
    bluez_.Fail("StartDiscovery", "org.bluez.Error.InProgress");
    Scan();
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 1);
    Scan();
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 1) << "it was stopped";
}

TEST_F(BluezScanMessages, DiscoveryThatMayBeginLateIsStopped) {
    bluez_.StaySilent("StartDiscovery");
    limits.discovery_ms = 20;
    std::string error;
    EXPECT_TRUE(Eventually([&] {  // other calls may take too long too
        error = ErrorOf([&] { Scan(); });
        return bluez_.Calls("StartDiscovery") == 1;
    }));
    EXPECT_NE(error.find("the Bluetooth service does not answer"), error.npos) << error;
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 1);
}

TEST_F(BluezScanMessages, DiscoveryThatCannotBeStartedFailsTheScan) {
    bluez_.Fail("StartDiscovery", "org.bluez.Error.Failed", "no");
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "org.bluez.Error.Failed: no");
}

// BlueZ calls every refusal of the kernel "in progress".
TEST_F(BluezScanMessages, RefusedDiscoveryIsTriedAgainWhileTheScanRuns) {
    const LogCapture log;
    bluez_.Fail("StartDiscovery", "org.bluez.Error.InProgress", "Operation already in progress");
    const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
    scan->Start();
    EXPECT_EQ(scan->Status(), 0);
    EXPECT_TRUE(Eventually([&] {
        scan->Poll(kScanMs);
        return bluez_.Calls("StartDiscovery") == 3;
    }));
    EXPECT_EQ(scan->Status(), 0);
    bluez_.SignalBefore("StartDiscovery", {Strength(kDevicePath, -71)});
    EXPECT_TRUE(Eventually([&] {
        scan->Poll(kScanMs);
        return scan->Status() == 1;
    }));
    const int attempts = bluez_.Calls("StartDiscovery");
    scan->Poll(kScanMs);
    EXPECT_EQ(bluez_.Calls("StartDiscovery"), attempts);
    scan->Stop();
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 1);
    EXPECT_EQ(reports_.Names(), std::vector<std::string>{"Brennix"});
    EXPECT_EQ(log.Count("[BLE] Discovery is refused and tried again: org.bluez.Error.InProgress: "
                        "Operation already in progress"),
              1u);
}

TEST_F(BluezScanMessages, ErrorsOfALaterAttemptAreLoggedAndItIsTriedAgain) {
    const LogCapture log;
    bluez_.Fail("StartDiscovery", "org.bluez.Error.InProgress");
    const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
    scan->Start();
    bluez_.Fail("StartDiscovery", "org.bluez.Error.NotReady", "Resource Not Ready");
    EXPECT_TRUE(Eventually([&] {
        scan->Poll(kScanMs);
        return bluez_.Calls("StartDiscovery") == 3;
    }));
    EXPECT_EQ(log.Count("[BLE] Discovery is refused and tried again: "
                        "the Bluetooth adapter is switched off (Resource Not Ready)"),
              1u);
    bluez_.SignalBefore("StartDiscovery", {});
    EXPECT_TRUE(Eventually([&] {
        scan->Poll(kScanMs);
        return scan->Status() == 1;
    }));
}

TEST_F(BluezScanMessages, LaterAttemptLastsNoLongerThanTheScan) {
    const LogCapture log;
    bluez_.Fail("StartDiscovery", "org.bluez.Error.InProgress");
    limits.discovery_ms = 600'000;
    const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
    scan->Start();
    bluez_.StaySilent("StartDiscovery");
    EXPECT_TRUE(Eventually([&] {
        scan->Poll(20);
        return bluez_.Calls("StartDiscovery") == 2;
    }));
    EXPECT_TRUE(log.Mentions("[BLE] Discovery is late: the Bluetooth service does not answer"));
    scan->Stop();
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 1);
}

TEST_F(BluezScanMessages, NothingIsTriedWhenTheScanIsOver) {
    bluez_.Fail("StartDiscovery", "org.bluez.Error.InProgress");
    const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
    scan->Start();
    SleepMs(2 * limits.discovery_retry_ms);
    scan->Poll(0);
    EXPECT_EQ(bluez_.Calls("StartDiscovery"), 1);
}

// The signal tells that the refused discovery is another program's.
TEST_F(BluezScanMessages, RefusedDiscoveryIsNotTriedAgainOnceTheAdapterDiscovers) {
    bluez_.On("StartDiscovery", [](const BusCall& call) {
        return Messages{Discovering(true), ErrorReplyTo(call, "org.bluez.Error.InProgress", "")};
    });
    const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
    scan->Start();
    EXPECT_EQ(scan->Status(), 1);
    scan->Poll(kScanMs);
    EXPECT_EQ(bluez_.Calls("StartDiscovery"), 1);
    scan->Stop();
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 0);
}

TEST_F(BluezScanMessages, DiscoveryThatNeverBeganIsNotStopped) {
    bluez_.Fail("StartDiscovery", "org.bluez.Error.InProgress");
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "");
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 0);
}

TEST_F(BluezScanMessages, DiscoveryThatDoesNotEndIsLoggedAndTheScanGoesOn) {
    const LogCapture log;
    bluez_.Fail("StopDiscovery", "org.bluez.Error.Failed", "no");
    const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
    scan->Start();
    EXPECT_EQ(scan->Status(), 1);
    EXPECT_EQ(ErrorOf([&] { scan->Stop(); }), "");
    EXPECT_EQ(scan->Status(), 3);
    EXPECT_TRUE(log.Has("[BLE] Discovery did not end as it should: org.bluez.Error.Failed: no"));
}

TEST_F(BluezScanMessages, ScanThatIsGivenUpEndsItsDiscovery) {
    radio_->CreateScan(reports_)->Start();
    EXPECT_EQ(bluez_.Calls("StopDiscovery"), 1);
}

TEST_F(BluezScanMessages, AdapterIsMissingOrSwitchedOff) {
    SetObjects([](Marshal*) {});
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "there is no Bluetooth adapter");
    SetObjects([](Marshal* out) {
        PutObject(out, kAdapterPath, "org.bluez.Adapter1",
                  [&] { PutText(out, "Powered", "perhaps"); });
    });
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "the Bluetooth adapter is switched off");
}

TEST_F(BluezScanMessages, ThreadThatCannotBeStartedFailsTheScanAndTheNextOneWorks) {
    {
        const ThreadStartFault fault("Tarvik BleBusOpening", 11);
        EXPECT_EQ(ErrorOf([&] { Scan(); }),
                  "the thread that connects the message bus cannot be started");
    }
    {
        const ThreadStartFault fault("Tarvik BleBusThread", 11);
        EXPECT_EQ(ErrorOf([&] { Scan(); }), "the Bluetooth bus thread cannot be started");
    }
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "");
}

// ---------------------------------------------------------------- connecting

class BluezDeviceMessages : public BluezMessages {
protected:
    void TearDown() override {
        BluezMessages::TearDown();
        device_.reset();
    }
    bool Open() {
        device_ = radio_->Open(kDongle);
        return device_ != nullptr;
    }
    BleStatus Discover() {
        const BleStatus status = device_->DiscoverServices();
        if (status != BleStatus::kSuccess) return status;
        EXPECT_TRUE(device_->SelectService(kServiceUuid));
        return device_->DiscoverCharacteristics();
    }
    // Up to the subscription.
    BleStatus Subscribe() {
        EXPECT_TRUE(Open());
        EXPECT_EQ(Discover(), BleStatus::kSuccess);
        EXPECT_TRUE(device_->SelectCharacteristic(kCharacteristicUuid));
        return device_->Subscribe(reports_);
    }
    BleStatus Write(std::size_t size) {
        const std::vector<std::uint8_t> value(size);
        return device_->Write(value);
    }
    // Returns when the library has handled all signals sent so far: an answer comes after them. A
    // scan gets none while the service is gone.
    void AwaitSignals() {
        EXPECT_TRUE(Eventually([&] { return ErrorOf([&] { Scan(); }).empty(); }));
    }
    bool IsLost() {
        return Eventually([&] { return reports_.losses() > 0; });
    }
    // The device's state when it is asked for after Connect.
    void SetState(bool connected, bool resolved) {
        bluez_.On("GetAll", [=](const BusCall& call) {
            Message reply = ReplyTo(call);
            Marshal body;
            body.Array(8, [&] {
                PutBool(&body, "Connected", connected);
                PutBool(&body, "ServicesResolved", resolved);
            });
            reply.body = body.bytes();
            return Messages{reply};
        });
    }

    std::unique_ptr<BleDevice> device_;
};

TEST_F(BluezDeviceMessages, DongleIsConnectedAndNotifies) {
    ASSERT_EQ(Subscribe(), BleStatus::kSuccess);
    bluez_.Send(Notification("/org/bluez/hci0/other", "not ours"));
    bluez_.Send(Notification(kCharacteristicPath, "ours"));
    ASSERT_TRUE(Eventually([&] { return !reports_.Values().empty(); }));
    EXPECT_EQ(reports_.Values(), std::vector<std::string>{"ours"});
    device_.reset();
    EXPECT_EQ(bluez_.Calls("StopNotify"), 1);
    EXPECT_EQ(bluez_.Calls("Disconnect"), 1);
    EXPECT_EQ(reports_.losses(), 0);
}

TEST_F(BluezDeviceMessages, DongleThatBluezDoesNotKnowIsNotReachable) {
    SetObjects([](Marshal* out) {
        PutAdapter(out);
        // Another address, none, and one below another adapter.
        PutObject(out, "/org/bluez/hci0/dev_1", kDevice,
                  [&] { PutText(out, "Address", "02:42:52:4E:58:02"); });
        PutObject(out, "/org/bluez/hci0/dev_2", kDevice, [&] { PutText(out, "Name", "Brennix"); });
        PutObject(out, "/org/bluez/hci1/dev_3", kDevice,
                  [&] { PutText(out, "Address", "02:42:52:4E:58:01"); });
    });
    EXPECT_FALSE(Open());
}

TEST_F(BluezDeviceMessages, ConnectionThatExistsAlreadyIsUsed) {
    bluez_.Fail("Connect", "org.bluez.Error.AlreadyConnected");
    EXPECT_TRUE(Open());
}

TEST_F(BluezDeviceMessages, RefusalToConnectIsAnErrorAndAFailureIsNot) {
    for (const char* const error :
         {"org.bluez.Error.NotAuthorized", "org.bluez.Error.NotPermitted",
          "org.bluez.Error.NotReady", "org.freedesktop.DBus.Error.AccessDenied"}) {
        bluez_.Fail("Connect", error);
        EXPECT_NE(ErrorOf([&] { Open(); }), "") << error;
    }
    bluez_.Fail("Connect", "org.bluez.Error.Failed");
    EXPECT_FALSE(Open());
}

TEST_F(BluezDeviceMessages, DongleWithoutAConnectionAfterConnectIsNotReachable) {
    limits.connected_ms = 20;
    SetState(false, false);
    EXPECT_FALSE(Open());
}

TEST_F(BluezDeviceMessages, DongleThatIsRemovedWhileItConnectsIsNotReachable) {
    SetState(false, false);
    bluez_.SignalBefore("Connect", {InterfacesRemoved(kDevicePath, kDevice)});
    EXPECT_FALSE(Open());
}

TEST_F(BluezDeviceMessages, ServicesThatAreNeverResolvedAreUnreachable) {
    limits.resolve_ms = 20;
    SetState(true, false);
    ASSERT_TRUE(Open());
    EXPECT_EQ(Discover(), BleStatus::kUnreachable);
}

TEST_F(BluezDeviceMessages, LossEndsTheWaitForServices) {
    limits.resolve_ms = 600'000;
    SetState(true, false);
    ASSERT_TRUE(Open());
    bluez_.Send(Connected(false));
    EXPECT_EQ(Discover(), BleStatus::kUnreachable);
}

TEST_F(BluezDeviceMessages, LossAfterTheServicesFailsTheNextSteps) {
    ASSERT_TRUE(Open());
    ASSERT_EQ(Discover(), BleStatus::kSuccess);
    ASSERT_TRUE(device_->SelectCharacteristic(kCharacteristicUuid));
    bluez_.SignalBefore("StartNotify", {InterfacesRemoved(kDevicePath, kDevice)});
    EXPECT_EQ(device_->Subscribe(reports_), BleStatus::kUnreachable);
    EXPECT_EQ(device_->DiscoverCharacteristics(), BleStatus::kUnreachable);
    EXPECT_EQ(Write(8), BleStatus::kUnreachable);
    EXPECT_EQ(bluez_.Calls("WriteValue"), 0);
}

TEST_F(BluezDeviceMessages, CancelConnectingEndsTheWaitForServices) {
    limits.resolve_ms = 600'000;
    SetState(true, false);
    ASSERT_TRUE(Open());
    std::thread giver_up([&] { radio_->CancelConnecting(); });
    EXPECT_EQ(ErrorOf([&] { Discover(); }), "connecting was given up");
    giver_up.join();
}

TEST_F(BluezDeviceMessages, CancelConnectingBeforeTheBusIsConnectedFailsToOpen) {
    radio_->CancelConnecting();
    EXPECT_EQ(ErrorOf([&] { Open(); }), "connecting was given up");
    // Its answer could come before anybody waits for it.
    EXPECT_EQ(bluez_.Calls("GetManagedObjects"), 0);
}

// ---------------------------------------------------------------- services

TEST_F(BluezDeviceMessages, ServicesAndCharacteristicsOfOthersAreNotTaken) {
    SetObjects([](Marshal* out) {
        PutAdapter(out);
        PutDongle(out);
        PutObject(out, "/org/bluez/hci0/dev_02_42_52_4E_58_02/service0001", kService,
                  [&] { PutText(out, "UUID", kServiceText); });
        PutObject(out, "/org/bluez/hci0/dev_02_42_52_4E_58_01/service0009", kService, [] {});
    });
    ASSERT_TRUE(Open());
    ASSERT_EQ(device_->DiscoverServices(), BleStatus::kSuccess);
    EXPECT_FALSE(device_->SelectService(kServiceUuid));

    SetObjects([](Marshal* out) {
        PutService(out);
        PutObject(out, "/org/bluez/hci0/dev_02_42_52_4E_58_01/service0009/char0001",
                  kCharacteristic, [&] {
                      PutText(out, "UUID", kCharacteristicText);
                      PutText(out, "Service", "/org/bluez/hci0/other", 'o');
                  });
        PutObject(out, "/org/bluez/hci0/dev_02_42_52_4E_58_01/service0001/char0009",
                  kCharacteristic, [&] { PutText(out, "Service", kServicePath, 'o'); });
    });
    ASSERT_EQ(Discover(), BleStatus::kSuccess);
    EXPECT_FALSE(device_->SelectCharacteristic(kCharacteristicUuid));
}

TEST_F(BluezDeviceMessages, UuidsMayBeInUpperCase) {
    SetObjects([](Marshal* out) {
        PutAdapter(out);
        PutDongle(out);
        PutObject(out, kServicePath, kService,
                  [&] { PutText(out, "UUID", "59462F12-9543-9999-12C8-58B459A271FF"); });
        PutCharacteristic(out);
    });
    EXPECT_EQ(Subscribe(), BleStatus::kSuccess);
}

// ---------------------------------------------------------------- errors

TEST_F(BluezDeviceMessages, ErrorsOfSubscribingAndWritingAreStatuses) {
    const struct {
        const char* error;
        BleStatus status;
    } rows[] = {
        {"org.bluez.Error.NotAuthorized", BleStatus::kAccessDenied},
        {"org.bluez.Error.NotPermitted", BleStatus::kAccessDenied},
        {"org.freedesktop.DBus.Error.AccessDenied", BleStatus::kAccessDenied},
        {"org.bluez.Error.NotConnected", BleStatus::kUnreachable},
        {"org.bluez.Error.DoesNotExist", BleStatus::kUnreachable},
        {"org.freedesktop.DBus.Error.UnknownObject", BleStatus::kUnreachable},
        {"org.freedesktop.DBus.Error.UnknownMethod", BleStatus::kUnreachable},
        {"org.bluez.Error.Failed", BleStatus::kProtocolError},
    };
    for (const auto& row : rows) {
        bluez_.Fail("StartNotify", row.error);
        EXPECT_EQ(Subscribe(), row.status) << row.error;
        device_.reset();
        EXPECT_EQ(bluez_.Calls("StopNotify"), 0) << row.error;
    }
    bluez_.Reset();
    ASSERT_EQ(Subscribe(), BleStatus::kSuccess);
    for (const auto& row : rows) {
        bluez_.Fail("WriteValue", row.error);
        EXPECT_EQ(Write(8), row.status) << row.error;
    }
}

TEST_F(BluezDeviceMessages, SizeOfWritesFollowsTheSignalledMtu) {
    ASSERT_EQ(Subscribe(), BleStatus::kSuccess);
    EXPECT_EQ(Write(244), BleStatus::kSuccess) << "the MTU is not known";
    bluez_.SignalBefore("WriteValue",
                        {PropertiesChanged(kCharacteristicPath, kCharacteristic,
                                           [](Marshal* out) { PutUint16(out, "MTU", 23); })});
    ASSERT_EQ(Write(8), BleStatus::kSuccess);
    EXPECT_EQ(Write(20), BleStatus::kSuccess);
    EXPECT_EQ(Write(21), BleStatus::kProtocolError);
}

TEST_F(BluezDeviceMessages, SilenceFailsTheCallAndShortensTheEnd) {
    ASSERT_EQ(Subscribe(), BleStatus::kSuccess);
    const LogCapture log;
    limits.write_ms = 20;
    limits.close_ms = 600'000;  // never waited for: the write got no answer
    limits.close_mute_ms = 20;
    for (const char* const method : {"WriteValue", "StopNotify", "Disconnect"})
        bluez_.StaySilent(method);
    EXPECT_EQ(Write(8), BleStatus::kProtocolError);
    device_.reset();
    for (const char* const method : {"WriteValue", "StopNotify", "Disconnect"}) {
        EXPECT_TRUE(log.Mentions(std::string("[BLE] ") + method +
                                 " failed: the Bluetooth service does not answer"))
            << method;
    }
}

// ---------------------------------------------------------------- loss

TEST_F(BluezDeviceMessages, LossIsReportedOnceHoweverItIsSignalled) {
    const Message signals[] = {Connected(false), InterfacesRemoved(kDevicePath, kDevice),
                               OwnerChanged(":1.4", "")};
    for (const Message& first : signals) {
        ASSERT_EQ(Subscribe(), BleStatus::kSuccess);
        const int before = reports_.losses();
        bluez_.Send(first);
        for (const Message& signal : signals)
            bluez_.Send(signal);
        bluez_.Send(OwnerChanged("", ":1.4"));
        AwaitSignals();
        device_.reset();
        EXPECT_EQ(reports_.losses(), before + 1);
    }
}

TEST_F(BluezDeviceMessages, RemovalOfSomethingElseIsNoLoss) {
    ASSERT_EQ(Subscribe(), BleStatus::kSuccess);
    bluez_.Send(InterfacesRemoved("/org/bluez/hci0/dev_02_42_52_4E_58_02", kDevice));
    bluez_.Send(InterfacesRemoved(kDevicePath, "org.bluez.Battery1"));
    bluez_.Send(Connected(true));
    bluez_.Send(Notification(kCharacteristicPath, "still there"));
    ASSERT_TRUE(Eventually([&] { return !reports_.Values().empty(); }));
    EXPECT_EQ(reports_.losses(), 0);
}

TEST_F(BluezDeviceMessages, EndOfTheBusIsALossAndFailsCalls) {
    ASSERT_EQ(Subscribe(), BleStatus::kSuccess);
    bluez_.EndConnection();
    EXPECT_TRUE(IsLost());
    EXPECT_EQ(Write(8), BleStatus::kUnreachable);
    EXPECT_EQ(ErrorOf([&] { device_->DiscoverServices(); }), "");
    const LogCapture log;
    device_.reset();
    EXPECT_TRUE(log.Mentions(kLostBus));
}

TEST_F(BluezDeviceMessages, EndOfTheBusFailsARunningScanAndTheNextOneConnectsItAgain) {
    ASSERT_EQ(Subscribe(), BleStatus::kSuccess);
    {
        const std::unique_ptr<BleScan> scan = radio_->CreateScan(reports_);
        scan->Start();
        bluez_.EndConnection();
        EXPECT_TRUE(IsLost());
        EXPECT_EQ(ErrorOf([&] { scan->Stop(); }), kLostBus);
    }
    EXPECT_EQ(ErrorOf([&] { Scan(); }), "");
    device_.reset();
    EXPECT_EQ(Subscribe(), BleStatus::kSuccess);
}

}  // namespace
}  // namespace test
}  // namespace tarvik
