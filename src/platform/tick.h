#pragma once

#include <cstdint>

namespace tarvik {

using TickSource = std::uint64_t (*)();

std::uint64_t TickMs();                       // monotonic milliseconds; never the calendar clock
TickSource SetTickSource(TickSource source);  // tests, before threads run; returns the old one
void SleepMs(std::uint32_t ms);               // real time, whatever the tick source

// High-resolution counter and its frequency per second (0: unavailable).
std::uint64_t PerformanceCounter();
std::uint64_t PerformanceFrequency();

// Item time stamps: the tick in microseconds, cut to 32 bits (wraps after about 71.6 minutes).
inline std::uint32_t TimestampUs() { return static_cast<std::uint32_t>(TickMs() * 1000u); }

}  // namespace tarvik
