// The commands of the control channel: one line each, answered with one line that begins with "ok"
// or "error:".

#pragma once

#include <string>
#include <string_view>

#include "control/record_commands.h"
#include "dongle/simulator.h"

namespace brennix {

class Commands {
public:
    explicit Commands(Simulator* simulator) : simulator_(simulator) {}

    CommandResult Run(std::string_view line);
    // All commands with arguments and purpose, for help texts.
    static std::string Help();

private:
    Simulator* simulator_;
};

}  // namespace brennix
