#include "api/link_record.h"

#include <utility>

#include "api/com_primitives.h"
#include "api/events.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

// How often a wait for the mutex looks whether the link still exists.
constexpr std::int32_t kLinkPollMs = 50;

void ReleaseNothing(void*) {}
void ReleaseComPrimitive(void* cop) { FreeComPrimitive(static_cast<ComPrimitive*>(cop)); }

void DestroyRecord(LinkRecord* link) {
    FreeQueue(&link->pending, ReleaseNothing);  // the registry owns them
    FreeQueue(&link->registry, ReleaseComPrimitive);
    FreeQueue(&link->events, ReleaseQueuedEvent);
    FreeQueue(&link->raw_receive, ReleaseNothing);
    UniqueRespTable::Release(link->unique_table);
    if (link->thread != nullptr) OsThreadClose(link->thread);
    if (link->announce_release) LogMutexRelease(*link);
    if (link->mutex != nullptr) OsMutexClose(link->mutex);
    DeleteTracked(link);
}

}  // namespace

ProtocolKind DecideProtocol(std::uint32_t bus_type, std::uint32_t protocol) {
    if (bus_type == kBusTypeDoip || protocol == kProtocolDoip) return ProtocolKind::kDoip;
    if (bus_type == kBusTypeCan || protocol == kProtocolCan) return ProtocolKind::kCan;
    return ProtocolKind::kUnknown;
}

LinkRef& LinkRef::operator=(LinkRef&& other) noexcept {
    LinkRef old(std::exchange(link_, other.Detach()));
    return *this;
}

LinkRef::~LinkRef() {
    if (link_ != nullptr && link_->references.fetch_sub(1) == 1) DestroyRecord(link_);
}

LinkRecord* LinkRef::Detach() { return std::exchange(link_, nullptr); }

LinkRef ShareLink(LinkRecord* link) {
    link->references.fetch_add(1);
    return LinkRef(link);
}

void LogMutexRelease(const LinkRecord& link) {
    if (link.mutex == nullptr) return;
    Log(kLogTrace, "[%s] Closing Mutex handle 0x%p (LogicalLink #%u)", "PDUDestruct",
        OsMutexHandle(link.mutex), link.hCLL);
}

LinkMutexGuard::LinkMutexGuard(LinkRecord* link) {
    if (link->mutex == nullptr) return;
    while (link->running.load()) {
        if (OsMutexLock(link->mutex, kLinkPollMs) == MutexWait::kTimeout) continue;
        if (link->running.load()) {
            owned_ = link->mutex;
            return;
        }
        OsMutexUnlock(link->mutex);
    }
}

LinkMutexGuard::~LinkMutexGuard() {
    if (owned_ != nullptr) OsMutexUnlock(owned_);
}

}  // namespace tarvik
