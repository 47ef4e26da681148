#include "support/memory.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/process.h"
#include "support/log_file.h"
#include "support/message.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kBlockMagic = 0xDEADBEEFu;
constexpr std::uint8_t kGuardByte = 0xAA;
constexpr std::size_t kGuardSize = 32;
constexpr std::size_t kUserAlignment = 16;

struct BlockTrailer {
    std::uint8_t guard[kGuardSize];
    std::uint32_t magic;
};
static_assert(offsetof(BlockTrailer, magic) == 32);
static_assert(sizeof(BlockTrailer) == 36);

struct BlockHeader {
    std::uint32_t magic;
    std::uint32_t unwritten;
    std::uint64_t size;     // as requested
    std::uint64_t padding;  // rounds size up to a multiple of 16
    BlockTrailer* trailer;
    std::uint8_t guard[kGuardSize];
};
static_assert(offsetof(BlockHeader, size) == 8);
static_assert(offsetof(BlockHeader, padding) == 16);
static_assert(offsetof(BlockHeader, trailer) == 24);
static_assert(offsetof(BlockHeader, guard) == 32);
static_assert(sizeof(BlockHeader) == 64);

constexpr std::size_t kOverhead = sizeof(BlockHeader) + sizeof(BlockTrailer);

std::atomic<std::uint64_t> live_blocks{0};
std::atomic<std::uint64_t> live_bytes{0};

BlockHeader* HeaderOf(void* user) {
    return reinterpret_cast<BlockHeader*>(static_cast<std::byte*>(user) - sizeof(BlockHeader));
}

std::size_t PaddingFor(std::size_t size) { return (0 - size) % kUserAlignment; }

// malloc of a block's whole size. A sum that wraps counts as an exhausted heap.
void* RequestHeapBlock(std::size_t size, std::size_t padding) {
    const bool wraps = size > std::numeric_limits<std::size_t>::max() - padding - kOverhead;
    void* block = wraps ? nullptr : std::malloc(size + padding + kOverhead);
    if (block == nullptr) LogBrief(kLogCritical, "[CRITICAL ERROR] malloc() returned NULL");
    return block;
}

// Returns only if an attached debugger lets the process continue.
void ReportCorruption() {
    LogBrief(kLogCritical, "[CRITICAL ERROR] memory block corrupted");
    ShowError("Tarvik D-PDU DLL - Memory corruption detected! Exiting.", "Critical Error");
    if (!OsDebuggerPresent()) OsExitProcess(1);
    OsDebugBreak();
}

// The trailer's address, computed from the sizes in the header. The pointer in the header may have
// been overwritten, so it is compared, never followed.
BlockTrailer* ExpectedTrailer(void* user, const BlockHeader* header) {
    return reinterpret_cast<BlockTrailer*>(static_cast<std::byte*>(user) + header->size +
                                           header->padding);
}

bool IsIntact(const std::uint8_t (&guard)[kGuardSize]) {
    static constexpr auto kIntact = [] {
        std::array<std::uint8_t, kGuardSize> bytes{};
        bytes.fill(kGuardByte);
        return bytes;
    }();
    return std::memcmp(guard, kIntact.data(), kGuardSize) == 0;
}

// Deliberate: every bad byte is reported, so a debugger stops once for each.
void ReportBadBytes(const BlockHeader* header, bool has_trailer) {
    for (std::size_t i = 0; i < kGuardSize; ++i) {
        const bool rear_intact = !has_trailer || header->trailer->guard[i] == kGuardByte;
        if (header->guard[i] != kGuardByte || !rear_intact) ReportCorruption();
    }
}

}  // namespace

void* AllocateMem(std::size_t size) {
    const std::size_t padding = PaddingFor(size);
    void* block = RequestHeapBlock(size, padding);
    if (block == nullptr) return nullptr;

    auto* header = static_cast<BlockHeader*>(block);
    std::byte* user = static_cast<std::byte*>(block) + sizeof(BlockHeader);
    auto* trailer = reinterpret_cast<BlockTrailer*>(user + size + padding);
    header->magic = kBlockMagic;
    header->size = size;
    header->padding = padding;
    header->trailer = trailer;
    trailer->magic = kBlockMagic;
    std::memset(header->guard, kGuardByte, kGuardSize);
    std::memset(trailer->guard, kGuardByte, kGuardSize);
    std::memset(user, 0, size + padding);

    live_blocks.fetch_add(1, std::memory_order_relaxed);
    live_bytes.fetch_add(size, std::memory_order_relaxed);
    LogBrief(kLogMemory, "[AllocateMem] Allocated %zu bytes at 0x%p (total %zu bytes)", size,
             static_cast<void*>(user), size + padding + kOverhead);
    return user;
}

void* AllocateArray(std::size_t count, std::size_t size) {
    // Deliberate: the product may wrap. Callers pass counts that they computed themselves.
    return AllocateMem(count * size);
}

void* CheckMem(void* user) {
    if (user == nullptr) return nullptr;
    BlockHeader* header = HeaderOf(user);
    const bool has_trailer = header->trailer == ExpectedTrailer(user, header);
    if (header->magic != kBlockMagic || !has_trailer || header->trailer->magic != kBlockMagic) {
        ReportCorruption();
    }
    const bool intact =
        IsIntact(header->guard) && (!has_trailer || IsIntact(header->trailer->guard));
    if (!intact) ReportBadBytes(header, has_trailer);
    return header;
}

void FreeMem(void* user) {
    if (user == nullptr) return;
    auto* header = static_cast<BlockHeader*>(CheckMem(user));
    LogBrief(kLogMemory, "[FreeMem] Freeing %zu bytes at 0x%p",
             static_cast<std::size_t>(header->size), user);
    live_blocks.fetch_sub(1, std::memory_order_relaxed);
    live_bytes.fetch_sub(header->size, std::memory_order_relaxed);
    std::free(header);
}

std::size_t RequestedSize(void* user) {
    auto* header = static_cast<BlockHeader*>(CheckMem(user));
    return header == nullptr ? 0 : static_cast<std::size_t>(header->size);
}

MemoryUse LiveMemory() {
    return {live_blocks.load(std::memory_order_relaxed),
            live_bytes.load(std::memory_order_relaxed)};
}

}  // namespace tarvik
