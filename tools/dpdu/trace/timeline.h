// Requests of a trace as text rows, each with a bar for its duration.

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

// Selects the requests to show; all given conditions must hold.
struct TimelineFilter {
    std::optional<std::uint32_t> module;
    std::optional<std::uint32_t> link;
    std::optional<std::uint64_t> from_us;  // from the beginning of the session
    // Likewise. A request counts if any part of it is in the range.
    std::optional<std::uint64_t> to_us;
    bool only_problems = false;
};

// The bar of a row: each column shows what took most of its time.
struct BarScale {
    std::uint64_t begin_us = 0;
    std::uint64_t column_us = 1;
    std::size_t columns = 0;
};
std::string BarText(const Request& request, const BarScale& scale);

// True for errors, time-outs, negative answers, and cancelled or unfinished requests.
bool IsProblem(const Request& request);

// Processes a trace twice: first for the scale, then for the rows.
class Timeline : public RequestSink {
public:
    struct Style {
        std::size_t width = 0;  // of a whole row
        bool is_waterfall = false;
    };
    Timeline(const TimelineFilter& filter, const Style& style, Output* output)
        : filter_(filter), style_(style), output_(output), tracker_(this) {}

    void Take(const Record& record);
    void EndOfFile();
    // Called between the two passes.
    void StartShowing();

    std::uint64_t Shown() const { return durations_.Count(); }

    void OnRequest(const Request& request) override;

private:
    struct Session {
        std::uint32_t process = 0;
        std::uint32_t number = 0;
        std::uint64_t first_us = 0;
        std::uint64_t earliest_us = UINT64_MAX;  // of the shown requests
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
    TimeStatistics durations_;  // of the shown requests
};

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_TIMELINE_H
