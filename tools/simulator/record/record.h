// What passed between host and dongles. The latest entries stay in memory for queries over the
// control channel; all entries go to a file if one is given.

#pragma once

#include <chrono>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "protocol/wire.h"

namespace brennix {

enum class Direction : std::uint8_t {
    kIn,        // from the host
    kOut,       // to the host
    kEvent,     // plugged, unplugged, closed by the host …
    kViolation  // the host broke a rule
};

struct RecordEntry {
    std::uint64_t number;
    std::chrono::system_clock::time_point time;
    std::size_t dongle;
    Direction direction;
    Bytes packet;      // kIn, kOut
    std::string text;  // kEvent, kViolation
};

// An absent field matches every entry.
struct RecordFilter {
    std::optional<std::size_t> dongle;
    std::optional<Direction> direction;
    std::optional<std::uint32_t> type;
};

class Record {
public:
    // `source`: the JSON key of the number that the entries carry.
    explicit Record(std::size_t keep, const char* source = "dongle")
        : keep_(keep), source_(source) {}

    // Throws std::system_error if the file cannot be written.
    void OpenFile(const std::string& path);
    // Entries are written in large blocks; this writes the remaining ones.
    void FlushFile();

    void AddPacket(std::size_t dongle, Direction direction, ByteSpan packet);
    void AddText(std::size_t dongle, Direction direction, std::string text);
    void Clear();  // memory and counts, not the file

    // Since the start or the last Clear, whether still in memory or not.
    std::uint64_t Count(const RecordFilter& filter) const;
    // The newest `limit` matching entries in memory, oldest first, as a JSON array on one line.
    std::string Last(std::size_t limit, const RecordFilter& filter) const;

    // Called after each entry. May be empty.
    void SetListener(std::function<void()> listener) { listener_ = std::move(listener); }

private:
    struct CountKey {
        std::size_t dongle;
        Direction direction;
        std::uint32_t type;
        // Its result is no pointer: clang-tidy misreads the compiler's 0.
        // NOLINTNEXTLINE(modernize-use-nullptr)
        auto operator<=>(const CountKey&) const = default;
    };
    struct FileCloser {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    void Add(RecordEntry entry, std::uint32_t type);

    std::size_t keep_;
    const char* source_;
    std::uint64_t next_number_ = 1;
    std::deque<RecordEntry> entries_;
    std::map<CountKey, std::uint64_t> counts_;
    std::unique_ptr<std::FILE, FileCloser> file_;
    std::function<void()> listener_;
};

// One JSON object on one line, without the line end.
std::string ToJsonLine(const RecordEntry& entry, const char* source = "dongle");

}  // namespace brennix
