#include "objects/module_scan.h"

#include <cstring>
#include <utility>

#include "objects/event_callbacks.h"
#include "objects/lifecycle.h"
#include "objects/modules.h"
#include "platform/thread.h"
#include "support/counted.h"
#include "support/log.h"
#include "support/memory.h"
#include "transport/login_report.h"
#include "transport/transport_table.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kNoIndex = 0xFFFFFFFF;

struct DetectedDevice {
    std::uint32_t module_index;
    DeviceReport report;
    bool is_new;
};

// What one scan has found so far. Transports report from several threads. Counted, as a scan may
// run on after the thread that waits for it was terminated.
struct DetectedDevices : Counted {
    OsLock lock;
    Tracked<DetectedDevice> entries;
    std::uint32_t count = 0;
};

void add_client_cbr(void* context, const DeviceReport& report);

// One transport's scan.
struct TransportScan {
    const Transport* transport;
    Ref<DetectedDevices> detected;

    void Run() const {
        transport->UpdateDevices(transport->update_timeout_ms, add_client_cbr, detected.Get());
    }
};

bool SameMac(const LoginRecord& one, const LoginRecord& other) {
    return std::memcmp(one.Mac(), other.Mac(), 6) == 0;
}

void AppendDetected(DetectedDevices& list, const DeviceReport& report) {
    const LockGuard hold(list.lock);
    Tracked<DetectedDevice> larger(static_cast<DetectedDevice*>(
        AllocateArray(list.count + std::size_t{1}, sizeof(DetectedDevice))));
    if (larger == nullptr) return;
    if (list.count > 0) {
        std::memcpy(larger.get(), list.entries.get(), list.count * sizeof(DetectedDevice));
    }
    larger.get()[list.count] = {kNoIndex, report, false};
    list.entries = std::move(larger);
    ++list.count;
}

void add_client_cbr(void* context, const DeviceReport& report) {
    const std::uint8_t* mac = report.login.Mac();
    Log(kLogTrace,
        "[%s] add_client_cbr: detected client '%s' (MAC: %02X:%02X:%02X:%02X:%02X:%02X, "
        "Transport: %d)",
        __func__, PrintableDeviceName(report.login).text, mac[0], mac[1], mac[2], mac[3], mac[4],
        mac[5], static_cast<int>(report.transport));
    if (!IsSupportedModel(report.login.Model())) {
        Log(kLogTrace, "[%s] Ignoring unsupported device model: 0x%08X", __func__,
            report.login.Model());
        return;
    }
    AppendDetected(*static_cast<DetectedDevices*>(context), report);
}

// Owns the scan.
void RunScan(void* argument) {
    auto* scan = static_cast<TransportScan*>(argument);
    scan->Run();
    DeleteTracked(scan);
}

// Null: memory is out, or the system refused.
OsThread* StartScanThread(const TransportScan& scan) {
    auto* owned = NewTracked<TransportScan>(scan);
    if (owned == nullptr) return nullptr;
    OsThread* thread = OsThreadStart(RunScan, owned, "Tarvik UpdateDevices");
    if (thread == nullptr) DeleteTracked(owned);
    return thread;
}

void ScanAllTransports(const Ref<DetectedDevices>& detected) {
    OsThread* threads[kMaxTransports] = {};
    std::int32_t started = 0;
    for (std::int32_t i = 0; i < TransportTable.count; ++i) {
        const Transport* transport = TransportTable.entries[i];
        if (transport->UpdateDevices == nullptr) continue;
        Log(kLogTrace, "[%s] %s UpdateDevices (timeout=%d)", "UpdateModuleList", transport->name,
            static_cast<int>(transport->update_timeout_ms));
        const TransportScan scan = {transport, detected};
        OsThread* thread = StartScanThread(scan);
        if (thread == nullptr) {
            scan.Run();
        } else {
            threads[started++] = thread;
        }
    }
    for (std::int32_t i = 0; i < started; ++i) {
        OsThreadJoin(threads[i], -1);
        OsThreadClose(threads[i]);
    }
}

DetectedDevice* FindDetected(DetectedDevices& detected, const ModuleSlot& slot) {
    for (std::uint32_t i = 0; i < detected.count; ++i) {
        DetectedDevice& entry = detected.entries.get()[i];
        if (entry.report.transport == slot.transport && SameMac(entry.report.login, slot.login)) {
            return &entry;
        }
    }
    return nullptr;
}

