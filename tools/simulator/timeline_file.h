// The parts of a vehicle file that happen by themselves: README.md beside this file describes
// their keys.

#pragma once

#include <string>

#include "json_reader.h"
#include "timeline.h"

namespace brennix {

// "telemetry", "device_log" and "power" of the whole file. Throws JsonError.
TimelineSetup ReadTimeline(const JsonObject& file);
// `value`: an object or text as it is, or an array of these.
std::vector<std::string> ReadTelemetryTexts(const nlohmann::json& value, const std::string& path);

}  // namespace brennix
