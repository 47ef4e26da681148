#include "platform/console.h"

#include <atomic>

namespace tarvik {

ConsoleResult OsAttachConsole() {
    static std::atomic<bool> attached{false};
    return attached.exchange(true) ? ConsoleResult::kAlreadyThere : ConsoleResult::kAttached;
}

}  // namespace tarvik
