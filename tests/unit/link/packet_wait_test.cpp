#include "link_support.h"

namespace tarvik::test {
namespace {

// A WaitForPacket on its own thread, under a tick that does not move: only what the test does can
// end it.
class PendingWait {
public:
    PendingWait(DeviceQueues* queues, std::uint32_t type, std::uint32_t timeout_ms,
                std::uint32_t id)
        : queues_(queues), thread_([=, this] {
              result_ = WaitForPacket(queues, type, timeout_ms, id, &abort, &running);
              ended_ = true;
          }) {}

    bool Sleeps(std::uint32_t sleepers = 1) {
        return Eventually([&] { return Sleepers(&queues_->rx) == sleepers; });
    }
    bool Ended() const { return ended_; }
    PacketPtr Result() {
        thread_.Join();
        return std::move(result_);
    }

    std::atomic<bool> abort{false};
    std::atomic<bool> running{true};

private:
    DeviceQueues* queues_;
    PacketPtr result_;
    std::atomic<bool> ended_{false};
    Thread thread_;
};

// For answer 5, and asleep when the test begins.
struct SleepingWaitForPacket : testing::Test {
    void SetUp() override { ASSERT_TRUE(wait.Sleeps()); }

    FakeTick tick{1000};
    Dongle dongle;
    PendingWait wait{&dongle, kTypeCres, 10000, 5};
};

TEST(WaitForPacket, ReturnsThePacketOfItsTypeAndLogsIt) {
    const LogCapture log;
    Dongle dongle;
    Receive(&dongle, MakePacket(kTypeLogn, kLoginSize));
    const PacketPtr packet = WaitForPacket(&dongle, kTypeLogn, 50, kNoTag);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->type, kTypeLogn);
    EXPECT_TRUE(log.Has("[WaitForPacket] Received: LOGN"));
}

TEST(WaitForPacket, LogsTheTypeWithoutControlCharacters) {
    const LogCapture log;
    Dongle dongle;
    Receive(&dongle, MakePacket(0x0A1B0041, 8));
    ASSERT_NE(WaitForPacket(&dongle, 0x0A1B0041, 50, kNoTag), nullptr);
    EXPECT_TRUE(log.Has("[WaitForPacket] Received: ...A"));
}

TEST(WaitForPacket, WithAnIdTakesOnlyTheAnswerToIt) {
    const FakeTick tick(1000);
    Dongle dongle;
    Receive(&dongle, ResponseTo(7));
    PendingWait wait(&dongle, kTypeCres, 10000, 5);
    ASSERT_TRUE(wait.Sleeps());
    Receive(&dongle, ResponseTo(5));
    EXPECT_EQ(wait.Result()->U32(16), 5u);
    EXPECT_EQ(Queued(&dongle.rx), 1u);
}

TEST_F(SleepingWaitForPacket, BusyWithTheWantedIdStaysQueued) {
    Receive(&dongle, BusyFor(5, "later"));
    EXPECT_EQ(Queued(&dongle.rx), 1u);
    Receive(&dongle, ResponseTo(5));
    EXPECT_EQ(wait.Result()->type, kTypeCres);
    EXPECT_EQ(TakePacket(&dongle.rx, 0)->type, kTypeBusy);
}

TEST(WaitForPacket, ReturnsNothingForAMissingOrUnavailableDongle) {
    Dongle dongle;
    Receive(&dongle, MakePacket(kTypeSync, 8));
    EXPECT_EQ(WaitForPacket(nullptr, kTypeSync, 1000, kNoTag), nullptr);
    dongle.available = false;
    EXPECT_EQ(WaitForPacket(&dongle, kTypeSync, 1000, kNoTag), nullptr);
    EXPECT_EQ(Queued(&dongle.rx), 1u);
}

TEST(WaitForPacket, DeadlineAlreadyReachedReturnsNothingEvenWithAPacketThere) {
    Dongle dongle;
    Receive(&dongle, MakePacket(kTypeSync, 8));
    EXPECT_EQ(WaitForPacket(&dongle, kTypeSync, 0, kNoTag), nullptr);
    EXPECT_EQ(Queued(&dongle.rx), 1u);
}

TEST(WaitForPacket, FlagsThatAskToStopComeBeforeThePacket) {
    Dongle dongle;
    Receive(&dongle, MakePacket(kTypeSync, 8));
    std::atomic<bool> abort{true};
    std::atomic<bool> running{false};
    EXPECT_EQ(WaitForPacket(&dongle, kTypeSync, 1000, kNoTag, &abort), nullptr);
    EXPECT_EQ(WaitForPacket(&dongle, kTypeSync, 1000, kNoTag, nullptr, &running), nullptr);
    EXPECT_EQ(Queued(&dongle.rx), 1u);
    abort = false;
    running = true;
    EXPECT_NE(WaitForPacket(&dongle, kTypeSync, 1000, kNoTag, &abort, &running), nullptr);
}

TEST_F(SleepingWaitForPacket, EndsAtItsDeadline) {
    tick.Advance(9999);
    EXPECT_FALSE(wait.Ended());
    tick.Advance(1);
    EXPECT_EQ(wait.Result(), nullptr);
}

TEST_F(SleepingWaitForPacket, NoticesAbortWhileItSleeps) {
    wait.abort = true;
    EXPECT_EQ(wait.Result(), nullptr);
}

// The thread that was asked to stop may not have noticed yet.
TEST_F(SleepingWaitForPacket, LeavesPacketsThatComeAfterItWasAskedToStop) {
    wait.abort = true;
    Receive(&dongle, ResponseTo(5));
    EXPECT_EQ(wait.Result(), nullptr);
    EXPECT_EQ(Queued(&dongle.rx), 1u);
}

TEST_F(SleepingWaitForPacket, LeavesPacketsThatComeAfterItWasAskedToStopToTheNextWaiter) {
    PendingWait successor(&dongle, kTypeCres, 10000, 5);
    ASSERT_TRUE(successor.Sleeps(2));
    wait.abort = true;
    Receive(&dongle, ResponseTo(5));
    EXPECT_NE(successor.Result(), nullptr);
    EXPECT_EQ(wait.Result(), nullptr);
}

TEST_F(SleepingWaitForPacket, NoticesItsLinkGoingAwayWhileItSleeps) {
    wait.running = false;
    EXPECT_EQ(wait.Result(), nullptr);
}

TEST_F(SleepingWaitForPacket, NoticesTheDongleGoingAwayWhileItSleeps) {
    dongle.available = false;
    EXPECT_EQ(wait.Result(), nullptr);
}

TEST_F(SleepingWaitForPacket, EndsWhenItsQueueIsFreed) {
    FreeQueue(&dongle.rx);
    EXPECT_EQ(wait.Result(), nullptr);
}

TEST_F(SleepingWaitForPacket, SleepsOnWhenWokenWithoutAFlagThatEndsIt) {
    WakeQueueWaiters(&dongle.rx);
    Receive(&dongle, ResponseTo(5));
    EXPECT_NE(wait.Result(), nullptr);
}

TEST(PacketFilters, TypeAndIdAcceptsOnlyAnswersLongEnoughForTheirId) {
    EXPECT_TRUE(MatchTypeAndId(*ResponseTo(5), {kTypeCres, 5}));
    EXPECT_FALSE(MatchTypeAndId(*ResponseTo(5), {kTypeCres, 6}));
    EXPECT_FALSE(MatchTypeAndId(*ResponseTo(5), {kTypeBusy, 5}));
    EXPECT_TRUE(MatchTypeAndId(*BusyFor(5), {kTypeBusy, 5}));
    EXPECT_FALSE(MatchTypeAndId(*BusyFor(5), {kTypeCres, 5}));
    EXPECT_FALSE(MatchTypeAndId(*MakePacket(kTypeBusy, 11), {kTypeBusy, 0}));
    EXPECT_TRUE(MatchTypeAndId(*MakePacket(kTypeBusy, 12), {kTypeBusy, 0}));
    EXPECT_FALSE(MatchTypeAndId(*MakePacket(kTypeCres, 19), {kTypeCres, 0}));
    EXPECT_TRUE(MatchTypeAndId(*MakePacket(kTypeCres, 20), {kTypeCres, 0}));
    EXPECT_FALSE(MatchTypeAndId(*MakePacket(kTypeRawc, 24), {kTypeRawc, 0}));
}

TEST(PacketFilters, TypeAcceptsAnyPacketOfTheType) {
    EXPECT_TRUE(MatchType(*MakePacket(kTypeRawc, 8), {kTypeRawc, 0}));
    EXPECT_FALSE(MatchType(*MakePacket(kTypeRawc, 8), {kTypeCres, 0}));
}

}  // namespace
}  // namespace tarvik::test
