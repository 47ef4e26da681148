#pragma once

#include <windows.h>

#include <roapi.h>
#include <winstring.h>

#include <cstdint>
#include <map>

#include "platform/lock.h"
#include "transport/ble/winrt_pointer.h"

namespace tarvik::winrt {

// The system's entry into the Windows Runtime. Its functions are looked up, so that the library
// loads on systems that do not have them.
class Runtime {
public:
    Runtime();  // throws a BleError where there is no Windows Runtime
    ~Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    void EnterThread();
    void LeaveThread() noexcept;

    // A new object of the class.
    template <typename Interface>
    Pointer<Interface> Activate(const wchar_t* class_name) {
        return Activate(class_name).Query<Interface>();
    }
    // What the class itself offers.
    template <typename Statics>
    Pointer<Statics> Factory(const wchar_t* class_name) {
        return Pointer<Statics>(static_cast<Statics*>(Factory(class_name, Statics::kIid)));
    }

private:
    class ClassName;

    Pointer<Inspectable> Activate(const wchar_t* class_name);
    void* Factory(const wchar_t* class_name, const IID& iid);
    template <typename Function>
    void Find(const char* name, Function* function);

    HMODULE module_;
    decltype(&::RoInitialize) initialize_ = nullptr;
    decltype(&::RoUninitialize) uninitialize_ = nullptr;
    decltype(&::RoActivateInstance) activate_instance_ = nullptr;
    decltype(&::RoGetActivationFactory) get_activation_factory_ = nullptr;
    decltype(&::WindowsCreateString) create_string_ = nullptr;
    decltype(&::WindowsDeleteString) delete_string_ = nullptr;

    OsLock lock_;
    std::map<std::uint32_t, int> entered_;  // by thread id, how often; guarded by lock_
};

}  // namespace tarvik::winrt
