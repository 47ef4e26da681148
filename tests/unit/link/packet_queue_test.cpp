#include "link/packet_queue.h"

#include <optional>
#include <random>

#include "link/packet_index.h"
#include "link_support.h"
#include "platform/thread.h"

namespace tarvik::test {
namespace {

struct Queue : PacketQueue {
    Queue() { InitializeQueue(this); }
    ~Queue() { FreeQueue(this); }
};

PacketPtr Find(PacketQueue* queue, std::int32_t timeout_ms, PacketFilter filter,
               const PacketFilterArgument& argument) {
    return PacketPtr(QueueFindFilterInternal(queue, timeout_ms, filter, argument, true));
}

PacketPtr FindResponse(PacketQueue* queue, std::int32_t timeout_ms, std::uint32_t id) {
    return Find(queue, timeout_ms, MatchTypeAndId, {kTypeCres, id});
}

bool HasLength24(const Packet& packet, const PacketFilterArgument&) { return packet.length == 24; }

// A number that distinguishes packets of one type.
PacketPtr Numbered(std::uint32_t type, std::uint32_t number) {
    PacketPtr packet = MakePacket(type, 12);
    packet->SetU32(8, number);
    return packet;
}
std::uint32_t NumberOf(const PacketPtr& packet) { return packet == nullptr ? ~0u : packet->U32(8); }

TEST(PacketQueue, ZeroTimeOutOnAnEmptyQueueReturnsNothingWithoutBlocking) {
    const FakeTick tick(1000);  // does not move: a wait would never end
    Queue queue;
    EXPECT_EQ(FindResponse(&queue, 0, 5), nullptr);
    EXPECT_EQ(Find(&queue, 0, nullptr, {}), nullptr);
    EXPECT_EQ(TakePacket(&queue, 0), nullptr);
    EXPECT_EQ(QueueRemoveByTag(&queue, kNoTag), nullptr);
}

TEST(PacketQueue, ReturnsPacketsInOrderOfArrival) {
    Queue queue;
    for (std::uint32_t i = 0; i < 5; ++i)
        Append(&queue, Numbered(kTypePing, i));
    for (std::uint32_t i = 0; i < 5; ++i)
        EXPECT_EQ(NumberOf(TakePacket(&queue, 0)), i);
    EXPECT_EQ(Queued(&queue), 0u);
}

TEST(PacketQueue, EachFilterFindsItsOldestPacket) {
    Queue queue;
    Append(&queue, Numbered(kTypePing, 1));
    Append(&queue, ResponseTo(7, {1}));
    Append(&queue, BusyFor(7, "first"));
    Append(&queue, ResponseTo(5, {2}));
    Append(&queue, ResponseTo(7, {3}));
    Append(&queue, Numbered(kTypePing, 2));
    Append(&queue, BusyFor(7, "second"));

    EXPECT_EQ(FindResponse(&queue, 0, 7)->Bytes()[20], 1);
    EXPECT_EQ(Find(&queue, 0, MatchTypeAndId, {kTypeBusy, 7})->Bytes()[12], 'f');
    EXPECT_EQ(Find(&queue, 0, MatchType, {kTypeCres, 0})->Bytes()[20], 2);
    EXPECT_EQ(NumberOf(Find(&queue, 0, MatchType, {kTypePing, 0})), 1u);
    EXPECT_EQ(FindResponse(&queue, 0, 7)->Bytes()[20], 3);
    EXPECT_EQ(FindResponse(&queue, 0, 7), nullptr);
    EXPECT_EQ(NumberOf(Find(&queue, 0, nullptr, {})), 2u);
    EXPECT_EQ(Queued(&queue), 1u);
}

TEST(PacketQueue, OtherTypesNeverMatchByTypeAndId) {
    Queue queue;
    Append(&queue, Numbered(kTypeRawc, 7), 7);
    EXPECT_EQ(Find(&queue, 0, MatchTypeAndId, {kTypeRawc, 7}), nullptr);
    // Neither by the packet's tag nor by its type.
    EXPECT_EQ(Find(&queue, 0, MatchTypeAndId, {1, 7}), nullptr);
    EXPECT_EQ(Find(&queue, 0, MatchTypeAndId, {0, kTypeRawc}), nullptr);
    EXPECT_EQ(Queued(&queue), 1u);
}

TEST(PacketQueue, AnswersTooShortForTheirIdNeverMatchByIt) {
    Queue queue;
    Append(&queue, PacketOf(kTypeCres, Bytes(11)), 0);
    Append(&queue, PacketOf(kTypeBusy, Bytes(3)), 0);
    EXPECT_EQ(FindResponse(&queue, 0, 0), nullptr);
    EXPECT_EQ(Find(&queue, 0, MatchTypeAndId, {kTypeBusy, 0}), nullptr);
    EXPECT_NE(Find(&queue, 0, MatchType, {kTypeCres, 0}), nullptr);
    EXPECT_NE(Find(&queue, 0, MatchType, {kTypeBusy, 0}), nullptr);
}

TEST(PacketQueue, AnyOtherFilterSeesThePacketsInOrder) {
    Queue queue;
    Append(&queue, MakePacket(kTypePing, 8));
    Append(&queue, MakePacket(kTypeRawc, 24));
    Append(&queue, MakePacket(kTypeTspr, 24));
    EXPECT_EQ(Find(&queue, 0, HasLength24, {})->type, kTypeRawc);
    EXPECT_EQ(Find(&queue, 0, HasLength24, {})->type, kTypeTspr);
    EXPECT_EQ(Find(&queue, 0, HasLength24, {}), nullptr);
}

TEST(PacketQueue, PacketThatIsNotRemovedStaysInItsPlace) {
    Queue queue;
    Append(&queue, Numbered(kTypePing, 1));
    Append(&queue, Numbered(kTypeRawc, 2));
    Packet* const seen = QueueFindFilterInternal(&queue, 0, MatchType, {kTypeRawc, 0}, false);
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(Queued(&queue), 2u);
    EXPECT_EQ(TakePacket(&queue, 0)->type, kTypePing);
    EXPECT_EQ(TakePacket(&queue, 0).get(), seen);
}

TEST(PacketQueue, RemoveByTagTakesTheOldestWithThisTag) {
    Queue queue;
    Append(&queue, Numbered(kTypeRawc, 1), 0x700);
    Append(&queue, Numbered(kTypeRawc, 2), 0x701);
    Append(&queue, Numbered(kTypePing, 3));
    Append(&queue, Numbered(kTypeRawc, 4), 0x701);
    EXPECT_EQ(NumberOf(QueueRemoveByTag(&queue, 0x701)), 2u);
    EXPECT_EQ(NumberOf(QueueRemoveByTag(&queue, 0x701)), 4u);
    EXPECT_EQ(QueueRemoveByTag(&queue, 0x701), nullptr);
    EXPECT_EQ(NumberOf(QueueRemoveByTag(&queue, kNoTag)), 3u);
    EXPECT_EQ(NumberOf(TakePacket(&queue, 0)), 1u);
}

// Against a plain list, through every way of taking a packet out.
TEST(PacketQueue, AnyMixOfRemovalsAgreesWithAPlainList) {
    struct Model {
        std::uint32_t type, id, tag, number;
    };
    Queue queue;
    std::vector<Model> model;
    std::mt19937 random(20260302);
    const auto below = [&random](std::uint32_t limit) {
        return static_cast<std::uint32_t>(random() % limit);
    };
    constexpr std::uint32_t kTypes[] = {kTypeCres, kTypeBusy, kTypeRawc, kTypePing};
    const auto take = [&model](auto accepts) {
        const auto found = std::find_if(model.begin(), model.end(), accepts);
        if (found == model.end()) return ~0u;
        const std::uint32_t number = found->number;
        model.erase(found);
        return number;
    };
    for (std::uint32_t number = 0; number < 20000; ++number) {
        const std::uint32_t type = kTypes[below(4)];
        const std::uint32_t id = below(200);
        const std::uint32_t tag = below(300);
        if (below(100) < 52) {
            PacketPtr packet = MakePacket(type, 24);
            packet->SetU32(type == kTypeCres ? 16 : 8, id);
            packet->SetU32(20, number);
            Append(&queue, std::move(packet), tag);
            model.push_back({type, id, tag, number});
            continue;
        }
        PacketPtr taken;
        std::uint32_t expected = 0;
        switch (below(4)) {
            case 0:
                taken = Find(&queue, 0, MatchTypeAndId, {type, id});
                expected = take([&](const Model& m) {
                    return m.type == type && m.id == id && (type == kTypeCres || type == kTypeBusy);
                });
                break;
            case 1:
                taken = Find(&queue, 0, MatchType, {type, 0});
                expected = take([&](const Model& m) { return m.type == type; });
                break;
            case 2:
                taken = QueueRemoveByTag(&queue, tag);
                expected = take([&](const Model& m) { return m.tag == tag; });
                break;
            default:
                taken = TakePacket(&queue, 0);
                expected = take([](const Model&) { return true; });
        }
        ASSERT_EQ(taken == nullptr ? ~0u : taken->U32(20), expected) << "at step " << number;
    }
    ASSERT_EQ(Queued(&queue), model.size());
    for (const Model& m : model)
        ASSERT_EQ(TakePacket(&queue, 0)->U32(20), m.number);
}

TEST(PacketQueue, PacketAppendedToAnInactiveQueueIsNeitherQueuedNorFreed) {
    PacketQueue queue;
    PacketPtr packet = Numbered(kTypePing, 4711);
    EXPECT_FALSE(AppendPacket(&queue, packet, kNoTag));
    EXPECT_EQ(NumberOf(packet), 4711u);

    InitializeQueue(&queue);
    EXPECT_EQ(TakePacket(&queue, 0), nullptr);
    FreeQueue(&queue);
    EXPECT_FALSE(AppendPacket(&queue, packet, kNoTag));
    EXPECT_EQ(NumberOf(packet), 4711u);
    EXPECT_FALSE(AppendPacket(nullptr, packet, kNoTag));
    EXPECT_EQ(NumberOf(packet), 4711u);
}

TEST(PacketQueue, InactiveOrMissingQueueHasNothing) {
    const FakeTick tick(1000);
    PacketQueue queue;
    for (PacketQueue* const candidate : {static_cast<PacketQueue*>(nullptr), &queue}) {
        EXPECT_EQ(FindResponse(candidate, -1, 5), nullptr);
        EXPECT_EQ(TakePacket(candidate, -1), nullptr);
        EXPECT_EQ(QueueRemoveByTag(candidate, 5), nullptr);
        FreeQueue(candidate);
        WakeQueueWaiters(candidate);
    }
}

TEST(PacketQueue, LogsTheCreationAndDeletionOfItsLock) {
    const LogCapture log;
    PacketQueue queue;
    char address[40];
    FormatText(address, sizeof address, "0x%p", queue.lock.Address());
    InitializeQueue(&queue);
    EXPECT_TRUE(log.Has(
        std::string("[InitializeQueue] Initialized CRITICAL_SECTION for queue at ") + address));
    EXPECT_FALSE(log.Mentions("FreeQueue"));
    FreeQueue(&queue);
    FreeQueue(&queue);
    EXPECT_EQ(
        log.Count(std::string("[FreeQueue] Deleting CRITICAL_SECTION for queue at ") + address),
        1u);
}

TEST(PacketQueue, InitializingAnActiveQueueKeepsItsPackets) {
    Queue queue;
    Append(&queue, Numbered(kTypePing, 9));
    InitializeQueue(&queue);
    EXPECT_EQ(NumberOf(TakePacket(&queue, 0)), 9u);
}

// Frees the queue while another thread, which found it active, waits for its lock to do `call`.
template <typename Call>
void FreeBefore(Call call, PacketQueue* queue) {
    std::atomic<bool> begun{false};
    std::optional<Thread> late;
    {
        const LockGuard hold(queue->lock);
        late.emplace([&] {
            begun = true;
            call();
        });
        EXPECT_TRUE(Eventually([&] { return begun.load(); }));
        FreeQueue(queue);
    }
    late->Join();
}
// The other thread may be slower than that; then a round shows less.
constexpr int kRounds = 5;

TEST(PacketQueue, PacketThatComesWhenTheQueueIsFreedStaysWithItsSender) {
    for (int round = 0; round < kRounds; ++round) {
        Queue queue;
        PacketPtr packet = Numbered(kTypePing, 4711);
        bool taken = true;
        FreeBefore([&] { taken = AppendPacket(&queue, packet, kNoTag); }, &queue);
        EXPECT_FALSE(taken);
        EXPECT_EQ(NumberOf(packet), 4711u);
        EXPECT_EQ(queue.count, 0u);
    }
}

TEST(PacketQueue, QueueThatTwoThreadsFreeIsFreedOnce) {
    for (int round = 0; round < kRounds; ++round) {
        Queue queue;
        const LogCapture log;
        FreeBefore([&] { FreeQueue(&queue); }, &queue);
        EXPECT_EQ(log.Lines().size(), 1u);
    }
}

TEST(PacketQueue, SearchThatComesWhenTheQueueIsFreedFindsNothing) {
    for (int round = 0; round < kRounds; ++round) {
        Queue queue;
        Append(&queue, Numbered(kTypePing, 1), 7);
        PacketPtr found;
        PacketPtr tagged;
        FreeBefore(
            [&] {
                found = TakePacket(&queue, -1);
                tagged = QueueRemoveByTag(&queue, 7);
            },
            &queue);
        EXPECT_EQ(found, nullptr);
        EXPECT_EQ(tagged, nullptr);
    }
}

// Otherwise the waiter would find it active and sleep again.
TEST(PacketQueue, BecomesActiveOnlyWhenTheLastWaiterHasLeft) {
    for (int round = 0; round < kRounds; ++round) {
        PacketQueue queue;
        queue.sleepers = 1;  // woken, but not yet gone
        std::atomic<bool> begun{false};
        bool was_active = true;
        Thread waiter([&] {
            Eventually([&] {
                const LockGuard hold(queue.lock);
                if (!begun) return false;
                was_active = queue.active;
                queue.sleepers = 0;
                queue.drained.WakeAll();
                return true;
            });
        });
        begun = true;
        InitializeQueue(&queue);
        waiter.Join();
        EXPECT_FALSE(was_active);
        EXPECT_TRUE(queue.active);
        FreeQueue(&queue);
    }
}

TEST(PacketQueue, FreedQueueHasReleasedItsPacketsAndCanBeUsedAgain) {
    const MemoryUse before = LiveMemory();
    Queue queue;
    for (int round = 0; round < 3; ++round) {
        for (std::uint32_t i = 0; i < 500; ++i)
            Append(&queue, ResponseTo(i), i);
        EXPECT_NE(FindResponse(&queue, 0, 250), nullptr);
        FreeQueue(&queue);
        EXPECT_EQ(LiveMemory().blocks, before.blocks);
        EXPECT_EQ(LiveMemory().bytes, before.bytes);
        InitializeQueue(&queue);
        EXPECT_EQ(TakePacket(&queue, 0), nullptr);
    }
}

TEST(PacketQueue, SteadyTrafficAllocatesNothingButItsPackets) {
    Queue queue;
    Append(&queue, Numbered(kTypePing, 0));
    TakePacket(&queue, 0);
    const MemoryUse before = LiveMemory();
    for (std::uint32_t i = 0; i < 10000; ++i) {
        Append(&queue, ResponseTo(i), i);
        EXPECT_NE(FindResponse(&queue, 0, i), nullptr);
    }
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

TEST(PacketQueue, LongQueueReleasesItsNodesWhenItIsShortAgain) {
    Queue queue;
    const MemoryUse before = LiveMemory();
    for (std::uint32_t i = 0; i < 1000; ++i)
        Append(&queue, ResponseTo(i), i);
    for (std::uint32_t i = 0; i < 1000; ++i)
        EXPECT_NE(TakePacket(&queue, 0), nullptr);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

// ---- limits -------------------------------------------------------------------------------------

constexpr std::uint32_t kFull = 4096;  // packets of 4096 bytes

PacketPtr LargeNumbered(std::uint32_t number) {
    PacketPtr packet = MakePacket(kTypeLog, 4096);
    packet->SetU32(8, number);
    return packet;
}

std::string Overflow(PacketQueue* queue, const char* function, const char* rest) {
    char text[160];
    FormatText(text, sizeof text, "[%s] Queue at 0x%p holds %s", function, queue->lock.Address(),
               rest);
    return text;
}

TEST(QueueLimit, ReceiveQueueDropsTheOldestBeyondSixteenMiB) {
    Dongle dongle;
    for (std::uint32_t i = 0; i < kFull; ++i)
        Append(&dongle.rx, LargeNumbered(i));
    EXPECT_EQ(Queued(&dongle.rx), kFull);
    const MemoryUse before = LiveMemory();
    const LogCapture log;
    for (std::uint32_t i = 0; i < 10; ++i)
        Append(&dongle.rx, LargeNumbered(kFull + i));
    EXPECT_EQ(Queued(&dongle.rx), kFull);
    EXPECT_LT(LiveMemory().bytes, before.bytes + 4096);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{Overflow(
                               &dongle.rx, "AppendPacket",
                               "16781312 bytes: dropping the oldest packets, which nobody has "
                               "claimed")});
    for (std::uint32_t i = 10; i < kFull + 10; ++i)
        ASSERT_EQ(NumberOf(TakePacket(&dongle.rx, 0)), i);
}

TEST(QueueLimit, PacketLargerThanTheRoomThatIsLeftStays) {
    Dongle dongle;
    for (std::uint32_t i = 0; i < kFull; ++i)
        Append(&dongle.rx, LargeNumbered(i));
    Append(&dongle.rx, MakePacket(kTypeSync, 65535));
    EXPECT_EQ(Queued(&dongle.rx), kFull - 15);
    EXPECT_EQ(Find(&dongle.rx, 0, MatchType, {kTypeSync, 0})->length, 65535u);
}

TEST(QueueLimit, ShortPacketCountsAs64Bytes) {
    constexpr std::uint32_t kShortPerLarge = 4096 / 64;
    Dongle dongle;
    for (std::uint32_t i = 0; i < 10 * kShortPerLarge; ++i)
        Append(&dongle.rx, BusyFor(i), i);
    for (std::uint32_t i = 10; i < kFull; ++i)
        Append(&dongle.rx, LargeNumbered(i));
    EXPECT_EQ(Queued(&dongle.rx), kFull - 10 + 10 * kShortPerLarge);
    Append(&dongle.rx, ResponseTo(5000), 5000);
    EXPECT_EQ(Queued(&dongle.rx), kFull - 10 + 10 * kShortPerLarge);
    EXPECT_EQ(QueueRemoveByTag(&dongle.rx, 0), nullptr);
    EXPECT_NE(QueueRemoveByTag(&dongle.rx, 1), nullptr);
    EXPECT_NE(QueueRemoveByTag(&dongle.rx, 5000), nullptr);
}

TEST(QueueLimit, AnswerIsFoundAmongPacketsThatFillTheQueue) {
    Dongle dongle;
    for (std::uint32_t i = 0; i < kFull; ++i)
        Append(&dongle.rx, LargeNumbered(i));
    Append(&dongle.rx, ResponseTo(5), 5);
    EXPECT_NE(FindResponse(&dongle.rx, 0, 5), nullptr);
}

TEST(QueueLimit, CountsOnlyWhatIsInTheQueueNow) {
    Dongle dongle;
    const LogCapture log;
    for (std::uint32_t i = 0; i < 3 * kFull; ++i) {
        Append(&dongle.rx, LargeNumbered(i));
        if (i % 3 != 0) TakePacket(&dongle.rx, 0);
        if (i % 1000 != 999) continue;
        FreeQueue(&dongle.rx);
        InitializeQueue(&dongle.rx);
    }
    EXPECT_FALSE(log.Mentions("AppendPacket"));
}

TEST(QueueLimit, WhatTheApplicationSendsIsNotDropped) {
    Dongle dongle;
    for (std::uint32_t i = 0; i < kFull + 10; ++i)
        Append(&dongle.tx, LargeNumbered(i));
    EXPECT_EQ(Queued(&dongle.tx), kFull + 10);
    EXPECT_EQ(NumberOf(TakePacket(&dongle.tx, 0)), 0u);
}

TEST(QueueLimit, FullTransmitQueueHasNoRoomForAnswers) {
    Dongle dongle;
    const LogCapture log;
    for (std::uint32_t i = 0; i < kFull; ++i) {
        ASSERT_TRUE(HasRoomForAnswers(&dongle.tx));
        Append(&dongle.tx, LargeNumbered(i));
    }
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(HasRoomForAnswers(&dongle.tx));
    EXPECT_EQ(log.Lines(), std::vector<std::string>{Overflow(
                               &dongle.tx, "HasRoomForAnswers",
                               "16777216 bytes: no more answers to a peer that does not take "
                               "them")});
    TakePacket(&dongle.tx, 0);
    EXPECT_TRUE(HasRoomForAnswers(&dongle.tx));
}

// Request ids that a well-known hash puts into one bucket of a table of this size.
std::vector<std::uint32_t> IdsThatCollide(std::size_t count, std::uint64_t buckets) {
    std::vector<std::uint32_t> ids;
    for (std::uint32_t block = 0; ids.size() < count; ++block) {
        const std::uint64_t key = AnswerKey(kTypeCres, block << 10);
        const std::uint64_t spread = (key >> 10) * 0x9E3779B97F4A7C15u >> 32;
        const std::uint64_t low = (0 - spread - key) & (buckets - 1);
        if (low < 1024) ids.push_back(block << 10 | static_cast<std::uint32_t>(low));
    }
    return ids;
}

TEST(PacketQueue, LongestChainIsFoundInAnyBucket) {
    for (std::uint32_t tag = 0; tag < 20; ++tag) {
        Queue queue;
        EXPECT_EQ(queue.index->LongestChain(), 0u);
        Append(&queue, MakePacket(kTypePing + tag, 8), tag);
        EXPECT_GE(queue.index->LongestChain(), 1u);
    }
}

TEST(PacketQueue, NeighbouringTagsHaveABucketEach) {
    Queue queue;
    for (std::uint32_t tag = 0; tag < 30; ++tag)
        Append(&queue, MakePacket(kTypePing, 8), tag);
    EXPECT_LE(queue.index->LongestChain(), 2u) << "one may also be that of the type";
}

TEST(PacketQueue, ChosenIdsDoNotShareABucket) {
    Queue queue;
    for (const std::uint32_t id : IdsThatCollide(5000, 16384))
        Append(&queue, ResponseTo(id));
    EXPECT_LT(queue.index->LongestChain(), 50u);
}

// As if the table had no secret: these differ above its lowest bits only.
TEST(PacketQueue, IdsWithEqualLowBitsDoNotShareABucket) {
    constexpr std::uint32_t kIds = 5000;
    Queue queue;
    std::mt19937 random(20260302);
    for (std::uint32_t i = 0; i < kIds; ++i)
        Append(&queue, ResponseTo(static_cast<std::uint32_t>(random()) << 14));
    EXPECT_LT(queue.index->LongestChain(), kIds / 5);
}

struct PacketWaiting : testing::Test {
    // So many threads wait for a packet.
    bool Asleep(std::uint32_t waiters) {
        return Eventually([&] { return Sleepers(&queue) == waiters; });
    }

    Queue queue;
};

TEST_F(PacketWaiting, TimeOutIsCountedFromTheCallToTheMillisecond) {
    FakeTick tick(1000);
    std::atomic<bool> ended{false};
    const Thread waiter([&] {
        EXPECT_EQ(FindResponse(&queue, 5000, 5), nullptr);
        ended = true;
    });
    ASSERT_TRUE(Asleep(1));
    tick.Advance(4999);
    EXPECT_FALSE(ended);
    tick.Advance(1);
    EXPECT_TRUE(Eventually([&] { return ended.load(); }));
}

TEST_F(PacketWaiting, PacketInTheLastMillisecondStillCounts) {
    FakeTick tick(1000);
    PacketPtr found;
    Thread waiter([&] { found = FindResponse(&queue, 5000, 5); });
    ASSERT_TRUE(Asleep(1));
    tick.Advance(4999);
    Append(&queue, ResponseTo(5));
    waiter.Join();
    EXPECT_NE(found, nullptr);
}

TEST_F(PacketWaiting, WaiterWhoseTimeEndsAtTheHandOverReturnsThePacket) {
    FakeTick tick(1000);
    PacketPtr found;
    Thread waiter([&] { found = FindResponse(&queue, 5000, 5); });
    ASSERT_TRUE(Asleep(1));
    {
        const LockGuard hold(queue.lock);  // the waiter cannot see one without the other
        Append(&queue, ResponseTo(5));
        tick.Advance(5000);
    }
    waiter.Join();
    EXPECT_NE(found, nullptr);
}

TEST_F(PacketWaiting, WaitWithoutLimitIsLoggedAndEndsWithThePacket) {
    const LogCapture log;
    PacketPtr found;
    Thread waiter([&] { found = TakePacket(&queue, -1); });
    ASSERT_TRUE(Asleep(1));
    EXPECT_EQ(log.Count("[QueueFindFilterInternal] infinite wait for filter match"), 1u);
    Append(&queue, Numbered(kTypePing, 6));
    waiter.Join();
    EXPECT_EQ(NumberOf(found), 6u);
}

TEST_F(PacketWaiting, ResponseReturnsOnlyTheWaiterForItsId) {
    const FakeTick tick(1000);
    PacketPtr for5;
    PacketPtr for7;
    Thread waits5([&] { for5 = FindResponse(&queue, 10000, 5); });
    Thread waits7([&] { for7 = FindResponse(&queue, 10000, 7); });
    ASSERT_TRUE(Asleep(2));

    Append(&queue, ResponseTo(7, {7}));
    waits7.Join();
    ASSERT_NE(for7, nullptr);
    EXPECT_EQ(for7->U32(16), 7u);
    EXPECT_EQ(Sleepers(&queue), 1u);

    Append(&queue, ResponseTo(5, {5}));
    waits5.Join();
    ASSERT_NE(for5, nullptr);
    EXPECT_EQ(for5->U32(16), 5u);
}

TEST_F(PacketWaiting, BusyDoesNotEndAWaitForTheResponseAndStaysQueued) {
    const FakeTick tick(1000);
    PacketPtr found;
    Thread waiter([&] { found = FindResponse(&queue, 10000, 5); });
    ASSERT_TRUE(Asleep(1));
    Append(&queue, BusyFor(5), 5);
    EXPECT_EQ(Queued(&queue), 1u);
    EXPECT_EQ(Sleepers(&queue), 1u);
    Append(&queue, ResponseTo(5), 5);
    waiter.Join();
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->type, kTypeCres);
    EXPECT_EQ(TakePacket(&queue, 0)->type, kTypeBusy);
}

TEST_F(PacketWaiting, LongestWaitingOfEqualWaitersGetsThePacket) {
    const FakeTick tick(1000);
    PacketPtr found[3];
    std::vector<std::unique_ptr<Thread>> waiters;
    for (std::uint32_t i = 0; i < 3; ++i) {
        waiters.push_back(
            std::make_unique<Thread>([&, i] { found[i] = TakePacket(&queue, 10000); }));
        ASSERT_TRUE(Asleep(i + 1));
    }
    for (std::uint32_t i = 0; i < 3; ++i) {
        Append(&queue, Numbered(kTypePing, i));
        waiters[i]->Join();
        EXPECT_EQ(NumberOf(found[i]), i);
        EXPECT_EQ(Sleepers(&queue), 2 - i);
    }
}

TEST_F(PacketWaiting, WaiterThatLeavesThePacketSeesItInTheQueue) {
    const FakeTick tick(1000);
    Packet* seen = nullptr;
    Thread waiter([&] {
        seen = QueueFindFilterInternal(&queue, 10000, MatchType, {kTypeRawc, 0}, false);
    });
    ASSERT_TRUE(Asleep(1));
    Append(&queue, Numbered(kTypePing, 1));
    Append(&queue, Numbered(kTypeRawc, 2));
    waiter.Join();
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(Queued(&queue), 2u);
    EXPECT_EQ(Find(&queue, 0, MatchType, {kTypeRawc, 0}).get(), seen);
}

TEST_F(PacketWaiting, WaiterThatTakesIsServedAfterOneThatOnlyLooks) {
    const FakeTick tick(1000);
    Packet* seen = nullptr;
    PacketPtr taken;
    Thread looks([&] { seen = QueueFindFilterInternal(&queue, 10000, nullptr, {}, false); });
    ASSERT_TRUE(Asleep(1));
    Thread takes([&] { taken = TakePacket(&queue, 10000); });
    ASSERT_TRUE(Asleep(2));

    Append(&queue, Numbered(kTypePing, 1));
    takes.Join();
    EXPECT_EQ(NumberOf(taken), 1u);
    Append(&queue, Numbered(kTypePing, 2));
    looks.Join();
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(seen->U32(8), 2u);
}

TEST_F(PacketWaiting, FreeingTheQueueEndsEverySleepAndReturnsWhenAllHaveLeft) {
    const FakeTick tick(1000);
    std::vector<std::unique_ptr<Thread>> waiters;
    std::atomic<int> empty_handed{0};
    for (std::uint32_t i = 0; i < 8; ++i) {
        waiters.push_back(std::make_unique<Thread>([&, i] {
            const std::int32_t timeout_ms = i % 2 == 0 ? -1 : 10000;
            if (FindResponse(&queue, timeout_ms, i) == nullptr) ++empty_handed;
        }));
    }
    ASSERT_TRUE(Asleep(8));
    FreeQueue(&queue);
    EXPECT_EQ(Sleepers(&queue), 0u);
    InitializeQueue(&queue);  // the record is free for the next dongle
    for (const auto& waiter : waiters)
        waiter->Join();
    EXPECT_EQ(empty_handed, 8);
}

TEST_F(PacketWaiting, WakingTheWaitersReturnsNothingToEachAndKeepsTheQueue) {
    const FakeTick tick(1000);
    Append(&queue, Numbered(kTypePing, 1));
    std::vector<std::unique_ptr<Thread>> waiters;
    std::atomic<int> empty_handed{0};
    for (std::uint32_t i = 0; i < 4; ++i) {
        waiters.push_back(std::make_unique<Thread>([&, i] {
            if (FindResponse(&queue, -1, i) == nullptr) ++empty_handed;
        }));
    }
    ASSERT_TRUE(Asleep(4));
    WakeQueueWaiters(&queue);
    for (const auto& waiter : waiters)
        waiter->Join();
    EXPECT_EQ(empty_handed, 4);
    EXPECT_EQ(NumberOf(TakePacket(&queue, 0)), 1u);
}

TEST_F(PacketWaiting, AnyNumberOfWaitersIsServed) {
    constexpr std::uint32_t kWaiters = 40;
    const FakeTick tick(1000);
    std::atomic<std::uint32_t> served{0};
    std::vector<std::unique_ptr<Thread>> waiters;
    for (std::uint32_t id = 0; id < kWaiters; ++id) {
        waiters.push_back(std::make_unique<Thread>([&, id] {
            if (FindResponse(&queue, -1, id) != nullptr) ++served;
        }));
    }
    ASSERT_TRUE(Asleep(kWaiters));
    for (std::uint32_t id = kWaiters; id-- > 0;) {
        Append(&queue, ResponseTo(id), id);
        waiters[id]->Join();
    }
    EXPECT_EQ(served, kWaiters);
}

TEST_F(PacketWaiting, UnderContentionEveryPacketReachesTheWaiterItIsForInOrder) {
    constexpr std::uint32_t kWaiters = 8;
    constexpr std::uint32_t kPacketsEach = 500;
    std::atomic<std::uint32_t> in_order{0};
    {
        std::vector<std::unique_ptr<Thread>> threads;
        for (std::uint32_t id = 0; id < kWaiters; ++id) {
            threads.push_back(std::make_unique<Thread>([&, id] {
                for (std::uint32_t n = 0; n < kPacketsEach; ++n) {
                    const PacketPtr packet = FindResponse(&queue, 10000, id);
                    const bool next = packet != nullptr && packet->U32(16) == id &&
                                      packet->Bytes()[20] == (n & 0xFF);
                    if (next) ++in_order;
                }
            }));
        }
        // Two producers, each sole sender to half of the waiters.
        for (std::uint32_t half = 0; half < 2; ++half) {
            threads.push_back(std::make_unique<Thread>([&, half] {
                for (std::uint32_t n = 0; n < kPacketsEach; ++n) {
                    for (std::uint32_t id = half; id < kWaiters; id += 2) {
                        Append(&queue, ResponseTo(id, {static_cast<std::uint8_t>(n)}), id);
                    }
                }
            }));
        }
    }
    EXPECT_EQ(in_order, kWaiters * kPacketsEach);
    EXPECT_EQ(Queued(&queue), 0u);
}

// More waiters than a queue has conditions.
TEST_F(PacketWaiting, EveryWaiterOfACrowdIsServed) {
    constexpr std::uint32_t kWaiters = 2 * PacketQueue::kWakeUps + 1;
    std::atomic<std::uint32_t> served{0};
    {
        std::vector<std::unique_ptr<Thread>> threads;
        for (std::uint32_t id = 0; id < kWaiters; ++id) {
            threads.push_back(std::make_unique<Thread>([&, id] {
                const PacketPtr packet = FindResponse(&queue, 10000, id);
                if (packet != nullptr && packet->U32(16) == id) ++served;
            }));
        }
        EXPECT_TRUE(Asleep(kWaiters));
        for (std::uint32_t id = kWaiters; id > 0; --id)
            Append(&queue, ResponseTo(id - 1), id - 1);
    }
    EXPECT_EQ(served, kWaiters);
    EXPECT_EQ(Sleepers(&queue), 0u);
}

TEST_F(PacketWaiting, ShortTimeOutsAgainstHandOversLoseNoPacket) {
    constexpr std::uint32_t kPackets = 2000;
    std::atomic<std::uint32_t> received{0};
    const auto take = [&] {
        while (received < kPackets) {
            if (TakePacket(&queue, 1) != nullptr) ++received;
        }
    };
    const Thread takers[] = {Thread(take), Thread(take), Thread(take)};
    for (std::uint32_t i = 0; i < kPackets; ++i) {
        Append(&queue, Numbered(kTypePing, i));
        if (i % 16 == 0) std::this_thread::yield();
    }
    EXPECT_TRUE(Eventually([&] { return received == kPackets; }));
    received = kPackets;
}

// The time that a number of exchanges with the queue takes, the best of some rounds.
std::chrono::nanoseconds TimeOfLookUps(PacketQueue* queue) {
    auto best = std::chrono::nanoseconds::max();
    for (int round = 0; round < 5; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (std::uint32_t i = 0; i < 200; ++i) {
            Append(queue, ResponseTo(0x80000000 + i), 0x80000000 + i);
            EXPECT_EQ(FindResponse(queue, 0, 7), nullptr);
            EXPECT_EQ(Find(queue, 0, MatchType, {kTypeSync, 0}), nullptr);
            EXPECT_EQ(QueueRemoveByTag(queue, 3), nullptr);
            EXPECT_NE(FindResponse(queue, 0, 0x80000000 + i), nullptr);
        }
        best = std::min<std::chrono::nanoseconds>(best, std::chrono::steady_clock::now() - start);
    }
    return best;
}

// A search through the packets would take a thousand times as long; the index takes the same.
TEST(PacketQueue, AHundredThousandUnclaimedPacketsDoNotSlowALookUp) {
    constexpr std::uint32_t kUnclaimed = 100000;
    Queue queue;
    const auto alone = TimeOfLookUps(&queue);
    for (std::uint32_t i = 0; i < kUnclaimed; ++i) {
        // Both kinds of crowd: every id once, and one id repeated.
        Append(&queue, i % 2 == 0 ? ResponseTo(1000 + i) : BusyFor(1), 1000 + i);
    }
    EXPECT_LT(TimeOfLookUps(&queue), alone * 50);

    EXPECT_EQ(FindResponse(&queue, 0, 1000 + kUnclaimed - 2)->U32(16), 1000 + kUnclaimed - 2);
    EXPECT_EQ(Find(&queue, 0, MatchType, {kTypeBusy, 0})->U32(8), 1u);
    EXPECT_EQ(TakePacket(&queue, 0)->U32(16), 1000u);
    EXPECT_EQ(Queued(&queue), kUnclaimed - 3);
}

}  // namespace
}  // namespace tarvik::test
