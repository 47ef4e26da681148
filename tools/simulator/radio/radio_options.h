// What the command line of brennix-radio asks for.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brennix {

struct RadioOptions {
    std::vector<std::string> vehicles;
    std::size_t dongles = 0;  // 0: one a vehicle
    bool unplugged = false;

    std::uint16_t port = 0;          // 0: any free one
    std::uint16_t control_port = 0;  // likewise
    std::string ready_file;
    std::string record_file;
    std::size_t keep = 100'000;
    bool strict = false;

    std::vector<std::string> command;
};

// Empty: the program is done (help, version or an error) and ends with `exit_code`.
std::optional<RadioOptions> ReadRadioOptions(int argc, char** argv, int* exit_code);

}  // namespace brennix
