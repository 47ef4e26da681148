#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace tarvik {

// A thread that takes the locks of the heaps, for a caller that must not wait for them without
// limit: the system has no try. It also looks whether the loader's lock is free.
class SystemLocks {
public:
    static SystemLocks* Start();  // null: the system refused
    // Gives up the object. Locks that are still being waited for are released once they are taken.
    void Close();

    // False: not free in time. Calls the kernel only, so a thread may be suspended meanwhile.
    bool Take(std::uint32_t patience_ms);
    // Ends a Take, also one that failed; without one it does nothing. False: the locks are still
    // being waited for. Call Close then.
    bool Release(std::uint32_t patience_ms);

private:
    SystemLocks() = default;
    ~SystemLocks();
    bool IsComplete() const;
    void Serve();
    void DropReference();
    static void Run(void* self);

    HANDLE take_ = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE taken_ = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE release_ = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::atomic<bool> closing_{false};
    std::atomic<bool> loader_is_free_{false};
    std::atomic<int> references_{2};  // the caller and the thread
    bool asked_ = false;              // only the caller uses this and the next
    bool has_taken_ = false;
};

}  // namespace tarvik
