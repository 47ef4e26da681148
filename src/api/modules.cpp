#include "api/modules.h"

#include "api/dpdu_api.h"
#include "api/events.h"
#include "api/lifecycle.h"
#include "platform/thread.h"
#include "support/log.h"
#include "support/memory.h"
#include "transport/transport_table.h"

namespace tarvik {

Immortal<OsLock> ModuleDevicesLock;
Immortal<ModuleTable> ModuleDevices;

bool IsModulePresent(std::uint32_t hMod) {
    return hMod < kMaxModules && ModuleDevices->slots[hMod].present.load();
}

bool CheckModuleHandle(const char* function, std::uint32_t hMod) {
    if (hMod == PDU_HANDLE_UNDEF) {
        Log(kLogTrace, "[%s] Invalid hMod (PDU_HANDLE_UNDEF), Returning PDU_ERR_INVALID_HANDLE",
            function);
        return false;
    }
    if (!IsModulePresent(hMod)) {
        LogModuleNotFound(function, hMod);
        return false;
    }
    return true;
}

void LogModuleNotFound(const char* function, std::uint32_t hMod) {
    Log(kLogTrace, "[%s] Invalid hMod (%u), module not found, Returning PDU_ERR_INVALID_HANDLE",
        function, hMod);
}

LinkRef FindLink(std::uint32_t hMod, std::uint32_t hCLL) {
    const LockGuard hold(*ModuleDevicesLock);
    if (!IsModulePresent(hMod)) return {};
    const ModuleSlot& slot = ModuleDevices->slots[hMod];
    if (slot.links == nullptr || hCLL >= slot.link_count) return {};
    LinkRecord* link = slot.links[hCLL];
    if (link == nullptr || !link->running.load()) return {};
    return ShareLink(link);
}

bool IsLinkValid(std::uint32_t hMod, std::uint32_t hCLL) {
    return static_cast<bool>(FindLink(hMod, hCLL));
}

namespace {

void ClearSlot(std::uint32_t index, ModuleSlot& slot) {
    const std::uint8_t* mac = slot.login.Mac();
    Log(kLogTrace,
        "[%s] Clearing module slot %u (Transport: %d, MAC: %02X:%02X:%02X:%02X:%02X:%02X)",
        "PDUDestruct", index, static_cast<int>(slot.transport), mac[0], mac[1], mac[2], mac[3],
        mac[4], mac[5]);
    slot.present.store(false);
    slot.status.store(PDU_MODST_NOT_AVAIL);
}

void ZeroSlot(ModuleSlot& slot) {
    DiscardQueue(&slot.events, ReleaseQueuedEvent);
    slot.transport = 0;
    slot.login = {};
    slot.queues = nullptr;
    slot.status.store(0);
}

}  // namespace

void ClearModuleTable() {
    const LockGuard hold(*ModuleDevicesLock);
    ModuleTable& table = *ModuleDevices;
    Log(kLogTrace, "[%s] Clearing ModuleDevices array (%u modules present)", "PDUDestruct",
        table.count);
    for (std::uint32_t index = 0; index < kMaxModules; ++index) {
        ModuleSlot& slot = table.slots[index];
        if (!slot.present.load()) continue;
        ClearSlot(index, slot);
        ZeroSlot(slot);
    }
    table.count = 0;
    Log(kLogTrace, "[%s] ModuleDevices array cleared, count reset to 0", "PDUDestruct");
}

void ReleaseKeptModuleLock() {
    ModuleDevicesLock->Enter();
    ModuleTable& table = *ModuleDevices;
    table.keeper.store(0);
    for (; table.kept_by_status > 0; --table.kept_by_status)
        ModuleDevicesLock->Leave();
    ModuleDevicesLock->Leave();
}

bool KeepsModuleLock() { return ModuleDevices->keeper.load() == OsCurrentThreadId(); }

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
