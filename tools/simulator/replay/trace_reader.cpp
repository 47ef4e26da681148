#include "replay/trace_reader.h"

#include <algorithm>
#include <string_view>

#include "protocol/wire.h"

namespace brennix {

namespace {

using Json = nlohmann::json;

constexpr std::string_view kLineStart = "{\"seq\":";

constexpr std::string_view kKnownEvents[] = {"log_start",         "log_stop",
                                             "cop_start",         "cop_sendrecv_meta",
                                             "cop_state",         "cop_expected_responses",
                                             "cop_ecu_candidate", "cop_cancel_req",
                                             "cop_cancel_result", "cop_rx",
                                             "cop_error",         "notify_begin",
                                             "notify_end",        "cop_free",
                                             "item_destroy",      "comm_req_sent",
                                             "comm_res_received", "busy_received",
                                             "cloud_pkt",         "telemetry"};

// The fields of a line that was cut within its hex bytes, which then come last.
Json ReadCutLine(const std::string& line) {
    const std::size_t quote = line.rfind("_hex\":\"");
    if (quote == std::string::npos) return Json::value_t::discarded;
    const std::size_t first = line.find('"', quote + 5) + 1;
    const std::size_t digits = line.size() - first;
    if (line.find_first_not_of("0123456789abcdef", first) != std::string::npos) {
        return Json::value_t::discarded;
    }
    return Json::parse(line.substr(0, first + digits / 2 * 2) + "\"}", nullptr, false);
}

std::uint64_t Unsigned(const Json& fields, const char* key) {
    const auto found = fields.find(key);
    return found != fields.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : 0;
}

// False: damaged.
bool ReadLine(const std::string& line, TraceEvent* event) {
    event->fields = Json::parse(line, nullptr, false);
    if (event->fields.is_discarded()) {
        event->fields = ReadCutLine(line);
        event->is_cut = true;
    }
    if (!event->fields.is_object()) return false;
    const auto name = event->fields.find("ev");
    if (name == event->fields.end() || !name->is_string()) return false;
    event->name = name->get<std::string>();
    event->sequence = Unsigned(event->fields, "seq");
    event->time_us = Unsigned(event->fields, "ts_us");
    return true;
}

void TakePart(const std::string& part, TraceText* trace) {
    TraceEvent event;
    event.line = trace->lines;
    if (!ReadLine(part, &event)) {
        trace->damaged.push_back(event.line);
    } else if (std::find(std::begin(kKnownEvents), std::end(kKnownEvents), event.name) ==
               std::end(kKnownEvents)) {
        trace->unknown.push_back(event.line);
    } else {
        trace->events.push_back(std::move(event));
    }
}

// A line that the library cut lacks its line end too: the next event follows on the same line.
void TakeLine(std::string_view line, TraceText* trace) {
    while (!line.empty()) {
        const std::size_t end = std::min(line.find(kLineStart, 1), line.size());
        TakePart(std::string(line.substr(0, end)), trace);
        line.remove_prefix(end);
    }
}

}  // namespace

std::uint32_t TraceEvent::Number(const char* key) const {
    return static_cast<std::uint32_t>(Unsigned(fields, key));
}

std::vector<std::uint8_t> TraceEvent::Hex(const char* key) const {
    const auto found = fields.find(key);
    if (found == fields.end() || !found->is_string()) return {};
    return ParseHex(found->get_ref<const std::string&>()).value_or(Bytes{});
}

TraceText ReadTrace(std::istream* file) {
    TraceText trace;
    for (std::string line; std::getline(*file, line);) {
        ++trace.lines;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        TakeLine(line, &trace);
    }
    // Lines may have reached the file slightly out of order.
    std::stable_sort(
        trace.events.begin(), trace.events.end(),
        [](const TraceEvent& a, const TraceEvent& b) { return a.sequence < b.sequence; });
    return trace;
}

}  // namespace brennix
