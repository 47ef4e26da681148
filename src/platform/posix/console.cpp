#include "platform/console.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

namespace tarvik {

ConsoleResult OsAttachConsole() {
    static std::atomic<bool> attached{false};
    return attached.exchange(true) ? ConsoleResult::kAlreadyThere : ConsoleResult::kAttached;
}

// Not by asking whether it is ready: it may be so for less than what is printed, and others print
// too.
bool OsStandardOutputMayWait() {
    struct stat output {};
    if (::fstat(::fileno(stdout), &output) != 0) return false;
    if (S_ISCHR(output.st_mode)) return ::isatty(::fileno(stdout)) != 0;
    return !S_ISREG(output.st_mode);
}

void OsCreateConsole() {}

}  // namespace tarvik
