#include "commands/watch.h"

#include "console/failure.h"
#include "console/terminal.h"

namespace dpdu {
namespace {

void ThrowGone() { throw Failure(kModuleGone, ExitCode::kModuleLost); }

}  // namespace

Deadline::Deadline(std::optional<std::chrono::milliseconds> limit) {
    if (limit) end_ = Clock::now() + *limit;
}

Watch::Watch(const ConnectedModule& module, std::optional<std::chrono::milliseconds> limit)
    : session_(module.GetSession()), module_(module.Handle()), deadline_(limit), lookout_(module) {}

bool Watch::Wait() {
    session_->PauseForEvent();
    return GoesOn();
}

bool Watch::WaitUntil(Deadline::Clock::time_point next) {
    while (GoesOn()) {
        const auto left = next - Deadline::Clock::now();
        if (left <= Deadline::Clock::duration::zero()) return true;
        session_->PauseForEvent(std::chrono::ceil<std::chrono::milliseconds>(left));
    }
    return false;
}

void Watch::LookAtModule() const {
    ListModules(session_);
    if (IsModuleGone(session_, module_)) ThrowGone();
}

bool Watch::GoesOn() {
    if (WasInterrupted() || deadline_.IsOver()) return false;
    if (lookout_.IsGone()) ThrowGone();
    return true;
}

}  // namespace dpdu
