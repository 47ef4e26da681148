#include "api/lifecycle.h"

#include <atomic>

#include "platform/thread.h"
#include "platform/tick.h"

namespace tarvik {
namespace {

std::atomic<Lifecycle> state{Lifecycle::kNotConstructed};
std::atomic<void*> api_tag{nullptr};
std::atomic<std::int32_t> calls{0};

// Callbacks run inside calls, and call again.
std::int32_t OwnCalls() { return static_cast<std::int32_t>(OsThreadValue()); }

}  // namespace

Lifecycle LibraryState() { return state.load(); }

bool IsConstructed() {
    const Lifecycle now = LibraryState();
    return now == Lifecycle::kConstructed || now == Lifecycle::kDestructing;
}

bool ChangeLibraryState(Lifecycle from, Lifecycle to) {
    return state.compare_exchange_strong(from, to);
}

void* ApiTag() { return api_tag.load(); }
void SetApiTag(void* tag) { api_tag.store(tag); }

ApiCall::ApiCall() {
    OsSetThreadValue(OsThreadValue() + 1);
    calls.fetch_add(1);
}

ApiCall::~ApiCall() {
    calls.fetch_sub(1);
    OsSetThreadValue(OsThreadValue() - 1);
}

bool WaitForOtherApiCalls(std::uint32_t timeout_ms) {
    const std::uint64_t deadline = TickMs() + timeout_ms;
    // Polled: this runs once per PDUDestruct, and waking it would cost every call of the API.
    while (calls.load() > OwnCalls()) {
        if (TickMs() >= deadline) return false;
        SleepMs(1);
    }
    return true;
}

}  // namespace tarvik
