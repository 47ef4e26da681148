#pragma once

#include <string>

namespace tarvik::bench {

// One command for the simulator that has started this program, and what its answer says behind
// "ok". Any other answer ends the program.
std::string CommandSimulator(const std::string& line);

}  // namespace tarvik::bench
