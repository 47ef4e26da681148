#include "link/fragmentation.h"

#include <algorithm>
#include <optional>

#include "link_support.h"
#include "platform/thread.h"
#include "unit/faults/calendar_fault.h"

namespace tarvik::test {
namespace {

// After the header, bytes that show their position.
PacketPtr Patterned(std::uint32_t type, std::uint32_t length) {
    PacketPtr packet = MakePacket(type, length);
    for (std::uint32_t i = MIN_PKT_SIZE; i < length; ++i) {
        packet->Bytes()[i] = static_cast<std::uint8_t>(i * 7 + 3);
    }
    return packet;
}

PacketPtr Fragment(std::uint16_t index, std::uint16_t count, std::uint32_t total_length,
                   const Bytes& payload) {
    PacketPtr packet = MakePacket(kTypeFrag, static_cast<std::uint32_t>(16 + payload.size()));
    packet->SetU16(8, index);
    packet->SetU16(10, count);
    packet->SetU32(12, total_length);
    if (!payload.empty()) std::memcpy(packet->Bytes() + 16, payload.data(), payload.size());
    return packet;
}

// The `index`th of `count` equal slices of a packet.
PacketPtr SliceOf(const PacketPtr& whole, std::uint16_t index, std::uint16_t count) {
    const std::uint32_t size = (whole->length + count - 1u) / count;
    const std::uint32_t from = index * size;
    const std::uint32_t to = std::min(from + size, whole->length);
    return Fragment(index, count, whole->length, {whole->Bytes() + from, whole->Bytes() + to});
}

struct FragSend : testing::Test {
    std::vector<PacketPtr> Send(std::uint32_t length, std::uint32_t mtu) {
        dongle.mtu = mtu;
        PacketPtr packet = Patterned(kTypeCreq, length);
        accepted = FragSendPacket(&dongle, packet);
        kept = packet != nullptr;
        std::vector<PacketPtr> sent;
        while (PacketPtr next = TakePacket(&dongle.tx, 0))
            sent.push_back(std::move(next));
        return sent;
    }

