#pragma once

#include <atomic>
#include <cstdint>

#include "api/dpdu_types.h"
#include "api/item_queue.h"
#include "api/link_record.h"
#include "link/packet_queue.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "transport/login_report.h"
#include "transport/transport.h"

namespace tarvik {

inline constexpr std::uint32_t kMaxModules = 256;

// One dongle. The slot's index is the module handle. Everything but the two atomics is guarded by
// ModuleDevicesLock; once a slot is taken, its transport and queues stay until PDUDestruct.
struct ModuleSlot {
    std::uint32_t transport = 0;
    LoginRecord login{};
    DeviceQueues* queues = nullptr;  // owned by the transport
    ItemQueue events;
    std::atomic<std::uint32_t> status{0};
    std::atomic<bool> present{false};
    LinkRecord** links = nullptr;  // tracked block; each entry holds a reference
    std::uint32_t link_count = 0;
};

struct ModuleTable {
    ModuleSlot slots[kMaxModules];
    std::uint32_t count = 0;  // present slots
    // How often the owning thread has kept the lock after a status query of a ComPrimitive.
    std::uint32_t kept_by_status = 0;
    std::atomic<std::uint32_t> keeper{0};  // its thread id; 0: nobody
};

extern Immortal<OsLock> ModuleDevicesLock;
extern Immortal<ModuleTable> ModuleDevices;

// Reads the present flag without the lock.
bool IsModulePresent(std::uint32_t hMod);
// The check that functions with a module handle share: logs the refusal under `function`.
bool CheckModuleHandle(const char* function, std::uint32_t hMod);
void LogModuleNotFound(const char* function, std::uint32_t hMod);

// The link behind a pair of handles, empty unless the module is present and the link is valid.
LinkRef FindLink(std::uint32_t hMod, std::uint32_t hCLL);
bool IsLinkValid(std::uint32_t hMod, std::uint32_t hCLL);

// Scans all transports and merges what they see into the table.
void UpdateModuleList();
// Part of PDUDestruct: empties the table.
void ClearModuleTable();
// Gives up every hold that status queries of ComPrimitives have left with the calling thread.
void ReleaseKeptModuleLock();
bool KeepsModuleLock();  // the calling thread, by such a query

}  // namespace tarvik
