// What remains when any allocation finds the heap exhausted: the caller's packet, what was queued
// before, and no block without an owner.

#include <optional>

#include "link/comm_request.h"
#include "link/fragmentation.h"
#include "link_support.h"
#include "unit/faults/heap_fault.h"

namespace tarvik::test {
namespace {

// Calls `attempt` with room for no allocation, for one, for two... until it needs no more.
template <typename Attempt>
void ForEachShortage(Attempt attempt) {
    constexpr std::uint32_t kMost = 50;
    std::uint32_t allowed = 0;
    while (allowed < kMost && attempt(allowed))
        ++allowed;
    EXPECT_GT(allowed, 0u);
    EXPECT_LT(allowed, kMost);
}

TEST(MemoryOut, FailedAppendLeavesPacketAndQueueUnchanged) {
    constexpr std::uint32_t kQueued = 100;  // no spare node is left
    ForEachShortage([](std::uint32_t allowed) {
        Dongle dongle;
        for (std::uint32_t i = 0; i < kQueued; ++i)
            Receive(&dongle, ResponseTo(1000 + i));
        PacketPtr packet = ResponseTo(5);
        bool taken = false;
        bool refused = false;
        {
            const FailingHeap heap(allowed);
            taken = EnqueueReceivedPacket(&dongle, packet);
            refused = heap.Refused();
        }
        EXPECT_EQ(taken, !refused);
        EXPECT_EQ(packet == nullptr, taken);
        EXPECT_EQ(Queued(&dongle.rx), kQueued + (taken ? 1u : 0u));
        Receive(&dongle, ResponseTo(6));
        EXPECT_NE(QueueRemoveByTag(&dongle.rx, 6), nullptr);
        return refused;
    });
}

TEST(MemoryOut, QueueCreatedWithoutMemoryWorksOnceThereIsMemory) {
    for (std::uint32_t allowed = 0; allowed < 10; ++allowed) {
        std::optional<Dongle> dongle;
        bool refused = false;
        {
            const FailingHeap heap(allowed);
            dongle.emplace();
            refused = heap.Refused();
        }
        EXPECT_TRUE(refused);
        Receive(&*dongle, ResponseTo(5));
        EXPECT_NE(QueueRemoveByTag(&dongle->rx, 5), nullptr);
    }
}

TEST(MemoryOut, QueueThatCannotGrowItsIndexStillFindsEveryPacket) {
    constexpr std::uint32_t kPackets = 60;
    Dongle dongle;
    for (std::uint32_t id = 0; id < kPackets; ++id)
        Receive(&dongle, MakePacket(kTypePing, 8));
    while (TakePacket(&dongle.rx, 0) != nullptr) {
    }
    std::vector<PacketPtr> packets;
    for (std::uint32_t id = 0; id < kPackets; ++id)
        packets.push_back(ResponseTo(id));
    std::uint32_t taken = 0;
    bool refused = false;
    {
        const FailingHeap heap;  // the earlier packets' nodes are reused
        for (PacketPtr& packet : packets)
            taken += EnqueueReceivedPacket(&dongle, packet) ? 1 : 0;
        refused = heap.Refused();
    }
    EXPECT_TRUE(refused);
    EXPECT_EQ(taken, kPackets);
    for (std::uint32_t id = kPackets; id-- > 0;) {
        EXPECT_NE(WaitForPacket(&dongle, kTypeCres, 1000, id), nullptr);
    }
}

TEST(MemoryOut, FragmentThatCannotBeAllocatedFailsTheSendAndLeavesThePacket) {
    const LogCapture log;
    Dongle dongle;
    dongle.mtu = 244;
    PacketPtr packet = MakePacket(kTypeCreq, 500);
    bool sent = true;
    {
        const FailingHeap heap;
        sent = FragSendPacket(&dongle, packet);
    }
    EXPECT_FALSE(sent);
    EXPECT_NE(packet, nullptr);
    EXPECT_TRUE(log.Has("[FRAG] Failed to allocate fragment 0"));
    EXPECT_TRUE(FragSendPacket(&dongle, packet));
    EXPECT_EQ(Queued(&dongle.tx), 3u);
}

TEST(MemoryOut, ReassemblyIsRefusedOrDroppedAndItsSlotIsFreeAgain) {
    const LogCapture log;
    FragInit();
    PacketPtr fragment = MakePacket(kTypeFrag, 16 + 40);
    fragment->SetU16(10, 1);
    fragment->SetU32(12, 40);
    fragment->SetU32(16, kTypeCres);
    fragment->SetU32(20, 40);
    ForEachShortage([&](std::uint32_t allowed) {
        const MemoryUse before = LiveMemory();
        PacketPtr complete;
        bool done = false;
        bool refused = false;
        {
            const FailingHeap heap(allowed);
            done = FragReceivePacket(&log, fragment, &complete);
            refused = heap.Refused();
        }
        EXPECT_EQ(done, !refused);
        complete.reset();
        FragForget(&log);
        EXPECT_TRUE(LiveMemory() == before);
        return refused;
    });
    // The slots of its source, and what a session consists of.
    EXPECT_EQ(log.Count("[FRAG] Failed to allocate memory for reassembly session"), 4u);
    EXPECT_EQ(log.Count("[FRAG] Failed to get reassembly session"), 4u);
    EXPECT_EQ(log.Count("[FRAG] Failed to allocate memory for reassembled packet copy"), 1u);
    FragDeinit();
}

TEST(MemoryOut, ExchangeFailsOrSucceedsAsAWholeAndFreesItsSlot) {
    const std::uint8_t data[] = {0x22, 0xF1, 0x90};
    // More attempts in all than there are slots.
    for (int round = 0; round < 4; ++round) {
        ForEachShortage([&](std::uint32_t allowed) {
            const MemoryUse before = LiveMemory();
            bool refused = false;
            {
                Dongle dongle;
                Receive(&dongle, ResponseTo(9, {0x62, 0xF1}));
                const CommLink link{&dongle, nullptr};
                CommAnswer answer;
                bool success = false;
                {
                    const FailingHeap heap(allowed);
                    success = CommRequest(&link,
                                          {.req_id = 9,
                                           .data = data,
                                           .data_len = sizeof data,
                                           .can_id_tx = 0,
                                           .can_id_rx = 0,
                                           .timeout_ms = 0},
                                          &answer);
                    refused = heap.Refused();
                }
                EXPECT_TRUE(success || refused);
                EXPECT_EQ(success, answer.data != nullptr);
            }
            EXPECT_TRUE(LiveMemory() == before);
            return refused;
        });
    }
}

TEST(MemoryOut, MultiExchangeDropsAnswersThatItCannotAllocate) {
    const FakeTick tick(1000);
    const std::uint8_t data[] = {0x22, 0xF1, 0x90};
    ForEachShortage([&](std::uint32_t allowed) {
        const MemoryUse before = LiveMemory();
        bool refused = false;
        {
            Dongle dongle;
            Receive(&dongle, MultiResponseTo(9, {{0, {0x62}}, {1, {0x62, 1}}}));
            const CommLink link{&dongle, nullptr};
            CommMultiEntry entries[2] = {};
            entries[1].id = 1;
            CommMultiRequest request = {.req_id = 9,
                                        .can_id_tx_func = 0x7DF,
                                        .count = 2,
                                        .entries = entries,
                                        .data = data,
                                        .data_len = sizeof data,
                                        .timeout_ms = 0};
            bool success = false;
            {
                const FailingHeap heap(allowed);
                success = CommRequestMulti(&link, &request, nullptr);
                refused = heap.Refused();
            }
            EXPECT_TRUE(success || refused);
            for (const CommMultiEntry& entry : entries) {
                EXPECT_EQ(entry.rsp_len > 0, entry.rsp_data != nullptr);
                FreeMem(entry.rsp_data);
            }
        }
        EXPECT_TRUE(LiveMemory() == before);
        return refused;
    });
}

}  // namespace
}  // namespace tarvik::test