    Dongle dongle;
    LogCapture log;
    bool accepted = false;
    bool kept = false;  // by the caller
};

TEST_F(FragSend, FiveHundredBytesAtMtu244MakeThreeFragments) {
    const std::vector<PacketPtr> sent = Send(500, 244);
    EXPECT_TRUE(accepted);
    EXPECT_FALSE(kept);
    ASSERT_EQ(sent.size(), 3u);
    const PacketPtr whole = Patterned(kTypeCreq, 500);
    constexpr std::uint32_t kLengths[] = {244, 244, 60};
    for (std::uint16_t i = 0; i < 3; ++i) {
        EXPECT_EQ(sent[i]->type, kTypeFrag);
        ASSERT_EQ(sent[i]->length, kLengths[i]);
        EXPECT_EQ(sent[i]->U16(8), i);
        EXPECT_EQ(sent[i]->U16(10), 3);
        EXPECT_EQ(sent[i]->U32(12), 500u);
        EXPECT_EQ(std::memcmp(sent[i]->Bytes() + 16, whole->Bytes() + std::size_t{228} * i,
                              kLengths[i] - 16u),
                  0);
    }
    EXPECT_TRUE(log.Has("[FRAG] Packet size 500 exceeds MTU 244, fragmenting..."));
    EXPECT_TRUE(log.Has("[FRAG] Fragmenting into 3 fragments, fragment_payload_size=228"));
    EXPECT_TRUE(log.Has("[FRAG] Sending fragment 0/3, payload_size=228"));
    EXPECT_TRUE(log.Has("[FRAG] Sending fragment 2/3, payload_size=44"));
    EXPECT_TRUE(log.Has("[FRAG] All 3 fragments sent successfully"));
}

TEST_F(FragSend, PacketOfExactlyTheMtuTravelsWhole) {
    const std::vector<PacketPtr> sent = Send(4096, 4096);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(BytesOf(sent[0]), BytesOf(Patterned(kTypeCreq, 4096)));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(FragSend, OneByteMoreThanTheMtuMakesTwo) {
    const std::vector<PacketPtr> sent = Send(4097, 4096);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0]->length, 4096u);
    EXPECT_EQ(sent[1]->length, 16u + 17u);
}

TEST_F(FragSend, LastFragmentMayBeFull) { EXPECT_EQ(Send(2 * 228, 244).size(), 2u); }

TEST_F(FragSend, NoMtuMeans65535) {
    EXPECT_EQ(Send(65535, 0).size(), 1u);
    EXPECT_EQ(Send(65536, 0).size(), 2u);
}

TEST_F(FragSend, MtuThatLeavesNoRoomForAPayloadIsRefused) {
    for (const std::uint32_t mtu : {1u, 8u, 15u, 16u}) {
        EXPECT_TRUE(Send(100, mtu).empty()) << mtu;
        EXPECT_FALSE(accepted);
        EXPECT_TRUE(kept);
    }
    EXPECT_EQ(log.Count("[FRAG] MTU too small for fragmentation"), 4u);
    EXPECT_EQ(Send(100, 17).size(), 100u);
}

TEST_F(FragSend, MoreFragmentsThanTheirCountHoldsAreRefused) {
    EXPECT_EQ(Send(65535, 17).size(), 65535u);
    EXPECT_TRUE(Send(65536, 17).empty());
    EXPECT_FALSE(accepted);
    EXPECT_TRUE(kept);
    EXPECT_TRUE(log.Has("[FRAG] Packet too large: would require 65536 fragments"));
}

TEST_F(FragSend, MissingOrUnavailableDongleIsRefused) {
    PacketPtr packet = Patterned(kTypeCreq, 40);
    PacketPtr none;
    EXPECT_FALSE(FragSendPacket(nullptr, packet));
    EXPECT_FALSE(FragSendPacket(&dongle, none));
    dongle.available = false;
    EXPECT_FALSE(FragSendPacket(&dongle, packet));
    EXPECT_NE(packet, nullptr);
}

TEST_F(FragSend, InactiveTransmitQueueReleasesThePacket) {
    FreeQueue(&dongle.tx);
    const MemoryUse before = LiveMemory();
    EXPECT_TRUE(Send(100, 4096).empty());
    EXPECT_TRUE(accepted);
    EXPECT_FALSE(kept);
    EXPECT_TRUE(Send(5000, 4096).empty());
    EXPECT_TRUE(accepted);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

// A waiter's filter is called by the sender for every fragment it queues.
DeviceQueues* leaving = nullptr;
bool LeavesAtTheThird(const Packet& fragment, const PacketFilterArgument&) {
    if (fragment.U16(8) == 2) leaving->available = false;
    return fragment.U16(8) == 2;
}

TEST_F(FragSend, DongleGoingAwayStopsTheFragmentsAndLeavesThePacket) {
    leaving = &dongle;
    const Thread transport([this] {
        PacketPtr third(QueueFindFilterInternal(&dongle.tx, -1, LeavesAtTheThird, {}, true));
        EXPECT_NE(third, nullptr);
    });
    ASSERT_TRUE(Eventually([this] { return Sleepers(&dongle.tx) == 1; }));
    EXPECT_EQ(Send(1000, 116).size(), 2u);  // of ten, besides the one that the transport took
    EXPECT_FALSE(accepted);
    EXPECT_TRUE(kept);
    EXPECT_TRUE(log.Has("[FRAG] Transport became unavailable while fragmenting"));
    EXPECT_FALSE(log.Mentions("sent successfully"));
}

// A port that is plugged in again starts with new packets.
TEST_F(FragSend, LateFragmentDoesNotReachTheNextConnection) {
    dongle.mtu = 116;
    std::optional<Thread> sender;
    {
        const LockGuard hold(dongle.tx.lock);
        sender.emplace([this] {
            PacketPtr packet = Patterned(kTypeCreq, 1000);
            accepted = FragSendPacket(&dongle, packet);
        });
        // It found the dongle available, and reaches the queue when that belongs to another.
        ASSERT_TRUE(Eventually([this] { return log.Mentions("[FRAG] Sending fragment 0/10"); }));
        dongle.available = false;
        FreeQueue(&dongle.tx);
        InitializeQueue(&dongle.tx);
    }
    sender->Join();
    EXPECT_FALSE(accepted);
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

struct FragReceive : testing::Test {
    FragReceive() { FragInit(); }
    ~FragReceive() override { FragDeinit(); }

    // Whether the fragment completed a packet, which then is in `complete`.
    bool Feed(const PacketPtr& fragment, const void* from = nullptr) {
        PacketPtr packet = CopyPacket(*fragment);
        const bool done = FragReceivePacket(from == nullptr ? this : from, packet, &complete);
        EXPECT_NE(packet, nullptr);  // a fragment stays with the caller
        EXPECT_EQ(done, complete != nullptr);
        return done;
    }

    LogCapture log;
    PacketPtr complete;
};

TEST_F(FragReceive, PacketThatIsNotAFragmentPassesThrough) {
    PacketPtr packet = Patterned(kTypeCres, 40);
    Packet* const same = packet.get();
    EXPECT_TRUE(FragReceivePacket(this, packet, &complete));
    EXPECT_EQ(packet, nullptr);
    EXPECT_EQ(complete.get(), same);
}

TEST_F(FragReceive, MissingArgumentsGiveNothing) {
    PacketPtr packet = Patterned(kTypeCres, 40);
    PacketPtr none;
    EXPECT_FALSE(FragReceivePacket(this, packet, nullptr));
    EXPECT_NE(packet, nullptr);
    complete = Patterned(kTypeCres, 8);
    EXPECT_FALSE(FragReceivePacket(this, none, &complete));
    EXPECT_EQ(complete, nullptr);
}

TEST_F(FragReceive, FragmentsInOrderGiveThePacketBack) {
    const PacketPtr whole = Patterned(kTypeCres, 500);
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 3)));
    EXPECT_FALSE(Feed(SliceOf(whole, 1, 3)));
    ASSERT_TRUE(Feed(SliceOf(whole, 2, 3)));
    EXPECT_EQ(BytesOf(complete), BytesOf(whole));
    EXPECT_TRUE(log.Has("[FRAG] Received fragment 1/3, payload_size=167, total_length=500"));
    EXPECT_TRUE(log.Has("[FRAG] Created new reassembly session: total_length=500, frag_count=3"));
    EXPECT_TRUE(log.Has("[FRAG] Fragment 0 stored at offset 0, 1/3 fragments received"));
    EXPECT_TRUE(log.Has("[FRAG] Fragment 2 stored at offset 334, 3/3 fragments received"));
    EXPECT_TRUE(log.Has("[FRAG] All fragments received, reassembling packet"));
    EXPECT_TRUE(log.Has("[FRAG] Reassembled packet type: 'SERC', length=500"));
}

