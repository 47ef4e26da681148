// The messages of BlueZ: answers and signals, of any type and form, while a program scans, connects
// a dongle, exchanges values and disconnects. The input decides what BlueZ does; where it ends,
// BlueZ works as it should. The library may throw only BleErrors, and call handlers only in their
// time.

#include <atomic>
#include <iterator>
#include <mutex>
#include <span>

#include "fuzz/link/fuzz_support.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/bluez_limits.h"
#include "transport/ble/bluez_objects.h"
#include "unit/ble/bluez_messages.h"

namespace tarvik {

// A silent BlueZ must not stop the fuzzer.
const BluezLimits& GetBluezLimits() {
    static constexpr BluezLimits kLimits = {
        .open_bus_ms = 10'000,
        .objects_ms = 8,
        .discovery_ms = 8,
        .discovery_retry_ms = 0,
        .connect_ms = 8,
        .connected_ms = 3,
        .resolve_ms = 3,
        .subscribe_ms = 8,
        .write_ms = 8,
        .close_ms = 8,
        .close_mute_ms = 3,
        .answer_grace_ms = 4,
    };
    return kLimits;
}

}  // namespace tarvik

using namespace tarvik;
using namespace tarvik::fuzz;
using namespace tarvik::test;

namespace {

constexpr std::uint64_t kAddress = 0x0242524E5801;
constexpr BleUuid kServiceUuid = {0x59, 0x46, 0x2f, 0x12, 0x95, 0x43, 0x99, 0x99,
                                  0x12, 0xc8, 0x58, 0xb4, 0x59, 0xa2, 0x71, 0xff};
constexpr BleUuid kCharacteristicUuid = {0x34, 0xa2, 0x42, 0xa7, 0x5b, 0xc9, 0x45, 0xd3,
                                         0x92, 0xe4, 0xaf, 0x6f, 0x91, 0x38, 0xff, 0x00};

constexpr const char* kPaths[] = {kDevicePath,
                                  kCharacteristicPath,
                                  kServicePath,
                                  kAdapterPath,
                                  "/org/bluez",
                                  "/org/bluez/hci00",
                                  "/org/bluez/hci1/dev_02_42_52_4E_58_01",
                                  "/"};
constexpr const char* kInterfaces[] = {kBluezDevice, kBluezCharacteristic, kBluezService,
                                       kBluezAdapter, "org.freedesktop.DBus.Properties"};
constexpr const char* kTexts[] = {"Brennix",
                                  "02:42:52:4E:58:01",
                                  "02:42:52:4e:58:02",
                                  "59462f12-9543-9999-12c8-58b459a271ff",
                                  "34A242A7-5BC9-45D3-92E4-AF6F9138FF00",
                                  "",
                                  "02:42:52:4E:58:0",
                                  "02:42:52:4E:58:+1",
                                  "ZZ:ZZ:ZZ:ZZ:ZZ:ZZ"};
constexpr const char* kErrors[] = {"org.bluez.Error.Failed",
                                   "org.bluez.Error.AlreadyConnected",
                                   "org.bluez.Error.InProgress",
                                   "org.bluez.Error.NotReady",
                                   "org.bluez.Error.NotConnected",
                                   "org.bluez.Error.NotPermitted",
                                   "org.bluez.Error.DoesNotExist",
                                   "org.freedesktop.DBus.Error.UnknownObject",
                                   "org.freedesktop.DBus.Error.NoReply",
                                   "org.freedesktop.DBus.Error.ServiceUnknown"};

// What a property's value is.
enum class Kind : std::uint8_t { kText, kBool, kInt16, kUint16, kPath, kBytes, kNested, kList };
constexpr int kKinds = 8;

struct Property {
    const char* name;
    Kind kind;
};
constexpr Property kProperties[] = {
    {"RSSI", Kind::kInt16},     {"Name", Kind::kText},      {"Address", Kind::kText},
    {"Connected", Kind::kBool}, {"Powered", Kind::kBool},   {"ServicesResolved", Kind::kBool},
    {"Value", Kind::kBytes},    {"MTU", Kind::kUint16},     {"UUID", Kind::kText},
    {"Service", Kind::kPath},   {"Modalias", Kind::kNested}};

constexpr const char* kSignatures[] = {kTreeSignature,
                                       kAddedSignature,
                                       kRemovedSignature,
                                       kChangedSignature,
                                       kMapSignature,
                                       kOwnerSignature,
                                       "",
                                       "v",
                                       "a{sa{sv}}"};

// BlueZ as the input plays it.
class Bluez {
public:
    explicit Bluez(std::span<const std::uint8_t> input) : input_(input) {}

