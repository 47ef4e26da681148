// Counts the frames of each identifier and keeps the last one.

#ifndef TOOLS_DPDU_RAW_FRAME_COUNTS_H
#define TOOLS_DPDU_RAW_FRAME_COUNTS_H

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "console/output.h"
#include "raw/can_frame.h"
#include "raw/frame_rate.h"

namespace dpdu {

// The frames of one identifier.
struct CountedFrame {
    std::uint64_t count = 0;
    std::uint64_t first_us = 0;
    std::uint64_t last_us = 0;
    CanFrame last;
    FrameRate rate;
    std::array<FrameRate::Time, kLargestFrame> changes{};  // the last one of each byte

    std::optional<double> PeriodMs() const;
    // "15.0 ms", or "-" for a single frame.
    std::string PeriodText() const;
    bool HasChangedSince(std::size_t byte, FrameRate::Time time) const;
};

class FrameCounts {
public:
    // `time_us` is that of the module's clock, `now` that of this computer's.
    void Add(const CanFrame& frame, std::uint64_t time_us, FrameRate::Time now);

    std::uint64_t Total() const { return total_; }

    // Ordered by length of the identifier, then by its number.
    void ForEach(const std::function<void(const CountedFrame&)>& look) const;

    // A header and one row per identifier: count, mean period, last data.
    std::vector<Row> Rows() const;
    // The same rows as a JSON array.
    Json AsJson() const;

private:
    std::map<std::pair<bool, std::uint32_t>, CountedFrame> entries_;
    std::uint64_t total_ = 0;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_RAW_FRAME_COUNTS_H
