#include "wine/bluetooth/gatt.h"

#include <memory>
#include <sstream>

#include "wine/bluetooth/buffer.h"
#include "wine/bluetooth/radio_client.h"

namespace brennix {

namespace {

using StatusOperation = Operation<IStatusOperation, StatusIds, INT32, INT32>;
using CharacteristicsOperation = Operation<ICharacteristicsOperation, CharacteristicsIds,
                                           ICharacteristicsResult*, Ref<ICharacteristicsResult>>;

GUID ParseUuid(const std::string& text) {
    std::string digits;
    for (const char letter : text) {
        if (letter != '-') digits += letter;
    }
    const std::string bytes = FromHex(digits);
    const auto at = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes.at(i)); };
    GUID uuid{};
    uuid.Data1 = static_cast<std::uint32_t>(std::stoul(digits.substr(0, 8), nullptr, 16));
    uuid.Data2 = static_cast<std::uint16_t>(at(4) * 256 + at(5));
    uuid.Data3 = static_cast<std::uint16_t>(at(6) * 256 + at(7));
    for (std::size_t i = 0; i < 8; ++i)
        uuid.Data4[i] = at(8 + i);
    return uuid;
}

// "0 uuid,uuid", "0 -" for none, or another status alone.
struct Found {
    INT32 status = kUnreachable;
    std::vector<std::string> uuids;
};
Found ParseFound(const std::string& text) {
    Found found;
    std::istringstream words(text);
    std::string list;
    words >> found.status >> list;
    std::istringstream items(list == "-" ? "" : list);
    for (std::string uuid; std::getline(items, uuid, ',');)
        found.uuids.push_back(uuid);
    return found;
}

INT32 ParseStatus(const std::optional<std::string>& text) {
    return text ? std::stoi(*text) : INT32{kUnreachable};
}

// ---------------------------------------------------------------- characteristic

class ValueChangedEventArgs final : public Object<IValueChangedEventArgs> {
public:
    explicit ValueChangedEventArgs(std::string value)
        : Object("GattValueChangedEventArgs"), value_(std::move(value)) {}
    HRESULT STDMETHODCALLTYPE get_CharacteristicValue(IBuffer** value) override {
        if (const HRESULT fault = Enter("get_CharacteristicValue")) return fault;
        if (ReturnsNull("get_CharacteristicValue", value)) return S_OK;
        return Make<ByteBuffer>(value_).MoveTo(value);
    }

private:
    const std::string value_;
};

// Asks its service whether that was closed.
using ClosedFlag = std::shared_ptr<std::atomic<bool>>;

class Characteristic final : public Object<ICharacteristic>, private LinkListener {
public:
    Characteristic(Link* link, ClosedFlag service_closed, const std::string& uuid)
        : Object("GattCharacteristic"),
          link_(link),
          connection_(link->Number()),
          service_closed_(std::move(service_closed)),
          uuid_(ParseUuid(uuid)) {
        link_->Add(this);
    }
    ~Characteristic() override { link_->Remove(this); }

    HRESULT STDMETHODCALLTYPE get_Uuid(GUID* uuid) override {
        *uuid = uuid_;
        return EnterOpen("get_Uuid");
    }
    HRESULT STDMETHODCALLTYPE WriteValueWithOptionAsync(IBuffer* value, INT32 option,
                                                        IStatusOperation** operation) override;
    HRESULT STDMETHODCALLTYPE WriteClientCharacteristicConfigurationDescriptorAsync(
        INT32 value, IStatusOperation** operation) override;
    HRESULT STDMETHODCALLTYPE add_ValueChanged(ValueChangedHandler* handler,
                                               Token* token) override {
        if (const HRESULT fault = EnterOpen("add_ValueChanged")) return fault;
        return value_changed_.Add(handler, token);
    }
    // A notification may be in progress when its handler is removed, so deliver the last one again.
    HRESULT STDMETHODCALLTYPE remove_ValueChanged(Token token) override {
        EnterOpen("remove_ValueChanged");
        const Ref<ValueChangedHandler> removed = value_changed_.Remove(token);
        const std::lock_guard hold(last_lock_);
        if (removed && last_) RaiseValueChanged({removed}, last_);
        return S_OK;
    }

private:
    HRESULT EnterOpen(const char* function) const {
        if (!*service_closed_) return Enter(function);
        Violation(std::string(function) + " after its service was closed");
        return static_cast<HRESULT>(0x80000013);  // RO_E_CLOSED
    }
    // The connection on which it was found.
    bool IsReachable() const { return link_->Number() == connection_; }
    void Ask(const std::string& line, const char* verb, const Ref<StatusOperation>& operation) {
        if (!IsReachable()) return operation->Complete(kUnreachable);
        RadioClient::Get()->Ask(line, verb, [operation](const std::optional<std::string>& status) {
            operation->Complete(ParseStatus(status));
        });
    }
    void Subscribe(const Ref<StatusOperation>& operation) {
        if (!IsReachable()) return operation->Complete(kUnreachable);
        RadioClient::Get()->Ask("subscribe " + AddressText(link_->Address()), "subscribed",
                                [operation, link = link_](const std::optional<std::string>& text) {
                                    const INT32 status = ParseStatus(text);
                                    AsyncStatus state = Completed;
                                    operation->get_Status(&state);
                                    // A program that has given up does not know.
                                    if (status == 0 && state == Started) link->SetSubscribed(true);
                                    operation->Complete(status);
                                });
    }
    // The order of two simultaneous writes is undefined.
    void CheckLastWrite(const Ref<StatusOperation>& next) {
        const std::lock_guard hold(last_lock_);
        AsyncStatus status = Completed;
        if (last_write_) last_write_->get_Status(&status);
        if (status == Started) Violation("a write before the last one was over");
        last_write_ = next;
    }
    void RaiseValueChanged(const std::vector<Ref<ValueChangedHandler>>& handlers,
                           const Ref<ValueChangedEventArgs>& arguments) {
        Raise(Threads().notifications, handlers, Ref<Characteristic>::Share(this), arguments);
    }
    void OnNotified(const std::string& value) override {
        if (!IsReachable() || !TryAddRef()) return;
        const Ref<Characteristic> held(this);
        const std::lock_guard hold(last_lock_);
        last_ = Make<ValueChangedEventArgs>(value);
        RaiseValueChanged(value_changed_.All(), last_);
    }

