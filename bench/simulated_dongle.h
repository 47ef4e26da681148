#pragma once

#include <string>

namespace tarvik::bench {

// Starts this program over as the command of the simulator, unless it runs there already: the
// library then finds a dongle on a mocked USB port. Call it first of all. The vehicle is one of the
// simulator's own.
void RunUnderSimulator(char** argv, const std::string& vehicle = "demo");

// Likewise, with two dongles in reach of the Bluetooth on this program's own system bus.
void RunUnderRadio(char** argv);

// The port of a second dongle, before the same vehicle, that the library does not find.
std::string HiddenPort();

}  // namespace tarvik::bench
