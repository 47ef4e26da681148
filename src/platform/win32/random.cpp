#include "platform/random.h"

#include <windows.h>

// After windows.h.
#include <ntsecapi.h>

#include "platform/tick.h"

namespace tarvik {

std::uint64_t OsRandomNumber() {
    std::uint64_t number = 0;
    if (::RtlGenRandom(&number, sizeof number) != FALSE) return number;
    return reinterpret_cast<std::uintptr_t>(&number) * 0x9E3779B97F4A7C15u + PerformanceCounter();
}

}  // namespace tarvik
