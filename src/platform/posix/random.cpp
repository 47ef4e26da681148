#include "platform/random.h"

#include <sys/random.h>

#include "platform/tick.h"

namespace tarvik {

std::uint64_t OsRandomNumber() {
    std::uint64_t number = 0;
    const auto size = static_cast<ssize_t>(sizeof number);
    if (::getrandom(&number, sizeof number, GRND_NONBLOCK) == size) return number;
    return reinterpret_cast<std::uintptr_t>(&number) * 0x9E3779B97F4A7C15u + PerformanceCounter();
}

}  // namespace tarvik
