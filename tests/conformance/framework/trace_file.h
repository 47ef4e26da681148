#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace conformance {

// The trace files of this process, oldest session first.
std::vector<std::string> TraceFiles();

// The lines of a trace file. Throws if one is not JSON.
std::vector<nlohmann::json> ReadTrace(const std::string& path);
// Of the newest file.
std::vector<nlohmann::json> ReadTrace();

// Those with this event name.
std::vector<nlohmann::json> EventsNamed(const std::vector<nlohmann::json>& trace,
                                        const std::string& event);

// Waits until the newest trace file has `count` events of that name, and returns them, or fewer if
// they do not come in time. The library writes its trace in the background.
std::vector<nlohmann::json> WaitForTrace(const std::string& event, std::size_t count);

}  // namespace conformance
