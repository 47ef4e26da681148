#include "control/record_commands.h"

#include "control/words.h"

namespace brennix {

namespace {

RecordFilter TakeFilter(std::optional<std::size_t> source, std::string_view rest) {
    RecordFilter filter;
    filter.dongle = source;
    while (!rest.empty()) {
        const std::string_view word = TakeWord(&rest);
        if (word == "in") {
            filter.direction = Direction::kIn;
        } else if (word == "out") {
            filter.direction = Direction::kOut;
        } else if (word == "event") {
            filter.direction = Direction::kEvent;
        } else if (word == "violation") {
            filter.direction = Direction::kViolation;
        } else {
            std::string_view name = word;
            filter.type = TakeType(&name);
        }
    }
    return filter;
}

}  // namespace

CommandResult Ok(const std::string& text) { return {text.empty() ? "ok" : "ok " + text, {}}; }

std::uint32_t TakeType(std::string_view* rest) {
    const std::string_view word = TakeWord(rest);
    const std::optional<std::uint32_t> type = ParseTypeName(word);
    if (!type) throw UsageError("expected a packet type, found \"" + std::string(word) + "\"");
    return *type;
}

CommandResult RunRecordCommand(Record* record, std::optional<std::size_t> source,
                               std::string_view arguments) {
    const std::string_view what = TakeWord(&arguments);
    if (what == "clear") {
        record->Clear();
        return Ok();
    }
    if (what == "flush") {
        record->FlushFile();
        return Ok();
    }
    if (what == "count") return Ok(std::to_string(record->Count(TakeFilter(source, arguments))));
    if (what == "last") {
        const std::uint32_t limit = TakeNumber(&arguments, "a number of entries");
        return Ok(record->Last(limit, TakeFilter(source, arguments)));
    }
    throw UsageError("expected clear, flush, count or last");
}

CommandResult RunWaitCommand(std::optional<std::size_t> source, std::string_view arguments) {
    const std::uint32_t count = TakeNumber(&arguments, "a number of entries");
    const std::uint32_t limit_ms = TakeNumber(&arguments, "milliseconds");
    return {{},
            PendingWait{TakeFilter(source, arguments), count, std::chrono::milliseconds(limit_ms)}};
}

}  // namespace brennix
