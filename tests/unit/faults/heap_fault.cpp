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

bool IsRefused() {
    const std::uint32_t failing = failing_thread.load(std::memory_order_relaxed);
    return failing != 0 && failing == tarvik::OsCurrentThreadId() && Refuse();
}

}  // namespace

// The linker redirects every such call in the library, and in what is linked into it, to these
// functions.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
char* __real_strdup(const char* text);

void* __wrap_malloc(std::size_t size) { return IsRefused() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return IsRefused() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, std::size_t size) {
    return IsRefused() ? nullptr : __real_realloc(block, size);
}
char* __wrap_strdup(const char* text) { return IsRefused() ? nullptr : __real_strdup(text); }
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
