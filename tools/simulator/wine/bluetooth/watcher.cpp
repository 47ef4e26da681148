#include "wine/bluetooth/watcher.h"

#include <memory>
#include <set>

#include "wine/bluetooth/buffer.h"
#include "wine/bluetooth/delegate.h"
#include "wine/bluetooth/link.h"
#include "wine/bluetooth/radio_client.h"

namespace brennix {

namespace {

enum Status : INT32 { kCreated = 0, kStarted = 1, kStopping = 2, kStopped = 3, kAborted = 4 };

constexpr INT32 kActive = 1;
constexpr INT32 kRadioNotAvailable = 1;

class DataSection final : public Object<IDataSection> {
public:
    DataSection(BYTE type, std::string data)
        : Object("BluetoothLEAdvertisementDataSection"), type_(type), data_(std::move(data)) {}
    HRESULT STDMETHODCALLTYPE get_DataType(BYTE* type) override {
        *type = type_;
        return Enter("get_DataType");
    }
    HRESULT STDMETHODCALLTYPE get_Data(IBuffer** data) override {
        if (const HRESULT fault = Enter("get_Data")) return fault;
        if (ReturnsNull("get_Data", data)) return S_OK;
        return Make<ByteBuffer>(data_).MoveTo(data);
    }

private:
    const BYTE type_;
    const std::string data_;
};

class Advertisement final : public Object<IAdvertisement> {
public:
    explicit Advertisement(std::vector<Ref<IDataSection>> sections)
        : Object("BluetoothLEAdvertisement"), sections_(std::move(sections)) {}
    HRESULT STDMETHODCALLTYPE get_DataSections(IDataSections** sections) override {
        if (const HRESULT fault = Enter("get_DataSections")) return fault;
        if (ReturnsNull("get_DataSections", sections)) return S_OK;
        return Make<List<IDataSections, IDataSection>>(sections_).MoveTo(sections);
    }

private:
    const std::vector<Ref<IDataSection>> sections_;
};

// "-": an advertisement without a name.
Ref<Advertisement> MakeAdvertisement(const std::string& name_hex) {
    constexpr BYTE kFlags = 0x01;
    constexpr BYTE kCompleteLocalName = 0x09;
    std::vector<Ref<IDataSection>> sections;
    sections.emplace_back(new DataSection(kFlags, "\x06"));
    if (name_hex != "-") {
        sections.emplace_back(new DataSection(kCompleteLocalName, FromHex(name_hex)));
    }
    return Make<Advertisement>(std::move(sections));
}

class ReceivedEventArgs final : public Object<IReceivedEventArgs> {
public:
    ReceivedEventArgs(std::uint64_t address, std::int32_t rssi, Ref<Advertisement> advertisement)
        : Object("BluetoothLEAdvertisementReceivedEventArgs"),
          address_(address),
          rssi_(static_cast<INT16>(rssi)),
          advertisement_(std::move(advertisement)) {}
    HRESULT STDMETHODCALLTYPE get_RawSignalStrengthInDBm(INT16* rssi) override {
        *rssi = rssi_;
        return Enter("get_RawSignalStrengthInDBm");
    }
    HRESULT STDMETHODCALLTYPE get_BluetoothAddress(UINT64* address) override {
        *address = address_;
        return Enter("get_BluetoothAddress");
    }
    HRESULT STDMETHODCALLTYPE get_Advertisement(IAdvertisement** advertisement) override {
        if (const HRESULT fault = Enter("get_Advertisement")) return fault;
        if (ReturnsNull("get_Advertisement", advertisement)) return S_OK;
        return Ref<Advertisement>(advertisement_).MoveTo(advertisement);
    }

private:
    const std::uint64_t address_;
    const INT16 rssi_;
    const Ref<Advertisement> advertisement_;
};

class StoppedEventArgs final : public Object<IStoppedEventArgs> {
public:
    explicit StoppedEventArgs(INT32 error)
        : Object("BluetoothLEAdvertisementWatcherStoppedEventArgs"), error_(error) {}
    HRESULT STDMETHODCALLTYPE get_Error(INT32* error) override {
        *error = error_;
        return Enter("get_Error");
    }

private:
    const INT32 error_;
};

class Watcher final : public Object<IWatcher> {
public:
    Watcher() : Object("BluetoothLEAdvertisementWatcher") {}
    ~Watcher() override;

