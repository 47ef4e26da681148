#pragma once

#include <string>

namespace tarvik::bench {

// Sends one command to the simulator that started this program, and returns the text after "ok" in
// its answer. Any other answer ends the program.
std::string CommandSimulator(const std::string& line);

}  // namespace tarvik::bench
