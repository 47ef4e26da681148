// The calendar time of a trace, whose lines have only the computer's performance counter.

#ifndef TOOLS_DPDU_TRACE_WALL_CLOCK_H
#define TOOLS_DPDU_TRACE_WALL_CLOCK_H

#include <cstdint>
#include <optional>
#include <string>

#include "trace/record.h"

namespace dpdu::trace {

// From the trace's times to microseconds since 1970, UTC.
class WallClock {
public:
    // By the time at which the file was last changed: a library writes its last line then, or at
    // most its flushing period later. nullopt if the file has no such time (a pipe) or no record at
    // its end, or cannot be read.
    static std::optional<WallClock> OfFile(const std::string& path);
    // By the time of the last record, in microseconds since 1970.
    WallClock(std::uint64_t last_record_us, std::uint64_t last_record_since_1970_us)
        : offset_us_(static_cast<std::int64_t>(last_record_since_1970_us) -
                     static_cast<std::int64_t>(last_record_us)) {}

    // The record with its times since 1970.
    Record Convert(const Record& record) const;

private:
    std::int64_t offset_us_;
};

// The time of the last record at the end of a file; nullopt if there is none or it is not a file.
std::optional<std::uint64_t> LastRecordUs(const std::string& path);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_WALL_CLOCK_H
