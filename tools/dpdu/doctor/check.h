// Checks that may take long: each runs on a thread of its own, with a time limit.

#ifndef TOOLS_DPDU_DOCTOR_CHECK_H
#define TOOLS_DPDU_DOCTOR_CHECK_H

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "doctor/diagnoses.h"
#include "doctor/finding.h"

namespace dpdu {

// Where a check reports, and how it learns that it has to end.
class CheckRun {
public:
    void Add(const Finding& finding);
    void Add(const Findings& findings);

    // Set when the time is over or the user has interrupted the program: end soon.
    const std::atomic<bool>& Stop() const { return stop_; }
    // What makes a blocked check end; called at most once, on another thread. At once if the check
    // has to end already. An empty one takes the last one back.
    void OnStop(std::function<void()> wake);

    void RequestStop();
    Findings Reported() const;

private:
    mutable std::mutex lock_;
    std::atomic<bool> stop_{false};
    Findings findings_;           // guarded by lock_
    std::function<void()> wake_;  // guarded by lock_, also while it is called
};

struct DoctorCheck {
    std::string name;                            // "looking at the relay": what the user reads
    Diagnosis late;                              // with the values "check" and "seconds"
    std::function<void(CheckRun* run)> examine;  // owns all that it needs
};

struct Examination {
    Findings findings;            // in the order of the checks
    bool is_interrupted = false;  // by the user
    bool is_hanging = false;      // the thread of a check has not ended
};

// Runs the checks at the same time. One that takes longer than the limit is asked to end, and is
// left to itself if it does not within a second: a name look-up or a driver may hang.
Examination RunChecks(const std::vector<DoctorCheck>& checks, std::chrono::seconds limit);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_CHECK_H
