#include "platform/lock.h"

#include <gtest/gtest.h>

#include <atomic>

#include "unit/test_support.h"

namespace tarvik {
namespace {

using test::Eventually;
using test::Thread;

TEST(Lock, CanBeEnteredAgainByItsOwner) {
    OsLock lock;
    std::atomic<bool> entered{false};
    lock.Enter();
    lock.Enter();
    lock.Leave();
    Thread other([&] {
        const LockGuard guard(lock);
        entered = true;
    });
    EXPECT_FALSE(entered);  // one Enter is still open
    lock.Leave();
    EXPECT_TRUE(Eventually([&] { return entered.load(); }));
}

TEST(Lock, ExcludesOtherThreads) {
    OsLock lock;
    int counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 10'000; ++i) {
            const LockGuard guard(lock);
            ++counter;
        }
    };
    {
        Thread first(count);
        Thread second(count);
    }
    EXPECT_EQ(counter, 20'000);
}

TEST(Lock, HasAnAddressForLogLines) {
    OsLock lock;
    EXPECT_EQ(lock.Address(), static_cast<void*>(&lock));
}

TEST(Condition, WaitTimesOut) {
    OsLock lock;
    OsCondition never;
    const LockGuard guard(lock);
    EXPECT_FALSE(never.Wait(lock, 0));
    EXPECT_FALSE(never.Wait(lock, 1));
}

TEST(Condition, ReleasesTheLockWhileSleepingAndHoldsItAfterwards) {
    OsLock lock;
    OsCondition changed;
    bool ready = false;
    Thread waker([&] {
        const LockGuard guard(lock);
        ready = true;
        changed.WakeOne();
    });
    const LockGuard guard(lock);
    while (!ready)
        changed.Wait(lock, -1);
    EXPECT_TRUE(ready);
}

TEST(Condition, WakeAllReachesEveryWaiter) {
    OsLock lock;
    OsCondition changed;
    bool open = false;
    int waiting = 0;
    int passed = 0;
    const auto pass = [&] {
        const LockGuard guard(lock);
        ++waiting;
        while (!open)
            changed.Wait(lock, 10'000);
        ++passed;
    };
    {
        Thread first(pass);
        Thread second(pass);
        Thread third(pass);
        EXPECT_TRUE(Eventually([&] {
            const LockGuard guard(lock);
            return waiting == 3;
        }));
        const LockGuard guard(lock);
        open = true;
        changed.WakeAll();
    }
    EXPECT_EQ(passed, 3);
}

TEST(Condition, WakeOneWakesAWaiter) {
    OsLock lock;
    OsCondition changed;
    int tokens = 0;
    int taken = 0;
    const auto take = [&] {
        const LockGuard guard(lock);
        while (tokens == 0)
            changed.Wait(lock, -1);
        --tokens;
        ++taken;
    };
    Thread first(take);
    Thread second(take);
    for (int i = 1; i <= 2; ++i) {
        {
            const LockGuard guard(lock);
            ++tokens;
            changed.WakeOne();
        }
        EXPECT_TRUE(Eventually([&] {
            const LockGuard guard(lock);
            return taken == i;
        }));
    }
}

}  // namespace
}  // namespace tarvik