    // Signals, the answer unless there is none, and more signals.
    std::vector<Message> Answer(const BusCall& call) {
        std::vector<Message> messages;
        AddSignals(&messages);
        const std::uint8_t outcome = Pick(16);
        if (outcome != 1) messages.push_back(Reply(call, outcome));  // 1: silence
        AddSignals(&messages);
        return messages;
    }
    std::uint8_t Pick(std::size_t count) {
        if (input_.empty()) return 0;
        const auto picked = static_cast<std::uint8_t>(input_[0] % count);
        input_ = input_.subspan(1);
        return picked;
    }

private:
    template <typename Item, std::size_t kCount>
    const Item& OneOf(const Item (&items)[kCount]) {
        return items[Pick(kCount)];
    }

    Message Reply(const BusCall& call, std::uint8_t outcome) {
        if (outcome == 2) return ErrorReplyTo(call, OneOf(kErrors), "connection-abort-by-local");
        if (outcome == 3) return ErrorReplyTo(call, OneOf(kErrors), "why not");
        Message reply = ReplyTo(call);
        if (outcome == 4) SetUnfit(&reply);
        if (outcome != 5) return reply;
        if (call.member == "GetManagedObjects") reply.body = MoreObjects();
        if (call.member == "GetAll") reply.body = OtherState();
        return reply;
    }

    // A signature and bytes that need not belong to it.
    void SetUnfit(Message* message) {
        message->signature = OneOf(kSignatures);
        const std::size_t size = Pick(64);
        for (std::size_t i = 0; i < size; ++i)
            message->body.push_back(Pick(256));
        if (message->signature.empty()) message->body.clear();
    }

    // ---- signals

    void AddSignals(std::vector<Message>* messages) {
        for (std::uint8_t left = Pick(4); left > 0; --left)
            messages->push_back(PickSignal());
    }
    Message PickSignal() {
        const std::uint8_t which = Pick(8);
        if (which <= 3) {
            const char* const path = OneOf(kPaths);
            return PropertiesChanged(path, OneOf(kInterfaces),
                                     [this](Marshal* body) { PutPropertyList(body); });
        }
        if (which == 5) {
            const char* const path = OneOf(kPaths);
            return InterfacesRemoved(path, OneOf(kInterfaces));
        }
        if (which == 6) {
            const char* const from = Pick(2) == 0 ? "" : ":1.3";
            return OwnerChanged(from, Pick(2) == 0 ? "" : ":1.4");
        }
        return ManagerSignal(which == 4);
    }
    // `fits`: an object with properties. Otherwise anything.
    Message ManagerSignal(bool fits) {
        Marshal body;
        if (fits) {
            body.Text(OneOf(kPaths));
            PutInterfaces(&body);
        }
        const char* const member = fits || Pick(2) == 0 ? "InterfacesAdded" : "InterfacesRemoved";
        Message signal =
            Signal("/", "org.freedesktop.DBus.ObjectManager", member, kAddedSignature, body);
        if (!fits) SetUnfit(&signal);
        return signal;
    }

    // ---- objects

    void PutPropertyList(Marshal* out) {
        for (int left = 1 + Pick(3); left > 0; --left) {
            const Property& property = OneOf(kProperties);
            const bool fits = Pick(4) != 3;
            PutKey(out, property.name);
            PutVariant(out, fits ? property.kind : static_cast<Kind>(Pick(kKinds)), 2);
        }
    }
    void PutInterfaces(Marshal* out) {
        out->Array(8, [&] {
            for (int left = 1 + Pick(2); left > 0; --left) {
                PutInterface(out, OneOf(kInterfaces), [&] { PutPropertyList(out); });
            }
        });
    }
    void PutVariant(Marshal* out, Kind kind, int depth) {
        switch (kind) {
            case Kind::kText:
                out->Signature("s");
                return out->Text(OneOf(kTexts));
            case Kind::kBool:
                out->Signature("b");
                return out->U32(Pick(2) == 0 ? 1 : 0);
            case Kind::kInt16:
                out->Signature("n");
                return out->U16(static_cast<std::uint16_t>(0xFF00 + Pick(256)));
            case Kind::kUint16:
                out->Signature("q");
                return out->U16(Pick(256));
            case Kind::kPath:
                out->Signature("o");
                return out->Text(OneOf(kPaths));
            case Kind::kBytes:
                out->Signature("ay");
                return out->Array(1, [&] {
                    for (int left = Pick(32); left > 0; --left)
                        out->Byte(Pick(256));
                });
            case Kind::kNested:
                out->Signature("v");
                return PutVariant(out, depth > 0 ? static_cast<Kind>(Pick(kKinds)) : Kind::kBool,
                                  depth - 1);
            case Kind::kList:
                out->Signature("as");
                return out->Array(4, [&] { out->Text(OneOf(kTexts)); });
        }
    }

