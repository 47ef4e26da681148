#pragma once

#include <windows.h>

#include <objbase.h>
#include <roapi.h>
#include <winstring.h>

#include <cstdint>
#include <map>

#include "platform/lock.h"
#include "transport/ble/winrt_pointer.h"

namespace tarvik::winrt {

// The functions that give access to the Windows Runtime. They are looked up at run time, so that
// the library loads on systems without them.
//
// From the first Runtime on, the process keeps its multithreaded apartment until it ends, whichever
// threads enter and leave it. When the last thread leaves an apartment that nothing keeps, COM
// unloads the DLLs of the classes, even if there are still objects of them: those of a device that
// is closed after its threads have ended, or by a later scan.
class Runtime {
public:
    Runtime();  // throws a BleError if there is no Windows Runtime
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
    void KeepApartment();

    const HMODULE module_;  // never released, since it has the apartment
    decltype(&::RoInitialize) initialize_ = nullptr;
    decltype(&::RoUninitialize) uninitialize_ = nullptr;
    decltype(&::RoActivateInstance) activate_instance_ = nullptr;
    decltype(&::RoGetActivationFactory) get_activation_factory_ = nullptr;
    decltype(&::WindowsCreateString) create_string_ = nullptr;
    decltype(&::WindowsDeleteString) delete_string_ = nullptr;
    decltype(&::CoIncrementMTAUsage) increment_mta_usage_ = nullptr;

    OsLock lock_;
    std::map<std::uint32_t, int> entered_;  // number of entries by thread id; guarded by lock_
};

}  // namespace tarvik::winrt
