#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "conformance/endurance/random_caller.h"

namespace conformance {

// Ends the process when one of the calls takes longer than the limit, and says what every caller is
// doing: a thread that does not come back holds locks, and nothing further in the process could
// end.
class CallWatchdog {
public:
    // `calls` outlives it.
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
