#include "doctor/check.h"

#include <algorithm>
#include <exception>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "console/progress.h"
#include "console/terminal.h"

namespace dpdu {
namespace {

using CheckClock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kInterruptionPoll{50};
constexpr std::chrono::seconds kTimeToEnd{1};

class RunningCheck {
public:
    explicit RunningCheck(const DoctorCheck& check) : check_(check) {
        auto done = std::make_shared<std::promise<void>>();
        done_ = done->get_future();
        thread_ = std::thread([done, run = run_, examine = check.examine] {
            try {
                examine(run.get());
                done->set_value();
            } catch (...) {
                done->set_exception(std::current_exception());
            }
        });
    }
    // One that hangs keeps its share of what it uses, until the program ends.
    ~RunningCheck() {
        if (HasEnded()) {
            thread_.join();
        } else {
            thread_.detach();
        }
    }
    RunningCheck(const RunningCheck&) = delete;
    RunningCheck& operator=(const RunningCheck&) = delete;

    bool HasEnded() const { return !done_.valid() || WaitUntil(CheckClock::now()); }
    bool WaitUntil(CheckClock::time_point time) const {
        return done_.wait_until(time) == std::future_status::ready;
    }
    // Throws what the check has thrown. Once, after its end.
    void RethrowFailure() { done_.get(); }
    CheckRun& Run() { return *run_; }
    const DoctorCheck& What() const { return check_; }

private:
    const DoctorCheck check_;
    const std::shared_ptr<CheckRun> run_ = std::make_shared<CheckRun>();
    std::future<void> done_;
    std::thread thread_;
};

using RunningChecks = std::vector<std::unique_ptr<RunningCheck>>;

// False: the user has interrupted the program.
bool AwaitEnd(const RunningCheck& check, CheckClock::time_point deadline) {
    const Progress progress(check.What().name);
    for (;;) {
        if (WasInterrupted()) return false;
        const CheckClock::time_point now = CheckClock::now();
        if (check.WaitUntil(std::min(deadline, now + kInterruptionPoll)) || now >= deadline) {
            return true;
        }
    }
}

bool AwaitAll(const RunningChecks& checks, CheckClock::time_point deadline) {
    for (const auto& check : checks) {
        if (!AwaitEnd(*check, deadline)) return false;
    }
    return true;
}

Finding LateFinding(const DoctorCheck& check, std::chrono::seconds limit) {
    return Found(check.late, {{"check", check.name}, {"seconds", std::to_string(limit.count())}});
}

}  // namespace

void CheckRun::Add(const Finding& finding) {
    const std::lock_guard hold(lock_);
    findings_.push_back(finding);
}

void CheckRun::Add(const Findings& findings) {
    for (const Finding& finding : findings)
        Add(finding);
}

void CheckRun::OnStop(std::function<void()> wake) {
    const std::lock_guard hold(lock_);
    wake_ = std::move(wake);
    if (stop_ && wake_) std::exchange(wake_, nullptr)();
}

void CheckRun::RequestStop() {
    const std::lock_guard hold(lock_);
    stop_ = true;
    if (wake_) std::exchange(wake_, nullptr)();
}

Findings CheckRun::Reported() const {
    const std::lock_guard hold(lock_);
    return findings_;
}

Examination RunChecks(const std::vector<DoctorCheck>& checks, std::chrono::seconds limit) {
    const CheckClock::time_point deadline = CheckClock::now() + limit;
    RunningChecks running;
    for (const DoctorCheck& check : checks)
        running.push_back(std::make_unique<RunningCheck>(check));

    Examination examination;
    examination.is_interrupted = !AwaitAll(running, deadline);
    std::vector<bool> late;
    for (const auto& check : running) {
        late.push_back(!check->HasEnded());
        if (late.back()) check->Run().RequestStop();
    }
    const CheckClock::time_point end = CheckClock::now() + kTimeToEnd;
    for (std::size_t i = 0; i < running.size(); ++i) {
        if (running[i]->WaitUntil(end)) {
            running[i]->RethrowFailure();
        } else {
            examination.is_hanging = true;
        }
        const Findings found = running[i]->Run().Reported();
        examination.findings.insert(examination.findings.end(), found.begin(), found.end());
        if (late[i] && !examination.is_interrupted) {
            examination.findings.push_back(LateFinding(running[i]->What(), limit));
        }
    }
    return examination;
}

}  // namespace dpdu
