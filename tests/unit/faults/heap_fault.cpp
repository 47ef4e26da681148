#include "unit/faults/heap_fault.h"

#include <atomic>
#include <cstddef>

#include "platform/thread.h"

namespace {

// Not thread_local: the first access of such a variable may need memory itself.
std::atomic<std::uint32_t> failing_thread{0};
std::atomic<std::uint32_t> refusals{0};
// Used by the failing thread only.
std::uint32_t requests_left = 0;
std::uint32_t refusals_left = 0;
bool refused = false;

bool Refuse() {
    if (requests_left > 0) {
        --requests_left;
        return false;
    }
    if (refusals_left == 0) return false;
    if (refusals_left != tarvik::test::kAllRequests) --refusals_left;
    refused = true;
    refusals.fetch_add(1);
    return true;
}

}  // namespace

// The linker redirects every call of malloc in the library to this function.
extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
    const std::uint32_t failing = failing_thread.load(std::memory_order_relaxed);
    if (failing != 0 && failing == tarvik::OsCurrentThreadId() && Refuse()) return nullptr;
    return __real_malloc(size);
}

namespace tarvik::test {

FailingHeap::FailingHeap(std::uint32_t allowed, std::uint32_t refused_requests) {
    refused = false;
    requests_left = allowed;
    refusals_left = refused_requests;
    failing_thread = OsCurrentThreadId();
}
FailingHeap::~FailingHeap() { failing_thread = 0; }
bool FailingHeap::Refused() const { return refused; }
std::uint32_t FailingHeap::Refusals() { return refusals.load(); }

}  // namespace tarvik::test
