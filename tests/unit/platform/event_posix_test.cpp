// Events and semaphores for which the system refuses something.

#include "platform/event.h"

#include <errno.h>
#include <gtest/gtest.h>

#include "platform/semaphore.h"
#include "unit/faults/system_call_fault.h"

namespace tarvik {
namespace {

using test::SystemCallFault;

TEST(EventCreation, IsRefusedWithoutMemory) {
    const OsEvent* event = nullptr;
    {
        const test::NoMemory none;
        event = OsEventCreate(EventReset::kManual);
    }
    EXPECT_EQ(event, nullptr);
}

TEST(SemaphoreCreation, IsRefusedWithoutMemory) {
    const OsSemaphore* semaphore = nullptr;
    {
        const test::NoMemory none;
        semaphore = OsSemaphoreCreate(0, 1);
    }
    EXPECT_EQ(semaphore, nullptr);
}

// Otherwise a caller that waits again and again would spin.
TEST(SemaphoreWaiting, ThatTheSystemRefusesIsNotATimeOut) {
    OsSemaphore* semaphore = OsSemaphoreCreate(0, 1);
    SemaphoreWait limited = SemaphoreWait::kTaken;
    SemaphoreWait endless = SemaphoreWait::kTaken;
    {
        const SystemCallFault fault("pthread_cond_timedwait", EINVAL);
        limited = OsSemaphoreWait(semaphore, 60'000);
    }
    {
        const SystemCallFault fault("pthread_cond_wait", EINVAL);
        endless = OsSemaphoreWait(semaphore, -1);
    }
    EXPECT_EQ(limited, SemaphoreWait::kFailed);
    EXPECT_EQ(endless, SemaphoreWait::kFailed);
    OsSemaphoreClose(semaphore);
}

}  // namespace
}  // namespace tarvik
