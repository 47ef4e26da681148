// Vehicle files. Their keys are described in ../README.md.

#pragma once

#include <string>

#include "dongle/dongle.h"

namespace brennix {

// Throw JsonError with one line that names the file, the key and what is expected there.
DongleSetup LoadVehicleFile(const std::string& path);
DongleSetup ReadVehicle(const std::string& text, const std::string& name);

// For changes at run time: one JSON object.
Behaviour ReadBehaviourText(const std::string& text);
// Changes the keys that the object has.
void ChangeDongle(const std::string& text, DongleSetup* setup);

}  // namespace brennix
