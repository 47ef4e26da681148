// A file that says to other programs where this one is reached.

#pragma once

#include <map>
#include <string>

namespace brennix {

// Lines "NAME=VALUE". Whoever waits for the file finds it complete. Throws std::runtime_error.
void WriteReadyFile(const std::string& path, const std::map<std::string, std::string>& places);

}  // namespace brennix
