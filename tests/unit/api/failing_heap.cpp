#include "unit/api/failing_heap.h"

#include <cstddef>

namespace {

constexpr std::int64_t kUnlimited = -1;
thread_local std::int64_t requests_left = kUnlimited;
thread_local bool refused = false;

}  // namespace

// The linker leads every call of malloc in the library here.
extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
    if (requests_left == kUnlimited) return __real_malloc(size);
    if (requests_left == 0) {
        refused = true;
        return nullptr;
    }
    --requests_left;
    return __real_malloc(size);
}

namespace tarvik::test {

FailingHeap::FailingHeap(std::uint32_t allowed) {
    refused = false;
    requests_left = allowed;
}
FailingHeap::~FailingHeap() { requests_left = kUnlimited; }
bool FailingHeap::Refused() const { return refused; }

}  // namespace tarvik::test
