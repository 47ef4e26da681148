// The command line of brennix-sim.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "program/common_options.h"
#include "replay/recording.h"

namespace brennix {

struct Options : CommonOptions {
    std::vector<std::string> traces;  // of the library, to be replayed; empty: none
    RecordingOptions replay;
    bool check_only = false;

    std::vector<std::string> links;
    std::vector<std::string> usb_ports;
    std::vector<std::string> wine_ports;
    std::vector<std::string> foreign_ports;
    std::string wine_helper;  // empty: searched beside the program
    bool unplugged = false;

    std::string scratch;
};

// Empty: the program has finished (help, version or an error) and exits with `exit_code`.
std::optional<Options> ReadOptions(int argc, char** argv, int* exit_code);

}  // namespace brennix
