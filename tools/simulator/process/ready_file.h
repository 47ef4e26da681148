// A file that tells other programs where this one can be reached.

#pragma once

#include <map>
#include <string>

namespace brennix {

// Lines "NAME=VALUE".
std::string PlacesText(const std::map<std::string, std::string>& places);

// The file appears complete: programs may wait for it to exist. Throws std::runtime_error.
void WriteReadyFile(const std::string& path, const std::string& text);

}  // namespace brennix