TEST_F(FragReceive, PacketSentInFragmentsArrivesWhole) {
    Dongle dongle;
    dongle.mtu = 244;
    PacketPtr packet = Patterned(kTypeCreq, 4096);
    ASSERT_TRUE(FragSendPacket(&dongle, packet));
    bool done = false;
    while (PacketPtr fragment = TakePacket(&dongle.tx, 0)) {
        EXPECT_FALSE(done);
        done = Feed(fragment);
    }
    EXPECT_TRUE(done);
    EXPECT_EQ(BytesOf(complete), BytesOf(Patterned(kTypeCreq, 4096)));
}

TEST_F(FragReceive, SingleFragmentMayBeTheWholePacket) {
    const PacketPtr whole = Patterned(kTypeCres, 20);
    EXPECT_TRUE(Feed(SliceOf(whole, 0, 1)));
    EXPECT_EQ(BytesOf(complete), BytesOf(whole));
}

TEST_F(FragReceive, TypeIsLoggedWithoutControlCharacters) {
    EXPECT_TRUE(Feed(SliceOf(Patterned(0x0A1B0041, 20), 0, 1)));
    EXPECT_TRUE(log.Has("[FRAG] Reassembled packet type: 'A...', length=20"));
}

TEST_F(FragReceive, DuplicateIsIgnoredWithoutHarmToTheSession) {
    const PacketPtr whole = Patterned(kTypeCres, 300);
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 3)));
    EXPECT_FALSE(Feed(SliceOf(whole, 1, 3)));
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 3)));
    EXPECT_FALSE(Feed(SliceOf(whole, 1, 3)));
    EXPECT_TRUE(log.Has("[FRAG] Fragment 0 already received, ignoring duplicate"));
    EXPECT_TRUE(Feed(SliceOf(whole, 2, 3)));
    EXPECT_EQ(BytesOf(complete), BytesOf(whole));
}