    Link* const link_;
    const std::uint64_t connection_;
    const ClosedFlag service_closed_;
    const GUID uuid_;
    Lock last_lock_;
    Ref<ValueChangedEventArgs> last_;  // guarded by last_lock_, as is the next
    Ref<StatusOperation> last_write_;
    Handlers<ValueChangedHandler> value_changed_{"ValueChanged", kValueChangedHandler};
};

// For a buffer made by the program.
std::string BytesOf(IBuffer* buffer) {
    UINT32 length = 0;
    void* access = nullptr;
    if (FAILED(buffer->get_Length(&length)) ||
        FAILED(buffer->QueryInterface(IBufferByteAccess::kId, &access))) {
        Violation("a buffer without access to its bytes");
        return {};
    }
    const Ref<IBufferByteAccess> held(static_cast<IBufferByteAccess*>(access));
    BYTE* bytes = nullptr;
    held->Buffer(&bytes);
    return {reinterpret_cast<const char*>(bytes), length};
}

HRESULT Characteristic::WriteValueWithOptionAsync(IBuffer* value, INT32 option,
                                                  IStatusOperation** place) {
    constexpr const char* kFunction = "WriteValueWithOptionAsync";
    if (const HRESULT fault = EnterOpen(kFunction)) return fault;
    const std::string bytes = BytesOf(value);
    if (option != 1) Violation("a write with response");
    if (bytes.size() + 3 > link_->Mtu()) Violation("a write that is too long for the connection");
    return BeginOperation<StatusOperation>(
        kFunction, place,
        [&](const Ref<StatusOperation>& operation) {
            CheckLastWrite(operation);
            Ask("write " + AddressText(link_->Address()) + " " +
                    ToHex(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()),
                "written", operation);
        },
        [](const Ref<StatusOperation>& operation, INT32 status) { operation->Complete(status); });
}

HRESULT Characteristic::WriteClientCharacteristicConfigurationDescriptorAsync(
    INT32 value, IStatusOperation** place) {
    constexpr const char* kFunction = "WriteClientCharacteristicConfigurationDescriptorAsync";
    if (value == 0) link_->SetSubscribed(false);  // trying is enough
    if (const HRESULT fault = EnterOpen(kFunction)) return fault;
    if (value == 1 && value_changed_.All().empty()) {
        Violation("notifications switched on without a handler");
    }
    return BeginOperation<StatusOperation>(
        kFunction, place,
        [&](const Ref<StatusOperation>& operation) {
            const std::string address = AddressText(link_->Address());
            if (value == 1) return Subscribe(operation);
            if (value == 0) return Ask("unsubscribe " + address, "unsubscribed", operation);
            Violation("a descriptor value of " + std::to_string(value));
            operation->Fail(E_INVALIDARG);
        },
        [](const Ref<StatusOperation>& operation, INT32 status) { operation->Complete(status); });
}

class CharacteristicsResult final : public Object<ICharacteristicsResult> {
public:
    CharacteristicsResult(INT32 status, std::vector<Ref<ICharacteristic>> list)
        : Object("GattCharacteristicsResult"), status_(status), list_(std::move(list)) {}
    HRESULT STDMETHODCALLTYPE get_Status(INT32* status) override {
        *status = status_;
        return Enter("get_Status");
    }
    HRESULT STDMETHODCALLTYPE get_Characteristics(ICharacteristics** list) override {
        if (const HRESULT fault = Enter("get_Characteristics")) return fault;
        if (ReturnsNull("get_Characteristics", list)) return S_OK;
        return Make<List<ICharacteristics, ICharacteristic>>(list_).MoveTo(list);
    }

private:
    const INT32 status_;
    const std::vector<Ref<ICharacteristic>> list_;
};

