// The address sanitizer has operators new of its own, which do not call malloc. These do.

#include <cstdlib>
#include <new>

extern "C" void* memalign(std::size_t alignment, std::size_t size);

namespace {

void* OrThrow(void* block) {
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

std::size_t Number(std::align_val_t alignment) { return static_cast<std::size_t>(alignment); }

}  // namespace

#define EXPORT __attribute__((visibility("default")))

EXPORT void* operator new(std::size_t size) { return OrThrow(std::malloc(size)); }
EXPORT void* operator new[](std::size_t size) { return OrThrow(std::malloc(size)); }
EXPORT void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
EXPORT void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
EXPORT void* operator new(std::size_t size, std::align_val_t alignment) {
    return OrThrow(memalign(Number(alignment), size));
}
EXPORT void* operator new[](std::size_t size, std::align_val_t alignment) {
    return OrThrow(memalign(Number(alignment), size));
}
EXPORT void operator delete(void* block) noexcept { std::free(block); }
EXPORT void operator delete[](void* block) noexcept { std::free(block); }
EXPORT void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
EXPORT void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
EXPORT void operator delete(void* block, std::size_t) noexcept { std::free(block); }
EXPORT void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
EXPORT void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
EXPORT void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
EXPORT void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}
EXPORT void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}
