#include "platform/event.h"

#include <gtest/gtest.h>

#include <atomic>

#include "unit/test_support.h"

namespace tarvik {
namespace {

using test::Eventually;
using test::Thread;

class Event : public testing::Test {
protected:
    ~Event() override {
        OsEventClose(manual_);
        OsEventClose(automatic_);
    }
    OsEvent* manual_ = OsEventCreate(EventReset::kManual);
    OsEvent* automatic_ = OsEventCreate(EventReset::kAuto);
};

TEST_F(Event, IsCreatedClear) {
    EXPECT_FALSE(OsEventWait(manual_, 0));
    EXPECT_FALSE(OsEventWait(automatic_, 1));
}

TEST_F(Event, ManualEventStaysSetUntilReset) {
    OsEventSet(manual_);
    EXPECT_TRUE(OsEventWait(manual_, 0));
    EXPECT_TRUE(OsEventWait(manual_, -1));
    OsEventReset(manual_);
    EXPECT_FALSE(OsEventWait(manual_, 0));
}

TEST_F(Event, AutomaticEventIsClearedByOneWait) {
    OsEventSet(automatic_);
    OsEventSet(automatic_);  // counts once
    EXPECT_TRUE(OsEventWait(automatic_, 0));
    EXPECT_FALSE(OsEventWait(automatic_, 0));
}

TEST_F(Event, ManualEventWakesEveryWaiter) {
    std::atomic<int> passed{0};
    const auto wait = [&] {
        if (OsEventWait(manual_, -1)) ++passed;
    };
    Thread first(wait);
    Thread second(wait);
    OsEventSet(manual_);
    EXPECT_TRUE(Eventually([&] { return passed == 2; }));
}

TEST_F(Event, AutomaticEventWakesOneWaiterPerSet) {
    std::atomic<int> passed{0};
    const auto wait = [&] {
        if (OsEventWait(automatic_, -1)) ++passed;
    };
    Thread first(wait);
    Thread second(wait);
    OsEventSet(automatic_);
    EXPECT_TRUE(Eventually([&] { return passed == 1; }));
    EXPECT_FALSE(OsEventWait(automatic_, 0));
    OsEventSet(automatic_);
    EXPECT_TRUE(Eventually([&] { return passed == 2; }));
}

TEST_F(Event, EitherWaitReturnsTheEventThatIsSet) {
    OsEventSet(automatic_);
    EXPECT_EQ(OsEventWaitEither(manual_, automatic_, 0), 1);
    EXPECT_EQ(OsEventWaitEither(manual_, automatic_, 0), -1);  // the wait cleared it
    OsEventSet(manual_);
    EXPECT_EQ(OsEventWaitEither(manual_, automatic_, -1), 0);
}

TEST_F(Event, EitherWaitPrefersTheFirstAndLeavesTheSecondSet) {
    OsEventSet(automatic_);
    OsEventSet(manual_);
    EXPECT_EQ(OsEventWaitEither(manual_, automatic_, 0), 0);
    EXPECT_TRUE(OsEventWait(automatic_, 0));
}

TEST_F(Event, EitherWaitTimesOut) { EXPECT_EQ(OsEventWaitEither(manual_, automatic_, 1), -1); }

TEST_F(Event, EitherWaitIsWokenByEachEvent) {
    std::atomic<int> last{-2};
    Thread waiter([&] {
        last = OsEventWaitEither(manual_, automatic_, -1);
        last = 10 + OsEventWaitEither(manual_, automatic_, -1);
    });
    OsEventSet(automatic_);
    EXPECT_TRUE(Eventually([&] { return last == 1; }));
    OsEventSet(manual_);
    EXPECT_TRUE(Eventually([&] { return last == 10; }));
}

// They are registered with the same event meanwhile.
TEST_F(Event, EitherWaitsOfSeveralThreadsEndInAnyOrder) {
    OsEvent* own[2] = {OsEventCreate(EventReset::kAuto), OsEventCreate(EventReset::kAuto)};
    for (const int first : {0, 1}) {
        std::atomic<int> starting{0};
        std::atomic<int> results[2] = {-2, -2};
        const auto wait = [&](int i) {
            ++starting;
            results[i] = OsEventWaitEither(manual_, own[i], -1);
        };
        Thread a([&] { wait(0); });
        Thread b([&] { wait(1); });
        EXPECT_TRUE(Eventually([&] { return starting == 2; }));
        for (const int i : {first, 1 - first}) {
            OsEventSet(own[i]);
            EXPECT_TRUE(Eventually([&] { return results[i] == 1; }));
        }
    }
    OsEventClose(own[0]);
    OsEventClose(own[1]);
}

TEST_F(Event, EitherWaitSeesEverySetOfAnAutomaticEvent) {
    OsEvent* seen = OsEventCreate(EventReset::kAuto);
    std::atomic<bool> right{true};
    Thread waiter([&] {
        for (int i = 0; i < 1'000; ++i) {
            if (OsEventWaitEither(manual_, automatic_, 10'000) != 1) right = false;
            OsEventSet(seen);
        }
    });
    for (int i = 0; i < 1'000; ++i) {
        OsEventSet(automatic_);
        ASSERT_TRUE(OsEventWait(seen, 10'000));
    }
    waiter.Join();
    EXPECT_TRUE(right);
    OsEventClose(seen);
}

}  // namespace
}  // namespace tarvik
