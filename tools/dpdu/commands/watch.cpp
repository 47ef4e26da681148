#include "commands/watch.h"

#include "console/failure.h"
#include "console/terminal.h"

namespace dpdu {
namespace {

// The check is not done more often because looking for modules may block for several 100 ms.
constexpr std::chrono::milliseconds kSilenceBeforeLook{2000};

}  // namespace

Deadline::Deadline(std::optional<std::chrono::milliseconds> limit) {
    if (limit) end_ = Clock::now() + *limit;
}

Watch::Watch(const ConnectedModule& module, std::optional<std::chrono::milliseconds> limit)
    : session_(module.GetSession()), module_(module.Handle()), deadline_(limit) {
    NoteSignOfLife();
}

bool Watch::Wait() {
    session_->PauseForEvent();
    if (!GoesOn()) return false;
    if (Deadline::Clock::now() >= next_look_) {
        LookAtModule();
        NoteSignOfLife();
    }
    return true;
}

bool Watch::WaitUntil(Deadline::Clock::time_point next) {
    while (GoesOn()) {
        const auto left = next - Deadline::Clock::now();
        if (left <= Deadline::Clock::duration::zero()) return true;
        session_->PauseForEvent(std::chrono::ceil<std::chrono::milliseconds>(left));
    }
    return false;
}

void Watch::NoteSignOfLife() { next_look_ = Deadline::Clock::now() + kSilenceBeforeLook; }

void Watch::LookAtModule() const {
    ListModules(session_);
    if (IsModuleGone(session_, module_)) throw Failure(kModuleGone, ExitCode::kModuleLost);
}

bool Watch::GoesOn() const { return !WasInterrupted() && !deadline_.IsOver(); }

}  // namespace dpdu
