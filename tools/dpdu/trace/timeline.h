// The requests of a trace as rows of text with a bar for the time that each took.

#ifndef TOOLS_DPDU_TRACE_TIMELINE_H
#define TOOLS_DPDU_TRACE_TIMELINE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "console/output.h"
#include "trace/requests.h"
#include "trace/statistics.h"

namespace dpdu::trace {

// Which requests are shown; all that is given must hold.
struct TimelineFilter {
    std::optional<std::uint32_t> module;
    std::optional<std::uint32_t> link;
    std::optional<std::uint64_t> from_us;  // from the beginning of the session
    std::optional<std::uint64_t> to_us;    // likewise; a request belongs to every moment it lasts
    bool only_problems = false;
};

// One row's bar: each column shows what took the greatest part of its time.
struct BarScale {
    std::uint64_t begin_us = 0;
    std::uint64_t column_us = 1;
    std::size_t columns = 0;
};
std::string BarText(const Request& request, const BarScale& scale);

// Anything but an answer that is wanted.
bool IsProblem(const Request& request);

// Reads a trace twice: first for the scale, then for the rows.
class Timeline : public RequestSink {
public:
    struct Style {
        std::size_t width = 0;  // of the whole row
        bool is_waterfall = false;
    };
    Timeline(const TimelineFilter& filter, const Style& style, Output* output)
        : filter_(filter), style_(style), output_(output), tracker_(this) {}

    void Take(const Record& record);
    void EndOfFile();
    // Between the passes.
    void StartShowing();

    std::uint64_t Shown() const { return durations_.Count(); }

    void OnRequest(const Request& request) override;

private:
    struct Session {
        std::uint32_t process = 0;
        std::uint32_t number = 0;
        std::uint64_t first_us = 0;
        std::uint64_t earliest_us = UINT64_MAX;  // of the requests shown
        std::uint64_t latest_us = 0;
        bool has_header = false;
    };

    bool IsWanted(const Request& request) const;
    BarScale ScaleFor(const Request& request) const;
    void ShowLegend() const;
    void ShowHeader();
    void ShowRow(const Request& request);

    const TimelineFilter filter_;
    const Style style_;
    Output* output_;
    RequestTracker tracker_;
    bool is_showing_ = false;
    bool is_in_session_ = false;
    std::size_t session_ = 0;  // the current one
    std::vector<Session> sessions_;
    TimeStatistics durations_;  // of the requests shown
};

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_TIMELINE_H
