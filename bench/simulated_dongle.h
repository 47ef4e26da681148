#pragma once

#include <string>

namespace tarvik::bench {

// Restarts this program as the command of the simulator, unless it already runs there: the library
// then finds a dongle on a mocked USB port. Call it first. The vehicle is one of the simulator's.
void RunUnderSimulator(char** argv, const std::string& vehicle = "demo");

// As above, with two dongles in Bluetooth range on this program's own system bus.
void RunUnderRadio(char** argv);

// The port of a second dongle at the same vehicle, which the library does not find.
std::string HiddenPort();

}  // namespace tarvik::bench