    HRESULT STDMETHODCALLTYPE get_Status(INT32* status) override {
        *status = status_;
        return Enter("get_Status");
    }
    HRESULT STDMETHODCALLTYPE get_ScanningMode(INT32* mode) override {
        *mode = mode_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_ScanningMode(INT32 mode) override {
        mode_ = mode;
        return Enter("put_ScanningMode");
    }
    HRESULT STDMETHODCALLTYPE Start() override;
    HRESULT STDMETHODCALLTYPE Stop() override;
    HRESULT STDMETHODCALLTYPE add_Received(ReceivedHandler* handler, Token* token) override {
        if (const HRESULT fault = Enter("add_Received")) return fault;
        return received_.Add(handler, token);
    }
    // An event may be in progress when its handler is removed, so always deliver one.
    HRESULT STDMETHODCALLTYPE remove_Received(Token token) override {
        Enter("remove_Received");
        const Ref<ReceivedHandler> removed = received_.Remove(token);
        const std::lock_guard hold(last_lock_);
        if (removed && last_) Raise(std::vector{removed}, last_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE add_Stopped(StoppedHandler* handler, Token* token) override {
        if (const HRESULT fault = Enter("add_Stopped")) return fault;
        return stopped_.Add(handler, token);
    }
    HRESULT STDMETHODCALLTYPE remove_Stopped(Token token) override {
        Enter("remove_Stopped");
        stopped_.Remove(token);
        return S_OK;
    }

    // Called by Air, inside its lock.
    void OnAdvertised(Ref<ReceivedEventArgs> arguments) {
        const std::lock_guard hold(last_lock_);
        last_ = arguments;
        Raise(received_.All(), std::move(arguments));
    }
    void OnAborted() {
        status_ = kAborted;
        RaiseStopped(kRadioNotAvailable);
    }

private:
    void Raise(const std::vector<Ref<ReceivedHandler>>& handlers,
               Ref<ReceivedEventArgs> arguments) {
        TaskThread& thread = Threads().advertisements[++raised_ % 2];
        brennix::Raise(thread, handlers, Ref<Watcher>::Share(this), std::move(arguments));
    }
    void RaiseStopped(INT32 error) {
        brennix::Raise(Threads().connections, stopped_.All(), Ref<Watcher>::Share(this),
                       Make<StoppedEventArgs>(error));
    }

    std::atomic<INT32> status_{kCreated};
    std::atomic<INT32> mode_{0};
    std::atomic<unsigned> raised_{0};
    Lock last_lock_;
    Ref<ReceivedEventArgs> last_;  // guarded by last_lock_
    Handlers<ReceivedHandler> received_{"Received", kReceivedHandler};
    Handlers<StoppedHandler> stopped_{"Stopped", kStoppedHandler};
};

// The watchers that scan.
struct Air {
    RecursiveLock lock;
    std::set<Watcher*> watchers;
};
Air& TheAir() {
    static Air* const air = new Air;
    return *air;
}

// The radio's answer to a line about scanning.
std::string AskToScan(const std::string& mode) {
    const auto answer = std::make_shared<Awaited<std::string>>();
    RadioClient::Get()->Ask("scan " + mode, "scanning",
                            [answer](const std::optional<std::string>& rest) {
                                answer->Set(rest.value_or("refused"));
                            });
    return answer->Wait();
}

Watcher::~Watcher() {
    const std::lock_guard hold(TheAir().lock);
    if (TheAir().watchers.erase(this) != 0) Violation("a watcher released while it scans");
}

HRESULT Watcher::Start() {
    if (const HRESULT fault = Enter("Start")) return fault;
    if (AskToScan(mode_ == kActive ? "on" : "passive").starts_with("refused")) {
        OnAborted();
        return S_OK;
    }
    const std::lock_guard hold(TheAir().lock);
    status_ = kStarted;
    TheAir().watchers.insert(this);
    return S_OK;
}

HRESULT Watcher::Stop() {
    if (const HRESULT fault = Enter("Stop")) return fault;
    {
        const std::lock_guard hold(TheAir().lock);
        if (TheAir().watchers.erase(this) == 0) return S_OK;
        status_ = kStopping;
        if (!TheAir().watchers.empty()) return S_OK;
    }
    RadioClient::Get()->Ask("scan off", "scanning",
                            [self = Ref<Watcher>::Share(this)](const auto&) {
                                self->status_ = kStopped;
                                self->RaiseStopped(0);
                            });
    return S_OK;
}

template <typename Body>
void ForEachWatcher(Body body) {
    const std::lock_guard hold(TheAir().lock);
    const std::set<Watcher*> watchers = TheAir().watchers;
    for (Watcher* watcher : watchers) {
        // A watcher may go away meanwhile, even because of the call.
        if (!TheAir().watchers.contains(watcher) || !watcher->TryAddRef()) continue;
        const Ref<Watcher> held(watcher);
        body(watcher);
    }
}

}  // namespace

Ref<IInspectable> MakeWatcher() { return Ref<IInspectable>(new Watcher); }

void Advertised(std::uint64_t address, std::int32_t rssi, const std::string& name_hex) {
    Link::To(address).SetKnown();
    const auto arguments = Make<ReceivedEventArgs>(address, rssi, MakeAdvertisement(name_hex));
    ForEachWatcher([&](Watcher* watcher) { watcher->OnAdvertised(arguments); });
}

void AbortWatchers() {
    const std::lock_guard hold(TheAir().lock);
    ForEachWatcher([](Watcher* watcher) { watcher->OnAborted(); });
    TheAir().watchers.clear();
}

// Uses an exchange that changes nothing.
void AwaitRadio() {
    {
        const std::lock_guard hold(TheAir().lock);
        if (!TheAir().watchers.empty()) return;
    }
    AskToScan("off");
}

}  // namespace brennix
