// The commands of the control channel: one line each, answered with one line that begins with "ok"
// or "error:".

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "record.h"
#include "simulator.h"

namespace brennix {

// The answer comes when `count` matching entries are on record, or when the time is up.
struct PendingWait {
    RecordFilter filter;
    std::uint64_t count;
    std::chrono::milliseconds limit;
};

struct CommandResult {
    std::string answer;  // without a line end
    std::optional<PendingWait> wait;
};

class Commands {
public:
    explicit Commands(Simulator* simulator) : simulator_(simulator) {}

    CommandResult Run(std::string_view line);
    // Every command with its arguments and a sentence, for people.
    static std::string Help();

private:
    Simulator* simulator_;
};

}  // namespace brennix
