// The "raw" part of a vehicle file. Its keys are described in ../README.md.

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "vehicle/raw_traffic.h"

namespace brennix {

// Throw JsonError: one line that names the key and what is expected.
RawSetup ReadRawSetup(const nlohmann::json& value, const std::string& path);
PeriodicFrame ReadPeriodicFrame(const nlohmann::json& value, const std::string& path);
RawAnswer ReadRawAnswer(const nlohmann::json& value, const std::string& path);

}  // namespace brennix
