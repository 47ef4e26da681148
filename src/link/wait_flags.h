#pragma once

#include <atomic>

namespace tarvik {

// Flags that end a wait early. Any may be null.
struct WaitFlags {
    const std::atomic<bool>* available = nullptr;
    const std::atomic<bool>* abort = nullptr;
    const std::atomic<bool>* running = nullptr;

    bool AskToStop() const {
        return (available != nullptr && !*available) || (abort != nullptr && *abort) ||
               (running != nullptr && !*running);
    }
};

}  // namespace tarvik
