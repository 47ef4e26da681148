#include "support/memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "unit/faults/files_fault.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

using test::ChildBody;
using test::LogCapture;
using test::RunChild;

constexpr std::uint32_t kMagic = 0xDEADBEEFu;

template <typename T>
T At(const void* block, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const std::byte*>(block) + offset, sizeof value);
    return value;
}

bool AllBytes(const void* start, std::size_t offset, std::size_t count, int value) {
    const auto* bytes = static_cast<const unsigned char*>(start) + offset;
    for (std::size_t i = 0; i < count; ++i) {
        if (bytes[i] != value) return false;
    }
    return true;
}

// The whole layout of a block for `size` bytes at their user address.
void ExpectLayout(void* user, std::size_t size, std::size_t padding) {
    void* block = CheckMem(user);
    const std::size_t trailer = 64 + size + padding;
    EXPECT_EQ(static_cast<std::byte*>(block) + 64, user);
    EXPECT_EQ(At<std::uint32_t>(block, 0), kMagic);
    EXPECT_EQ(At<std::uint64_t>(block, 8), size);
    EXPECT_EQ(At<std::uint64_t>(block, 16), padding);
    EXPECT_EQ(At<std::byte*>(block, 24), static_cast<std::byte*>(block) + trailer);
    EXPECT_TRUE(AllBytes(block, 32, 32, 0xAA));
    EXPECT_TRUE(AllBytes(block, 64, size + padding, 0));
    EXPECT_TRUE(AllBytes(block, trailer, 32, 0xAA));
    EXPECT_EQ(At<std::uint32_t>(block, trailer + 32), kMagic);
}

TEST(Memory, ZeroBytesGiveADistinctAddressWithoutPadding) {
    void* first = AllocateMem(0);
    void* second = AllocateMem(0);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    ExpectLayout(first, 0, 0);
    FreeMem(first);
    FreeMem(second);
}

TEST(Memory, OneByteIsPaddedToSixteenZeroBytes) {
    void* user = AllocateMem(1);
    ExpectLayout(user, 1, 15);
    EXPECT_TRUE(AllBytes(user, 16, 32, 0xAA));
    FreeMem(user);
}

TEST(Memory, EverySizeIsRoundedUpToSixteenAndAligned) {
    for (std::size_t size = 0; size <= 100; ++size) {
        void* user = AllocateMem(size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(user) % 16, 0u);
        ExpectLayout(user, size, (16 - size % 16) % 16);
        FreeMem(user);
    }
}

TEST(Memory, BlockIsZeroedAgainAfterReuse) {
    for (int i = 0; i < 100; ++i) {
        void* user = AllocateMem(200);
        ASSERT_TRUE(AllBytes(user, 0, 208, 0));
        std::memset(user, 0x5A, 208);
        FreeMem(user);
    }
}

TEST(Memory, ArrayIsTheProductOfCountAndSize) {
    void* user = AllocateArray(7, 12);
    EXPECT_EQ(RequestedSize(user), 84u);
    FreeMem(user);
}

