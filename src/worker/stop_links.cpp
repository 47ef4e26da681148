#include "worker/stop_links.h"

#include <utility>

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
    link->may_exchange.store(false);
    link->running.store(false);
    link->pending.Wake();
}

// From now on nobody waits for API calls of the link's threads. Before they are terminated: each
// may be entering or leaving a call.
void GiveUpCalls(LinkRecord* link) {
    link->worker_calls.GiveUp();
    link->registry.VisitAll([](ComPrimitive& cop) {
        if (cop.receive_thread_id.load() != OsCurrentThreadId()) cop.receiver_calls.GiveUp();
    });
}

// Waits for a link's worker, and terminates one that does not end in time. Where threads cannot be
// terminated it is left to itself. If the worker itself is the caller (PDUDestruct inside a
// callback), it is left alone. Whichever thread is left releases the record when it ends.
void EndWorker(LinkRecord* link) {
    if (link->thread == nullptr || OsThreadIsCurrent(link->thread)) return;
    void* handle = OsThreadHandle(link->thread);
    Log(kLogTrace, "[%s] Waiting for Thread handle 0x%p to exit (LogicalLink #%u)", "PDUDestruct",
        handle, link->hCLL);
    if (!OsThreadJoin(link->thread, GetWorkerLimits().worker_stop_ms)) {
        Log(kLogTrace, "[%s] Thread 0x%p for link #%u did not exit, terminating", "PDUDestruct",
            handle, link->hCLL);
        GiveUpCalls(link);
        OsThreadTerminate(link->thread);
    }
    Log(kLogTrace, "[%s] Closing Thread handle 0x%p (LogicalLink #%u)", "PDUDestruct", handle,
        link->hCLL);
}

// `link` is the table's reference, which is released next. Normally it is the last one, so the
// queues, the response table, the mutex and the record go with it.
void StopLink(const LinkRef& link, std::uint32_t module, std::uint32_t position) {
    Log(kLogTrace, "[%s] Stopping logical link #%u on module #%u", "PDUDestruct", position, module);
    EndWorker(link.Get());
    link->detached.store(true);
    // Nobody can find the link any more, so a last reference stays the last.
    if (link->IsOnlyReference()) {
        link->announce_release = true;
    } else {
        LogMutexRelease(*link.Get());
    }
}

// A destroyed link is not stopped: its worker ends by itself, unless the application keeps it
// inside a callback. Its last words to the dongle should still reach it, so a worker that is about
// to end is given the time, until `deadline`.
void ReleaseDestroyedLink(const LinkRef& link, std::uint64_t deadline) {
    const std::uint64_t now = TickMs();
    link->may_exchange.store(false);
    if (!OsThreadIsCurrent(link->thread)) {
        OsThreadJoin(link->thread, now < deadline ? static_cast<std::int32_t>(deadline - now) : 0);
        GiveUpCalls(link.Get());
    }
    link->detached.store(true);
}

// Takes the links that `wanted` accepts out of the array.
template <typename Accept, typename Use>
void TakeLinks(DetachedLinks& detached, Accept wanted, Use use) {
    for (std::uint32_t i = 0; i < detached.count; ++i) {
        LinkRecord*& link = detached.links.get()[i];
        if (link == nullptr || !wanted(*link)) continue;
        use(i, LinkRef::Adopt(std::exchange(link, nullptr)));
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
    for (std::uint32_t i = 0; i < detached.count; ++i) {
        LinkRecord* link = detached.links.get()[i];
        if (link != nullptr && link->running.load()) TellWorkerToStop(link);
    }
    std::uint32_t stopped = 0;
    const auto told = [](const LinkRecord& link) { return link.destructing_thread.load() != 0; };
    TakeLinks(detached, told, [&](std::uint32_t position, const LinkRef& link) {
        StopLink(link, module, position);
        ++stopped;
    });
    if (stopped > 0) {
        Log(kLogTrace, "[%s] Cleaned up %u logical links for module %u", "PDUDestruct", stopped,
            module);
    }
    const std::uint64_t deadline = TickMs() + GetWorkerLimits().destroyed_end_ms;
    const auto any = [](const LinkRecord&) { return true; };
    TakeLinks(detached, any,
              [&](std::uint32_t, const LinkRef& link) { ReleaseDestroyedLink(link, deadline); });
}

}  // namespace

void StopAllLinks() {
    for (std::uint32_t module = 0; module < kMaxModules; ++module) {
        StopModuleLinks(module, ModuleDevices->slots[module]);
    }
}

}  // namespace tarvik
