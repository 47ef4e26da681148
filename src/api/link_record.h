#pragma once

#include <atomic>
#include <cstdint>

#include "api/dpdu_types.h"
#include "api/item_queue.h"
#include "api/unique_resp_tables.h"
#include "link/packet_queue.h"
#include "platform/lock.h"
#include "platform/mutex.h"
#include "platform/thread.h"

namespace tarvik {

enum class ProtocolKind : std::uint32_t { kUnknown = 0, kCan = 1, kDoip = 2 };

// Bus type, protocol and resource ids, as PDUGetObjectId hands them out.
inline constexpr std::uint32_t kBusTypeCan = 4000;
inline constexpr std::uint32_t kBusTypeDoip = 4001;
inline constexpr std::uint32_t kProtocolCan = 3000;
inline constexpr std::uint32_t kProtocolDoip = 3001;
inline constexpr std::uint32_t kResourceCan = 2001;
inline constexpr std::uint32_t kResourceDoip = 2002;

// The order of the tests is the rule: DoIP wins where the two ids disagree.
ProtocolKind DecideProtocol(std::uint32_t bus_type, std::uint32_t protocol);

// One logical link. References are held by the module's link array, by the worker thread and by
// every API call that works on the link; the last one to go releases the record, so that a worker
// or a caller that outlasts PDUDestruct never touches freed memory.
struct LinkRecord {
    std::uint32_t hMod = 0;
    std::uint32_t hCLL = 0;  // position in the module's link array; never reused
    void* CllTag = nullptr;
    std::atomic<bool> running{false};  // the handle is valid while it is set
    std::atomic<std::uint32_t> state{PDU_CLLST_OFFLINE};
    OsThread* thread = nullptr;  // CommThreadFunc; set before the link can be found
    OsMutex* mutex = nullptr;    // serialises API calls; kept owned by PDUDestroyComLogicalLink

    ItemQueue pending;      // ComPrimitives that the worker has not taken yet
    ItemQueue registry;     // every ComPrimitive of the link, by handle
    ItemQueue events;       // for PDUGetEventItem
    ItemQueue raw_receive;  // the ComPrimitive that receives raw CAN frames; the worker's own

    UniqueRespTable* unique_table = nullptr;  // guarded by mutex; null after a failed copy
    std::atomic<CALLBACKFNC> callback{nullptr};

    OsLock reception_lock;  // orders what its receive threads and the worker tell the dongle
    bool rawMode = false;
    bool rawChecksum = false;    // kept as it was asked for; no packet carries it
    std::uint32_t rawCanId = 0;  // of the raw frame being sent; the worker's own

    ProtocolKind protocolKind = ProtocolKind::kUnknown;
    std::uint32_t BusTypeId = 0;
    std::uint32_t ProtocolId = 0;
    std::uint32_t doipLogicalAddress = 0;
    std::uint32_t doipSourceAddress = 0;
    std::uint32_t doipTargetAddress = 0;

    // The module's queues, kept here so that the worker needs no look at the module table: an
    // application may be holding the module lock. Null: the module cannot be reached.
    DeviceQueues* device = nullptr;

    // Set by PDUDestruct before `running` is cleared: who calls it, and when receive threads that
    // have not ended are terminated.
    std::atomic<std::uint32_t> destructing_thread{0};
    std::atomic<std::uint64_t> stop_deadline_ms{0};

    bool announce_release = false;  // the log is told of the mutex; set by the last holder
    std::atomic<std::uint32_t> references{1};
};

// A counted reference to a link; empty when there is none.
class LinkRef {
public:
    LinkRef() = default;
    // Takes over one reference.
    explicit LinkRef(LinkRecord* adopted) : link_(adopted) {}
    LinkRef(LinkRef&& other) noexcept : link_(other.Detach()) {}
    LinkRef& operator=(LinkRef&& other) noexcept;
    ~LinkRef();

    explicit operator bool() const { return link_ != nullptr; }
    LinkRecord* operator->() const { return link_; }
    LinkRecord* Get() const { return link_; }
    LinkRecord* Detach();

private:
    LinkRecord* link_ = nullptr;
};

LinkRef ShareLink(LinkRecord* link);

void LogMutexRelease(const LinkRecord& link);

// Owns the link's mutex for a scope. Waits without limit, but not for a link that is destroyed
// meanwhile: its mutex stays owned for good, so the guard then comes up empty.
class LinkMutexGuard {
public:
    explicit LinkMutexGuard(LinkRecord* link);
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