void MatchKnownModule(DetectedDevices& detected, std::uint32_t index, ModuleSlot& slot) {
    DetectedDevice* entry = FindDetected(detected, slot);
    if (entry == nullptr) {
        Log(kLogTrace, "[%s] Device at index %u is no longer present - marking unavailable",
            "UpdateModuleList", index);
        ConsolePrint("Device at index %u is no longer present - marking unavailable\n", index);
        slot.status.store(PDU_MODST_NOT_AVAIL);
        return;
    }
    entry->module_index = index;
    // Deliberate: a dongle that vanished is revived by a login packet or a new construct only.
    if (slot.status.load() == PDU_MODST_NOT_AVAIL) {
        Log(kLogTrace,
            "[%s] Device at index %u is now present again, but that transition is not allowed",
            "UpdateModuleList", index);
        ConsolePrint(
            "Device at index %u is now present again, but that transition is not allowed\n", index);
    }
}

std::uint32_t LowestFreeSlot() {
    for (std::uint32_t index = 0; index < kMaxModules; ++index) {
        if (!ModuleDevices->slots[index].present.load()) return index;
    }
    return kNoIndex;
}

void InitializeDeviceQueues(ModuleSlot& slot) {
    if (slot.links == nullptr) slot.link_count = 0;
    slot.events.Initialize();
    Log(kLogTrace, "[%s] Initialized queues for device (Transport: %d)", __func__,
        static_cast<int>(slot.transport));
}

void AssignFreeSlots(DetectedDevices& detected) {
    for (std::uint32_t i = 0; i < detected.count; ++i) {
        DetectedDevice& entry = detected.entries.get()[i];
        if (entry.module_index != kNoIndex) continue;
        entry.module_index = LowestFreeSlot();
        if (entry.module_index == kNoIndex) {
            Log(kLogTrace, "[%s] ERROR: No free module slot for detected device %u",
                "UpdateModuleList", i);
            continue;
        }
        entry.is_new = true;
        ModuleDevices->slots[entry.module_index].present.store(true);
    }
}

void StoreDetected(const DetectedDevice& entry) {
    if (entry.module_index >= kMaxModules) {
        Log(kLogTrace, "[%s] ERROR: Device index %u exceeds MAX_MODULES", "UpdateModuleList",
            entry.module_index);
        return;
    }
    ModuleSlot& slot = ModuleDevices->slots[entry.module_index];
    if (!entry.is_new) {
        Log(kLogTrace, "[%s] Updating existing device at index %u", "UpdateModuleList",
            entry.module_index);
        slot.login = entry.report.login;
        return;
    }
    Log(kLogTrace, "[%s] Adding NEW device at index %u", "UpdateModuleList", entry.module_index);
    slot.transport = entry.report.transport;
    slot.login = entry.report.login;
    slot.queues = entry.report.queues;
    InitializeDeviceQueues(slot);
    slot.status.store(PDU_MODST_AVAIL);
}

std::uint32_t CountPresentModules() {
    std::uint32_t count = 0;
    for (const ModuleSlot& slot : ModuleDevices->slots)
        count += slot.present.load() ? 1u : 0u;
    return count;
}

ModuleSlot* FindCloudModule(const LoginRecord& login, std::uint32_t* index) {
    for (std::uint32_t i = 0; i < kMaxModules; ++i) {
        ModuleSlot& slot = ModuleDevices->slots[i];
        if (!slot.present.load() || slot.transport != kCloudTransport.id) continue;
        if (!SameMac(slot.login, login)) continue;
        *index = i;
        return &slot;
    }
    return nullptr;
}

void RefreshCloudModule(ModuleSlot& slot, std::uint32_t index, const LoginRecord& login) {
    const int hMod = static_cast<int>(index);
    Log(kLogTrace, "[%s] Existing module found: hMod=%d (refresh login pkt)",
        "DpduTransportReportLoginPacket", hMod);
    slot.login = login;
    if (slot.status.load() != PDU_MODST_NOT_AVAIL) return;
    slot.status.store(PDU_MODST_AVAIL);
    Log(kLogTrace, "[%s] hMod=%d status NOT_AVAIL -> AVAIL", "DpduTransportReportLoginPacket",
        hMod);
}

