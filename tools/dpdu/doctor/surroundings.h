// Checks of the library's surroundings: serial ports, relay, clock.

#ifndef TOOLS_DPDU_DOCTOR_SURROUNDINGS_H
#define TOOLS_DPDU_DOCTOR_SURROUNDINGS_H

#include "doctor/finding.h"
#include "support/config.h"

namespace dpdu {

inline constexpr char kPortsSubject[] = "ports";

// Looks for dongles on serial ports, checks that this user may open them, and asks them for an
// answer.
Findings CheckPorts(const tarvik::Config& config);

// Connects to the relay as the library does, up to the start of the handshake, and disconnects.
// Always ends within a few seconds.
Findings CheckRelay(const tarvik::Config& config);

// The protocol carries no time, so this compares the clock with existing files: a clock earlier
// than their time stamps is wrong.
Findings CheckClock(const std::string& library_path, const std::string& config_path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_SURROUNDINGS_H
