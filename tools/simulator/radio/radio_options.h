// The command line of brennix-radio.

#pragma once

#include <cstdint>
#include <optional>

#include "program/common_options.h"

namespace brennix {

struct RadioOptions : CommonOptions {
    bool unplugged = false;

    std::uint16_t port = 0;  // 0: any free one
};

// Empty: the program has finished (help, version or an error) and exits with `exit_code`.
std::optional<RadioOptions> ReadRadioOptions(int argc, char** argv, int* exit_code);

}  // namespace brennix
