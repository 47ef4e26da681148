#include "dpdu_api.h"
#include "objects/lifecycle.h"
#include "objects/module_list.h"
#include "objects/module_scan.h"
#include "objects/modules.h"
#include "support/log.h"
#include "transport/transport_table.h"

namespace tarvik {
namespace {

const Transport* TransportOf(std::uint32_t hMod) {
    const LockGuard hold(*ModuleDevicesLock);
    return FindTransport(ModuleDevices->slots[hMod].transport);
}

void SetModuleStatus(std::uint32_t hMod, std::uint32_t status) {
    const LockGuard hold(*ModuleDevicesLock);
    ModuleDevices->slots[hMod].status.store(status);
}

bool CheckPresent(const char* function, std::uint32_t hMod) {
    Log(kLogTrace, "[%s] Called (%u)", function, hMod);
    if (IsModulePresent(hMod)) return true;
    Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", function);
    return false;
}

}  // namespace
}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUGetModuleIds(PDU_MODULE_ITEM** pModuleIdList) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called", __func__);
    if (LibraryState() != Lifecycle::kConstructed) {
        Log(kLogTrace, "[%s] PDU API not constructed, Returning PDU_ERR_PDUAPI_NOT_CONSTRUCTED",
            __func__);
        return PDU_ERR_PDUAPI_NOT_CONSTRUCTED;
    }
    if (pModuleIdList == nullptr) {
        Log(kLogTrace, "[%s] pModuleIdList is NULL, Returning PDU_ERR_INVALID_PARAMETERS",
            __func__);
        return PDU_ERR_INVALID_PARAMETERS;
    }
    UpdateModuleList();
    PDU_MODULE_ITEM* item = MakeModuleItem();
    if (item == nullptr) return PDU_ERR_FCT_FAILED;
    *pModuleIdList = item;
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR, NumEntries=%u", __func__, item->NumEntries);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDUModuleConnect(UNUM32 hMod) {
    const ApiCall call;
    if (!CheckPresent(__func__, hMod)) return PDU_ERR_INVALID_HANDLE;
    const Transport* transport = TransportOf(hMod);
    if (transport != nullptr && transport->AddressDevice != nullptr) {
        Log(kLogTrace, "[%s] Addressing device via %s transport", __func__, transport->name);
        LoginRecord login;
        {
            const LockGuard hold(*ModuleDevicesLock);
            login = ModuleDevices->slots[hMod].login;
        }
        transport->AddressDevice(login.Mac());
    }
    SetModuleStatus(hMod, PDU_MODST_READY);
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDUModuleDisconnect(UNUM32 hMod) {
    const ApiCall call;
    if (!CheckPresent(__func__, hMod)) return PDU_ERR_INVALID_HANDLE;
    SetModuleStatus(hMod, PDU_MODST_AVAIL);
    const Transport* transport = TransportOf(hMod);
    if (transport != nullptr && transport->Disconnect != nullptr) {
        Log(kLogTrace, "[%s] Disconnecting via %s transport", __func__, transport->name);
        transport->Disconnect(hMod);
    }
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}
