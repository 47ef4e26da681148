#include "objects/link_record.h"

#include "support/log.h"

namespace tarvik {
namespace {

// How often a wait for the mutex checks that the link still exists.
constexpr std::int32_t kLinkPollMs = 50;

}  // namespace

LinkRecord::~LinkRecord() {
    pending.Free();
    registry.Free();
    events.Free();
    raw_receive.Free();
    unique_table.Reset();
    if (thread != nullptr) OsThreadClose(thread);
    if (announce_release) LogMutexRelease(*this);
    if (mutex != nullptr) OsMutexClose(mutex);
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
