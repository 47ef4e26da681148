// What the command line asks for.

#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/recording.h"

namespace brennix {

struct Options {
    std::vector<std::string> vehicles;
    std::vector<std::string> traces;  // of the library, to be replayed; empty: none
    RecordingOptions replay;
    std::size_t dongles = 0;  // 0: one a vehicle
    bool check_only = false;

    std::vector<std::string> links;
    std::vector<std::string> usb_ports;
    std::vector<std::string> wine_ports;
    std::vector<std::string> foreign_ports;
    std::string wine_helper;  // empty: searched for beside the program
    bool unplugged = false;

    std::uint16_t control_port = 0;  // 0: any free one
    std::string ready_file;
    std::string record_file;
    std::size_t keep = 100'000;
    bool strict = false;
    std::string scratch;

    std::vector<std::string> command;

    std::size_t DongleCount() const { return std::max<std::size_t>({dongles, vehicles.size(), 1}); }
};

// Empty: the program is done (help, version or an error) and ends with `exit_code`.
std::optional<Options> ReadOptions(int argc, char** argv, int* exit_code);

}  // namespace brennix
