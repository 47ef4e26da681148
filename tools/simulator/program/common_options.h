// Options that the programs of this folder share: vehicles, the control channel, the record, and
// the command that runs beside the program.

#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace brennix {

// With --strict, when the host (a client, a computer) broke the protocol.
constexpr int kViolationExitCode = 3;

struct CommonOptions {
    std::vector<std::string> vehicles;
    std::size_t dongles = 0;  // 0: one for each vehicle

    std::uint16_t control_port = 0;  // 0: any free one
    std::string ready_file;
    std::string record_file;
    std::size_t keep = 100'000;
    bool strict = false;

    std::vector<std::string> command;

    std::size_t DongleCount() const { return std::max(dongles, vehicles.size()); }
    // Index of the vehicle behind a dongle: dongles without a vehicle of their own share the last.
    std::size_t VehicleOf(std::size_t dongle) const {
        return std::min(dongle, std::max<std::size_t>(vehicles.size(), 1) - 1);
    }
};

// --vehicle and --dongles.
void AddVehicleOptions(CLI::App* app, CommonOptions* options, int max_dongles);
// --control, --ready-file, --record, --keep and --strict.
void AddControlOptions(CLI::App* app, CommonOptions* options, const char* ready_file_purpose,
                       const char* strict_purpose);

// Parses the words before "--" and puts those after it into `command`, whatever they look like;
// then calls `check`, which may throw a CLI::ParseError. False: the program has finished (help,
// version, or an error, printed as one line) and exits with `exit_code`.
bool ParseCommandLine(CLI::App* app, int argc, char** argv, const char* program,
                      CommonOptions* options, const std::function<void()>& check, int* exit_code);

}  // namespace brennix
