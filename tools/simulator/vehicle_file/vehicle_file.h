// Vehicle files. Their keys are described in ../README.md.

#pragma once

#include <string>

#include "dongle/dongle.h"

namespace brennix {

// Throw JsonError: one line that names the file, the key and what is expected.
DongleSetup LoadVehicleFile(const std::string& path);
DongleSetup ReadVehicle(const std::string& text, const std::string& name);

// For changes at run time. `text` is one JSON object.
Behaviour ReadBehaviourText(const std::string& text);
// Changes only the keys that are present.
void ChangeDongle(const std::string& text, DongleSetup* setup);

}  // namespace brennix
