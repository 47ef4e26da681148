// What the dongle itself has reported, where this project's library passes on constants instead.

#ifndef TOOLS_DPDU_COMMANDS_DONGLE_REPORT_H
#define TOOLS_DPDU_COMMANDS_DONGLE_REPORT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "pdu/session.h"

namespace dpdu {

struct DongleReport {
    std::optional<std::uint32_t> battery_mv;
    std::optional<bool> ignition;
};

// The last report in the lines of a log or trace; both values are missing if there is none.
DongleReport ParseDongleReport(const std::string& lines);

// Waits until the library of this process has received telemetry from a dongle, by its log and
// trace, or the time is up. A session with several dongles has that of any. Throws Failure if the
// user interrupts the program.
DongleReport AwaitDongleReport(Session* session, std::chrono::milliseconds limit);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_DONGLE_REPORT_H
