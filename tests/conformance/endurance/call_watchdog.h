#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "conformance/endurance/random_caller.h"

namespace conformance {

// Ends the process if a call takes longer than the limit, and prints what every caller is doing: a
// thread that does not return holds locks, so nothing else in the process could end.
class CallWatchdog {
public:
    // `calls` must outlive it.
    CallWatchdog(const std::vector<CurrentCall>& calls, std::chrono::milliseconds limit);
    ~CallWatchdog();
    CallWatchdog(const CallWatchdog&) = delete;
    CallWatchdog& operator=(const CallWatchdog&) = delete;

private:
    void Watch();
    void AbortIfOneHangs() const;

    const std::vector<CurrentCall>& calls_;
    const std::chrono::milliseconds limit_;
    std::mutex lock_;
    std::condition_variable changed_;
    bool stop_ = false;  // guarded by lock_
    std::thread thread_;
};

}  // namespace conformance
