#include "trace/wall_clock.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "text/names.h"
#include "trace/reader.h"

namespace dpdu::trace {
namespace {

namespace fs = std::filesystem;

// Holds several of the longest lines.
constexpr std::uintmax_t kTailSize = std::uintmax_t{64} * 1024;

std::uint64_t MicrosecondsSince1970(fs::file_time_type time) {
    const auto since_1970 = std::chrono::file_clock::to_sys(time).time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count());
}

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
    std::error_code error;
    const fs::file_time_type changed = fs::last_write_time(PathOf(path), error);
    if (!last || error) return std::nullopt;
    return WallClock(*last, MicrosecondsSince1970(changed));
}

Record WallClock::Convert(const Record& record) const {
    Record converted = record;
    for (const Field field : {Field::kTimeUs, Field::kBeginUs}) {
        if (record.Has(field)) converted.Set(field, record.Number(field) + offset_us_);
    }
    return converted;
}

}  // namespace dpdu::trace
