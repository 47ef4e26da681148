// One run of brennix-radio: sets everything up, runs the command, cleans up.

#pragma once

#include <map>
#include <memory>
#include <string>

#include "control/control_server.h"
#include "process/command_run.h"
#include "radio/radio.h"
#include "radio/radio_commands.h"
#include "radio/radio_options.h"

namespace brennix {

class RadioRun {
public:
    // Throws std::exception; the message is one line.
    explicit RadioRun(const RadioOptions& options);
    ~RadioRun();
    RadioRun(const RadioRun&) = delete;
    RadioRun& operator=(const RadioRun&) = delete;

    int Run();  // returns the exit code

private:
    void AddDongles();
    // The variables that the command gets.
    std::map<std::string, std::string> Places() const;
    void Announce() const;

    const RadioOptions options_;
    EventLoop loop_;
    CommandRun program_{&loop_};
    Radio radio_;
    RadioCommands commands_{&radio_};
    std::unique_ptr<ControlServer> control_;
};

}  // namespace brennix
