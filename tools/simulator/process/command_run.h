// Runs the event loop beside a command: signals, the command's end, the exit code.

#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "process/event_loop.h"

namespace brennix {

class CommandRun {
public:
    // Takes over this process's signals: passes them to the command or, without one, ends the loop.
    explicit CommandRun(EventLoop* loop);
    ~CommandRun();
    CommandRun(const CommandRun&) = delete;
    CommandRun& operator=(const CommandRun&) = delete;

    // Runs the loop until it is stopped or the command, if any, ends. Terminates a command that
    // still runs then. Returns its exit code.
    int Run(const std::vector<std::string>& command,
            const std::map<std::string, std::string>& environment);

private:
    void OnSignal();
    void OnChildEnd();

    EventLoop* loop_;
    int signals_;
    pid_t child_ = -1;
    int child_code_ = 0;
};

}  // namespace brennix
