#include "platform/tick.h"

#include <windows.h>

#include <atomic>

namespace tarvik {

namespace {

std::uint64_t ReadFrequency() {
    LARGE_INTEGER value;
    return ::QueryPerformanceFrequency(&value) ? static_cast<std::uint64_t>(value.QuadPart) : 0u;
}

// Read at load. A variable initialised at first use would cost a thread-local slot each time the
// library is loaded: the compiler's guard takes one and never returns it.
const std::uint64_t frequency = ReadFrequency();

std::uint64_t CounterMs() {
    const std::uint64_t counter = PerformanceCounter();
    return counter / frequency * 1000u + counter % frequency * 1000u / frequency;
}

// The system's tick count moves in steps of 10 to 16 ms, too coarse for the deadlines computed
// from it. The performance counter has the precision; a constant makes it agree with the tick
// count, so that time stamps can be compared with the application's own ticks.
const std::uint64_t tick_offset = ::GetTickCount64() - CounterMs();

std::uint64_t SystemTickMs() { return CounterMs() + tick_offset; }

std::atomic<TickSource> tick_source{&SystemTickMs};

}  // namespace

std::uint64_t TickMs() { return tick_source.load(std::memory_order_relaxed)(); }

TickSource SetTickSource(TickSource source) {
    return tick_source.exchange(source != nullptr ? source : &SystemTickMs);
}

void SleepMs(std::uint32_t ms) { ::Sleep(ms); }

std::uint64_t PerformanceCounter() {
    LARGE_INTEGER counter;
    return ::QueryPerformanceCounter(&counter) ? static_cast<std::uint64_t>(counter.QuadPart) : 0;
}

std::uint64_t PerformanceFrequency() { return frequency; }

}  // namespace tarvik
