// Counts the frames of each identifier and keeps the last one.

#ifndef TOOLS_DPDU_RAW_FRAME_COUNTS_H
#define TOOLS_DPDU_RAW_FRAME_COUNTS_H

#include <map>
#include <utility>

#include "console/output.h"
#include "raw/can_frame.h"

namespace dpdu {

class FrameCounts {
public:
    void Add(const CanFrame& frame, std::uint64_t time_us);

    std::uint64_t Total() const { return total_; }

    // A header and one row per identifier: count, mean period, last data.
    std::vector<Row> Rows() const;
    // The same rows as a JSON array.
    Json AsJson() const;

private:
    struct Entry {
        std::uint64_t count = 0;
        std::uint64_t first_us = 0;
        std::uint64_t last_us = 0;
        CanFrame last;

        std::optional<double> PeriodMs() const;
    };

    // Ordered by length of the identifier, then by its number.
    std::map<std::pair<bool, std::uint32_t>, Entry> entries_;
    std::uint64_t total_ = 0;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_RAW_FRAME_COUNTS_H
