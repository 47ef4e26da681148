// Control units that are alike: one entry of a vehicle file stands for many.

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace brennix {

struct NamedEntry {
    nlohmann::json value;
    std::string path;  // for messages
};

// An entry with "count" becomes one entry a control unit, with its own name and CAN ids, "{n}" and
// "{hex}" in its texts replaced by its number, and its exceptions applied. Any other stays as it
// is. Throws JsonError.
std::vector<NamedEntry> ExpandUnitSeries(const nlohmann::json& value, const std::string& path);

}  // namespace brennix
