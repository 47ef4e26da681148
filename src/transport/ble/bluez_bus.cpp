#include "transport/ble/bluez_bus.h"

#include <algorithm>
#include <utility>

#include "platform/tick.h"
#include "support/log.h"

namespace tarvik {

using std::chrono::milliseconds;

static constexpr milliseconds kObjectsLimit{5'000};
static constexpr milliseconds kAnswerGrace{1'000};  // for the bus to report its own time-out

static constexpr char kObjectManager[] = "org.freedesktop.DBus.ObjectManager";

// ---------------------------------------------------------------- errors

static std::string Explain(const std::string& name, const std::string& text) {
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

static BleError BusGone() { return BleError("the connection to the system's message bus is lost"); }

// ---------------------------------------------------------------- properties

template <typename T>
static void TakeValue(const BluezPropertyMap& map, const char* name, std::optional<T>* value) {
    const auto found = map.find(name);
    if (found != map.end() && found->second.containsValueOfType<T>())
        *value = found->second.get<T>();
}

BluezProperties::BluezProperties(const BluezPropertyMap& map) {
    TakeValue(map, "Address", &address);
    TakeValue(map, "Name", &name);
    TakeValue(map, "UUID", &uuid);
    TakeValue(map, "Powered", &powered);
    TakeValue(map, "Connected", &connected);
    TakeValue(map, "ServicesResolved", &services_resolved);
    TakeValue(map, "RSSI", &rssi);
    TakeValue(map, "MTU", &mtu);
    TakeValue(map, "Value", &value);
    std::optional<sdbus::ObjectPath> path;
    TakeValue(map, "Service", &path);
    if (path) service = *path;
}

static const char* KnownInterface(const std::string& name) {
    for (const char* known : {kBluezAdapter, kBluezDevice, kBluezService, kBluezCharacteristic}) {
        if (name == known) return known;
    }
    return nullptr;
}

using BluezInterfaces = std::map<std::string, BluezPropertyMap>;

static void AppendObjects(const std::string& path, const BluezInterfaces& interfaces,
                          std::vector<BluezObject>* objects) {
    for (const auto& [interface, properties] : interfaces) {
        if (KnownInterface(interface) != nullptr)
            objects->push_back({path, interface, BluezProperties(properties)});
    }
}

// ---------------------------------------------------------------- the connection

std::shared_ptr<BluezBus> BluezBus::Connect() {
    std::shared_ptr<BluezBus> bus(new BluezBus);
    try {
        bus->connection_ = sdbus::createSystemBusConnection();
        bus->AddMatches();
    } catch (const sdbus::Error& error) {
        throw BleError("the system's message bus cannot be reached (" + error.getMessage() + ")");
    }
    bus->thread_ = OsThreadStart([](void* self) { static_cast<BluezBus*>(self)->Run(); }, bus.get(),
                                 "Tarvik BleBusThread");
    if (bus->thread_ == nullptr) throw BleError("the Bluetooth bus thread cannot be started");
    return bus;
}

BluezBus::~BluezBus() {
    if (thread_ == nullptr) return;
    connection_->leaveEventLoop();
    OsThreadJoin(thread_, -1);
    OsThreadClose(thread_);
}

void BluezBus::AddMatches() {
    struct Match {
        const char* rule;
        void (BluezBus::*take)(sdbus::Message&);
    };
    static constexpr Match kMatches[] = {
        {"type='signal',sender='org.bluez',path='/',"
         "interface='org.freedesktop.DBus.ObjectManager',member='InterfacesAdded'",
         &BluezBus::TakeAdded},
        {"type='signal',sender='org.bluez',path='/',"
         "interface='org.freedesktop.DBus.ObjectManager',member='InterfacesRemoved'",
         &BluezBus::TakeRemoved},
        {"type='signal',sender='org.bluez',path_namespace='/org/bluez',"
         "interface='org.freedesktop.DBus.Properties',member='PropertiesChanged'",
         &BluezBus::TakeChanged},
        {"type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
         "member='NameOwnerChanged',arg0='org.bluez'",
         &BluezBus::TakeOwner},
    };
    for (const Match& match : kMatches) {
        const auto take = match.take;
        const auto callback = [this, take](sdbus::Message& message) {
            try {
                (this->*take)(message);
            } catch (const sdbus::Error& error) {
                Log(kLogTrace, "[BLE] A signal of the Bluetooth service cannot be read: %s",
                    error.getMessage().c_str());
            }
        };
        connection_->addMatch(match.rule, callback, sdbus::floating_slot);
    }
}

void BluezBus::Run() {
    std::string why;
    try {
        connection_->enterEventLoop();
    } catch (const sdbus::Error& error) {
        why = error.getMessage();
    }
    closed_ = true;
    if (!why.empty())
        Log(kLogTrace, "[BLE] The connection to the message bus has ended: %s", why.c_str());
    Announce();
    Tell([](BluezListener& listener) { listener.ServiceGone(); });
}

void BluezBus::CancelConnecting() {
    cancelled_ = true;
    Announce();
}

void BluezBus::Announce() {
    const LockGuard hold(lock_);
    changed_.WakeAll();
}

bool BluezBus::Await(const std::function<bool()>& happened, milliseconds limit, Cancel cancel) {
    const std::uint64_t deadline = TickMs() + static_cast<std::uint64_t>(limit.count());
    const LockGuard hold(lock_);
    for (;;) {
        if (happened()) return true;
        if (closed_) throw BusGone();
        if (cancel == Cancel::kObeyed && cancelled_) throw BleError("connecting was given up");
        const std::uint64_t now = TickMs();
        if (now >= deadline) return false;
        changed_.Wait(lock_, static_cast<std::int32_t>(deadline - now));
    }
}

// ---------------------------------------------------------------- calls

// Of a call under way. It outlives a caller that waits no longer.
struct BluezBus::Answer {
    bool there = false;  // guarded by the bus's lock, like all of it
    bool failed = false;
    std::string error_name = {};
    std::string error_text = {};
};

void BluezBus::Call(const Method& method, const Write& write, const Read& read) {
    if (closed_) throw BusGone();
    const auto answer = std::make_shared<Answer>();
    const auto take = [this, answer, &read](sdbus::MethodReply& reply, const sdbus::Error* error) {
        Answer taken{.there = true};
        try {
            if (error == nullptr && read) read(reply);
        } catch (const sdbus::Error& unreadable) {
            taken.failed = true;
            taken.error_name = unreadable.getName();
            taken.error_text = unreadable.getMessage();
        }
        if (error != nullptr) {
            taken.failed = true;
            taken.error_name = error->getName();
            taken.error_text = error->getMessage();
        }
        const LockGuard hold(lock_);
        *answer = std::move(taken);
        changed_.WakeAll();
    };
    bool answered = false;
    try {
        // Its end takes the callback back, and waits for it if it is running.
        const auto proxy = sdbus::createProxy(*connection_, kBluezName, method.path);
        auto call = proxy->createMethodCall(method.interface, method.name);
        if (write) write(call);
        const auto limit = std::chrono::microseconds(method.limit);
        proxy->callMethod(call, take, static_cast<std::uint64_t>(limit.count()));
        answered = Await([&] { return answer->there; }, method.limit + kAnswerGrace, method.cancel);
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
    Call({"/", kObjectManager, "GetManagedObjects", kObjectsLimit, cancel}, {},
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
void BluezBus::Tell(Function function) {
    const LockGuard hold(listeners_lock_);
    for (BluezListener* listener : listeners_)
        function(*listener);
}

void BluezBus::TakeAdded(sdbus::Message& message) {
    sdbus::ObjectPath path;
    BluezInterfaces interfaces;
    message >> path >> interfaces;
    std::vector<BluezObject> objects;
    AppendObjects(path, interfaces, &objects);
    for (const BluezObject& object : objects)
        Tell([&](BluezListener& listener) { listener.ObjectAdded(object); });
}

void BluezBus::TakeRemoved(sdbus::Message& message) {
    sdbus::ObjectPath path;
    std::vector<std::string> interfaces;
    message >> path >> interfaces;
    for (const std::string& interface : interfaces)
        Tell([&](BluezListener& listener) { listener.ObjectRemoved(path, interface); });
}

void BluezBus::TakeChanged(sdbus::Message& message) {
    std::string interface;
    BluezPropertyMap changed;
    message >> interface >> changed;
    if (KnownInterface(interface) == nullptr) return;
    const BluezObject object{message.getPath(), interface, BluezProperties(changed)};
    Tell([&](BluezListener& listener) { listener.Changed(object); });
}

void BluezBus::TakeOwner(sdbus::Message& message) {
    std::string name, old_owner, new_owner;
    message >> name >> old_owner >> new_owner;
    if (!old_owner.empty()) Tell([](BluezListener& listener) { listener.ServiceGone(); });
}

}  // namespace tarvik