TEST_F(FragReceive, SkippedIndexDiscardsTheWholeSession) {
    const PacketPtr whole = Patterned(kTypeCres, 300);
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 3)));
    const MemoryUse during = LiveMemory();
    EXPECT_FALSE(Feed(SliceOf(whole, 2, 3)));
    EXPECT_TRUE(log.Has("[FRAG] Out-of-order fragment reception: expected index 1, got 2"));
    EXPECT_EQ(LiveMemory().blocks, during.blocks - 3);
    EXPECT_FALSE(Feed(SliceOf(whole, 1, 3)));  // of a new session, out of order again
    EXPECT_TRUE(log.Has("[FRAG] Out-of-order fragment reception: expected index 0, got 1"));
}

TEST_F(FragReceive, MoreBytesThanAnnouncedDiscardTheSession) {
    EXPECT_FALSE(Feed(Fragment(0, 2, 100, Bytes(60))));
    EXPECT_FALSE(Feed(Fragment(1, 2, 100, Bytes(41))));
    EXPECT_TRUE(
        log.Has("[FRAG] Fragment data exceeds total_length: offset=60, payload_size=41, "
                "total_length=100"));
}

TEST_F(FragReceive, PacketWhoseOwnLengthDiffersIsDropped) {
    PacketPtr whole = Patterned(kTypeCres, 100);
    whole->SetU32(4, 99);
    EXPECT_FALSE(Feed(Fragment(0, 1, 100, {whole->Bytes(), whole->Bytes() + 100})));
    EXPECT_TRUE(log.Has("[FRAG] Reassembled packet length mismatch: expected=100, got=99"));
}

TEST_F(FragReceive, BytesMissingFromEveryFragmentAreZero) {
    const PacketPtr whole = Patterned(kTypeCres, 100);
    ASSERT_TRUE(Feed(Fragment(0, 1, 100, {whole->Bytes(), whole->Bytes() + 40})));
    EXPECT_EQ(std::memcmp(complete->Bytes(), whole->Bytes(), 40), 0);
    for (std::size_t i = 40; i < 100; ++i)
        EXPECT_EQ(complete->Bytes()[i], 0);
}

TEST_F(FragReceive, ReassembledPacketThatIsAFragmentItselfIsDropped) {
    const PacketPtr inner = Fragment(0, 1, 24, Bytes(8));
    EXPECT_FALSE(Feed(SliceOf(inner, 0, 1)));
}

