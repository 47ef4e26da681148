#include "raw/frame_rate.h"

#include <algorithm>

namespace dpdu {
namespace {

constexpr std::chrono::milliseconds kSlot{200};
constexpr std::chrono::milliseconds kShortest{500};

std::int64_t SlotOf(FrameRate::Time time) { return time.time_since_epoch() / kSlot; }

}  // namespace

void FrameRate::Add(Time now) {
    constexpr auto kAll = static_cast<std::int64_t>(kSlots);
    const std::int64_t slot = SlotOf(now);
    if (!first_) {
        first_ = now;
        newest_ = slot;
    }
    for (std::int64_t next = std::max(newest_ + 1, slot - kAll + 1); next <= slot; ++next)
        counts_[static_cast<std::size_t>(next % kAll)] = 0;
    newest_ = std::max(newest_, slot);
    ++counts_[static_cast<std::size_t>(newest_ % kAll)];
}

std::optional<double> FrameRate::PerSecond(Time now) const {
    constexpr auto kAll = static_cast<std::int64_t>(kSlots);
    if (!first_ || now - *first_ < kShortest) return std::nullopt;
    const std::int64_t oldest = SlotOf(now) - kAll + 1;
    std::uint64_t frames = 0;
    for (std::int64_t slot = std::max(oldest, newest_ - kAll + 1); slot <= newest_; ++slot)
        frames += counts_[static_cast<std::size_t>(slot % kAll)];
    const Time begin = std::max(*first_, Time(oldest * kSlot));
    return static_cast<double>(frames) / std::chrono::duration<double>(now - begin).count();
}

}  // namespace dpdu
