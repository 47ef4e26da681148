#pragma once

#include <utility>

#include "transport/ble/winrt_abi.h"

namespace tarvik::winrt {

// Throws a BleError with the system's text if `result` is a failure.
void Check(HRESULT result);

// A reference to an object of the runtime.
template <typename Interface>
class Pointer {
public:
    Pointer() = default;
    explicit Pointer(Interface* adopted) : object_(adopted) {}
    Pointer(Pointer&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Pointer& operator=(Pointer&& other) noexcept {
        Pointer(std::move(other)).Swap(*this);
        return *this;
    }
    ~Pointer() {
        if (object_ != nullptr) AsInspectable()->table->Release(AsInspectable());
    }

    static Pointer Share(Interface* borrowed) {
        Pointer shared(borrowed);
        shared.AsInspectable()->table->AddRef(shared.AsInspectable());
        return shared;
    }

    explicit operator bool() const { return object_ != nullptr; }
    Interface* Get() const { return object_; }
    // Where a function stores a new reference. The pointer must be empty.
    Interface** Receive() { return &object_; }
    void Swap(Pointer& other) noexcept { std::swap(object_, other.object_); }

    // E_POINTER: there is no object.
    template <typename Other>
    HRESULT Query(Pointer<Other>* other) const {
        if (object_ == nullptr) return E_POINTER;
        void* found = nullptr;
        const HRESULT result =
            AsInspectable()->table->QueryInterface(AsInspectable(), Other::kIid, &found);
        if (SUCCEEDED(result) && found == nullptr) return E_POINTER;
        if (SUCCEEDED(result)) *other = Pointer<Other>(static_cast<Other*>(found));
        return result;
    }
    template <typename Other>
    Pointer<Other> Query() const {
        Pointer<Other> other;
        Check(Query(&other));
        return other;
    }

private:
    // All tables begin with the functions of IUnknown.
    Inspectable* AsInspectable() const { return reinterpret_cast<Inspectable*>(object_); }

    Interface* object_ = nullptr;
};

// Calls a function of the object's table. Throws a BleError if it fails, or if there is no object:
// a function that succeeds may still have returned none.
template <typename Interface, typename Function, typename... Arguments>
void Call(Interface* object, Function Interface::Table::*function, Arguments... arguments) {
    Check(object == nullptr ? E_POINTER : (object->table->*function)(object, arguments...));
}
template <typename Interface, typename Function, typename... Arguments>
void Call(const Pointer<Interface>& object, Function Interface::Table::*function,
          Arguments... arguments) {
    Call(object.Get(), function, arguments...);
}

// Releases what the object holds of the system, even if others still refer to the object.
template <typename Interface>
void CloseObject(const Pointer<Interface>& object) noexcept {
    Pointer<Closable> closable;
    if (!object || FAILED(object.Query(&closable))) return;
    closable.Get()->table->Close(closable.Get());
}

}  // namespace tarvik::winrt
