// Keeping a command going until its time is over or the user ends it.

#ifndef TOOLS_DPDU_COMMANDS_WATCH_H
#define TOOLS_DPDU_COMMANDS_WATCH_H

#include <chrono>
#include <optional>

#include "pdu/modules.h"

namespace dpdu {

// An optional end.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    // Never, when there is no limit.
    explicit Deadline(std::optional<std::chrono::milliseconds> limit);

    bool IsOver() const { return end_ && Clock::now() >= *end_; }

private:
    std::optional<Clock::time_point> end_;
};

class Watch {
public:
    Watch(const ConnectedModule& module, std::optional<std::chrono::milliseconds> limit);

    // Waits until the library has reported something, but not for long. False when the time is over
    // or the user has interrupted the program. Throws Failure when the module has gone, which is
    // looked into when there has been no sign of life for a while.
    bool Wait();
    // Waits until a point in time, whatever is reported meanwhile, and does not look at the module:
    // that would take too long.
    bool WaitUntil(Deadline::Clock::time_point next);

    void NoteSignOfLife();
    // Throws Failure when the module has gone.
    void LookAtModule() const;

private:
    bool GoesOn() const;

    Session* session_;
    UNUM32 module_;
    Deadline deadline_;
    Deadline::Clock::time_point next_look_{};
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_WATCH_H
