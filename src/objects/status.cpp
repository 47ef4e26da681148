#include "objects/status.h"

#include "objects/com_primitive.h"
#include "objects/link_record.h"
#include "objects/modules.h"
#include "support/log.h"

namespace tarvik {
namespace {

bool FindStateOnLink(LinkRecord* link, std::uint32_t hCoP, std::uint32_t* state) {
    const LinkMutexGuard mutex(link);
    if (!mutex) return false;
    return link->registry.Visit(hCoP, [&](const ComPrimitive& cop) { *state = cop.state.load(); });
}

bool FindStateOnModule(std::uint32_t hMod, std::uint32_t hCoP, std::uint32_t* state) {
    const ModuleSlot& slot = ModuleDevices->slots[hMod];
    for (std::uint32_t hCLL = 0; hCLL < slot.link_count; ++hCLL) {
        const LinkRef link = FindLink(hMod, hCLL);
        if (link && FindStateOnLink(link.Get(), hCoP, state)) return true;
    }
    return false;
}

}  // namespace

T_PDU_ERROR ComPrimitiveStatus(const char* function, std::uint32_t hCoP, T_PDU_STATUS* status) {
    ModuleDevicesLock->Enter();
    std::uint32_t state = 0;
    for (std::uint32_t hMod = 0; hMod < kMaxModules; ++hMod) {
        if (!FindStateOnModule(hMod, hCoP, &state)) continue;
        // Deliberate: the module lock stays with the calling thread, which may continue to use the
        // library; other application threads wait until it destructs the library.
        KeepModuleLock();
        if (status != nullptr) *status = state;
        Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR, *pStatusCode=%u", function, state);
        return PDU_STATUS_NOERROR;
    }
    ModuleDevicesLock->Leave();
    Log(kLogTrace, "[%s] hCoP not found, Returning PDU_ERR_INVALID_HANDLE", function);
    return PDU_ERR_INVALID_HANDLE;
}

bool LinkStatus(std::uint32_t hMod, std::uint32_t hCLL, T_PDU_STATUS* status) {
    const LinkRef link = FindLink(hMod, hCLL);
    if (!link) return false;
    const LinkMutexGuard mutex(link.Get());
    if (!mutex) return false;
    if (status != nullptr) *status = link->state.load();
    return true;
}

T_PDU_ERROR ModuleStatus(const char* function, std::uint32_t hMod, T_PDU_STATUS* status) {
    const LockGuard hold(*ModuleDevicesLock);
    if (!IsModulePresent(hMod)) {
        Log(kLogTrace, "[%s] Invalid hMod, Returning PDU_ERR_INVALID_HANDLE", function);
        return PDU_ERR_INVALID_HANDLE;
    }
    if (status != nullptr) *status = ModuleDevices->slots[hMod].status.load();
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", function);
    return PDU_STATUS_NOERROR;
}

}  // namespace tarvik
