// Minimum, maximum, average and 95th percentile of any number of times, in constant memory.

#ifndef TOOLS_DPDU_TRACE_STATISTICS_H
#define TOOLS_DPDU_TRACE_STATISTICS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace dpdu::trace {

class TimeStatistics {
public:
    void Add(std::uint64_t time_us);

    std::uint64_t Count() const { return count_; }
    // These return 0 if no time was added.
    std::uint64_t MinUs() const { return min_us_; }
    std::uint64_t MaxUs() const { return max_us_; }
    std::uint64_t AverageUs() const { return count_ == 0 ? 0 : sum_us_ / count_; }
    // The percentile of all times (nearest rank), at most 0.4 % too large.
    std::uint64_t PercentileUs(unsigned percent) const;

private:
    // Counts by magnitude; each power of two is divided into 256 equal parts.
    static std::size_t BucketOf(std::uint64_t time_us);
    static std::uint64_t LargestIn(std::size_t bucket);

    std::uint64_t count_ = 0;
    std::uint64_t sum_us_ = 0;
    std::uint64_t min_us_ = 0;
    std::uint64_t max_us_ = 0;
    std::vector<std::uint32_t> buckets_;
};

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_STATISTICS_H
