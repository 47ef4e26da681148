// Results of control commands, and the commands about the record.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "record/record.h"

namespace brennix {

// Answered when `count` matching entries are on record, or when the time is up.
struct PendingWait {
    RecordFilter filter;
    std::uint64_t count;
    std::chrono::milliseconds limit;
};

struct CommandResult {
    std::string answer;  // without a line end
    std::optional<PendingWait> wait;
};

CommandResult Ok(const std::string& text = {});

// "CREQ", from the front of `rest`. Throws UsageError.
std::uint32_t TakeType(std::string_view* rest);

// The commands "record" and "wait", without their names. `source`: only entries with this number.
// Throw UsageError.
CommandResult RunRecordCommand(Record* record, std::optional<std::size_t> source,
                               std::string_view arguments);
CommandResult RunWaitCommand(std::optional<std::size_t> source, std::string_view arguments);

}  // namespace brennix
