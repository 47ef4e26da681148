#pragma once

#include <cstdint>

#include "support/memory.h"

namespace tarvik::test {

inline constexpr std::uint32_t kAllRequests = 0xFFFFFFFF;

// While it lives, and there is one at a time, the calling thread's heap serves `allowed` more
// requests, then refuses `refused`, and serves the rest. Make no assertions meanwhile: they need
// memory too.
class FailingHeap {
public:
    explicit FailingHeap(std::uint32_t allowed = 0, std::uint32_t refused = kAllRequests);
    ~FailingHeap();
    FailingHeap(const FailingHeap&) = delete;
    FailingHeap& operator=(const FailingHeap&) = delete;

    bool Refused() const;             // at least one request
    static std::uint32_t Refusals();  // of all times and threads
};

// Tracked memory in use, for comparing before and after.
inline bool operator==(const MemoryUse& a, const MemoryUse& b) {
    return a.blocks == b.blocks && a.bytes == b.bytes;
}

}  // namespace tarvik::test
