#include "transport/ble/bluez_bus.h"

#include <algorithm>
#include <map>
#include <utility>

#include "platform/posix/standard_descriptors.h"
#include "platform/tick.h"
#include "support/log.h"
#include "transport/ble/ble_text.h"
#include "transport/ble/bluez_limits.h"
#include "transport/ble/bluez_values.h"

namespace tarvik {
namespace {

constexpr char kBusName[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";
constexpr char kNoMemory[] = "org.freedesktop.DBus.Error.NoMemory";
constexpr char kObjectManager[] = "org.freedesktop.DBus.ObjectManager";

std::string Explain(const std::string& name, const std::string& text) {
    struct Explanation {
        const char* name;
        const char* text;
    };
    static constexpr Explanation kExplanations[] = {
        {"org.freedesktop.DBus.Error.ServiceUnknown", "the Bluetooth service is not running"},
        {"org.freedesktop.DBus.Error.NameHasNoOwner", "the Bluetooth service is not running"},
        {"org.freedesktop.DBus.Error.AccessDenied", "no permission to use the Bluetooth service"},
        {"org.freedesktop.DBus.Error.NoReply", "the Bluetooth service does not answer"},
        {"org.freedesktop.DBus.Error.Timeout", "the Bluetooth service does not answer"},
        {"org.bluez.Error.NotAuthorized", "no permission to use the Bluetooth adapter"},
        {"org.bluez.Error.NotReady", "the Bluetooth adapter is switched off"},
    };
    for (const Explanation& each : kExplanations) {
        if (name == each.name) return std::string(each.text) + " (" + text + ")";
    }
    return name + ": " + text;
}

BleError BusGone() { return BleError("the connection to the system's message bus is lost"); }
BleError GivenUp() { return BleError("connecting was given up"); }

}  // namespace

// ---------------------------------------------------------------- errors

BluezError::BluezError(std::string name, const std::string& text)
    : BleError(Explain(name, text)), name_(std::move(name)) {}

bool BluezError::IsObjectGone() const {
    return name_ == "org.freedesktop.DBus.Error.UnknownObject" ||
           name_ == "org.freedesktop.DBus.Error.UnknownMethod" || Is("DoesNotExist");
}

bool BluezError::IsSilence() const {
    return name_ == "org.freedesktop.DBus.Error.NoReply" ||
           name_ == "org.freedesktop.DBus.Error.Timeout";
}

bool BluezError::IsRefused() const {
    return name_ == "org.freedesktop.DBus.Error.AccessDenied" || Is("NotAuthorized") ||
           Is("NotPermitted");
}

// ---------------------------------------------------------------- the connection

std::shared_ptr<BluezBus> BluezBus::Connect() {
    std::shared_ptr<BluezBus> bus(new BluezBus);
    try {
        const StandardDescriptorsTaken standard;
        bus->connection_ = sdbus::createSystemBusConnection();
        bus->AddMatches();
        bus->Prepare();
    } catch (const sdbus::Error& error) {
        throw BleError("the system's message bus cannot be reached (" + error.getMessage() + ")");
    }
    bus->thread_ = OsThreadStart([](void* self) { static_cast<BluezBus*>(self)->Run(); }, bus.get(),
                                 "Tarvik BleBusThread");
    if (bus->thread_ == nullptr) throw BleError("the Bluetooth bus thread cannot be started");
    bus->AskForService(GetBluezLimits().open_bus_ms, Cancel::kIgnored);
    return bus;
}

BluezBus::~BluezBus() {
    if (thread_ == nullptr) return;
    connection_->leaveEventLoop();
    OsThreadJoin(thread_, -1);
    OsThreadClose(thread_);
}

// If the bus's library has no memory for its table of calls, it destroys the new call while it has
// locked the table, and the bus's thread, which wants to remove an answered call, may be locking
// the same two mutexes in the other order. So all calls share one table, and a first call makes it
// big enough before that thread runs.
void BluezBus::Prepare() {
    BusValues::Prepare();
    calls_ = sdbus::createProxy(*connection_, kBluezName, "/");
    const auto bus = sdbus::createProxy(*connection_, kBusName, kBusPath);
    const auto call = bus->createMethodCall(kBusName, "GetId");
    calls_
        ->callMethod(
            call, [](sdbus::MethodReply&, const sdbus::Error*) {}, 1'000'000)
        .cancel();
}

// The matches exist already, so that no later change is missed. The answer is read in its order
// among the signals.
void BluezBus::AskForService(std::uint32_t limit_ms, Cancel cancel) {
    Call(
        {.path = kBusPath,
         .interface = kBusName,
         .name = "NameHasOwner",
         .limit_ms = limit_ms,
         .cancel = cancel,
         .service = kBusName},
        [](sdbus::MethodCall& call) { call << std::string(kBluezName); },
        [this](sdbus::MethodReply& reply) {
            bool there = false;
            reply >> there;
            service_there_ = there;
        });
}

// Without this, a call would start the service. On a computer without an adapter the service never
// takes its name, and the bus keeps the call for longer than its limit. The signal that it is back
// from a restart may still be on its way, and a dongle that one scan does not find stays missing.
void BluezBus::RequireService(const Method& method) {
    if (std::string_view(method.service) != kBluezName || service_there_) return;
    AskForService(std::min(method.limit_ms, GetBluezLimits().open_bus_ms), method.cancel);
    if (service_there_) return;
    throw BluezError("org.freedesktop.DBus.Error.NameHasNoOwner",
                     std::string(kBluezName) + " has no owner");
}

void BluezBus::AddMatches() {
    struct Match {
        const char* rule;
        void (BluezBus::*handle)(sdbus::Message&);
    };
    static constexpr Match kMatches[] = {
        {"type='signal',sender='org.bluez',path='/',"
         "interface='org.freedesktop.DBus.ObjectManager',member='InterfacesAdded'",
         &BluezBus::OnAdded},
        {"type='signal',sender='org.bluez',path='/',"
         "interface='org.freedesktop.DBus.ObjectManager',member='InterfacesRemoved'",
         &BluezBus::OnRemoved},
        {"type='signal',sender='org.bluez',path_namespace='/org/bluez',"
         "interface='org.freedesktop.DBus.Properties',member='PropertiesChanged'",
         &BluezBus::OnChanged},
        {"type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
         "member='NameOwnerChanged',arg0='org.bluez'",
         &BluezBus::OnOwnerChanged},
    };
    for (const Match& match : kMatches) {
        const auto handle = match.handle;
        const auto callback = [this, handle](sdbus::Message& message) {
            // Nothing may pass through the bus's library, which is in C.
            try {
                const BusValues values;
                (this->*handle)(message);
            } catch (const sdbus::Error& error) {
                // Calls without values still work: PDUDestruct may follow, in an exit handler.
                if (error.getName() == BusValues::kEnding) return;
                Log(kLogTrace, "[BLE] A signal of the Bluetooth service cannot be read: %s",
                    error.getMessage().c_str());
                if (error.getName() == kNoMemory) End("out of memory");
            } catch (...) {
                End("out of memory");
            }
        };
        connection_->addMatch(match.rule, callback, sdbus::floating_slot);
    }
}

// On the bus's thread. Whoever has read the line finds the bus closed.
void BluezBus::Close(const char* why) {
    closed_ = true;
    Log(kLogTrace, "[BLE] The connection to the message bus has ended: %s", why);
}

// A signal is lost, so nothing that is known of BlueZ's objects holds any more. The next scan
// connects the bus anew.
void BluezBus::End(const char* why) {
    Close(why);
    connection_->leaveEventLoop();
}

void BluezBus::Run() {
    try {
        connection_->enterEventLoop();
    } catch (const sdbus::Error& error) {
        Close(error.getMessage().c_str());
    } catch (...) {
        Close(BleErrorText().text);  // its library throws when memory is out
    }
    closed_ = true;
    WakeWaiters();
    Notify([](BluezListener& listener) { listener.ServiceGone(); });
}

void BluezBus::CancelConnecting() {
    cancelled_ = true;
    WakeWaiters();
}

void BluezBus::WakeWaiters() {
    const LockGuard hold(lock_);
    changed_.WakeAll();
}

bool BluezBus::Await(const std::function<bool()>& happened, std::uint32_t limit_ms, Cancel cancel) {
    const std::uint64_t deadline = TickMs() + limit_ms;
    const LockGuard hold(lock_);
    for (;;) {
        if (happened()) return true;
        if (closed_) throw BusGone();
        if (cancel == Cancel::kObeyed && cancelled_) throw GivenUp();
        const std::uint64_t now = TickMs();
        if (now >= deadline) return false;
        changed_.Wait(lock_, static_cast<std::int32_t>(deadline - now));
    }
}

// ---------------------------------------------------------------- calls

// The answer to a call. May arrive after the caller has stopped waiting. Guarded by the bus's lock.
struct BluezBus::Answer {
    bool there = false;
    bool failed = false;
    std::string error_name = {};
    std::string error_text = {};

