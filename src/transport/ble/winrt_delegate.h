#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "transport/ble/ble_gate.h"
#include "transport/ble/winrt_pointer.h"

namespace tarvik::winrt {

// The number of delegates. The runtime may keep one longer than its owner does, and calls into this
// library.
inline std::atomic<int> delegates_alive{0};

// A function that the runtime calls, on any thread, possibly on several at once.
template <typename First, typename Second>
class Delegate final : public IUnknown {
public:
    using Body = std::function<void(First, Second)>;  // throws nothing

    // The caller owns the first reference.
    Delegate(const IID& iid, Body body) : iid_(iid), body_(std::move(body)) { ++delegates_alive; }
    Delegate(const Delegate&) = delete;
    Delegate& operator=(const Delegate&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(const IID& iid, void** object) override {
        const bool is_known = ::IsEqualGUID(iid, kIUnknownIid) != 0 ||
                              ::IsEqualGUID(iid, kIAgileObjectIid) != 0 ||
                              ::IsEqualGUID(iid, iid_) != 0;
        *object = is_known ? this : nullptr;
        if (!is_known) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) delete this;
        return left;
    }
    // Must be the first virtual function after the three of IUnknown.
    virtual HRESULT STDMETHODCALLTYPE Invoke(First first, Second second) noexcept {
        if (gate_.Enter()) {
            body_(first, second);
            gate_.Leave();
        }
        return S_OK;
    }

    // The body does not run after Close has returned.
    void Close() { gate_.Close(); }

private:
    ~Delegate() { --delegates_alive; }

    const IID iid_;
    const Body body_;
    BleGate gate_;
    std::atomic<ULONG> references_{1};
};

// Handles an event of `Source` between Begin and End.
template <typename Source, typename Arguments>
class EventHandler {
public:
    using Token = EventRegistrationToken;
    using Add = Method<Source, IUnknown*, Token*> Source::Table::*;
    using Remove = Method<Source, Token> Source::Table::*;

    EventHandler() = default;
    EventHandler(const EventHandler&) = delete;
    EventHandler& operator=(const EventHandler&) = delete;
    ~EventHandler() { End(); }

    // `iid`: of the event's delegate type. `body` throws nothing.
    void Begin(const Pointer<Source>& source, Add add, Remove remove, const IID& iid,
               std::function<void(Arguments*)> body) {
        delegate_ = new EventDelegate(
            iid, [body = std::move(body)](Inspectable*, Arguments* arguments) { body(arguments); });
        try {
            Call(source, add, static_cast<IUnknown*>(delegate_), &token_);
        } catch (...) {
            std::exchange(delegate_, nullptr)->Release();
            throw;
        }
        source_ = Pointer<Source>::Share(source.Get());
        remove_ = remove;
    }

    // The body does not run after End has returned. The delegate is closed first, because events
    // may still arrive for a while after their handler was removed.
    void End() noexcept {
        if (delegate_ == nullptr) return;
        delegate_->Close();
        (source_.Get()->table->*remove_)(source_.Get(), token_);
        std::exchange(delegate_, nullptr)->Release();
        source_ = {};
    }

private:
    using EventDelegate = Delegate<Inspectable*, Arguments*>;

    Pointer<Source> source_;
    EventDelegate* delegate_ = nullptr;  // one reference
    Token token_{};
    Remove remove_ = nullptr;
};

}  // namespace tarvik::winrt
