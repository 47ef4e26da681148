#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/lock.h"
#include "platform/thread.h"
#include "transport/ble/ble_radio.h"

namespace tarvik {

inline constexpr char kBluezName[] = "org.bluez";
inline constexpr char kBluezAdapter[] = "org.bluez.Adapter1";
inline constexpr char kBluezDevice[] = "org.bluez.Device1";
inline constexpr char kBluezService[] = "org.bluez.GattService1";
inline constexpr char kBluezCharacteristic[] = "org.bluez.GattCharacteristic1";

// A call that BlueZ, or the bus in its place, answered with an error.
class BluezError final : public BleError {
public:
    BluezError(std::string name, const std::string& text);
    // `name` without the part that all of BlueZ's errors begin with.
    bool Is(const char* name) const { return name_ == std::string("org.bluez.Error.") + name; }
    bool IsObjectGone() const;
    bool IsSilence() const;  // no answer in time
    bool IsRefused() const;  // the bus does not let this user talk to BlueZ

private:
    std::string name_;
};

using BluezPropertyMap = std::map<std::string, sdbus::Variant>;

// Those of the properties that this library looks at, of objects of every kind. A value is absent
// where the object does not have it, and in a signal where it has not changed.
struct BluezProperties {
    BluezProperties() = default;
    explicit BluezProperties(const BluezPropertyMap& map);

    std::optional<std::string> address, name, uuid, service;
    std::optional<bool> powered, connected, services_resolved;
    std::optional<std::int16_t> rssi;
    std::optional<std::uint16_t> mtu;
    std::optional<std::vector<std::uint8_t>> value;
};

struct BluezObject {
    std::string path;
    std::string interface;
    BluezProperties properties;
};

class BluezBus;

// One signal of BlueZ's objects, told on the bus's own thread, which must not be kept waiting.
class BluezListener {
public:
    virtual void ObjectAdded(const BluezObject&) {}
    virtual void ObjectRemoved(const std::string& /*path*/, const std::string& /*interface*/) {}
    virtual void Changed(const BluezObject&) {}  // holds what has changed
    virtual void ServiceGone() {}                // bluetoothd has gone, or the bus; told once

protected:
    ~BluezListener() = default;
};

// A connection to the system's message bus with a thread that takes in what arrives.
class BluezBus {
public:
    static std::shared_ptr<BluezBus> Connect();  // throws BleError
    ~BluezBus();
    BluezBus(const BluezBus&) = delete;
    BluezBus& operator=(const BluezBus&) = delete;

    bool closed() const { return closed_; }
    // False: the last call that is over got no answer in its time.
    bool answers() const { return answers_; }
    // From here on calls that allow it fail at once.
    void CancelConnecting();

    enum class Cancel : std::uint8_t { kIgnored, kObeyed };
    // Calls a method of BlueZ and waits for its answer. `write` adds the arguments, `read` takes
    // the results out (on the bus's thread). Throws BleError.
    using Write = std::function<void(sdbus::MethodCall&)>;
    using Read = std::function<void(sdbus::MethodReply&)>;
    struct Method {
        std::string path;
        const char* interface;
        const char* name;
        std::chrono::milliseconds limit;
        Cancel cancel = Cancel::kIgnored;
    };
    void Call(const Method& method, const Write& write = {}, const Read& read = {});
    // Every object that BlueZ has; those of other interfaces are left out.
    std::vector<BluezObject> Objects(Cancel cancel = Cancel::kIgnored);

    // Waits until `happened`, which is asked under the bus's lock. False: the time ran out.
    // Throws BleError when the connection to the bus has gone, or is to be cancelled.
    bool Await(const std::function<bool()>& happened, std::chrono::milliseconds limit,
               Cancel cancel);
    // After a change that a waiter looks at.
    void Announce();

    // Once Remove has returned, no call to the listener is under way any more.
    void Add(BluezListener* listener);
    void Remove(BluezListener* listener);

private:
    struct Answer;

    BluezBus() = default;
    void AddMatches();
    void Run();
    template <typename Function>
    void Tell(Function function);
    void TakeAdded(sdbus::Message& message);
    void TakeRemoved(sdbus::Message& message);
    void TakeChanged(sdbus::Message& message);
    void TakeOwner(sdbus::Message& message);

    std::unique_ptr<sdbus::IConnection> connection_;
    OsThread* thread_ = nullptr;
    std::atomic<bool> closed_{false};
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> answers_{true};

    OsLock lock_;  // for what Await waits for; never held while the bus or a listener is called
    OsCondition changed_;

    OsLock listeners_lock_;  // held while listeners are called; the bus is not called inside
    std::set<BluezListener*> listeners_;
};

}  // namespace tarvik
