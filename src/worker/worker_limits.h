#pragma once

#include <cstdint>

namespace tarvik {

// The time limits of a link's threads.
struct WorkerLimits {
    std::uint32_t request_poll_ms;   // an idle worker checks that its link still runs
    std::int32_t receive_poll_ms;    // a receive thread without frames checks whether to stop
    std::int32_t join_slice_ms;      // a wait for a receive thread checks for a PDUDestruct
    std::int32_t worker_stop_ms;     // PDUDestruct then terminates the worker
    std::uint32_t destroyed_end_ms;  // PDUDestruct lets workers of destroyed links end
    std::uint32_t receiver_stop_ms;  // PDUDestruct then terminates a receive thread
};

const WorkerLimits& GetWorkerLimits();

}  // namespace tarvik
