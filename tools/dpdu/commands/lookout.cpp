#include "commands/lookout.h"

#include <algorithm>
#include <utility>

namespace dpdu {
namespace {

constexpr std::chrono::milliseconds kSilence{2000};
constexpr std::chrono::milliseconds kPauseAfterError{500};

}  // namespace

Lookout::Lookout(const ConnectedModule& module,
                 std::optional<std::chrono::milliseconds> longest_pause)
    : session_(module.GetSession()),
      module_(module.Handle()),
      longest_pause_(longest_pause),
      last_sign_(Clock::now()),
      last_look_(last_sign_),
      thread_([this] { Run(); }) {}

Lookout::~Lookout() {
    {
        const std::lock_guard hold(lock_);
        is_ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Lookout::NoteSignOfLife() {
    const std::lock_guard hold(lock_);
    last_sign_ = Clock::now();
    is_gone_ = false;
}

void Lookout::NoteError() {
    {
        const std::lock_guard hold(lock_);
        has_error_ = true;
    }
    changed_.notify_all();
}

bool Lookout::IsGone() {
    const std::lock_guard hold(lock_);
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    return is_gone_;
}

std::optional<std::vector<ModuleInfo>> Lookout::TakeModules() {
    const std::lock_guard hold(lock_);
    return std::exchange(modules_, std::nullopt);
}

Lookout::Clock::time_point Lookout::NextLook() const {
    if (has_error_) return last_look_ + kPauseAfterError;
    const Clock::time_point next = std::max(last_look_, last_sign_) + kSilence;
    return longest_pause_ ? std::min(next, last_look_ + *longest_pause_) : next;
}

void Lookout::Run() {
    std::unique_lock hold(lock_);
    while (!is_ending_) {
        // A sign of life meanwhile only makes it later, which is seen here.
        if (const Clock::time_point next = NextLook(); Clock::now() < next) {
            changed_.wait_until(hold, next);
            continue;
        }
        has_error_ = false;
        hold.unlock();
        Look();
        hold.lock();
        last_look_ = Clock::now();
    }
}

// A dongle behind a relay may be too busy to answer once; the library revives it if it answers the
// next time.
void Lookout::Look() try {
    std::vector<ModuleInfo> modules = ListModules(session_);
    bool is_gone = IsModuleGone(session_, module_);
    if (is_gone) {
        modules = ListModules(session_);
        is_gone = IsModuleGone(session_, module_);
    }
    const std::lock_guard hold(lock_);
    modules_ = std::move(modules);
    is_gone_ = is_gone;
} catch (...) {
    const std::lock_guard hold(lock_);
    failure_ = std::current_exception();
}

}  // namespace dpdu
