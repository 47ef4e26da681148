#include "platform/console.h"

#include <limits.h>
#include <poll.h>
#include <stdio.h>

#include <atomic>

namespace tarvik {

ConsoleResult OsAttachConsole() {
    static std::atomic<bool> attached{false};
    return attached.exchange(true) ? ConsoleResult::kAlreadyThere : ConsoleResult::kAttached;
}

// A pipe or terminal that is ready has room for PIPE_BUF bytes.
bool OsStandardOutputTakes(std::size_t size) {
    pollfd output = {.fd = ::fileno(stdout), .events = POLLOUT, .revents = 0};
    return size <= PIPE_BUF && ::poll(&output, 1, 0) == 1;
}

void OsCreateConsole() {}

}  // namespace tarvik
