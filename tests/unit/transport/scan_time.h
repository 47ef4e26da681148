#pragma once

#include <atomic>
#include <cstdint>

#include "platform/tick.h"

namespace tarvik::test {

// Stops the tick, so that a scan does not end before the dongles have answered, however busy the
// machine. GoOn lets it run again from where it stopped. It never goes back.
class ScanTime {
public:
    ScanTime() {
        const TickSource system = SetTickSource(nullptr);
        system_ = system;
        late_by_ms_ = 0;
        frozen_at_ms_ = system();
        SetTickSource(Now);
    }
    ~ScanTime() { SetTickSource(system_); }
    ScanTime(const ScanTime&) = delete;
    ScanTime& operator=(const ScanTime&) = delete;

    static void GoOn() {
        const std::uint64_t frozen = frozen_at_ms_;
        if (frozen == 0) return;
        late_by_ms_ = system_.load()() - frozen;
        frozen_at_ms_ = 0;
    }

private:
    static std::uint64_t Now() {
        const std::uint64_t frozen = frozen_at_ms_;
        return frozen != 0 ? frozen : system_.load()() - late_by_ms_;
    }

    static inline std::atomic<TickSource> system_{nullptr};
    static inline std::atomic<std::uint64_t> frozen_at_ms_{0};  // 0: it runs
    static inline std::atomic<std::uint64_t> late_by_ms_{0};
};

}  // namespace tarvik::test
