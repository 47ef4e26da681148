#include "trace/trace_files.h"

#include <algorithm>

#include "text/hex.h"
#include "text/names.h"

namespace dpdu::trace {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kTraceHead = "dpdu_coptrace_";
constexpr std::string_view kTraceTail = ".jsonl";
constexpr std::string_view kLogHead = "dpdu_debug_";
constexpr std::string_view kLogTail = ".log";

// What is between head and tail; nullopt if the name has other ends.
std::optional<std::string> Between(const std::string& name, std::string_view head,
                                   std::string_view tail) {
    if (name.size() <= head.size() + tail.size()) return std::nullopt;
    if (!name.starts_with(head) || !name.ends_with(tail)) return std::nullopt;
    return name.substr(head.size(), name.size() - head.size() - tail.size());
}

bool IsNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::optional<unsigned long> ParseProcess(const std::string& text) {
    const std::optional<std::uint32_t> number = IsNumber(text) ? ParseNumber(text) : std::nullopt;
    if (!number || *number == 0) return std::nullopt;
    return *number;
}

}  // namespace

std::optional<LeftFile> ParseLeftName(const std::string& name) {
    LeftFile file;
    std::optional<std::string> middle = Between(name, kTraceHead, kTraceTail);
    if (middle) {
        const std::size_t bar = middle->find('_');
        if (bar == std::string::npos || !IsNumber(middle->substr(bar + 1))) return std::nullopt;
        middle->resize(bar);
    } else {
        file.kind = LeftKind::kLog;
        middle = Between(name, kLogHead, kLogTail);
    }
    const std::optional<unsigned long> process = middle ? ParseProcess(*middle) : std::nullopt;
    if (!process) return std::nullopt;
    file.process = *process;
    return file;
}

std::vector<LeftFile> ListLeftFiles() {
    std::vector<LeftFile> files;
    std::error_code error;
    for (fs::directory_iterator entry(PathOf(TemporaryFolder()), error), end;
         !error && entry != end; entry.increment(error)) {
        std::optional<LeftFile> file = ParseLeftName(TextOf(entry->path().filename()));
        // One that goes in between is not there.
        std::error_code gone;
        if (!file || !fs::is_regular_file(entry->symlink_status(gone))) continue;
        file->path = TextOf(entry->path());
        file->size = entry->file_size(gone);
        file->changed = entry->last_write_time(gone);
        if (!gone) files.push_back(std::move(*file));
    }
    std::sort(files.begin(), files.end(), [](const LeftFile& one, const LeftFile& other) {
        return one.changed != other.changed ? one.changed < other.changed : one.path < other.path;
    });
    return files;
}

std::optional<std::chrono::seconds> ParseAge(const std::string& text) {
    constexpr struct {
        char unit;
        std::chrono::seconds length;
    } kUnits[] = {{'s', std::chrono::seconds(1)},
                  {'m', std::chrono::minutes(1)},
                  {'h', std::chrono::hours(1)},
                  {'d', std::chrono::hours(24)}};
    // The clock of files counts nanoseconds: some 53 000 days before today it overflows, and
    // every file would be older than that.
    constexpr std::chrono::seconds kMost = std::chrono::hours(24) * 36500;
    if (text.empty() || !IsNumber(text.substr(0, text.size() - 1))) return std::nullopt;
    const std::optional<std::uint32_t> count = ParseNumber(text.substr(0, text.size() - 1));
    for (const auto& unit : kUnits) {
        if (unit.unit == text.back() && count && *count <= kMost / unit.length)
            return *count * unit.length;
    }
    return std::nullopt;
}

}  // namespace dpdu::trace
