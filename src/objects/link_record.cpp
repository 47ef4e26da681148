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
    if (reception_mutex != nullptr) OsMutexClose(reception_mutex);
}

void LogMutexRelease(const LinkRecord& link) {
    if (link.mutex == nullptr) return;
    Log(kLogTrace, "[%s] Closing Mutex handle 0x%p (LogicalLink #%u)", "PDUDestruct",
        OsMutexHandle(link.mutex), link.hCLL);
}

LinkMutexGuard::LinkMutexGuard(LinkRecord* link, LinkUser user) {
    if (link->mutex == nullptr) return;
    const auto may_enter = [&] { return user == LinkUser::kWorker || link->running.load(); };
    while (may_enter()) {
        if (OsMutexLock(link->mutex, kLinkPollMs) == MutexWait::kTimeout) {
            if (!link->running.load()) return;
            continue;
        }
        if (may_enter()) {
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
