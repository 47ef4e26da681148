// The "telemetry", "device_log" and "power" parts of a vehicle file. Their keys are described in
// ../README.md.

#pragma once

#include <string>

#include "vehicle/timeline.h"
#include "vehicle_file/json_reader.h"

namespace brennix {

// "telemetry", "device_log" and "power" of the whole file. Throws JsonError.
TimelineSetup ReadTimeline(const JsonObject& file);
// `value`: an object, a text, or an array of these.
std::vector<std::string> ReadTelemetryTexts(const nlohmann::json& value, const std::string& path);

}  // namespace brennix
