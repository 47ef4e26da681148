#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "platform/process.h"
#include "platform/thread.h"
#include "support/memory.h"

namespace tarvik {

// Starts a thread whose argument is a share of `object`, which TakeBleShare unpacks there. Null:
// the system refused; OsLastError() tells why.
template <typename T>
OsThread* StartBleThread(OsThreadEntry entry, const std::shared_ptr<T>& object,
                         const char* description) {
    auto* share = NewTracked<std::shared_ptr<T>>(object);
    if (share == nullptr) return nullptr;
    OsThread* thread = OsThreadStart(entry, share, description);
    if (thread == nullptr) {
        const std::int32_t error = OsLastError();
        DeleteTracked(share);
        OsSetLastError(error);
    }
    return thread;
}

template <typename T>
std::shared_ptr<T> TakeBleShare(void* argument) {
    auto* share = static_cast<std::shared_ptr<T>*>(argument);
    std::shared_ptr<T> object = std::move(*share);
    DeleteTracked(share);
    return object;
}

// Waits for the end of a thread and gives its handle up. One that has not ended by then goes on by
// itself: the library must not be unloaded under it.
inline void EndBleThread(OsThread** thread, std::int32_t limit_ms) {
    if (*thread == nullptr) return;
    if (!OsThreadJoin(*thread, limit_ms)) OsKeepLibraryLoaded();
    OsThreadClose(std::exchange(*thread, nullptr));
}

// A tracked object that is shared.
template <typename T, typename... Args>
std::shared_ptr<T> MakeBleShared(Args&&... args) {
    return std::allocate_shared<T>(TrackedAllocator<T>(), std::forward<Args>(args)...);
}

}  // namespace tarvik