// ---------------------------------------------------------------- service

class Session final : public ClosableObject<IGattSession> {
public:
    explicit Session(Link* link) : ClosableObject("GattSession"), link_(link), hold_(link) {}
    HRESULT STDMETHODCALLTYPE get_MaxPduSize(UINT16* size) override {
        if (const HRESULT fault = EnterOpen("get_MaxPduSize")) return fault;
        const std::optional<Fault> planned = TakeFault("get_MaxPduSize");
        *size = planned ? static_cast<UINT16>(planned->value) : link_->Mtu();
        return S_OK;
    }

private:
    void OnClose() override { hold_.End(); }

    Link* const link_;
    LinkHold hold_;
};

class Service final : public ClosableObject<IGattService, IGattService3> {
public:
    Service(Link* link, std::string uuid)
        : ClosableObject("GattDeviceService"), link_(link), uuid_(std::move(uuid)), hold_(link) {}

    HRESULT STDMETHODCALLTYPE get_Uuid(GUID* uuid) override {
        *uuid = ParseUuid(uuid_);
        return EnterOpen("get_Uuid");
    }
    HRESULT STDMETHODCALLTYPE get_Session(IGattSession** session) override {
        if (const HRESULT fault = EnterOpen("get_Session")) return fault;
        if (ReturnsNull("get_Session", session)) return S_OK;
        Ref<Session> made = Make<Session>(link_);
        made->Set();
        return made.MoveTo(session);
    }
    HRESULT STDMETHODCALLTYPE
    GetCharacteristicsAsync(ICharacteristicsOperation** operation) override {
        return GetCharacteristics("GetCharacteristicsAsync", operation);
    }
    HRESULT STDMETHODCALLTYPE
    GetCharacteristicsWithCacheModeAsync(INT32, ICharacteristicsOperation** operation) override {
        return GetCharacteristics("GetCharacteristicsWithCacheModeAsync", operation);
    }

private:
    HRESULT GetCharacteristics(const char* function, ICharacteristicsOperation** operation);
    void OnClose() override {
        *closed_ = true;
        hold_.End();
    }

    Link* const link_;
    const std::string uuid_;
    LinkHold hold_;
    const ClosedFlag closed_ = std::make_shared<std::atomic<bool>>(false);
};

HRESULT Service::GetCharacteristics(const char* function, ICharacteristicsOperation** place) {
    using Made = CharacteristicsOperation;
    if (const HRESULT fault = EnterOpen(function)) return fault;
    const auto complete = [](const Ref<Made>& operation, INT32 status,
                             std::vector<Ref<ICharacteristic>> list) {
        operation->Complete(
            Ref<ICharacteristicsResult>(new CharacteristicsResult(status, std::move(list))));
    };
    return BeginOperation<Made>(
        function, place,
        [&](const Ref<Made>& operation) {
            const auto answer = [complete, operation, link = link_,
                                 closed = closed_](const std::optional<std::string>& text) {
                const std::string rest = text.value_or(" 1");  // after the service's uuid
                const Found found = ParseFound(rest.substr(rest.find(' ') + 1));
                std::vector<Ref<ICharacteristic>> list;
                for (const std::string& uuid : found.uuids) {
                    list.emplace_back(new Characteristic(link, closed, uuid));
                }
                complete(operation, found.status, std::move(list));
            };
            RadioClient::Get()->Ask(
                "characteristics " + AddressText(link_->Address()) + " " + uuid_, "characteristics",
                answer);
        },
        [&](const Ref<Made>& operation, INT32 status) { complete(operation, status, {}); });
}

}  // namespace

HRESULT ServicesResult::get_Status(INT32* status) {
    *status = status_;
    return Enter("get_Status");
}

HRESULT ServicesResult::get_Services(IGattServices** list) {
    if (const HRESULT fault = Enter("get_Services")) return fault;
    if (ReturnsNull("get_Services", list)) return S_OK;
    return Make<List<IGattServices, IGattService>>(services_).MoveTo(list);
}

HRESULT GetServices(const char* function, Link* link, IServicesOperation** place) {
    using Made = ServicesOperation;
    const auto complete = [link](const Ref<Made>& operation, const Found& found) {
        std::vector<Ref<IGattService>> list;
        for (const std::string& uuid : found.uuids)
            list.emplace_back(new Service(link, uuid));
        operation->Complete(
            Ref<IServicesResult>(new ServicesResult(found.status, std::move(list))));
    };
    return BeginOperation<Made>(
        function, place,
        [&](const Ref<Made>& operation) {
            link->Connect([complete, operation, link](bool connected) {
                if (!connected) return complete(operation, Found{});
                RadioClient::Get()->Ask(
                    "services " + AddressText(link->Address()), "services",
                    [complete, operation](const std::optional<std::string>& text) {
                        complete(operation, ParseFound(text.value_or("1")));
                    });
            });
        },
        [&](const Ref<Made>& operation, INT32 status) {
            complete(operation, Found{status, {}});
        });
}

}  // namespace brennix
