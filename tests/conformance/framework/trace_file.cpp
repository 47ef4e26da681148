#include "conformance/framework/trace_file.h"

#include <algorithm>
#include <sstream>

#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

const char kEnd[] = ".jsonl";

}  // namespace

std::vector<std::string> TraceFiles() {
    const std::string begin = "dpdu_coptrace_" + std::to_string(ProcessId()) + "_";
    std::vector<std::string> names = FilesIn(TempFolder(), begin, kEnd);
    std::sort(names.begin(), names.end(), [&](const std::string& one, const std::string& other) {
        return std::stol(one.substr(begin.size())) < std::stol(other.substr(begin.size()));
    });
    for (std::string& name : names)
        name = JoinPath(TempFolder(), name);
    return names;
}

std::vector<nlohmann::json> ReadTrace(const std::string& path) {
    std::vector<nlohmann::json> lines;
    std::istringstream text(ReadFile(path));
    for (std::string line; std::getline(text, line);) {
        if (text.eof()) break;  // the end of this line is not written yet
        lines.push_back(nlohmann::json::parse(line));
    }
    return lines;
}

std::vector<nlohmann::json> ReadTrace() {
    const std::vector<std::string> files = TraceFiles();
    return files.empty() ? std::vector<nlohmann::json>{} : ReadTrace(files.back());
}

std::vector<nlohmann::json> EventsNamed(const std::vector<nlohmann::json>& trace,
                                        const std::string& event) {
    std::vector<nlohmann::json> events;
    for (const nlohmann::json& line : trace) {
        if (line.at("ev") == event) events.push_back(line);
    }
    return events;
}

std::vector<nlohmann::json> WaitForTrace(const std::string& event, std::size_t count) {
    std::vector<nlohmann::json> events;
    Eventually([&] {
        events = EventsNamed(ReadTrace(), event);
        return events.size() >= count;
    });
    return events;
}

}  // namespace conformance
