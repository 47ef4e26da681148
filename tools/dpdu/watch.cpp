#include "watch.h"

#include "failure.h"
#include "terminal.h"

namespace dpdu {
namespace {

// Asking for the module's state costs a call into the library.
constexpr std::chrono::milliseconds kTimeBetweenLooks{500};

}  // namespace

Deadline::Deadline(std::optional<std::chrono::milliseconds> limit) {
    if (limit) end_ = Clock::now() + *limit;
}

Watch::Watch(const ConnectedModule& module, std::optional<std::chrono::milliseconds> limit)
    : session_(module.GetSession()),
      module_(module.Handle()),
      deadline_(limit),
      next_look_(Deadline::Clock::now() + kTimeBetweenLooks) {}

bool Watch::Wait() {
    session_->PauseForEvent();
    return GoesOn();
}

bool Watch::WaitUntil(Deadline::Clock::time_point next) {
    for (;;) {
        const auto left = next - Deadline::Clock::now();
        if (left <= Deadline::Clock::duration::zero()) return GoesOn();
        session_->PauseForEvent(std::chrono::ceil<std::chrono::milliseconds>(left));
        if (!GoesOn()) return false;
    }
}

bool Watch::GoesOn() {
    if (WasInterrupted() || deadline_.IsOver()) return false;
    const auto now = Deadline::Clock::now();
    if (now >= next_look_) {
        next_look_ = now + kTimeBetweenLooks;
        if (IsModuleGone(session_, module_)) throw Failure("the module is gone");
    }
    return true;
}

}  // namespace dpdu
