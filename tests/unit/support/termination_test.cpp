#include <gtest/gtest.h>

#include <atomic>

#include "platform/event.h"
#include "platform/thread.h"
#include "unit/faults/calendar_fault.h"
#include "unit/test_support.h"

namespace tarvik {
namespace {

std::atomic<bool> stays{false};
std::atomic<bool> inside{false};
OsEvent* leave = nullptr;

// Called with the log's lock held.
void StayInsideOnce() {
    if (!stays.exchange(false)) return;
    inside = true;
    OsEventWait(leave, -1);
}

TEST(Termination, LeavesAThreadAloneThatIsInsideTheLog) {
    const test::LogCapture log;
    leave = OsEventCreate(EventReset::kManual);
    inside = false;
    stays = true;
    test::OnCalendarRead(StayInsideOnce);
    OsThread* thread =
        OsThreadStart([](void*) { Log(7, "of the thread"); }, nullptr, "Tarvik test");
    ASSERT_TRUE(test::Eventually([] { return inside.load(); }));
    ASSERT_FALSE(OsThreadTerminate(thread));
    OsEventSet(leave);
    EXPECT_TRUE(OsThreadJoin(thread, 10'000));
    Log(7, "of another");
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"of the thread", "of another"}));
    test::OnCalendarRead(nullptr);
    OsThreadClose(thread);
    OsEventClose(leave);
}

}  // namespace
}  // namespace tarvik
