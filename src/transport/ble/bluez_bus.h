#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/lock.h"
#include "platform/thread.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/bluez_objects.h"

namespace tarvik {

inline constexpr char kBluezName[] = "org.bluez";

// The error with which BlueZ, or the bus in its place, answered a call.
class BluezError final : public BleError {
public:
    BluezError(std::string name, const std::string& text);
    // `name` is the part after "org.bluez.Error.".
    bool Is(std::string_view name) const {
        constexpr std::string_view kBegin = "org.bluez.Error.";
        return name_.starts_with(kBegin) && name_.compare(kBegin.size(), name_.npos, name) == 0;
    }
    bool IsObjectGone() const;
    bool IsSilence() const;  // no answer in time
    bool IsRefused() const;  // this user has no permission

private:
    std::string name_;
};

// Signals of BlueZ's objects. Called on the bus's own thread, which must not be blocked.
class BluezListener {
public:
    virtual void ObjectAdded(const BluezObject&) {}
    virtual void ObjectRemoved(const std::string& /*path*/, const std::string& /*interface*/) {}
    virtual void Changed(const BluezObject&) {}  // contains only the properties that changed
    virtual void ServiceGone() {}                // bluetoothd or the bus has gone

protected:
    ~BluezListener() = default;
};

// A connection to the system's message bus, with a thread that receives answers and signals.
class BluezBus {
public:
    static std::shared_ptr<BluezBus> Connect();  // throws a BleError
    ~BluezBus();
    BluezBus(const BluezBus&) = delete;
    BluezBus& operator=(const BluezBus&) = delete;

    bool closed() const { return closed_; }
    // False: the last finished call got no answer in time.
    bool answers() const { return answers_; }
    // BlueZ did not stop this connection's discovery, and may keep it until the connection ends.
    bool discovery_left() const { return discovery_left_; }
    void SetDiscoveryLeft(bool left) { discovery_left_ = left; }
    // Calls with Cancel::kObeyed fail at once from now on.
    void CancelConnecting();

    enum class Cancel : std::uint8_t { kIgnored, kObeyed };
    // Calls a method of BlueZ and waits for its answer. `write` adds the arguments; `read` reads
    // the results, on the bus's thread. Throws a BleError.
    using Write = std::function<void(sdbus::MethodCall&)>;
    using Read = std::function<void(sdbus::MethodReply&)>;
    struct Method {
        std::string path;
        const char* interface;
        const char* name;
        std::uint32_t limit_ms;
        Cancel cancel = Cancel::kIgnored;
        const char* service = kBluezName;
    };
    void Call(const Method& method, const Write& write = {}, const Read& read = {});
    // All of BlueZ's objects that have a known interface.
    std::vector<BluezObject> Objects(Cancel cancel = Cancel::kIgnored);

    // Waits until `happened`, which is called under the bus's lock. False: time ran out. Throws a
    // BleError if the connection to the bus is lost, or if connecting is cancelled.
    bool Await(const std::function<bool()>& happened, std::uint32_t limit_ms, Cancel cancel);
    // Call it after each change that `happened` looks at.
    void WakeWaiters();

    // The listener is not called after Remove has returned.
    void Add(BluezListener* listener);
    void Remove(BluezListener* listener);

private:
    struct Answer;

    BluezBus() = default;
    void Prepare();
    void Close(const char* why);
    void End(const char* why);  // on the bus's thread
    static Answer TakeAnswer(sdbus::MethodReply& reply, const sdbus::Error* error,
                             const Read& read) noexcept;
    void AskForService(std::uint32_t limit_ms, Cancel cancel);
    void RequireService(const Method& method);
    void AddMatches();
    void Run();
    template <typename Function>
    void Notify(Function function);
    void OnAdded(sdbus::Message& message);
    void OnRemoved(sdbus::Message& message);
    void OnChanged(sdbus::Message& message);
    void OnOwnerChanged(sdbus::Message& message);

    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IProxy> calls_;  // has all calls that are under way
    OsThread* thread_ = nullptr;
    std::atomic<bool> closed_{false};
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> answers_{true};
    std::atomic<bool> discovery_left_{false};
    std::atomic<bool> service_there_{false};  // org.bluez has an owner

    OsLock lock_;  // for Await's condition; never held while the bus or a listener is called
    OsCondition changed_;

    OsLock listeners_lock_;  // held while listeners are called; never while the bus is called
    std::set<BluezListener*> listeners_;
};

}  // namespace tarvik
