#pragma once

#include <atomic>
#include <cstdint>

#include "worker/worker_limits.h"

namespace tarvik::test {

// What GetWorkerLimits returns in this program: the real limits, which a test may change while no
// link's thread runs.
extern WorkerLimits worker_limits;

// How often the library has read its limits: those of links in each slice of a wait.
extern std::atomic<std::uint64_t> worker_limit_reads;
extern std::atomic<std::uint64_t> link_limit_reads;

// Restores the limits at the end of its scope.
class LimitsScope {
public:
    LimitsScope() = default;
    ~LimitsScope() { worker_limits = before_; }
    LimitsScope(const LimitsScope&) = delete;
    LimitsScope& operator=(const LimitsScope&) = delete;

private:
    WorkerLimits before_ = worker_limits;
};

}  // namespace tarvik::test
