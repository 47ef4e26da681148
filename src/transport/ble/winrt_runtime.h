#pragma once

#include <windows.h>

#include <roapi.h>
#include <winstring.h>

#include <cstdint>
#include <map>

#include "platform/lock.h"
#include "transport/ble/winrt_pointer.h"

namespace tarvik::winrt {

// The functions that give access to the Windows Runtime. They are looked up at run time, so that
// the library loads on systems without them.
class Runtime {
public:
    Runtime();  // throws a BleError if there is no Windows Runtime
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
    // The static functions of the class.
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
    std::map<std::uint32_t, int> entered_;  // number of entries by thread id; guarded by lock_
};

}  // namespace tarvik::winrt
