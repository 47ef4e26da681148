#include "commands/dongle_report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "console/failure.h"
#include "console/interruption.h"
#include "console/progress.h"
#include "console/terminal.h"
#include "text/hex.h"
#include "text/names.h"
#include "trace/trace_files.h"

namespace dpdu {
namespace {

// In the log the telemetry's text, in the trace the text as a JSON string.
constexpr const char* kTelemetryMarks[] = {"[TELE] json=", "\"ev\":\"telemetry\""};

// The number after a key of a JSON text; nullopt if there is none.
std::optional<std::uint32_t> NumberOf(const std::string& key, const std::string& text) {
    const std::string head = "\"" + key + "\":";
    const std::size_t at = text.find(head);
    if (at == std::string::npos) return std::nullopt;
    const std::size_t begin = text.find_first_not_of(' ', at + head.size());
    if (begin == std::string::npos) return std::nullopt;
    return ParseNumber(text.substr(begin, text.find_first_not_of("0123456789", begin) - begin));
}

bool IsTelemetry(const std::string& line) {
    return std::any_of(std::begin(kTelemetryMarks), std::end(kTelemetryMarks),
                       [&line](const char* mark) { return line.find(mark) != std::string::npos; });
}

std::string TextOfFile(const std::string& path) {
    std::ifstream file(PathOf(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The newest of both that this process writes. Files of an earlier process with its number are
// older.
std::string OwnLines() {
    std::string log;
    std::string trace;
    for (const trace::LeftFile& file : trace::ListLeftFiles()) {
        if (file.process != OwnProcessId() || !IsWrittenByThisProcess(file.path)) continue;
        (file.kind == trace::LeftKind::kLog ? log : trace) = TextOfFile(file.path);
    }
    return trace + "\n" + log;  // the log has a line at once, the trace half a second later
}

}  // namespace

DongleReport ParseDongleReport(const std::string& lines) {
    DongleReport report;
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) {
        if (!IsTelemetry(line)) continue;
        std::erase(line, '\\');  // of quotes within the trace's strings
        const std::optional<std::uint32_t> battery = NumberOf("bat", line);
        const std::optional<std::uint32_t> ignition = NumberOf("ign", line);
        if (battery) report.battery_mv = battery;
        if (ignition) report.ignition = *ignition != 0;
    }
    return report;
}

DongleReport AwaitDongleReport(Session* session, std::chrono::milliseconds limit) {
    const Progress progress("waiting for the dongle's own report");
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const DongleReport report = ParseDongleReport(OwnLines());
        const bool is_over = std::chrono::steady_clock::now() >= deadline;
        if (report.battery_mv || report.ignition || is_over) return report;
        session->PauseForEvent();
        ThrowIfInterrupted();
    }
}

}  // namespace dpdu
