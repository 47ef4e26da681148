#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/trace_line.h"

// What the events of the trace are written with.
namespace tarvik {

// Microseconds of the high-resolution counter; 0 when there is none.
std::uint64_t TraceTimeUs();

// Switches of the running session.
bool TraceWritesCloudPackets();
bool TraceWritesCloudBytes();

// The common start of an event's line, with the next sequence number. Returns the session that
// the line belongs to.
std::int32_t BeginTraceLine(TraceWriter* line, std::string_view event);
// Copies the line for the flusher; drops it when its session has ended meanwhile.
void AppendTraceLine(const TraceWriter& line, std::int32_t session);

inline constexpr std::string_view kTraceLineEnd = "}\n";

// One line of `Size` characters at most, NUL included: constructed with the common start, ended and
// appended by Write.
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
