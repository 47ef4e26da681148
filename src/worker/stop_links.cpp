#include "worker/stop_links.h"

#include "objects/link_record.h"
#include "objects/modules.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"
#include "worker/worker_limits.h"

namespace tarvik {
namespace {

// The link array of one module, taken out of the table.
struct DetachedLinks {
    Tracked<LinkRecord*> links;
    std::uint32_t count = 0;
};

DetachedLinks DetachLinks(ModuleSlot& slot) {
    DetachedLinks detached;
    detached.links.reset(slot.links);
    detached.count = slot.link_count;
    slot.links = nullptr;
    slot.link_count = 0;
    return detached;
}

void TellWorkerToStop(LinkRecord* link) {
    link->stop_deadline_ms.store(TickMs() + GetWorkerLimits().receiver_stop_ms);
    link->destructing_thread.store(OsCurrentThreadId());
    link->running.store(false);
    link->pending.Wake();
}

// Waits for a link's worker, and terminates one that does not end in time. If the worker itself is
// the caller (PDUDestruct inside a callback), it is left alone and releases the record when it
// ends.
void EndWorker(LinkRecord* link, bool announced) {
    if (link->thread == nullptr || OsThreadIsCurrent(link->thread)) return;
    void* handle = OsThreadHandle(link->thread);
    if (announced) {
        Log(kLogTrace, "[%s] Waiting for Thread handle 0x%p to exit (LogicalLink #%u)",
            "PDUDestruct", handle, link->hCLL);
    }
    if (!OsThreadJoin(link->thread, GetWorkerLimits().worker_stop_ms)) {
        Log(kLogTrace, "[%s] Thread 0x%p for link #%u did not exit, terminating", "PDUDestruct",
            handle, link->hCLL);
        OsThreadTerminate(link->thread);
    }
    if (announced) {
        Log(kLogTrace, "[%s] Closing Thread handle 0x%p (LogicalLink #%u)", "PDUDestruct", handle,
            link->hCLL);
    }
}

// Releases the table's reference. Normally it is the last one, so the queues, the response table,
// the mutex and the record go with it.
void StopLink(LinkRef link, std::uint32_t module, std::uint32_t position, bool was_active) {
    if (was_active) {
        Log(kLogTrace, "[%s] Stopping logical link #%u on module #%u", "PDUDestruct", position,
            module);
    }
    EndWorker(link.Get(), was_active);
    if (!was_active) return;
    // Nobody can find the link any more, so a last reference stays the last.
    if (link->IsOnlyReference()) {
        link->announce_release = true;
    } else {
        LogMutexRelease(*link.Get());
    }
}

void StopModuleLinks(std::uint32_t module, ModuleSlot& slot) {
    DetachedLinks detached;
    {
        const LockGuard hold(*ModuleDevicesLock);
        if (!slot.present.load() || slot.links == nullptr) return;
        Log(kLogTrace, "[%s] Checking %u logical links for module %u", "PDUDestruct",
            slot.link_count, module);
        detached = DetachLinks(slot);
    }
    // Asks all workers to stop before waiting for the first, so that many end as fast as one.
    Tracked<bool> active(static_cast<bool*>(AllocateArray(detached.count, sizeof(bool))));
    for (std::uint32_t i = 0; i < detached.count; ++i) {
        LinkRecord* link = detached.links.get()[i];
        if (link == nullptr) continue;
        if (active != nullptr) active.get()[i] = link->running.load();
        TellWorkerToStop(link);
    }
    std::uint32_t stopped = 0;
    for (std::uint32_t i = 0; i < detached.count; ++i) {
        LinkRecord* link = detached.links.get()[i];
        if (link == nullptr) continue;
        const bool was_active = active == nullptr || active.get()[i];
        if (was_active) ++stopped;
        StopLink(LinkRef::Adopt(link), module, i, was_active);
    }
    if (stopped > 0) {
        Log(kLogTrace, "[%s] Cleaned up %u logical links for module %u", "PDUDestruct", stopped,
            module);
    }
}

}  // namespace

void StopAllLinks() {
    for (std::uint32_t module = 0; module < kMaxModules; ++module) {
        StopModuleLinks(module, ModuleDevices->slots[module]);
    }
}

}  // namespace tarvik
