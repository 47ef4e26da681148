// What keeps the radio of this computer from finding dongles.

#ifndef TOOLS_DPDU_DOCTOR_BLUETOOTH_H
#define TOOLS_DPDU_DOCTOR_BLUETOOTH_H

#include <string>

#include "doctor/finding.h"

namespace dpdu {

// By the message of a failed scan. `switches` lists the radio switches of the system.
Finding RadioFinding(const std::string& message, const std::string& switches = "/sys/class/rfkill");

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_BLUETOOTH_H
