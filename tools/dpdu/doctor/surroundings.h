// What lies around the library: serial ports, the relay, the clock.

#ifndef TOOLS_DPDU_DOCTOR_SURROUNDINGS_H
#define TOOLS_DPDU_DOCTOR_SURROUNDINGS_H

#include "doctor/finding.h"
#include "support/config.h"

namespace dpdu {

// Dongles on serial ports, and whether this user may open them.
Findings CheckPorts(const tarvik::Config& config);

// Connects to the relay as the library would, up to the point where its handshake begins, and
// closes the connection again. Ends after a few seconds, whatever the network does.
Findings CheckRelay(const tarvik::Config& config);

// There is no time in the protocol. The clock is held against the files that are there already:
// one that stands before them is wrong.
Findings CheckClock(const std::string& library_path, const std::string& config_path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_SURROUNDINGS_H
