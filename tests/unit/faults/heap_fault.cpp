#include "unit/faults/heap_fault.h"

#include <atomic>
#include <cstddef>

#include "platform/thread.h"

namespace {

// Not thread_local: the first access of such a variable may need memory itself.
std::atomic<std::uint32_t> failing_thread{0};
std::atomic<std::uint32_t> refusals{0};
std::uint32_t requests_left = 0;  // used by the failing thread only
bool refused = false;             // likewise

bool Refuse() {
    if (requests_left == 0) {
        refused = true;
        refusals.fetch_add(1);
        return true;
    }
    --requests_left;
    return false;
}

}  // namespace

// The linker leads every call of malloc in the library here.
extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
    const std::uint32_t failing = failing_thread.load(std::memory_order_relaxed);
    if (failing != 0 && failing == tarvik::OsCurrentThreadId() && Refuse()) return nullptr;
    return __real_malloc(size);
}

namespace tarvik::test {

FailingHeap::FailingHeap(std::uint32_t allowed) {
    refused = false;
    requests_left = allowed;
    failing_thread = OsCurrentThreadId();
}
FailingHeap::~FailingHeap() { failing_thread = 0; }
bool FailingHeap::Refused() const { return refused; }
std::uint32_t FailingHeap::Refusals() { return refusals.load(); }

}  // namespace tarvik::test
