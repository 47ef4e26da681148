// Checks of the library's surroundings.

#ifndef TOOLS_DPDU_DOCTOR_SURROUNDINGS_H
#define TOOLS_DPDU_DOCTOR_SURROUNDINGS_H

#include <cstdint>
#include <string>

#include "doctor/check.h"
#include "doctor/finding.h"
#include "support/config.h"

namespace dpdu {

// Looks for dongles on serial ports, checks that this user may open them, and lets them identify
// themselves as the library does.
void CheckPorts(const tarvik::Config& config, CheckRun* run);

// Connects to the relay as the library does, exchanges keys, identifies this device and asks for
// dongles. A device without a valid key uses one for the key exchange that nobody keeps, and does
// not identify itself.
void CheckRelay(const tarvik::Config& config, CheckRun* run);

// Listens for dongles by Bluetooth as the library does, and connects none.
void CheckBluetooth(const tarvik::Config& config, CheckRun* run);

// Whether the machine's root file (or `root_file`, unless it is empty) names the library.
Findings CheckRootEntry(const std::string& root_file, const std::string& library_path);

// The folder for log and trace, if the library writes one of them.
Findings CheckLogFolder(const tarvik::Config& config);
Finding LogFolderFinding(const std::string& folder, std::uintmax_t free_bytes);

// The protocol carries no time, so this compares the clock with existing files: a clock earlier
// than their time stamps is wrong.
Findings CheckClock(const std::string& library_path, const std::string& config_path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_SURROUNDINGS_H
