#include "worker/worker_limits.h"

namespace tarvik {

const WorkerLimits& GetWorkerLimits() {
    static constexpr WorkerLimits kLimits = {
        .request_poll_ms = 100,
        .receive_poll_ms = 100,
        .join_slice_ms = 50,
        .worker_stop_ms = 2000,
        .destroyed_end_ms = 100,   // they have noticed by then, and told the dongle
        .receiver_stop_ms = 1500,  // leaves its worker time to end too
    };
    return kLimits;
}

}  // namespace tarvik
