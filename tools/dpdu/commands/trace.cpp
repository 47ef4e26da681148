#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include "commands/commands.h"
#include "console/failure.h"
#include "console/progress.h"
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

// The output file of an export. It has its former contents, or does not exist, until the export
// completes. A device or a pipe is written to as it is.
class TargetFile {
public:
    explicit TargetFile(const std::string& path) : path_(path), written_(path) {
        std::error_code ignored;
        const auto status = std::filesystem::status(PathOf(path), ignored);
        if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) {
            if (std::filesystem::exists(status)) {
                path_ = TextOf(std::filesystem::canonical(PathOf(path)));
            }
            written_ = FreeNameBeside(path_);
        }
        file_ = OpenFile(written_, "wb");
        if (file_ == nullptr) ThrowUnwritable();
    }
    ~TargetFile() {
        if (file_ != nullptr) std::fclose(file_);
        std::error_code ignored;
        if (written_ != path_) std::filesystem::remove(PathOf(written_), ignored);
    }
    TargetFile(const TargetFile&) = delete;
    TargetFile& operator=(const TargetFile&) = delete;

    std::FILE* Stream() const { return file_; }

    void Keep() {
        const bool was_written = std::fflush(file_) == 0 && std::ferror(file_) == 0;
        if (!was_written) ThrowUnwritable();
        const bool was_closed = std::fclose(file_) == 0;
        file_ = nullptr;
        if (!was_closed) ThrowUnwritable();
        if (written_ == path_) return;
        std::error_code error;
        std::filesystem::rename(PathOf(written_), PathOf(path_), error);
        // The system's own message may be in another encoding.
        const std::string reason = error.default_error_condition().message();
        if (error) throw Failure("cannot write '" + path_ + "': " + reason);
        written_ = path_;
    }

private:
    static std::string FreeNameBeside(const std::string& path) {
        std::error_code ignored;
        for (int number = 1;; ++number) {
            std::string name = path + "." + std::to_string(number) + ".part";
            if (!std::filesystem::exists(std::filesystem::symlink_status(PathOf(name), ignored))) {
                return name;
            }
        }
    }
    [[noreturn]] void ThrowUnwritable() const {
        throw Failure("cannot write '" + path_ + "': " + std::generic_category().message(errno));
    }

    std::string path_;
    std::string written_;  // renamed to path_ in the end, or path_ itself
    std::FILE* file_ = nullptr;
};

std::unique_ptr<trace::Exporter> MakeExporter(const std::string& format, Output* output) {
    if (format == "candump") return trace::MakeCandumpExporter(output);
    if (format == "asc") return trace::MakeAscExporter(output);
    if (format == "pcapng") return trace::MakePcapngExporter(output);
    return trace::MakeChromeExporter(output);
}

// A log has a single time axis, but traces of several processes may overlap.
void CheckExport(const TraceOptions& options) {
    if (options.files.size() > 1 && options.format != "chrome") {
        throw UsageError("only the format chrome takes several traces at once");
    }
    for (const std::string& path : options.files) {
        std::error_code ignored;
        if (std::filesystem::equivalent(PathOf(path), PathOf(options.target), ignored)) {
            throw UsageError("'" + path + "' would be overwritten by its own export");
        }
    }
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
