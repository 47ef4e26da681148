#pragma once

#include <cstdint>

namespace tarvik::test {

// While it lives, and there is one at a time, the tracked allocator refuses `refused` requests from
// the `first`-th on (from 1), whichever threads they come from.
class RefusedRequests {
public:
    RefusedRequests(std::uint32_t first, std::uint32_t refused);
    ~RefusedRequests();
    RefusedRequests(const RefusedRequests&) = delete;
    RefusedRequests& operator=(const RefusedRequests&) = delete;

    bool Refused() const;  // at least one
};

// Requests of this thread, which is not the library's, are neither counted nor refused; 0: none.
void NeverRefuse(std::uint32_t thread_id);

}  // namespace tarvik::test
