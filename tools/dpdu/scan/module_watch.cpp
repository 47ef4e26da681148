#include "scan/module_watch.h"

#include "console/interruption.h"

namespace dpdu {

void ModuleWatch::NoteSignOfLife() {
    constexpr std::chrono::milliseconds kSilence{2000};
    next_look_ = std::chrono::steady_clock::now() + kSilence;
}

void ModuleWatch::Check() {
    ThrowIfInterrupted();
    if (std::chrono::steady_clock::now() >= next_look_) Look();
}

void ModuleWatch::Look() {
    ThrowIfInterrupted();
    ListModules(session_);
    if (IsModuleGone(session_, handle_)) throw Failure(kModuleGone, ExitCode::kModuleLost);
    NoteSignOfLife();
}

}  // namespace dpdu
