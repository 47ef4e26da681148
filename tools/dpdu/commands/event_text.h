// Events of a library as lines for people and as JSON.

#ifndef TOOLS_DPDU_COMMANDS_EVENT_TEXT_H
#define TOOLS_DPDU_COMMANDS_EVENT_TEXT_H

#include <chrono>
#include <string>

#include "console/output.h"
#include "dpdu_types.h"

namespace dpdu {

struct Event {
    std::string source;  // "system", "module 0", "link 1", "request 7"
    std::string kind;    // "info", "status", "error", "result", "module", "monitor"
    std::string text;
    std::string data;  // of a result: its bytes as hexadecimal digits
    UNUM32 timestamp_us = 0;
    bool has_timestamp = false;  // false: it did not come as an item
};

// `source` says whose queue the item comes from; a ComPrimitive's own events name that instead.
Event ReadEvent(const PDU_EVENT_ITEM& item, const std::string& source);

using WallTime = std::chrono::system_clock::time_point;

// "12:34:56.789  link 0      PDU_CLLST_ONLINE", in local time.
std::string EventLine(const Event& event, WallTime time);
// With the time as "2026-01-31T12:34:56.789Z".
Json EventJson(const Event& event, WallTime time);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_EVENT_TEXT_H
