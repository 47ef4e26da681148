#include "platform/tick.h"

#include <windows.h>

#include <atomic>

namespace tarvik {

static std::uint64_t CounterMs() {
    const std::uint64_t frequency = PerformanceFrequency();
    const std::uint64_t counter = PerformanceCounter();
    return counter / frequency * 1000u + counter % frequency * 1000u / frequency;
}

// The system's tick count moves in steps of 10 to 16 ms, too coarse for the deadlines computed
// from it. The performance counter has the precision; a constant makes it agree with the tick
// count, so that time stamps can be compared with the application's own ticks.
static std::uint64_t SystemTickMs() {
    static const std::uint64_t offset = ::GetTickCount64() - CounterMs();
    return CounterMs() + offset;
}

static std::atomic<TickSource> tick_source{&SystemTickMs};

std::uint64_t TickMs() { return tick_source.load(std::memory_order_relaxed)(); }

TickSource SetTickSource(TickSource source) {
    return tick_source.exchange(source != nullptr ? source : &SystemTickMs);
}

void SleepMs(std::uint32_t ms) { ::Sleep(ms); }

std::uint64_t PerformanceCounter() {
    LARGE_INTEGER counter;
    return ::QueryPerformanceCounter(&counter) ? static_cast<std::uint64_t>(counter.QuadPart) : 0;
}

std::uint64_t PerformanceFrequency() {
    static const std::uint64_t frequency = [] {
        LARGE_INTEGER value;
        return ::QueryPerformanceFrequency(&value) ? static_cast<std::uint64_t>(value.QuadPart)
                                                   : 0u;
    }();
    return frequency;
}

}  // namespace tarvik