TEST_F(FragReceive, MalformedFragmentsAreRefusedBeforeAnySession) {
    struct Row {
        PacketPtr fragment;
        const char* message;
    };
    Row rows[] = {
        {MakePacket(kTypeFrag, 15), "[FRAG] Invalid FRAG packet: too small (length=15)"},
        {MakePacket(kTypeFrag, 8), "[FRAG] Invalid FRAG packet: too small (length=8)"},
        {Fragment(0, 0, 100, {}), "[FRAG] Invalid FRAG packet: frag_count is 0"},
        {Fragment(3, 3, 100, {}), "[FRAG] Invalid FRAG packet: frag_index (3) >= frag_count (3)"},
        {Fragment(0, 2, 5000, Bytes(80)),
         "[FRAG] Invalid FRAG packet: total_length (5000) exceeds MAX_PKT_SIZE (4096)"},
        {Fragment(0, 2, 4097, {}),
         "[FRAG] Invalid FRAG packet: total_length (4097) exceeds MAX_PKT_SIZE (4096)"},
        {Fragment(0, 2, 7, {}),
         "[FRAG] Invalid FRAG packet: total_length (7) smaller than MIN_PKT_SIZE (8)"},
    };
    for (const Row& row : rows) {
        const MemoryUse before = LiveMemory();
        EXPECT_FALSE(Feed(row.fragment)) << row.message;
        EXPECT_TRUE(log.Has(row.message)) << row.message;
        EXPECT_EQ(LiveMemory().blocks, before.blocks);
    }
    EXPECT_FALSE(log.Mentions("Created new reassembly session"));
}

TEST_F(FragReceive, LargestAndSmallestTotalLengthAreAccepted) {
    const PacketPtr largest = Patterned(kTypeCres, 4096);
    EXPECT_FALSE(Feed(SliceOf(largest, 0, 2)));
    EXPECT_TRUE(Feed(SliceOf(largest, 1, 2)));
    EXPECT_TRUE(Feed(SliceOf(Patterned(kTypePing, 8), 0, 1)));
}

TEST_F(FragReceive, SourcesDoNotMix) {
    const PacketPtr whole = Patterned(kTypeCres, 300);
    const char sources[2] = {};
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 2), &sources[0]));
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 2), &sources[1]));
    EXPECT_TRUE(Feed(SliceOf(whole, 1, 2), &sources[1]));
    EXPECT_EQ(BytesOf(complete), BytesOf(whole));
    EXPECT_TRUE(Feed(SliceOf(whole, 1, 2), &sources[0]));
    EXPECT_EQ(BytesOf(complete), BytesOf(whole));
}

TEST_F(FragReceive, OneSourceMayHavePacketsOfSeveralSizesUnderWay) {
    const PacketPtr one = Patterned(kTypeCres, 300);
    const PacketPtr two = Patterned(kTypeCres, 301);
    EXPECT_FALSE(Feed(SliceOf(one, 0, 2)));
    EXPECT_FALSE(Feed(SliceOf(two, 0, 2)));
    EXPECT_TRUE(Feed(SliceOf(one, 1, 2)));
    EXPECT_TRUE(Feed(SliceOf(two, 1, 2)));
}

struct FullSlots : FragReceive {
    FullSlots() {
        for (const PacketPtr& packet : whole) {
            EXPECT_FALSE(Feed(SliceOf(packet, 0, 2)));
            tick.Advance(1);
        }
    }
    bool OpensAnother(const void* from = nullptr) {
        const LogCapture here;
        Feed(SliceOf(another, 0, 2), from);
        return here.Mentions("Created new reassembly session");
    }

    FakeTick tick{100000};
    PacketPtr whole[4] = {Patterned(kTypeCres, 300), Patterned(kTypeCres, 301),
                          Patterned(kTypeCres, 302), Patterned(kTypeCres, 303)};
    PacketPtr another = Patterned(kTypeCres, 400);
};

TEST_F(FullSlots, FifthReassemblyFailsWhileAllFourAreActive) {
    EXPECT_FALSE(OpensAnother());
    EXPECT_TRUE(log.Has("[FRAG] No available reassembly session slots"));
    EXPECT_TRUE(log.Has("[FRAG] Failed to get reassembly session"));
    EXPECT_TRUE(Feed(SliceOf(whole[3], 1, 2)));
    EXPECT_TRUE(OpensAnother());  // in the completed one's place
}

