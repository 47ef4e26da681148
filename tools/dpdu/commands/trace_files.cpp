// Finding and removing traces and logs.

#include "trace/trace_files.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "console/terminal.h"
#include "text/names.h"

namespace dpdu {
namespace {

namespace fs = std::filesystem;

std::string FileCount(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " file" : " files");
}

std::string SizeText(std::uint64_t bytes) {
    constexpr double kMegabyte = 1e6;
    char text[40];
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / kMegabyte);
    return text;
}

std::string Described(const std::vector<trace::LeftFile>& files) {
    std::uint64_t bytes = 0;
    for (const trace::LeftFile& file : files)
        bytes += file.size;
    return FileCount(files.size()) + ", " + SizeText(bytes);
}

// Old files of processes that have ended.
std::vector<trace::LeftFile> FilesToPrune(std::chrono::seconds older_than) {
    std::vector<trace::LeftFile> files = trace::ListLeftFiles();
    const fs::file_time_type limit = fs::file_time_type::clock::now() - older_than;
    std::erase_if(files, [&limit](const trace::LeftFile& file) {
        return file.changed >= limit || IsProcessRunning(file.process);
    });
    return files;
}

bool UserAgrees(const std::vector<trace::LeftFile>& files) {
    if (!StandardInputIsTerminal()) {
        throw UsageError("nobody can be asked here; --yes removes " + Described(files) +
                         ", --dry-run lists them");
    }
    WriteText(stderr, "Remove " + Described(files) + " from " + TemporaryFolder() + "? [y/N] ");
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

// Reports those that cannot be removed, and returns the others.
std::vector<trace::LeftFile> Remove(const std::vector<trace::LeftFile>& files) {
    std::vector<trace::LeftFile> removed;
    for (const trace::LeftFile& file : files) {
        std::error_code error;
        fs::remove(PathOf(file.path), error);
        if (!error) {
            removed.push_back(file);
        } else {
            ErrorLine(file.path + " stays: " + error.default_error_condition().message());
        }
    }
    return removed;
}

}  // namespace

ExitCode RunTraceLatest(const TraceLatestOptions& options, Output* output) {
    const trace::LeftKind kind = options.is_log ? trace::LeftKind::kLog : trace::LeftKind::kTrace;
    const std::vector<trace::LeftFile> files = trace::ListLeftFiles();
    const auto latest =
        std::find_if(files.rbegin(), files.rend(),
                     [kind](const trace::LeftFile& file) { return file.kind == kind; });
    if (latest == files.rend()) {
        throw Failure(std::string("no ") + (options.is_log ? "log" : "trace") + " in " +
                      TemporaryFolder() + "; is " +
                      (options.is_log ? "enableDebugLogFile" : "enableCopTrace") +
                      " on in the library's configuration?");
    }
    if (output->AsJson()) {
        output->Document({{"path", latest->path},
                          {"process", latest->process},
                          {"isRunning", IsProcessRunning(latest->process)},
                          {"bytes", latest->size}});
    } else {
        output->Line(latest->path);
    }
    return ExitCode::kOk;
}

ExitCode RunTracePrune(const TracePruneOptions& options, Output* output) {
    const std::vector<trace::LeftFile> files = FilesToPrune(options.older_than);
    if (options.is_dry_run) {
        for (const trace::LeftFile& file : files)
            output->Line(file.path);
        output->Line(Described(files) + " would be removed");
        return ExitCode::kOk;
    }
    if (!files.empty() && !options.is_agreed && !UserAgrees(files)) {
        output->Line("nothing was removed");
        return ExitCode::kOk;
    }
    const std::vector<trace::LeftFile> removed = Remove(files);
    output->Line(Described(removed) + " removed");
    return SuccessIf(removed.size() == files.size());
}

}  // namespace dpdu