TEST(Memory, NullIsLeftAlone) {
    const MemoryUse before = LiveMemory();
    FreeMem(nullptr);
    EXPECT_EQ(CheckMem(nullptr), nullptr);
    EXPECT_EQ(RequestedSize(nullptr), 0u);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

TEST(Memory, LiveBlocksAndBytesAreCounted) {
    const MemoryUse before = LiveMemory();
    void* first = AllocateMem(10);
    void* second = AllocateMem(0);
    EXPECT_EQ(LiveMemory().blocks, before.blocks + 2);
    EXPECT_EQ(LiveMemory().bytes, before.bytes + 10);
    FreeMem(first);
    FreeMem(second);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

TEST(Memory, ExhaustedHeapGivesNullAndACriticalLine) {
    const LogCapture log;
    void* user = nullptr;
    {
        const test::FailingHeap heap;
        user = AllocateMem(16);
    }
    EXPECT_EQ(user, nullptr);
    EXPECT_EQ(log.Count("[CRITICAL ERROR] malloc() returned NULL"), 1u);
}

TEST(Memory, SizeWhoseBlockWouldWrapIsAnExhaustedHeap) {
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
    const LogCapture log;
    const MemoryUse before = LiveMemory();
    for (const std::size_t size : {kMost, kMost - 1, kMost - 98, kMost - 99, kMost - 100}) {
        EXPECT_EQ(AllocateMem(size), nullptr);
    }
    EXPECT_EQ(log.Count("[CRITICAL ERROR] malloc() returned NULL"), 5u);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

TEST(Memory, AllocationsAndReleasesAreNotInTheLog) {
    const LogCapture log;
    FreeMem(AllocateMem(16));
    EXPECT_FALSE(log.Mentions("AllocateMem"));
    EXPECT_FALSE(log.Mentions("FreeMem"));
}

TEST(Memory, TrackedContainersAndObjectsReleaseTheirMemory) {
    const MemoryUse before = LiveMemory();
    {
        std::vector<int, TrackedAllocator<int>> numbers(1'000);
        EXPECT_GE(LiveMemory().bytes, before.bytes + 4'000);
        const Tracked<int> record = AllocateRecord<int>();
        EXPECT_EQ(*record, 0);
        auto* text = NewTracked<std::string>("text");
        EXPECT_EQ(*text, "text");
        DeleteTracked(text);
        DeleteTracked<std::string>(nullptr);
    }
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

// --- damaged guards ---

// Opens the log as the product does, damages the byte at `offset` from the user address of a block
// of 20 bytes, padded to 32, and releases it. Not reached: the end.
int ReleaseDamaged(std::ptrdiff_t offset) {
    std::printf("log=%s\n", test::DebugLogPath().string().c_str());
    std::fflush(stdout);
    auto* user = static_cast<unsigned char*>(AllocateMem(20));
    volatile unsigned char* damaged = user + offset;
    *damaged = static_cast<unsigned char>(*damaged ^ 0xFF);
    FreeMem(user);
    return 0;
}

constexpr std::ptrdiff_t kPadded = 32;
const ChildBody kRearGuard("damage-first-rear-byte", [] { return ReleaseDamaged(kPadded); });
const ChildBody kRearEnd("damage-last-rear-byte", [] { return ReleaseDamaged(kPadded + 31); });
const ChildBody kTrailerMagic("damage-trailer-magic", [] { return ReleaseDamaged(kPadded + 32); });
const ChildBody kFrontGuard("damage-last-front-byte", [] { return ReleaseDamaged(-1); });
const ChildBody kFrontStart("damage-first-front-byte", [] { return ReleaseDamaged(-32); });
const ChildBody kTrailerAddress("damage-trailer-address", [] { return ReleaseDamaged(-40); });
const ChildBody kSize("damage-size", [] { return ReleaseDamaged(-50); });
const ChildBody kHeaderMagic("damage-header-magic", [] { return ReleaseDamaged(-64); });
const ChildBody kUnharmed("damage-padding", [] { return ReleaseDamaged(kPadded - 1); });

void ExpectDeathOf(const char* name) {
    const test::ChildResult result = RunChild(name);
    EXPECT_EQ(result.exit_code, 1) << name;
    const std::size_t start = result.output.find("log=") + 4;
    const std::string path = result.output.substr(start, result.output.find_first_of("\r\n") - 4);
    EXPECT_NE(test::ReadFile(path).find("[CRITICAL ERROR] memory block corrupted\n"),
              std::string::npos)
        << name;
    std::remove(path.c_str());
    EXPECT_NE(result.output.find(test::PrintedMessageBox(
                  "Tarvik D-PDU DLL - Memory corruption detected! Exiting.", "Critical Error")),
              std::string::npos)
        << name;
}

TEST(DamagedGuard, ByteJustPastThePaddedAreaEndsTheProcessWithCodeOne) {
    ExpectDeathOf("damage-first-rear-byte");
}

TEST(DamagedGuard, ByteJustBeforeTheUserAddressEndsTheProcessWithCodeOne) {
    ExpectDeathOf("damage-last-front-byte");
}

TEST(DamagedGuard, OtherEndsOfTheGuardsAndTheMagicsEndTheProcessToo) {
    ExpectDeathOf("damage-last-rear-byte");
    ExpectDeathOf("damage-first-front-byte");
    ExpectDeathOf("damage-trailer-magic");
    ExpectDeathOf("damage-header-magic");
}

TEST(DamagedGuard, HeaderThatNamesAWildTrailerEndsTheProcessWithoutBeingFollowed) {
    ExpectDeathOf("damage-trailer-address");
    ExpectDeathOf("damage-size");
}

TEST(DamagedGuard, PaddingBelongsToTheUserArea) {
    EXPECT_EQ(RunChild("damage-padding").exit_code, 0);
}

}  // namespace
}  // namespace tarvik
