#include "platform/semaphore.h"

#include <gtest/gtest.h>

#include <atomic>

#include "unit/test_support.h"

namespace tarvik {
namespace {

using test::Eventually;
using test::Thread;

TEST(Semaphore, GrantsAsManyWaitsAsItsCount) {
    OsSemaphore* semaphore = OsSemaphoreCreate(2, 2);
    EXPECT_EQ(OsSemaphoreWait(semaphore, 0), SemaphoreWait::kTaken);
    EXPECT_EQ(OsSemaphoreWait(semaphore, -1), SemaphoreWait::kTaken);
    EXPECT_EQ(OsSemaphoreWait(semaphore, 0), SemaphoreWait::kTimeout);
    EXPECT_EQ(OsSemaphoreWait(semaphore, 1), SemaphoreWait::kTimeout);
    OsSemaphoreClose(semaphore);
}

TEST(Semaphore, WaitWithoutASemaphoreFailsInsteadOfTimingOut) {
    EXPECT_EQ(OsSemaphoreWait(nullptr, 0), SemaphoreWait::kFailed);
    EXPECT_EQ(OsSemaphoreWait(nullptr, -1), SemaphoreWait::kFailed);
}

TEST(Semaphore, RefusesAReleaseAtItsMaximum) {
    OsSemaphore* semaphore = OsSemaphoreCreate(1, 2);
    EXPECT_TRUE(OsSemaphoreRelease(semaphore));
    EXPECT_FALSE(OsSemaphoreRelease(semaphore));
    EXPECT_EQ(OsSemaphoreWait(semaphore, 0), SemaphoreWait::kTaken);
    EXPECT_TRUE(OsSemaphoreRelease(semaphore));
    OsSemaphoreClose(semaphore);
}

TEST(Semaphore, RefusesAnInitialCountAboveTheMaximum) {
    EXPECT_EQ(OsSemaphoreCreate(3, 2), nullptr);
    EXPECT_EQ(OsSemaphoreCreate(-1, 2), nullptr);
    EXPECT_EQ(OsSemaphoreCreate(0, 0), nullptr);
}

TEST(Semaphore, ReleaseWakesAWaiter) {
    OsSemaphore* semaphore = OsSemaphoreCreate(0, 1);
    std::atomic<bool> passed{false};
    Thread waiter([&] { passed = OsSemaphoreWait(semaphore, -1) == SemaphoreWait::kTaken; });
    EXPECT_TRUE(OsSemaphoreRelease(semaphore));
    EXPECT_TRUE(Eventually([&] { return passed.load(); }));
    waiter.Join();
    OsSemaphoreClose(semaphore);
}

}  // namespace
}  // namespace tarvik
