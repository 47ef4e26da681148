#include "unit/worker/test_limits.h"

namespace tarvik {

const WorkerLimits& GetWorkerLimits() { return test::worker_limits; }

namespace test {

// Idle threads look for their end as seldom as possible, so that a test in which nothing wakes them
// runs out of time.
WorkerLimits worker_limits = {.request_poll_ms = 100,
                              .receive_poll_ms = 100,
                              .join_slice_ms = 1,
                              .worker_stop_ms = 10'000,
                              .destroyed_end_ms = 10'000,
                              .receiver_stop_ms = 5'000};

}  // namespace test
}  // namespace tarvik
