#include "unit/worker/test_limits.h"

// The library's own, whose reads are counted.
#define GetLinkLimits LibraryLinkLimits
#include "link/link_limits.cpp"
#undef GetLinkLimits

namespace tarvik {

const WorkerLimits& GetWorkerLimits() {
    ++test::worker_limit_reads;
    return test::worker_limits;
}

const LinkLimits& GetLinkLimits() {
    ++test::link_limit_reads;
    return LibraryLinkLimits();
}

namespace test {

// Idle threads look for their end as seldom as possible, so that a test in which nothing wakes them
// runs out of time.
WorkerLimits worker_limits = {.request_poll_ms = 100,
                              .receive_poll_ms = 100,
                              .join_slice_ms = 1,
                              .worker_stop_ms = 10'000,
                              .destroyed_end_ms = 10'000,
                              .receiver_stop_ms = 5'000};

std::atomic<std::uint64_t> worker_limit_reads{0};
std::atomic<std::uint64_t> link_limit_reads{0};

}  // namespace test
}  // namespace tarvik