bool AddCloudModule(const char* transport_name, const LoginRecord& login, DeviceQueues* queues) {
    const char* const tag = "DpduTransportReportLoginPacket";
    Log(kLogTrace, "[%s] No existing module found - allocating new slot", tag);
    const std::uint32_t index = LowestFreeSlot();
    if (index == kNoIndex) {
        Log(kLogTrace, "[%s] No free module slot for transport=%s", tag, transport_name);
        return false;
    }
    const int hMod = static_cast<int>(index);
    Log(kLogTrace, "[%s] Using free slot hMod=%d", tag, hMod);
    ModuleSlot& slot = ModuleDevices->slots[index];
    slot.transport = kCloudTransport.id;
    slot.queues = queues;
    slot.login = login;
    slot.status.store(PDU_MODST_AVAIL);
    InitializeDeviceQueues(slot);
    slot.present.store(true);
    Log(kLogTrace, "[%s] Set queues=%p for hMod=%d", tag, static_cast<void*>(queues), hMod);
    return true;
}

}  // namespace

void UpdateModuleList() {
    const Ref<DetectedDevices> scan = MakeCounted<DetectedDevices>();
    if (!scan) return;
    ScanAllTransports(scan);
    DetectedDevices& detected = *scan;
    Log(kLogTrace, "[%s] Detected %u devices from transports", __func__, detected.count);

    const LockGuard hold(*ModuleDevicesLock);
    // A destruct has begun meanwhile: its transports are going, nothing may enter the table.
    if (LibraryState() != Lifecycle::kConstructed) return;
    for (std::uint32_t index = 0; index < kMaxModules; ++index) {
        ModuleSlot& slot = ModuleDevices->slots[index];
        if (slot.present.load()) MatchKnownModule(detected, index, slot);
    }
    AssignFreeSlots(detected);
    for (std::uint32_t i = 0; i < detected.count; ++i) {
        const DetectedDevice& entry = detected.entries.get()[i];
        if (entry.module_index != kNoIndex) StoreDetected(entry);
    }
    Log(kLogTrace, "[%s] Update complete: %u devices ready", __func__, detected.count);
    ModuleDevices->count = CountPresentModules();
}

int DpduTransportReportLoginPacket(const Transport* transport, const Packet* login_packet,
                                   DeviceQueues* queues) {
    if (login_packet == nullptr) {
        Log(kLogTrace, "[%s] Invalid args: transport=%p login_pkt=%p queues=%p", __func__,
            static_cast<const void*>(transport), static_cast<const void*>(login_packet),
            static_cast<void*>(queues));
        return 0;
    }
    const LoginRecord login = LoginFromPacket(*login_packet);
    const std::uint8_t* mac = login.Mac();
    const char* transport_name = transport == nullptr ? "(null)" : transport->name;
    Log(kLogTrace, "[%s] transport=%s(%d) device='%s' mac=%02X:%02X:%02X:%02X:%02X:%02X queues=%p",
        __func__, transport_name, transport == nullptr ? -1 : static_cast<int>(transport->id),
        PrintableDeviceName(login).text, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5],
        static_cast<void*>(queues));
    if (LibraryState() != Lifecycle::kConstructed) {
        Log(kLogTrace, "[%s] PDU API not constructed - ignoring report", __func__);
        return 0;
    }
    bool added = false;
    {
        const LockGuard hold(*ModuleDevicesLock);
        std::uint32_t index = 0;
        ModuleSlot* known = FindCloudModule(login, &index);
        if (known != nullptr) {
            RefreshCloudModule(*known, index, login);
        } else {
            added = AddCloudModule(transport_name, login, queues);
        }
        ModuleDevices->count = CountPresentModules();
        Log(kLogTrace, "[%s] ModuleDevicesCount=%u (addedNew=%s)", __func__, ModuleDevices->count,
            added ? "true" : "false");
    }
    if (!added) return 0;
    Log(kLogTrace, "[%s] Emitting module list changed notification", __func__);
    NotifySystemModuleListChanged();
    return 1;
}

}  // namespace tarvik