TEST_F(FullSlots, OnlyASessionIdleForMoreThanThirtySecondsIsReclaimed) {
    tick.Advance(30000 - 4);
    EXPECT_FALSE(OpensAnother());
    tick.Advance(1);
    EXPECT_TRUE(OpensAnother());
    EXPECT_EQ(log.Count("[FRAG] Cleaning up timed-out reassembly session"), 1u);
    // It was the oldest: its second fragment comes too late, the others' does not.
    EXPECT_TRUE(Feed(SliceOf(whole[1], 1, 2)));
    EXPECT_FALSE(Feed(SliceOf(whole[0], 1, 2)));
}

TEST_F(FullSlots, LookUpOfASessionKeepsItFromBeingReclaimed) {
    tick.Advance(29000);
    for (const PacketPtr& packet : whole)
        EXPECT_FALSE(Feed(SliceOf(packet, 0, 2)));
    tick.Advance(2000);
    EXPECT_FALSE(OpensAnother());
}

TEST_F(FullSlots, LowerOfEquallyOldSessionsIsReclaimed) {
    for (const PacketPtr& packet : whole)
        EXPECT_FALSE(Feed(SliceOf(packet, 0, 2)));
    tick.Advance(30001);
    EXPECT_TRUE(OpensAnother());
    EXPECT_TRUE(Feed(SliceOf(whole[1], 1, 2)));
    EXPECT_FALSE(Feed(SliceOf(whole[0], 1, 2)));
}

// However fresh its peer keeps them.
TEST_F(FullSlots, OtherSourcesHaveTheirOwn) {
    const char others[3] = {};
    for (const char& other : others)
        EXPECT_TRUE(OpensAnother(&other));
    for (const char& other : others) {
        EXPECT_TRUE(Feed(SliceOf(another, 1, 2), &other));
        EXPECT_EQ(BytesOf(complete), BytesOf(another));
    }
    EXPECT_FALSE(OpensAnother());
}

TEST_F(FullSlots, ForgottenSourceLeavesNoMemoryBehind) {
    const MemoryUse during = LiveMemory();
    FragForget(this);
    constexpr std::size_t kBlocks = 1 + 4 * std::size_t{3};  // its record, and three of each slot
    EXPECT_EQ(LiveMemory().blocks, during.blocks - kBlocks);
    EXPECT_TRUE(OpensAnother());
}

TEST_F(FragReceive, ForgottenSourceStartsAgain) {
    const PacketPtr whole = Patterned(kTypeCres, 300);
    const char other = 0;
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 2)));
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 2), &other));
    FragForget(this);
    EXPECT_FALSE(Feed(SliceOf(whole, 1, 2)));
    EXPECT_TRUE(Feed(SliceOf(whole, 1, 2), &other));
}

// Stops the thread that makes it at its second log line: when it has stored a fragment that its
// source sent after others.
class StopWhileStoring {
public:
    StopWhileStoring() {
        thread = OsCurrentThreadId();
        OnCalendarRead([] {
            if (OsCurrentThreadId() != thread || ++lines != 2) return;
            stopped = true;
            Eventually([] { return released.load(); });
        });
    }
    ~StopWhileStoring() {
        OnCalendarRead(nullptr);
        stopped = released = false;
        lines = 0;
    }
    StopWhileStoring(const StopWhileStoring&) = delete;
    StopWhileStoring& operator=(const StopWhileStoring&) = delete;

    static inline std::atomic<bool> stopped{false};
    static inline std::atomic<bool> released{false};

private:
    static inline std::atomic<std::uint32_t> thread{0};
    static inline std::atomic<int> lines{0};
};

