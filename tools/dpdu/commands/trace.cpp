#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include "commands/commands.h"
#include "commands/target_file.h"
#include "console/failure.h"
#include "console/progress.h"
#include "report/report_file.h"
#include "text/names.h"
#include "trace/exporter.h"
#include "trace/file.h"
#include "trace/summary.h"
#include "trace/wall_clock.h"

namespace dpdu {
namespace {

std::string LinesText(const trace::LineCount& lines, const char* kind) {
    return std::to_string(lines.count) + " " + kind + (lines.count == 1 ? " line" : " lines") +
           " (first: line " + std::to_string(lines.first) + ")";
}

// Reports damaged and unknown lines, which are skipped; the rest of the file is still used.
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

std::unique_ptr<trace::Exporter> MakeExporter(const std::string& format, Output* output) {
    if (format == "candump") return trace::MakeCandumpExporter(output);
    if (format == "asc") return trace::MakeAscExporter(output);
    if (format == "pcapng") return trace::MakePcapngExporter(output);
    return trace::MakeChromeExporter(output);
}

void CheckTarget(const TraceOptions& options) {
    for (const std::string& path : options.files) {
        std::error_code ignored;
        if (std::filesystem::equivalent(PathOf(path), PathOf(options.target), ignored)) {
            throw UsageError("'" + path + "' would be overwritten by what is made of it");
        }
    }
}

// A log has a single time axis, but traces of several processes may overlap.
void CheckExport(const TraceOptions& options) {
    if (options.files.size() > 1 && options.format != "chrome") {
        throw UsageError("only the format chrome takes several traces at once");
    }
    CheckTarget(options);
}

void Export(const TraceOptions& options, Output* output) {
    const std::unique_ptr<trace::Exporter> exporter = MakeExporter(options.format, output);
    for (const std::string& path : options.files) {
        const std::optional<trace::WallClock> clock = trace::WallClock::OfFile(path);
        exporter->BeginFile(clock.has_value());
        ReportLines(path, ReadFile(path, [&](const trace::Record& record) {
                        exporter->Take(clock ? clock->Convert(record) : record);
                    }));
        exporter->EndOfFile();
    }
    exporter->Finish();
    for (const std::string& loss : exporter->Losses())
        ErrorLine(loss);
}

}  // namespace

ExitCode RunTraceTimeline(const TraceOptions& options, Output* output) {
    const std::size_t columns = options.columns > 0 ? options.columns : output->Columns();
    trace::Timeline timeline(options.filter, {columns, options.is_waterfall}, output);
    const auto take = [&](const trace::Record& record) { timeline.Take(record); };
    for (const std::string& path : options.files) {
        trace::ReadReport report;
        {
            const Progress progress("reading " + path);
            report = ReadFile(path, take);
        }
        timeline.EndOfFile();
        ReportLines(path, report);
    }
    timeline.StartShowing();
    for (const std::string& path : options.files) {
        trace::ReadTraceFile(path, take);
        timeline.EndOfFile();
    }
    if (timeline.Shown() == 0) ErrorLine("no request like that in the trace");
    return SuccessIf(timeline.Shown() > 0);
}

ExitCode RunTraceExport(const TraceOptions& options, Output* output) {
    CheckExport(options);
    if (options.target.empty()) {
        if (options.format == "pcapng") {
            if (output->IsTerminal()) {
                throw UsageError("pcapng is not for a terminal: name the file to write with -o");
            }
            output->BeginBinary();
        }
        Export(options, output);
        return ExitCode::kOk;
    }
    TargetFile target(options.target);
    Output into(target.Stream(), false);
    {
        const Progress progress("writing " + options.target);
        Export(options, &into);
    }
    target.Keep();
    return ExitCode::kOk;
}

ExitCode RunTraceReport(const TraceOptions& options, Output* output) {
    CheckTarget(options);
    std::vector<std::optional<trace::WallClock>> clocks;
    for (const std::string& path : options.files)
        clocks.push_back(trace::WallClock::OfFile(path));
    // The files share an axis.
    const bool has_calendar_time =
        std::all_of(clocks.begin(), clocks.end(), [](const auto& clock) { return clock; });
    TargetFile target(options.target);
    Output into(target.Stream(), false);
    report::ReportFile report(&into);
    for (std::size_t i = 0; i < options.files.size(); ++i) {
        const std::string& path = options.files[i];
        const std::optional<trace::WallClock>& clock = clocks[i];
        report.Data().BeginFile(path);
        trace::ReadReport read;
        {
            const Progress progress("reading " + path);
            read = ReadFile(path, [&](const trace::Record& record) {
                report.Data().Take(has_calendar_time ? clock->Convert(record) : record);
            });
        }
        report.Data().EndOfFile(read);
        ReportLines(path, read);
    }
    report.Finish(has_calendar_time);
    into.Flush();
    target.Keep();
    output->Line(options.target);
    return ExitCode::kOk;
}

ExitCode RunTraceSummary(const TraceOptions& options, Output* output) {
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
    return ExitCode::kOk;
}

}  // namespace dpdu
