// What OsMutex needs of the system for its owner is refused.

#include <errno.h>
#include <gtest/gtest.h>

#include "platform/mutex.h"
#include "platform/tick.h"
#include "unit/faults/system_call_fault.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

using test::SystemCallFault;
using test::Thread;

// The system refuses to watch for the end of threads that lock it for the first time.
class UnwatchedMutex : public testing::Test {
protected:
    struct Locking {
        MutexWait outcome;
        int attempts;
        std::uint64_t passed_ms;
    };

    ~UnwatchedMutex() override { OsMutexClose(mutex_); }

    // On a thread that then ends without unlocking.
    Locking LockOnNewThread(std::int32_t timeout_ms, int failures) {
        Locking locking{};
        Thread([&] {
            const SystemCallFault fault("pthread_setspecific", ENOMEM, failures);
            const std::uint64_t before = TickMs();
            locking.outcome = OsMutexLock(mutex_, timeout_ms);
            locking.passed_ms = TickMs() - before;
            locking.attempts = fault.Calls();
        }).Join();
        return locking;
    }

    OsMutex* mutex_ = OsMutexCreate();
};

TEST_F(UnwatchedMutex, IsLockedAsSoonAsThereIsMemory) {
    const Locking locking = LockOnNewThread(-1, 3);
    EXPECT_EQ(locking.outcome, MutexWait::kAcquired);
    EXPECT_EQ(locking.attempts, 4);
    // The thread was watched after all.
    EXPECT_EQ(OsMutexLock(mutex_, 0), MutexWait::kAbandoned);
    OsMutexUnlock(mutex_);
}

TEST_F(UnwatchedMutex, WaitForMemoryLastsUntilTheTimeOutAndDoesNotSpin) {
    constexpr std::int32_t kTimeoutMs = 20;
    const Locking locking = LockOnNewThread(kTimeoutMs, SystemCallFault::kAlways);
    EXPECT_EQ(locking.outcome, MutexWait::kTimeout);
    EXPECT_GE(locking.passed_ms, static_cast<std::uint64_t>(kTimeoutMs) - 1);
    EXPECT_LE(locking.attempts, kTimeoutMs + 1);
    EXPECT_EQ(OsMutexLock(mutex_, 0), MutexWait::kAcquired);  // it was never owned
    OsMutexUnlock(mutex_);
}

TEST_F(UnwatchedMutex, TryingDoesNotWait) {
    const Locking locking = LockOnNewThread(0, SystemCallFault::kAlways);
    EXPECT_EQ(locking.outcome, MutexWait::kTimeout);
    EXPECT_EQ(locking.attempts, 1);
}

TEST_F(UnwatchedMutex, OwnerThatIsWatchedNeedsNoMemory) {
    OsMutexLock(mutex_, -1);
    OsMutexUnlock(mutex_);
    MutexWait outcome = MutexWait::kTimeout;
    {
        const SystemCallFault fault("pthread_setspecific", ENOMEM);
        outcome = OsMutexLock(mutex_, 0);
    }
    EXPECT_EQ(outcome, MutexWait::kAcquired);
    OsMutexUnlock(mutex_);
}

// In a child process: the first mutex decides.
const test::ChildBody kWithoutKey("mutex-without-key", [] {
    const SystemCallFault fault("pthread_key_create", EAGAIN);
    return OsMutexCreate() == nullptr && OsMutexCreate() == nullptr && fault.Calls() == 1 ? 0 : 1;
});

TEST(MutexCreation, IsRefusedWhereNoThreadCanBeWatched) {
    EXPECT_EQ(test::RunChild("mutex-without-key").exit_code, 0);
}

TEST(MutexCreation, IsRefusedWithoutMemory) {
    const OsMutex* mutex = nullptr;
    {
        const test::NoMemory none;
        mutex = OsMutexCreate();
    }
    EXPECT_EQ(mutex, nullptr);
    OsMutexClose(nullptr);  // allowed
}

}  // namespace
}  // namespace tarvik
