#pragma once

#include <cstdint>

namespace tarvik {

// Shows a message box that the relay cannot be reached: only for a name that is not resolved or a
// server that cannot be connected to, and not within 10 seconds of the last box. `error` is the
// request's; `attempt_second` is the calendar time at which the attempt began. Blocks until the
// user has closed the box.
void ShowConnectionFailure(std::uint32_t error, const char* server, std::int64_t attempt_second);

}  // namespace tarvik
