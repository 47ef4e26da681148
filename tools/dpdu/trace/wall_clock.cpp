#include "trace/wall_clock.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "text/names.h"
#include "trace/reader.h"

namespace dpdu::trace {
namespace {

namespace fs = std::filesystem;

// Holds several of the longest lines.
constexpr std::uintmax_t kTailSize = std::uintmax_t{64} * 1024;

}  // namespace

std::optional<std::uint64_t> LastRecordUs(const std::string& path) {
    std::error_code error;
    if (!fs::is_regular_file(PathOf(path), error)) return std::nullopt;
    const std::uintmax_t size = fs::file_size(PathOf(path), error);
    if (error) return std::nullopt;
    std::ifstream file(PathOf(path), std::ios::binary);
    file.seekg(static_cast<std::streamoff>(size - std::min(size, kTailSize)));
    std::string tail(static_cast<std::size_t>(std::min(size, kTailSize)), '\0');
    file.read(tail.data(), static_cast<std::streamsize>(tail.size()));
    tail.resize(static_cast<std::size_t>(file.gcount()));

    std::optional<std::uint64_t> last;
    LineReader reader([&last](const Record& record) { last = record.TimeUs(); });
    reader.Feed(tail);
    reader.Finish();
    return last;
}

std::optional<WallClock> WallClock::OfFile(const std::string& path) {
    const std::optional<std::uint64_t> last = LastRecordUs(path);
    const std::optional<std::uint64_t> changed = ChangedUs(path);
    // A file that claims to be older than its counter has no time of its own.
    if (!last || !changed || *changed < *last) return std::nullopt;
    return WallClock(*last, *changed);
}

Record WallClock::Convert(const Record& record) const {
    Record converted = record;
    for (const Field field : {Field::kTimeUs, Field::kBeginUs}) {
        if (record.Has(field)) converted.Set(field, record.Number(field) + offset_us_);
    }
    return converted;
}

}  // namespace dpdu::trace
