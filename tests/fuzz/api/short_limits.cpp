// Dongles that do not answer are the rule here.

#include "link/link_limits.h"
#include "worker/worker_limits.h"

namespace tarvik {

const LinkLimits& GetLinkLimits() {
    static constexpr LinkLimits kLimits = {.wait_slice_ms = 5,
                                           .dongle_grace_ms = 5,
                                           .answer_timeout_ms = 10,
                                           .busy_limit_ms = 20,
                                           .reassembly_idle_ms = 100};
    return kLimits;
}

const WorkerLimits& GetWorkerLimits() {
    static constexpr WorkerLimits kLimits = {.request_poll_ms = 10,
                                             .receive_poll_ms = 10,
                                             .join_slice_ms = 1,
                                             .worker_stop_ms = 20'000,
                                             .destroyed_end_ms = 100,
                                             .receiver_stop_ms = 15'000};
    return kLimits;
}

}  // namespace tarvik
