// Reads the library's trace file: one JSON object a line. Nothing in such a file is fatal.

#pragma once

#include <istream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace brennix {

// Moving its values throws nothing, which the JSON library does not state.
// NOLINTNEXTLINE(bugprone-exception-escape)
struct TraceEvent {
    std::size_t line = 0;  // of the file, from 1
    std::uint64_t sequence = 0;
    std::uint64_t time_us = 0;
    std::string name;
    nlohmann::json fields;
    bool is_cut = false;  // the line ends within its hex bytes; the bytes before are kept

    // 0 or empty if the field is missing or has another type.
    std::uint32_t Number(const char* key) const;
    std::vector<std::uint8_t> Hex(const char* key) const;
};

struct TraceText {
    std::vector<TraceEvent> events;  // in the order of their sequence numbers
    std::size_t lines = 0;
    std::vector<std::size_t> damaged;  // lines that are not JSON, or not from a trace
    std::vector<std::size_t> unknown;  // lines of events that this program does not know
};

TraceText ReadTrace(std::istream* file);

}  // namespace brennix
