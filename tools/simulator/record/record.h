// What passed between host and dongles. The last entries stay in memory for questions over the
// control channel; all of them go to a file when one is asked for.

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
    kViolation  // the host did what it must not
};

struct RecordEntry {
    std::uint64_t number;
    std::chrono::system_clock::time_point time;
    std::size_t dongle;
    Direction direction;
    Bytes packet;      // kIn, kOut
    std::string text;  // kEvent, kViolation
};

// Matches entries of every kind where a field is absent.
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

    // Throws std::system_error when the file cannot be written.
    void OpenFile(const std::string& path);
    // Entries go to the file in larger blocks; this writes what is left of them.
    void FlushFile();

    void AddPacket(std::size_t dongle, Direction direction, ByteSpan packet);
    void AddText(std::size_t dongle, Direction direction, std::string text);
    void Clear();  // memory and counts; the file goes on

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
        // NOLINTNEXTLINE(modernize-use-nullptr): no pointer, clang-tidy mistakes the compiler's 0
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

// One JSON object on one line, without a line end.
std::string ToJsonLine(const RecordEntry& entry, const char* source = "dongle");

}  // namespace brennix