    Bytes MoreObjects() {
        return Objects([this](Marshal* out) {
            for (int left = 1 + Pick(4); left > 0; --left) {
                PutKey(out, OneOf(kPaths));
                PutInterfaces(out);
            }
        });
    }
    Bytes OtherState() {
        Marshal out;
        out.Array(8, [&] { PutPropertyList(&out); });
        return out.bytes();
    }

    std::span<const std::uint8_t> input_;
};

std::mutex play_lock;
Bluez play({});  // guarded by play_lock

// ---------------------------------------------------------------- the library

// Both are called on the bus's thread.
class ScanHandler : public BleScan::Handler {
public:
    ~ScanHandler() { over_ = true; }
    void Advertised(const BleAdvertisement& advertisement) noexcept override {
        Require(!over_);
        Require(advertisement.address >> 48 == 0);
        for (const std::uint8_t byte : advertisement.name)
            Require(byte != 0);  // no text of D-Bus has one
    }
    void Failed(const BleError& error) noexcept override { Require(!error.message().empty()); }

private:
    std::atomic<bool> over_{false};
};

class DeviceHandler : public BleDevice::Handler {
public:
    ~DeviceHandler() { over_ = true; }
    void Notified(std::span<const std::uint8_t> value) noexcept override {
        Require(!over_);
        for (const std::uint8_t byte : value)
            sum_ += byte;
    }
    void NotificationFailed(const BleError& error) noexcept override {
        Require(!error.message().empty());
    }
    void Lost() noexcept override {
        Require(!over_);
        Require(++losses_ == 1);
    }

private:
    std::atomic<bool> over_{false};
    std::atomic<int> losses_{0};
    unsigned sum_ = 0;
};

void Scan(BleRadio* radio) {
    ScanHandler handler;
    const std::unique_ptr<BleScan> scan = radio->CreateScan(handler);
    scan->Start();
    scan->Status();
    scan->Stop();
}

bool Connect(BleDevice* device, BleDevice::Handler* handler) {
    return device->DiscoverServices() == BleStatus::kSuccess &&
           device->SelectService(kServiceUuid) &&
           device->DiscoverCharacteristics() == BleStatus::kSuccess &&
           device->SelectCharacteristic(kCharacteristicUuid) &&
           device->Subscribe(*handler) == BleStatus::kSuccess;
}

void UseDongle(BleRadio* radio) {
    DeviceHandler handler;
    const std::unique_ptr<BleDevice> device = radio->Open(kAddress);
    if (device == nullptr || !Connect(device.get(), &handler)) return;
    const std::uint8_t value[244] = {};
    for (const std::size_t size : {8u, 20u, 244u})
        device->Write({value, size});
}

template <typename Body>
void Try(Body body) {
    try {
        body();
    } catch (const BleError& error) {
        Require(!error.message().empty());
    }
}

void Play(std::span<const std::uint8_t> input) {
    const std::lock_guard hold(play_lock);
    play = Bluez(input);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    MessageBus::Start([](const BusCall& call) {
        const std::lock_guard hold(play_lock);
        return play.Answer(call);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static std::unique_ptr<BleRadio> radio = OpenBleRadio();
    Play({});
    const bool cancels = size > 0 && data[0] == 0xFF;
    Play({data, size});
    Try([] { Scan(radio.get()); });
    if (cancels) radio->CancelConnecting();
    Try([] { UseDongle(radio.get()); });
    Play({});
    if (cancels) radio = OpenBleRadio();
    return 0;
}