    void Fail(const sdbus::Error& error) {
        failed = true;
        error_name = error.getName();
        error_text = error.getMessage();
    }
};

// Throws nothing: that would pass through the bus's library, which is in C.
BluezBus::Answer BluezBus::TakeAnswer(sdbus::MethodReply& reply, const sdbus::Error* error,
                                      const Read& read) noexcept {
    Answer taken;
    taken.there = true;
    try {
        if (error != nullptr) {
            taken.Fail(*error);
            return taken;
        }
        try {
            if (read) {
                const BusValues values;
                read(reply);
            }
        } catch (const sdbus::Error& unreadable) {
            taken.Fail(unreadable);
        }
    } catch (...) {
        taken.failed = true;
        taken.error_name = "NoMemory";  // short enough to need none
        taken.error_text = "out of memory";
    }
    return taken;
}

namespace {

// Its destructor unregisters the callback, and waits for it if it is running.
class PendingCall {
public:
    explicit PendingCall(sdbus::PendingAsyncCall call) : call_(std::move(call)) {}
    ~PendingCall() { call_.cancel(); }
    PendingCall(const PendingCall&) = delete;
    PendingCall& operator=(const PendingCall&) = delete;

private:
    sdbus::PendingAsyncCall call_;
};

}  // namespace

void BluezBus::Call(const Method& method, const Write& write, const Read& read) {
    if (closed_) throw BusGone();
    // An answer may come before anybody waits for it, and would then count.
    if (method.cancel == Cancel::kObeyed && cancelled_) throw GivenUp();
    RequireService(method);
    const auto answer = std::make_shared<Answer>();
    const auto take = [this, answer, &read](sdbus::MethodReply& reply, const sdbus::Error* error) {
        Answer taken = TakeAnswer(reply, error, read);
        const LockGuard hold(lock_);
        *answer = std::move(taken);
        changed_.WakeAll();
    };
    bool answered = false;
    try {
        const auto proxy = sdbus::createProxy(*connection_, method.service, method.path);
        auto call = proxy->createMethodCall(method.interface, method.name);
        if (write) {
            const BusValues values;
            write(call);
        }
        const PendingCall pending(
            calls_->callMethod(call, take, std::uint64_t{method.limit_ms} * 1'000));
        answered = Await([&] { return answer->there; },
                         method.limit_ms + GetBluezLimits().answer_grace_ms, method.cancel);
    } catch (const sdbus::Error& error) {
        throw BluezError(error.getName(), error.getMessage());
    }
    answers_ = answered;
    if (!answered) throw BluezError("org.freedesktop.DBus.Error.NoReply", "no answer in time");
    if (!answer->failed) return;
    const BluezError error(answer->error_name, answer->error_text);
    answers_ = !error.IsSilence();
    throw error;
}

std::vector<BluezObject> BluezBus::Objects(Cancel cancel) {
    std::vector<BluezObject> objects;
    Call({"/", kObjectManager, "GetManagedObjects", GetBluezLimits().objects_ms, cancel}, {},
         [&objects](sdbus::MethodReply& reply) {
             std::map<sdbus::ObjectPath, BluezInterfaces> tree;
             reply >> tree;
             for (const auto& [path, interfaces] : tree)
                 AppendObjects(path, interfaces, &objects);
         });
    return objects;
}

// ---------------------------------------------------------------- signals

void BluezBus::Add(BluezListener* listener) {
    const LockGuard hold(listeners_lock_);
    listeners_.insert(listener);
}

void BluezBus::Remove(BluezListener* listener) {
    const LockGuard hold(listeners_lock_);
    listeners_.erase(listener);
}

template <typename Function>
void BluezBus::Notify(Function function) {
    const LockGuard hold(listeners_lock_);
    for (BluezListener* listener : listeners_)
        function(*listener);
}

void BluezBus::OnAdded(sdbus::Message& message) {
    sdbus::ObjectPath path;
    BluezInterfaces interfaces;
    message >> path >> interfaces;
    std::vector<BluezObject> objects;
    AppendObjects(path, interfaces, &objects);
    for (const BluezObject& object : objects)
        Notify([&](BluezListener& listener) { listener.ObjectAdded(object); });
}

void BluezBus::OnRemoved(sdbus::Message& message) {
    sdbus::ObjectPath path;
    std::vector<std::string> interfaces;
    message >> path >> interfaces;
    for (const std::string& interface : interfaces)
        Notify([&](BluezListener& listener) { listener.ObjectRemoved(path, interface); });
}

void BluezBus::OnChanged(sdbus::Message& message) {
    std::string interface;
    BluezPropertyMap changed;
    message >> interface >> changed;
    if (!IsBluezInterface(interface)) return;
    const BluezObject object{message.getPath(), interface, BluezProperties(changed)};
    Notify([&](BluezListener& listener) { listener.Changed(object); });
}

void BluezBus::OnOwnerChanged(sdbus::Message& message) {
    std::string name, old_owner, new_owner;
    message >> name >> old_owner >> new_owner;
    service_there_ = !new_owner.empty();
    if (old_owner.empty()) return;
    discovery_left_ = false;
    Notify([](BluezListener& listener) { listener.ServiceGone(); });
}

}  // namespace tarvik
