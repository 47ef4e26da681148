#pragma once

#include <algorithm>
#include <cstddef>

namespace tarvik {

// Callbacks of the application run on threads of the library, so these have the stack that threads
// of the application have by default: what its program file states on Windows, what `ulimit -s` or
// pthread_setattr_default_np state on Linux. But at least this, whatever the application has chosen
// for threads of its own: the library's own functions need up to 24 KiB, and programmers expect a
// megabyte.
inline constexpr std::size_t kMinThreadStack = std::size_t{1} << 20;

constexpr std::size_t ThreadStackSize(std::size_t of_application) {
    return std::max(of_application, kMinThreadStack);
}

}  // namespace tarvik
