// Splits a trace of any size into lines.

#ifndef TOOLS_DPDU_TRACE_READER_H
#define TOOLS_DPDU_TRACE_READER_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "trace/record.h"

namespace dpdu::trace {

// Number of such lines, and the first of them.
struct LineCount {
    std::uint64_t count = 0;
    std::uint64_t first = 0;

    void Add(std::uint64_t line) {
        if (count++ == 0) first = line;
    }
};

struct ReadReport {
    std::uint64_t records = 0;
    std::uint64_t cut = 0;  // of these, lines that the library has truncated
    LineCount damaged;
    LineCount unknown;  // lines with an unknown event
};

// Takes a trace in pieces of any size and passes on its records ordered by time, since threads do
// not append their lines in the order of their events. Keeps only a few records and an incomplete
// line.
class LineReader {
public:
    using Handler = std::function<void(const Record&)>;
    explicit LineReader(Handler handler) : handler_(std::move(handler)) {}

    void Feed(std::string_view piece);
    // Called after the last piece.
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
    std::string pending_;       // an incomplete line
    bool is_overlong_ = false;  // skipping the rest of a line that is too long
    std::uint64_t line_number_ = 0;
    std::vector<Record> waiting_;  // a heap, the earliest first
    Record parsed_;
};

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_READER_H
