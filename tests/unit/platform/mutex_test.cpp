#include "platform/mutex.h"

#include <gtest/gtest.h>

#include <atomic>

#include "platform/event.h"
#include "platform/thread.h"
#include "unit/test_support.h"

namespace tarvik {
namespace {

using test::Eventually;
using test::Thread;

class Mutex : public testing::Test {
protected:
    ~Mutex() override { OsMutexClose(mutex_); }

    MutexWait LockElsewhere(std::int32_t timeout_ms) {
        MutexWait outcome = MutexWait::kTimeout;
        Thread other([&] {
            outcome = OsMutexLock(mutex_, timeout_ms);
            if (outcome != MutexWait::kTimeout) OsMutexUnlock(mutex_);
        });
        other.Join();
        return outcome;
    }

    // Runs a platform thread that locks and ends without unlocking.
    void LeaveOwnedByAnEndedThread() {
        OsThread* thread = OsThreadStart(
            [](void* mutex) { OsMutexLock(static_cast<OsMutex*>(mutex), -1); }, mutex_, "owner");
        ASSERT_NE(thread, nullptr);
        ASSERT_TRUE(OsThreadJoin(thread, 10'000));
        OsThreadClose(thread);
    }

    OsMutex* mutex_ = OsMutexCreate();
};

TEST_F(Mutex, IsCreatedFreeAndHasAHandle) {
    ASSERT_NE(mutex_, nullptr);
    EXPECT_NE(OsMutexHandle(mutex_), nullptr);
    EXPECT_EQ(LockElsewhere(0), MutexWait::kAcquired);
}

TEST_F(Mutex, IsHeldUntilEveryLockIsUnlocked) {
    EXPECT_EQ(OsMutexLock(mutex_, -1), MutexWait::kAcquired);
    EXPECT_EQ(OsMutexLock(mutex_, 0), MutexWait::kAcquired);
    OsMutexUnlock(mutex_);
    EXPECT_EQ(LockElsewhere(0), MutexWait::kTimeout);
    OsMutexUnlock(mutex_);
    EXPECT_EQ(LockElsewhere(0), MutexWait::kAcquired);
}

TEST_F(Mutex, WaitTimesOut) {
    OsMutexLock(mutex_, -1);
    EXPECT_EQ(LockElsewhere(1), MutexWait::kTimeout);
    OsMutexUnlock(mutex_);
}

TEST_F(Mutex, WaiterGetsItWhenTheOwnerUnlocks) {
    OsMutexLock(mutex_, -1);
    std::atomic<bool> acquired{false};
    Thread waiter([&] {
        acquired = OsMutexLock(mutex_, -1) == MutexWait::kAcquired;
        OsMutexUnlock(mutex_);
    });
    EXPECT_FALSE(acquired);
    OsMutexUnlock(mutex_);
    EXPECT_TRUE(Eventually([&] { return acquired.load(); }));
}

TEST_F(Mutex, UnlockByAnotherThreadDoesNothing) {
    OsMutexLock(mutex_, -1);
    Thread([&] { OsMutexUnlock(mutex_); }).Join();
    EXPECT_EQ(LockElsewhere(0), MutexWait::kTimeout);
    OsMutexUnlock(mutex_);
}

TEST_F(Mutex, ThreadThatEndsAsOwnerAbandonsIt) {
    LeaveOwnedByAnEndedThread();
    EXPECT_EQ(OsMutexLock(mutex_, 0), MutexWait::kAbandoned);
    OsMutexUnlock(mutex_);
    EXPECT_EQ(OsMutexLock(mutex_, 0), MutexWait::kAcquired);  // reported once
    OsMutexUnlock(mutex_);
}

TEST_F(Mutex, WaiterIsWokenWhenTheOwnerEnds) {
    OsEvent* owned = OsEventCreate(EventReset::kManual);
    OsEvent* end = OsEventCreate(EventReset::kManual);
    Thread owner([&] {
        OsMutexLock(mutex_, -1);
        OsEventSet(owned);
        OsEventWait(end, -1);
    });
    EXPECT_TRUE(OsEventWait(owned, 10'000));
    std::atomic<bool> abandoned{false};
    Thread waiter([&] {
        abandoned = OsMutexLock(mutex_, -1) == MutexWait::kAbandoned;
        OsMutexUnlock(mutex_);
    });
    OsEventSet(end);
    EXPECT_TRUE(Eventually([&] { return abandoned.load(); }));
    waiter.Join();
    owner.Join();
    OsEventClose(owned);
    OsEventClose(end);
}

TEST_F(Mutex, UnlockedMutexIsNotAbandonedAtThreadEnd) {
    EXPECT_EQ(LockElsewhere(-1), MutexWait::kAcquired);
    EXPECT_EQ(OsMutexLock(mutex_, 0), MutexWait::kAcquired);
    OsMutexUnlock(mutex_);
}

TEST_F(Mutex, EveryHeldMutexIsAbandonedAtThreadEnd) {
    OsMutex* second = OsMutexCreate();
    OsMutex* third = OsMutexCreate();
    Thread([&] {
        OsMutexLock(mutex_, -1);
        OsMutexLock(second, -1);
        OsMutexLock(third, -1);
        OsMutexUnlock(second);
    }).Join();
    EXPECT_EQ(OsMutexLock(mutex_, 0), MutexWait::kAbandoned);
    EXPECT_EQ(OsMutexLock(second, 0), MutexWait::kAcquired);
    EXPECT_EQ(OsMutexLock(third, 0), MutexWait::kAbandoned);
    OsMutexUnlock(mutex_);
    OsMutexUnlock(second);
    OsMutexUnlock(third);
    OsMutexClose(second);
    OsMutexClose(third);
}

TEST_F(Mutex, CanBeClosedWhileOwned) {
    OsEvent* closed = OsEventCreate(EventReset::kManual);
    OsMutex* own = OsMutexCreate();
    std::atomic<bool> owned{false};
    Thread owner([&] {
        OsMutexLock(own, -1);
        owned = true;
        OsEventWait(closed, -1);
        OsMutexLock(mutex_, -1);  // the rest of the thread's list still works
        OsMutexUnlock(mutex_);
    });
    EXPECT_TRUE(Eventually([&] { return owned.load(); }));
    OsMutexClose(own);
    OsEventSet(closed);
    owner.Join();
    OsEventClose(closed);
    EXPECT_EQ(OsMutexLock(mutex_, 0), MutexWait::kAcquired);
    OsMutexUnlock(mutex_);
}

}  // namespace
}  // namespace tarvik
