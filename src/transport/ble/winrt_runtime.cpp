#include "transport/ble/winrt_runtime.h"

#include <cstdio>
#include <cwchar>
#include <string>

#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/thread.h"
#include "platform/win32/utf16.h"
#include "transport/ble/ble_radio.h"

namespace tarvik::winrt {

// ---------------------------------------------------------------- errors

namespace {

std::string SystemText(HRESULT result) {
    constexpr DWORD kRoom = 256;
    wchar_t wide[kRoom];
    DWORD length = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                    nullptr, static_cast<DWORD>(result), 0, wide, kRoom, nullptr);
    while (length > 0 && std::wcschr(L" .\r\n", wide[length - 1]) != nullptr)
        --length;
    wide[length] = L'\0';
    char text[kRoom * 3];
    const bool is_there = length > 0 && ToUtf8(wide, text, sizeof text) > 0;
    return is_there ? text : "The system reported an error";
}

BleError ErrorOf(HRESULT result, const std::string& text) {
    char number[sizeof " (0x00000000)"];
    std::snprintf(number, sizeof number, " (0x%08X)", static_cast<unsigned>(result));
    return BleError(text + number);
}

// If a class is not registered, this Windows is too old to have it.
void CheckClass(HRESULT result) {
    if (result == REGDB_E_CLASSNOTREG) {
        throw ErrorOf(result, "Bluetooth LE is not available in this version of Windows");
    }
    Check(result);
}

}  // namespace

void Check(HRESULT result) {
    if (FAILED(result)) throw ErrorOf(result, SystemText(result));
}

// ---------------------------------------------------------------- entry points

template <typename Function>
void Runtime::Find(const char* name, Function* function) {
    *function =
        reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module_, name)));
}

namespace {

// Guarded by the lock.
Immortal<OsLock> apartment_lock;
bool apartment_is_kept = false;

}  // namespace

Runtime::Runtime()
    : module_(::LoadLibraryExW(L"combase.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)) {
    if (module_ != nullptr) {
        Find("RoInitialize", &initialize_);
        Find("RoUninitialize", &uninitialize_);
        Find("RoActivateInstance", &activate_instance_);
        Find("RoGetActivationFactory", &get_activation_factory_);
        Find("WindowsCreateString", &create_string_);
        Find("WindowsDeleteString", &delete_string_);
        Find("CoIncrementMTAUsage", &increment_mta_usage_);
    }
    if (initialize_ == nullptr || uninitialize_ == nullptr || activate_instance_ == nullptr ||
        get_activation_factory_ == nullptr || create_string_ == nullptr ||
        delete_string_ == nullptr || increment_mta_usage_ == nullptr) {
        throw BleError("Bluetooth LE needs the Windows Runtime, which this system does not have");
    }
    KeepApartment();
}

// Once, and never undone: nobody can know when the last object is gone.
void Runtime::KeepApartment() {
    const LockGuard hold(*apartment_lock);
    if (apartment_is_kept) return;
    CO_MTA_USAGE_COOKIE cookie = nullptr;
    Check(increment_mta_usage_(&cookie));
    apartment_is_kept = true;
}

// A thread that its program has already put into an apartment stays there, and LeaveThread does
// nothing: the classes used here may be called from any apartment.
void Runtime::EnterThread() {
    const HRESULT result = initialize_(RO_INIT_MULTITHREADED);
    if (result == RPC_E_CHANGED_MODE) return;
    Check(result);
    const LockGuard hold(lock_);
    ++entered_[OsCurrentThreadId()];
}

void Runtime::LeaveThread() noexcept {
    {
        const LockGuard hold(lock_);
        const auto entered = entered_.find(OsCurrentThreadId());
        if (entered == entered_.end()) return;
        if (--entered->second == 0) entered_.erase(entered);
    }
    uninitialize_();
}

// ---------------------------------------------------------------- classes

class Runtime::ClassName {
public:
    ClassName(const Runtime& runtime, const wchar_t* text) : runtime_(runtime) {
        Check(runtime_.create_string_(text, static_cast<UINT32>(std::wcslen(text)), &string_));
    }
    ~ClassName() { runtime_.delete_string_(string_); }
    ClassName(const ClassName&) = delete;
    ClassName& operator=(const ClassName&) = delete;
    HSTRING Get() const { return string_; }

private:
    const Runtime& runtime_;
    HSTRING string_ = nullptr;
};

Pointer<Inspectable> Runtime::Activate(const wchar_t* class_name) {
    const ClassName name(*this, class_name);
    ::IInspectable* object = nullptr;
    CheckClass(activate_instance_(name.Get(), &object));
    return Pointer<Inspectable>(reinterpret_cast<Inspectable*>(object));
}

void* Runtime::Factory(const wchar_t* class_name, const IID& iid) {
    const ClassName name(*this, class_name);
    void* factory = nullptr;
    CheckClass(get_activation_factory_(name.Get(), iid, &factory));
    return factory;
}

}  // namespace tarvik::winrt
