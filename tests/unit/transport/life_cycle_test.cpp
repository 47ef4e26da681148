#include "transport/life_cycle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/event.h"
#include "unit/faults/thread_start_fault.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

// The flag, and what the thread has seen of it.
std::atomic<bool> running{false};
std::atomic<bool> seen_running{false};

void NoteFlag(void*) { seen_running = running.load(); }

TEST(LifeCycle, MissingInitializationIsLoggedWithItsConsequence) {
    LogCapture log;
    EXPECT_TRUE(CheckInitialized(true, "OtherStart", kCannotStart));
    EXPECT_EQ(log.Lines().size(), 0u);
    EXPECT_FALSE(CheckInitialized(false, "OtherStart", kCannotStart));
    EXPECT_FALSE(CheckInitialized(false, "OtherUpdateDevices"));
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"[OtherStart] Not initialized, cannot start",
                                                     "[OtherUpdateDevices] Not initialized"}));
}

TEST(LifeCycle, ThreadFindsItsFlagSet) {
    running = false;
    OsThread* thread = StartThreadWithFlag(&running, NoteFlag, "Tarvik test");
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(running);
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    EXPECT_TRUE(seen_running);
    OsThreadClose(thread);
}

TEST(LifeCycle, RefusedThreadLeavesTheFlagClearAndTheSystemsError) {
    running = false;
    const ThreadStartFault fault("Tarvik test", 1450);
    EXPECT_EQ(StartThreadWithFlag(&running, NoteFlag, "Tarvik test"), nullptr);
    EXPECT_EQ(OsLastError(), 1450);
    EXPECT_FALSE(running);
}

TEST(LifeCycle, EndOfAThreadIsAwaitedAndLogged) {
    LogCapture log;
    OsEvent* go = OsEventCreate(EventReset::kManual);
    OsThread* thread =
        OsThreadStart([](void* argument) { OsEventWait(static_cast<OsEvent*>(argument), -1); }, go,
                      "Tarvik test");
    Thread waiter([thread] { AwaitAndCloseThread(thread, -1, "OtherStop", "OtherThread"); });
    EXPECT_TRUE(Eventually([&] { return log.Has("[OtherStop] Wait for OtherThread"); }));
    EXPECT_FALSE(log.Mentions("Closing Thread handle"));
    OsEventSet(go);
    waiter.Join();
    EXPECT_TRUE(log.Mentions("[OtherStop] Closing Thread handle 0x"));
    EXPECT_TRUE(log.Mentions(" (OtherThread)"));
    OsEventClose(go);
}

}  // namespace
}  // namespace tarvik::test
