#include "trace/reader.h"

#include "commands.h"
#include "failure.h"
#include "progress.h"
#include "trace/summary.h"

namespace dpdu {
namespace {

std::string LinesText(const trace::LineCount& lines, const char* kind) {
    return std::to_string(lines.count) + " " + kind + (lines.count == 1 ? " line" : " lines") +
           " (first: line " + std::to_string(lines.first) + ")";
}

// What is wrong with a file is told and passed over: the rest of it is as good as ever.
void ReportLines(const std::string& path, const trace::ReadReport& report) {
    if (report.damaged.count > 0) {
        ErrorLine("'" + path + "': " + LinesText(report.damaged, "damaged") + " passed over");
    }
    if (report.unknown.count > 0) {
        ErrorLine("'" + path + "': " + LinesText(report.unknown, "unknown") + " passed over");
    }
}

trace::ReadReport ReadFile(const std::string& path, const trace::LineReader::Handler& handler) {
    const trace::ReadReport report = trace::ReadTraceFile(path, handler);
    if (report.records == 0) throw Failure("'" + path + "' holds not a single line of a trace");
    return report;
}

}  // namespace

bool RunTraceSummary(const TraceOptions& options, Output* output) {
    trace::Summary summary(options.slowest);
    for (const std::string& path : options.files) {
        trace::ReadReport report;
        {
            const Progress progress("reading " + path);
            report = ReadFile(path, [&](const trace::Record& record) { summary.Take(record); });
        }
        summary.EndOfFile(report);
        ReportLines(path, report);
    }
    summary.Print(output);
    return true;
}

}  // namespace dpdu
