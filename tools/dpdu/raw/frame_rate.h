// How many frames arrive per second.

#ifndef TOOLS_DPDU_RAW_FRAME_RATE_H
#define TOOLS_DPDU_RAW_FRAME_RATE_H

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

namespace dpdu {

// Over the last two seconds.
class FrameRate {
public:
    using Time = std::chrono::steady_clock::time_point;

    void Add(Time now);
    // Nullopt: the first frame came so short a time ago that there is no telling.
    std::optional<double> PerSecond(Time now) const;

private:
    static constexpr std::size_t kSlots = 10;

    std::array<std::uint32_t, kSlots> counts_{};
    std::int64_t newest_ = 0;  // the number of the latest slot
    std::optional<Time> first_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_RAW_FRAME_RATE_H
