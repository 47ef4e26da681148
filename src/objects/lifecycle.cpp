#include "objects/lifecycle.h"

#include <atomic>

#include "platform/thread.h"
#include "platform/tick.h"

namespace tarvik {
namespace {

std::atomic<Lifecycle> state{Lifecycle::kNotConstructed};
std::atomic<void*> api_tag{nullptr};

// Calls that have begun and not ended. A wait for them opens the other generation, so that calls
// which begin later do not prolong it.
std::atomic<std::uint32_t> generation{0};  // only its lowest bit matters
std::atomic<std::int32_t> calls[2];

// The calling thread's own calls of both generations: callbacks run inside calls and make calls
// themselves.
constexpr unsigned kOwnBits = 16;
constexpr std::intptr_t kOneOwnCall[2] = {1, std::intptr_t{1} << kOwnBits};

std::int32_t OwnCalls(std::uint32_t of_generation) {
    const std::intptr_t own = OsThreadValue() >> (of_generation * kOwnBits);
    return static_cast<std::int32_t>(own & ((1 << kOwnBits) - 1));
}

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

ApiCall::ApiCall() : generation_(generation.load() & 1) {
    OsSetThreadValue(OsThreadValue() + kOneOwnCall[generation_]);
    calls[generation_].fetch_add(1);
}

ApiCall::~ApiCall() {
    calls[generation_].fetch_sub(1);
    OsSetThreadValue(OsThreadValue() - kOneOwnCall[generation_]);
}

bool WaitForOtherApiCalls(std::uint32_t timeout_ms) {
    const std::uint32_t ended_generation = generation.fetch_add(1) & 1;
    const std::uint64_t deadline = TickMs() + timeout_ms;
    // Polled: this runs once per PDUDestruct, and waking it would cost every call of the API.
    while (calls[ended_generation].load() > OwnCalls(ended_generation)) {
        if (TickMs() >= deadline) return false;
        SleepMs(1);
    }
    return true;
}

}  // namespace tarvik
