// Series of similar control units: one entry of a vehicle file describes many.

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace brennix {

struct NamedEntry {
    nlohmann::json value;
    std::string path;  // for messages
};

// Expands an entry with "count" into one entry for each control unit, with its own name and CAN
// ids, "{n}" and "{hex}" in texts replaced by its number, and its exceptions applied. Other entries
// are unchanged. Throws JsonError.
std::vector<NamedEntry> ExpandUnitSeries(const nlohmann::json& value, const std::string& path);

}  // namespace brennix
