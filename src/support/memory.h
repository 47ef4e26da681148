#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

// The tracked allocator. Every heap block of the library's own objects is between two guards, which
// are checked when the block is released. A damaged guard ends the process.
namespace tarvik {

// Zero-filled, at least `size` bytes (0 is allowed), 16-byte aligned. Null: the heap is exhausted.
void* AllocateMem(std::size_t size);
// `count` times `size`, not checked for overflow.
void* AllocateArray(std::size_t count, std::size_t size);
// Checks the guards and returns the start of the heap block; null for null.
void* CheckMem(void* user);
void FreeMem(void* user);  // null does nothing
// The size that was requested. Checks the guards.
std::size_t RequestedSize(void* user);

struct MemoryUse {
    std::uint64_t blocks;  // live
    std::uint64_t bytes;   // live, as requested
};
MemoryUse LiveMemory();

struct FreeMemDeleter {
    void operator()(void* block) const noexcept { FreeMem(block); }
};
// Owns a plain record or array of plain elements: no destructor runs.
template <typename T>
using Tracked = std::unique_ptr<T, FreeMemDeleter>;

// A zero-filled plain record; null when memory is out.
template <typename T>
Tracked<T> AllocateRecord() {
    static_assert(std::is_trivially_destructible_v<T>);
    return Tracked<T>(static_cast<T*>(AllocateMem(sizeof(T))));
}

// An object with a constructor and a destructor in a tracked block.
template <typename T, typename... Args>
T* NewTracked(Args&&... args) {
    void* block = AllocateMem(sizeof(T));
    return block == nullptr ? nullptr : ::new (block) T(std::forward<Args>(args)...);
}
template <typename T>
void DeleteTracked(T* object) noexcept {
    if (object == nullptr) return;
    object->~T();
    FreeMem(object);
}

// For standard containers. Throws std::bad_alloc, which must not leave the library.
template <typename T>
struct TrackedAllocator {
    using value_type = T;
    TrackedAllocator() = default;
    template <typename U>
    TrackedAllocator(const TrackedAllocator<U>&) noexcept {}
    T* allocate(std::size_t count) {
        // NOLINTNEXTLINE(bugprone-sizeof-expression): of lists of pointers
        void* block = AllocateArray(count, sizeof(T));
        if (block == nullptr) throw std::bad_alloc();
        return static_cast<T*>(block);
    }
    void deallocate(T* block, std::size_t) noexcept { FreeMem(block); }
    friend bool operator==(const TrackedAllocator&, const TrackedAllocator&) { return true; }
};

}  // namespace tarvik
