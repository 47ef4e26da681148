#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "platform/thread.h"
#include "support/memory.h"

namespace tarvik {

// A tracked object with shared owners. Throws std::bad_alloc.
template <typename T, typename... Args>
std::shared_ptr<T> MakeBleShared(Args&&... args) {
    return std::allocate_shared<T>(TrackedAllocator<T>(), std::forward<Args>(args)...);
}

// Starts a thread that shares `object`: its entry passes the argument to TakeBleShare. Null: the
// system refused; OsLastError() has the reason.
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

// Joins a thread and closes its handle. A thread that does not end in time continues alone.
inline void EndBleThread(OsThread** thread, std::int32_t limit_ms) {
    if (*thread == nullptr) return;
    OsThreadJoin(*thread, limit_ms);
    OsThreadClose(std::exchange(*thread, nullptr));
}

}  // namespace tarvik
