// A library's events as text lines and as JSON.

#ifndef TOOLS_DPDU_COMMANDS_EVENT_TEXT_H
#define TOOLS_DPDU_COMMANDS_EVENT_TEXT_H

#include <chrono>
#include <string>

#include "console/output.h"
#include "dpdu_types.h"
#include "uds/decoding.h"

namespace dpdu {

struct Event {
    std::string source;  // "system", "module 0", "link 1", "request 7"
    std::string kind;    // "info", "status", "error", "result", "module", "monitor"
    std::string text;
    std::string data;  // result: its bytes in hexadecimal
    Decoded decoded;   // result: what they mean
    UNUM32 timestamp_us = 0;
    bool has_timestamp = false;  // false: not from an event item
};

// `source` names the queue that the item comes from; an event of a ComPrimitive names that instead.
// `request` helps to decode answers; empty: unknown.
Event ReadEvent(const PDU_EVENT_ITEM& item, const std::string& source, const Bytes& request);

using WallTime = std::chrono::system_clock::time_point;

// "12:34:56.789  link 0      PDU_CLLST_ONLINE", in local time.
std::string EventLine(const Event& event, WallTime time);
// With the time as "2026-01-31T12:34:56.789Z".
Json EventJson(const Event& event, WallTime time);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_EVENT_TEXT_H
