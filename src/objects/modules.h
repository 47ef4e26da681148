#pragma once

#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"
#include "objects/item_queue.h"
#include "objects/items.h"
#include "objects/link_record.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "transport/transport.h"

namespace tarvik {

inline constexpr std::uint32_t kMaxModules = 256;

// One dongle. The slot's index is the module handle. Everything but the two atomics is guarded by
// ModuleDevicesLock; once a slot is taken, its transport and queues stay until PDUDestruct.
struct ModuleSlot {
    std::uint32_t transport = 0;
    LoginRecord login{};
    DeviceQueues* queues = nullptr;  // owned by the transport
    ItemQueue<EventPtr> events;
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
// True if the module is present; otherwise logs the refusal under `function`.
bool CheckModuleHandle(const char* function, std::uint32_t hMod);
void LogModuleNotFound(const char* function, std::uint32_t hMod);

// The link of a pair of handles. Empty unless the module is present and the link is valid.
LinkRef FindLink(std::uint32_t hMod, std::uint32_t hCLL);

// Part of PDUDestruct: empties the table.
void ClearModuleTable();

// Notes that the calling thread, which has entered ModuleDevicesLock, keeps it until PDUDestruct:
// the outcome of a successful status query of a ComPrimitive.
void KeepModuleLock();
// Releases the lock as often as such queries have left it with the calling thread.
void ReleaseKeptModuleLock();
bool KeepsModuleLock();  // the calling thread

}  // namespace tarvik
