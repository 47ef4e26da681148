// Threads that the system refuses, and threads that run code of the application after their entry.

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>

#include "platform/event.h"
#include "platform/thread.h"
#include "unit/faults/system_call_fault.h"
#include "unit/platform/thread_attribute_posix.h"
#include "unit/test_support.h"

namespace tarvik {
namespace {

using test::Eventually;
using test::SystemCallFault;

constexpr std::int32_t kLongMs = 30'000;

void DoNothing(void*) {}

struct Refusal {
    OsThread* thread;
    std::int32_t error;
};

TEST(ThreadStart, IsRefusedWithTheSystemsError) {
    Refusal refusal{};
    {
        const SystemCallFault fault("pthread_create", EAGAIN);
        refusal = {OsThreadStart(&DoNothing, nullptr, "Tarvik test"), OsLastError()};
    }
    EXPECT_EQ(refusal.thread, nullptr);
    EXPECT_EQ(refusal.error, EAGAIN);
    EXPECT_TRUE(OsAllowUnloading(0));  // it does not count as a thread
}

TEST(ThreadStart, IsRefusedWithoutMemory) {
    Refusal refusal{};
    {
        const test::NoMemory none;
        refusal = {OsThreadStart(&DoNothing, nullptr, "Tarvik test"), OsLastError()};
    }
    EXPECT_EQ(refusal.thread, nullptr);
    EXPECT_EQ(refusal.error, ENOMEM);
    EXPECT_TRUE(OsAllowUnloading(0));
}

TEST(ThreadStart, ThreadCanBeJoinedWhereTheApplicationsAreDetachedByDefault) {
    const test::DefaultThreadAttribute detached(&::pthread_attr_setdetachstate,
                                                int{PTHREAD_CREATE_DETACHED});
    OsThread* thread = OsThreadStart(&DoNothing, nullptr, "Tarvik test");
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(OsThreadJoin(thread, 10'000));
    OsThreadClose(thread);
}

TEST(ThreadStart, LeavesTheCallersSignalsAsTheyAre) {
    sigset_t before;
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
    OsThread* thread = OsThreadStart(&DoNothing, nullptr, "Tarvik test");
    ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    OsThreadClose(thread);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1, SIGSEGV})
        EXPECT_EQ(::sigismember(&after, signal), ::sigismember(&before, signal)) << signal;
}

// Closing no thread is allowed.
TEST(ThreadStart, RefusedThreadMayBeClosed) { OsThreadClose(nullptr); }

// A thread whose entry has returned. Meanwhile it is in a destructor of the application.
class EndingThread : public testing::Test {
protected:
    EndingThread() {
        EXPECT_EQ(::pthread_key_create(&key_,
                                       [](void* self) {
                                           auto* test = static_cast<EndingThread*>(self);
                                           test->ending_ = true;
                                           OsEventWait(test->end_, -1);
                                       }),
                  0);
        thread_ = OsThreadStart(
            [](void* self) { ::pthread_setspecific(static_cast<EndingThread*>(self)->key_, self); },
            this, "Tarvik test");
        EXPECT_TRUE(Eventually([this] { return ending_.load(); }));
    }
    ~EndingThread() override {
        OsEventSet(end_);
        EXPECT_TRUE(OsAllowUnloading(kLongMs));
        ::pthread_key_delete(key_);
        OsEventClose(end_);
    }

    OsEvent* end_ = OsEventCreate(EventReset::kManual);
    pthread_key_t key_{};
    std::atomic<bool> ending_{false};
    OsThread* thread_ = nullptr;
};

TEST_F(EndingThread, IsJoinedOnlyWhenItIsOutOfAllCode) {
    EXPECT_FALSE(OsThreadJoin(thread_, 0));
    EXPECT_FALSE(OsThreadJoin(thread_, 2));
    OsEventSet(end_);
    EXPECT_TRUE(OsThreadJoin(thread_, kLongMs));
    OsThreadClose(thread_);
}

TEST_F(EndingThread, KeepsTheLibraryLoadedAfterItsHandleIsClosed) {
    OsThreadClose(thread_);
    EXPECT_FALSE(OsAllowUnloading(2));
    OsEventSet(end_);
    EXPECT_TRUE(OsAllowUnloading(kLongMs));
}

// Another thread may have its number by then.
TEST_F(EndingThread, IsNoLongerTheCurrentOne) {
    EXPECT_FALSE(OsThreadIsCurrent(thread_));
    OsEventSet(end_);
    EXPECT_TRUE(OsThreadJoin(thread_, -1));
    EXPECT_FALSE(OsThreadIsCurrent(thread_));
    OsThreadClose(thread_);
}

}  // namespace
}  // namespace tarvik
