#include "unit/faults/memory_watch_fault.h"

#include <algorithm>

// First, so that what it defines calls FreeMem by its name.
#include "support/memory.h"

// The library's source, with its FreeMem renamed. This object then defines all that the source
// does, so the linker takes nothing of it from the library.
#define FreeMem LibraryFreeMem
#include "support/memory.cpp"
#undef FreeMem

namespace tarvik {
namespace {

test::ReleasedMemory* watcher = nullptr;

}  // namespace

void FreeMem(void* user) {
    if (watcher != nullptr && user != nullptr) {
        watcher->Look(static_cast<const std::uint8_t*>(user), RequestedSize(user));
    }
    LibraryFreeMem(user);
}

namespace test {

ReleasedMemory::ReleasedMemory(std::vector<Bytes> secrets) : secrets_(std::move(secrets)) {
    const std::size_t count = secrets_.size();
    for (std::size_t i = 0; i < count; ++i)
        secrets_.emplace_back(secrets_[i].rbegin(), secrets_[i].rend());
    watcher = this;
}

ReleasedMemory::~ReleasedMemory() { watcher = nullptr; }

void ReleasedMemory::Look(const std::uint8_t* block, std::size_t size) {
    ++blocks_;
    for (const Bytes& secret : secrets_) {
        const std::uint8_t* const end = block + size;
        if (std::search(block, end, secret.begin(), secret.end()) != end) ++leaks_;
    }
}

}  // namespace test
}  // namespace tarvik
