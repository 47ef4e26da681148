// Takes a trace apart into its lines, however large it is.

#ifndef TOOLS_DPDU_TRACE_READER_H
#define TOOLS_DPDU_TRACE_READER_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "trace/record.h"

namespace dpdu::trace {

// How many lines were like that, and which was the first.
struct LineCount {
    std::uint64_t count = 0;
    std::uint64_t first = 0;

    void Add(std::uint64_t line) {
        if (count++ == 0) first = line;
    }
};

struct ReadReport {
    std::uint64_t records = 0;
    std::uint64_t cut = 0;  // of these, those whose tail the library has cut off
    LineCount damaged;
    LineCount unknown;  // of an event that this program does not know
};

// Takes a trace in pieces of any size and hands on its records by time: threads append their lines
// to the file in the order in which they get to it, not in that of their events. Nothing but a few
// records and the piece of a line is kept.
class LineReader {
public:
    using Handler = std::function<void(const Record&)>;
    explicit LineReader(Handler handler) : handler_(std::move(handler)) {}

    void Feed(std::string_view piece);
    // After the last piece.
    void Finish();

    const ReadReport& Report() const { return report_; }

private:
    void TakeLine(std::string_view line);
    void TakePart(std::string_view part);
    void Order(Record record);
    void HandOnFirst();
    void HandOnAll();

    Handler handler_;
    ReadReport report_;
    std::string pending_;       // a line whose end has not come yet
    bool is_overlong_ = false;  // the line has been given up; its end is still to come
    std::uint64_t line_number_ = 0;
    std::vector<Record> waiting_;  // a heap, the earliest first
    Record parsed_;
};

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_READER_H
