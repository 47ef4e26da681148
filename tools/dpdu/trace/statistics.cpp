#include "trace/statistics.h"

#include <algorithm>
#include <bit>

namespace dpdu::trace {
namespace {

constexpr unsigned kPartBits = 8;
constexpr std::uint64_t kParts = std::uint64_t{1} << kPartBits;

}  // namespace

// Each time below kParts has its own bucket.
std::size_t TimeStatistics::BucketOf(std::uint64_t time_us) {
    if (time_us < kParts) return static_cast<std::size_t>(time_us);
    const auto shift = static_cast<unsigned>(std::bit_width(time_us)) - kPartBits - 1;
    return static_cast<std::size_t>((std::uint64_t{shift} << kPartBits) + (time_us >> shift));
}

std::uint64_t TimeStatistics::LargestIn(std::size_t bucket) {
    if (bucket < 2 * kParts) return bucket;
    const auto shift = static_cast<unsigned>((bucket >> kPartBits) - 1);
    const std::uint64_t first = (bucket & (kParts - 1)) + kParts;
    return ((first + 1) << shift) - 1;
}

void TimeStatistics::Add(std::uint64_t time_us) {
    min_us_ = count_ == 0 ? time_us : std::min(min_us_, time_us);
    max_us_ = std::max(max_us_, time_us);
    ++count_;
    sum_us_ += time_us;
    const std::size_t bucket = BucketOf(time_us);
    if (bucket >= buckets_.size()) buckets_.resize(bucket + 1);
    ++buckets_[bucket];
}

std::uint64_t TimeStatistics::PercentileUs(unsigned percent) const {
    const std::uint64_t rank = std::max<std::uint64_t>((count_ * percent + 99) / 100, 1);
    std::uint64_t passed = 0;
    for (std::size_t bucket = 0; bucket < buckets_.size(); ++bucket) {
        passed += buckets_[bucket];
        if (passed >= rank) return std::clamp(LargestIn(bucket), min_us_, max_us_);
    }
    return max_us_;
}

}  // namespace dpdu::trace