TEST_F(FragReceive, SourceIsForgottenWithoutTheFragmentThatIsBeingStored) {
    const PacketPtr whole = Patterned(kTypeCres, 300);
    EXPECT_FALSE(Feed(SliceOf(whole, 0, 2)));
    EXPECT_FALSE(Feed(SliceOf(Patterned(kTypeCres, 301), 0, 2)));
    PacketPtr last = SliceOf(whole, 1, 2);
    bool done = false;
    Thread storing([&] {
        const StopWhileStoring stop;
        done = FragReceivePacket(this, last, &complete);
    });
    ASSERT_TRUE(Eventually([] { return StopWhileStoring::stopped.load(); }));
    const MemoryUse during = LiveMemory();
    FragForget(this);
    EXPECT_EQ(LiveMemory().blocks, during.blocks - 3) << "the other session's";
    StopWhileStoring::released = true;
    storing.Join();
    EXPECT_TRUE(done);
    EXPECT_EQ(BytesOf(complete), BytesOf(whole));
}

TEST(Fragmentation, InitAndDeinitLogTheirLockOncePerTurn) {
    FragDeinit();
    const LogCapture log;
    FragInit();
    FragInit();
    std::vector<std::string> lines = log.Lines();
    ASSERT_EQ(lines.size(), 1u);
    const std::string created = "[FragInit] Initialized CRITICAL_SECTION reassembly_lock at 0x";
    ASSERT_EQ(lines[0].substr(0, created.size()), created);
    const std::string address = lines[0].substr(created.size());
    EXPECT_FALSE(address.empty());
    FragDeinit();
    FragDeinit();
    lines = log.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "[FragDeinit] Deleting CRITICAL_SECTION reassembly_lock at 0x" + address);
}

TEST(Fragmentation, DeinitReleasesUnfinishedSessions) {
    FragInit();
    const MemoryUse before = LiveMemory();
    const PacketPtr whole = Patterned(kTypeCres, 300);
    PacketPtr fragment = SliceOf(whole, 0, 2);
    PacketPtr complete;
    EXPECT_FALSE(FragReceivePacket(&before, fragment, &complete));
    FragDeinit();
    EXPECT_EQ(LiveMemory().blocks, before.blocks + 2);  // the two packets of this test
}

// Six sources with six packets under way each, in four slots, while time runs fast: sessions are
// reclaimed and sources forgotten under way, and what comes out whole is right.
TEST(Fragmentation, SourcesThatComeAndGoNeverMixTheirBytes) {
    FakeTick tick(100000);
    FragInit();
    constexpr std::uint32_t kSources = 6;
    constexpr std::uint32_t kPackets = 6;
    std::atomic<std::uint32_t> completed{0};
    std::atomic<std::uint32_t> damaged{0};
    {
        std::vector<std::unique_ptr<Thread>> threads;
        for (std::uint32_t source = 0; source < kSources; ++source) {
            threads.push_back(std::make_unique<Thread>([&, source] {
                const void* const own = &threads + source;
                PacketPtr whole[kPackets];
                for (std::uint32_t i = 0; i < kPackets; ++i) {
                    whole[i] = Patterned(kTypeCres, 1000 + i);
                    std::memset(whole[i]->Bytes() + 8, static_cast<int>(source * kPackets + i),
                                992);
                }
                for (std::uint32_t step = 0; step < 50 * 4 * kPackets; ++step) {
                    const PacketPtr& packet = whole[step % kPackets];
                    PacketPtr fragment =
                        SliceOf(packet, static_cast<std::uint16_t>(step / kPackets % 4), 4);
                    PacketPtr complete;
                    tick.Advance(1000);
                    if (step % 101 == 100) FragForget(own);
                    if (!FragReceivePacket(own, fragment, &complete)) continue;
                    ++completed;
                    if (BytesOf(complete) != BytesOf(packet)) ++damaged;
                }
            }));
        }
    }
    FragDeinit();
    EXPECT_EQ(damaged, 0u);
    EXPECT_GT(completed, 0u);
}

}  // namespace
}  // namespace tarvik::test
