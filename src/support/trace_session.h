#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/trace_line.h"

// Writing the events of a trace session.
namespace tarvik {

// Microseconds of the high-resolution counter; 0 when there is none.
std::uint64_t TraceTimeUs();

// Switches of the running session.
bool TraceWritesCloudPackets();
bool TraceWritesCloudBytes();

// The common start of an event's line, with the next sequence number. Returns the session that
// the line belongs to.
std::int32_t BeginTraceLine(TraceWriter* line, std::string_view event);
// Copies the line for the flusher. Drops it if its session has ended.
void AppendTraceLine(const TraceWriter& line, std::int32_t session);

inline constexpr std::string_view kTraceLineEnd = "}\n";

// A line of at most `Size` characters, NUL included. The constructor writes the common start; Write
// ends and appends the line.
template <std::size_t Size>
class TraceLine : public TraceWriter {
public:
    explicit TraceLine(std::string_view event)
        : TraceWriter(text_, Size), session_(BeginTraceLine(this, event)) {}
    void Write() {
        Text(kTraceLineEnd);
        AppendTraceLine(*this, session_);
    }

private:
    char text_[Size];
    std::int32_t session_;
};

}  // namespace tarvik
