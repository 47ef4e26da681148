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

// A thread's own calls of both generations: callbacks run inside calls and make calls themselves.
constexpr unsigned kOwnBits = 16;
constexpr std::intptr_t kOneOwnCall[2] = {1, std::intptr_t{1} << kOwnBits};
// Set in the own calls of a thread that was given up: they are in `calls` no more.
constexpr std::intptr_t kGivenUp = std::intptr_t{1} << (2 * kOwnBits);

std::int32_t CountOf(std::intptr_t own, std::uint32_t of_generation) {
    return static_cast<std::int32_t>((own >> (of_generation * kOwnBits)) & ((1 << kOwnBits) - 1));
}

// A thread's value is either its own calls or, with this bit, the address of its ThreadCalls.
constexpr std::intptr_t kIsAddress = INTPTR_MIN;

ThreadCalls* CallsOfThisThread() {
    const std::intptr_t value = OsThreadValue();
    if ((value & kIsAddress) == 0) return nullptr;
    return reinterpret_cast<ThreadCalls*>(value & ~kIsAddress);
}

}  // namespace

std::int32_t OwnCalls(std::uint32_t of_generation) {
    const ThreadCalls* thread = CallsOfThisThread();
    return CountOf(thread == nullptr ? OsThreadValue() : thread->own_.load(), of_generation);
}

CountThreadCalls::CountThreadCalls(ThreadCalls* record) {
    OsSetThreadValue(reinterpret_cast<std::intptr_t>(record) | kIsAddress);
}

CountThreadCalls::~CountThreadCalls() { OsSetThreadValue(0); }

// The thread may be entering or leaving a call: it looks at the bit only after it has changed its
// own calls, so each of its calls is taken out of `calls` exactly once.
void ThreadCalls::GiveUp() {
    const std::intptr_t own = own_.fetch_or(kGivenUp);
    if ((own & kGivenUp) != 0) return;
    for (const std::uint32_t of : {0u, 1u})
        calls[of].fetch_sub(CountOf(own, of));
}

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

ApiCall::ApiCall() : generation_(generation.load() & 1), thread_(CallsOfThisThread()) {
    const std::intptr_t one = kOneOwnCall[generation_];
    if (thread_ == nullptr) {
        OsSetThreadValue(OsThreadValue() + one);
    } else if ((thread_->own_.fetch_add(one) & kGivenUp) != 0) {
        return;
    }
    calls[generation_].fetch_add(1);
}

ApiCall::~ApiCall() {
    const std::intptr_t one = kOneOwnCall[generation_];
    if (thread_ != nullptr) {
        if ((thread_->own_.fetch_sub(one) & kGivenUp) == 0) calls[generation_].fetch_sub(1);
        return;
    }
    calls[generation_].fetch_sub(1);
    OsSetThreadValue(OsThreadValue() - one);
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
