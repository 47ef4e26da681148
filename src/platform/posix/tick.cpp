#include "platform/tick.h"

#include <errno.h>
#include <time.h>

#include <atomic>

namespace tarvik {

namespace {

timespec Now() {
    timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

std::uint64_t SystemTickMs() {
    const timespec now = Now();
    return static_cast<std::uint64_t>(now.tv_sec) * 1000u +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000u;
}

std::atomic<TickSource> tick_source{&SystemTickMs};

}  // namespace

std::uint64_t TickMs() { return tick_source.load(std::memory_order_relaxed)(); }

TickSource SetTickSource(TickSource source) {
    return tick_source.exchange(source != nullptr ? source : &SystemTickMs);
}

void SleepMs(std::uint32_t ms) {
    timespec until = Now();
    until.tv_sec += static_cast<time_t>(ms / 1000u);
    until.tv_nsec += static_cast<long>(ms % 1000u) * 1'000'000L;
    if (until.tv_nsec >= 1'000'000'000L) {
        until.tv_nsec -= 1'000'000'000L;
        ++until.tv_sec;
    }
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

std::uint64_t PerformanceCounter() {
    const timespec now = Now();
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000u +
           static_cast<std::uint64_t>(now.tv_nsec);
}

std::uint64_t PerformanceFrequency() { return 1'000'000'000u; }

}  // namespace tarvik
