#include "objects/modules.h"

#include "platform/thread.h"
#include "support/log.h"

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
    return LinkRef::Share(link);
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
    slot.events.Discard();
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

void KeepModuleLock() {
    ++ModuleDevices->kept_by_status;
    ModuleDevices->keeper.store(OsCurrentThreadId());
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

}  // namespace tarvik
