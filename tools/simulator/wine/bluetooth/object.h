// The common base of all objects of the stand-in.

#pragma once

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "wine/bluetooth/interfaces.h"
#include "wine/bluetooth/rules.h"

namespace brennix {

// A reference that its owner releases.
template <typename Interface>
class Ref {
public:
    Ref() = default;
    explicit Ref(Interface* adopted) : object_(adopted) {}
    Ref(const Ref& other) : Ref(Share(other.object_)) {}
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Ref() {
        if (object_ != nullptr) object_->Release();
    }
    static Ref Share(Interface* borrowed) {
        if (borrowed != nullptr) borrowed->AddRef();
        return Ref(borrowed);
    }

    Interface* operator->() const { return object_; }
    Interface* Get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    // Passes the reference to the caller of one of the stand-in's functions.
    template <typename Other>
    HRESULT MoveTo(Other** place) {
        *place = std::exchange(object_, nullptr);
        return S_OK;
    }

private:
    Interface* object_ = nullptr;
};

template <typename Class, typename... Arguments>
Ref<Class> Make(Arguments&&... arguments) {
    return Ref<Class>(new Class(std::forward<Arguments>(arguments)...));
}

template <typename First, typename... Others>
class Object : public First, public Others... {
public:
    explicit Object(const char* class_name) : class_name_(class_name), counted_(class_name) {}
    virtual ~Object() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
        *object = nullptr;
        if (::IsEqualGUID(id, IID_IUnknown) || ::IsEqualGUID(id, kInspectable) ||
            ::IsEqualGUID(id, kAgileObject)) {
            *object = static_cast<First*>(this);
        }
        Offer<First>(id, object);
        (Offer<Others>(id, object), ...);
        if (*object == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) delete this;
        return left;
    }
    // For users without a reference of their own. False: the object is being destroyed.
    bool TryAddRef() {
        ULONG count = references_;
        while (count != 0 && !references_.compare_exchange_weak(count, count + 1)) {
        }
        return count != 0;
    }
    HRESULT STDMETHODCALLTYPE GetIids(ULONG*, IID**) override {
        return NotOffered(class_name_, "GetIids");
    }
    HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING*) override {
        return NotOffered(class_name_, "GetRuntimeClassName");
    }
    HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel*) override {
        return NotOffered(class_name_, "GetTrustLevel");
    }

protected:
    const char* ClassName() const { return class_name_; }

private:
    template <typename Interface>
    void Offer(REFIID id, void** object) {
        if (::IsEqualGUID(id, Interface::kId)) *object = static_cast<Interface*>(this);
    }

    const char* const class_name_;
    const Counted counted_;
    std::atomic<ULONG> references_{1};
};

// Whether the program has received the object; otherwise it need not close it.
class Handed {
public:
    void Set() { handed_ = true; }

protected:
    virtual ~Handed() = default;
    bool IsSet() const { return handed_; }

private:
    std::atomic<bool> handed_{false};
};
template <typename Interface>
void SetHanded(Interface* object) {
    if (auto* handed = dynamic_cast<Handed*>(object)) handed->Set();
}

// An object that must be closed before its last reference is released, and not used afterwards.
template <typename... Interfaces>
class ClosableObject : public Object<Interfaces..., IClosable>, public Handed {
public:
    using Object<Interfaces..., IClosable>::Object;
    ~ClosableObject() override {
        if (IsSet() && !closed_)
            Violation(std::string(this->ClassName()) + " released without Close");
    }
    HRESULT STDMETHODCALLTYPE Close() override {
        Enter("Close");
        if (!closed_.exchange(true)) OnClose();
        return S_OK;
    }

protected:
    virtual void OnClose() = 0;
    // Like Enter; the object must not have been closed either.
    HRESULT EnterOpen(const char* function) const {
        if (!closed_) return Enter(function);
        Violation(std::string(function) + " of a closed " + this->ClassName());
        return kClosed;
    }

private:
    static constexpr HRESULT kClosed = static_cast<HRESULT>(0x80000013);  // RO_E_CLOSED

    std::atomic<bool> closed_{false};
};

// A read-only list, as a vector or a vector view.
template <typename Interface, typename Item>
class List final : public Object<Interface> {
public:
    explicit List(std::vector<Ref<Item>> items)
        : Object<Interface>("list"), items_(std::move(items)) {}
    HRESULT STDMETHODCALLTYPE GetAt(UINT32 index, Item** item) override {
        if (const HRESULT fault = Enter("GetAt")) return fault;
        if (ReturnsNull("GetAt", item)) return S_OK;
        if (index >= items_.size()) return static_cast<HRESULT>(0x8000000B);  // E_BOUNDS
        SetHanded(items_[index].Get());
        return Ref<Item>(items_[index]).MoveTo(item);
    }
    HRESULT STDMETHODCALLTYPE get_Size(UINT32* size) override {
        *size = static_cast<UINT32>(items_.size());
        return Enter("get_Size");
    }

private:
    const std::vector<Ref<Item>> items_;
};

}  // namespace brennix
