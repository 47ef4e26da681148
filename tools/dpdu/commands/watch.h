// Runs a command until its time is up or the user ends it.

#ifndef TOOLS_DPDU_COMMANDS_WATCH_H
#define TOOLS_DPDU_COMMANDS_WATCH_H

#include <chrono>
#include <optional>

#include "commands/lookout.h"
#include "pdu/modules.h"

namespace dpdu {

// An optional time limit.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    // Without a limit it is never over.
    explicit Deadline(std::optional<std::chrono::milliseconds> limit);

    bool IsOver() const { return end_ && Clock::now() >= *end_; }

private:
    std::optional<Clock::time_point> end_;
};

class Watch {
public:
    Watch(const ConnectedModule& module, std::optional<std::chrono::milliseconds> limit);

    // Waits a short time for an event. False if the time is up or the user has interrupted the
    // program. Throws Failure if the module is gone.
    bool Wait();
    // As above, until a point in time, regardless of events.
    bool WaitUntil(Deadline::Clock::time_point next);

    void NoteSignOfLife() { lookout_.NoteSignOfLife(); }
    // Looks now. Throws Failure if the module is gone.
    void LookAtModule() const;

private:
    bool GoesOn();

    Session* session_;
    UNUM32 module_;
    Deadline deadline_;
    Lookout lookout_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_WATCH_H
