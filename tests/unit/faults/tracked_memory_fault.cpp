#include "unit/faults/tracked_memory_fault.h"

#include <atomic>

// First, so that what it defines calls AllocateMem by its name.
#include "support/memory.h"

// The library's source, with its two ways to allocate renamed. This object then defines all that
// the source does, so the linker takes nothing of it from the library.
#define AllocateMem LibraryAllocateMem
#define AllocateArray LibraryAllocateArray
#include "support/memory.cpp"
#undef AllocateMem
#undef AllocateArray

#include "platform/thread.h"

namespace tarvik {
namespace {

std::atomic<bool> counting{false};
std::atomic<std::uint32_t> requests{0};
std::atomic<std::uint32_t> first_refused{0};
std::atomic<std::uint32_t> end_of_refused{0};
std::atomic<std::uint32_t> exempt_thread{0};

bool Refuse() {
    if (!counting || exempt_thread == OsCurrentThreadId()) return false;
    const std::uint32_t request = requests.fetch_add(1) + 1;
    return request >= first_refused && request < end_of_refused;
}

}  // namespace

void* AllocateMem(std::size_t size) { return Refuse() ? nullptr : LibraryAllocateMem(size); }

void* AllocateArray(std::size_t count, std::size_t size) { return AllocateMem(count * size); }

namespace test {

RefusedRequests::RefusedRequests(std::uint32_t first, std::uint32_t refused) {
    requests = 0;
    first_refused = first;
    end_of_refused = first + refused;
    counting = true;
}

RefusedRequests::~RefusedRequests() { counting = false; }

bool RefusedRequests::Refused() const { return requests >= first_refused; }

void NeverRefuse(std::uint32_t thread_id) { exempt_thread = thread_id; }

}  // namespace test
}  // namespace tarvik
