#pragma once

#include <atomic>
#include <cstdint>

#include "dpdu_types.h"
#include "link/packet_queue.h"
#include "objects/com_primitive.h"
#include "objects/item_queue.h"
#include "objects/items.h"
#include "objects/lifecycle.h"
#include "objects/protocol_kind.h"
#include "objects/unique_resp_tables.h"
#include "platform/lock.h"
#include "platform/mutex.h"
#include "platform/thread.h"
#include "support/counted.h"

namespace tarvik {

// One logical link. References are held by the module's link array, the link's threads and every
// API call that works on the link, so that a thread or a call that outlives PDUDestruct never
// touches freed memory.
struct LinkRecord : Counted {
    ~LinkRecord();

    std::uint32_t hMod = 0;
    std::uint32_t hCLL = 0;  // position in the module's link array; never reused
    void* CllTag = nullptr;
    std::atomic<bool> running{false};  // the handle is valid while it is set
    std::atomic<std::uint32_t> state{PDU_CLLST_OFFLINE};
    OsThread* thread = nullptr;  // CommThreadFunc; set before the link can be found
    ThreadCalls worker_calls;    // that callbacks of the worker are inside
    OsMutex* mutex = nullptr;    // serialises API calls; kept owned by PDUDestroyComLogicalLink

    ItemQueue<Ref<ComPrimitive>> pending;      // that the worker has not taken yet
    ItemQueue<Ref<ComPrimitive>> registry;     // all of the link, by handle
    ItemQueue<EventPtr> events;                // for PDUGetEventItem
    ItemQueue<Ref<ComPrimitive>> raw_receive;  // the one that receives raw frames; worker only

    Ref<UniqueRespTable> unique_table;  // guarded by mutex; empty after a failed copy
    std::atomic<CALLBACKFNC> callback{nullptr};

    // Orders what its receive threads and the worker send to the dongle. A mutex, since a receive
    // thread may be terminated while it owns it.
    OsMutex* reception_mutex = nullptr;
    bool rawMode = false;
    bool rawChecksum = false;    // as requested; no packet carries it
    std::uint32_t rawCanId = 0;  // of the raw frame being sent; only the worker uses it

    ProtocolKind protocolKind = ProtocolKind::kUnknown;
    std::uint32_t BusTypeId = 0;
    std::uint32_t ProtocolId = 0;
    std::uint32_t doipLogicalAddress = 0;
    std::uint32_t doipSourceAddress = 0;
    std::uint32_t doipTargetAddress = 0;

    // The module's queues, kept here so that the worker needs no look at the module table: an
    // application may be holding the module lock. Null: the module cannot be reached. Threads of
    // the link ask Device().
    DeviceQueues* device = nullptr;
    DeviceQueues* Device() const { return detached.load() ? nullptr : device; }

    // Exchanges with the dongle continue while it is set. Cleared with `running`, except when the
    // worker itself destroys the link in a callback: it then carries out its ComPrimitive.
    std::atomic<bool> may_exchange{true};

    // Set by PDUDestruct before `running` is cleared: its thread, and the time at which receive
    // threads that have not ended are terminated.
    std::atomic<std::uint32_t> destructing_thread{0};
    std::atomic<std::uint64_t> stop_deadline_ms{0};
    // Set when PDUDestruct leaves the link while a thread of it still runs: whatever the thread
    // does later reaches neither the application nor the dongle, which may be those of another
    // construct.
    std::atomic<bool> detached{false};

    bool announce_release = false;  // log the release of the mutex; set by the last holder
};

using LinkRef = Ref<LinkRecord>;

void LogMutexRelease(const LinkRecord& link);

enum class LinkUser : std::uint8_t {
    kApiCall,  // enters no destroyed link
    kWorker,   // enters a link that it has destroyed itself, in a callback
};

// Owns the link's mutex for a scope. Waits without limit, except for a link that is destroyed
// meanwhile: its mutex stays owned for good, so the guard is then empty.
class LinkMutexGuard {
public:
    explicit LinkMutexGuard(LinkRecord* link, LinkUser user = LinkUser::kApiCall);
    ~LinkMutexGuard();
    LinkMutexGuard(const LinkMutexGuard&) = delete;
    LinkMutexGuard& operator=(const LinkMutexGuard&) = delete;

    explicit operator bool() const { return owned_ != nullptr; }
    // Deliberately leaves the mutex owned by this thread.
    void Keep() { owned_ = nullptr; }

private:
    OsMutex* owned_ = nullptr;
};

}  // namespace tarvik
