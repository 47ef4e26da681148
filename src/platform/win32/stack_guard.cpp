// What the compiler's stack protector needs. MinGW's own would ask the CryptoAPI for a random
// number, and so load DLLs, while the loader holds its lock to load this one.
#include <windows.h>

#include <cstdint>

extern "C" {

// The names are the compiler's.
std::uintptr_t __stack_chk_guard = 0;

// The process cannot be trusted any more: it ends at once, without handlers.
[[noreturn]] void __stack_chk_fail() {
    constexpr unsigned kStackCookieCheckFailure = 2;
    asm volatile("int $0x29" : : "c"(kStackCookieCheckFailure));  // __fastfail
    __builtin_unreachable();
}

}  // extern "C"

namespace {

// As the runtime of Microsoft's compiler chooses it: from what differs between processes. A text
// that overflows stops before its lowest byte. Runs first of all; no function with a guard calls
// it.
__attribute__((constructor(101), no_stack_protector)) void ChooseGuard() {
    LARGE_INTEGER counter;
    FILETIME now;
    ::QueryPerformanceCounter(&counter);
    ::GetSystemTimeAsFileTime(&now);
    const std::uint64_t seeds[] = {
        static_cast<std::uint64_t>(counter.QuadPart),
        (std::uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime,
        (std::uint64_t{::GetCurrentProcessId()} << 32) | ::GetCurrentThreadId(),
        reinterpret_cast<std::uintptr_t>(&counter),
        reinterpret_cast<std::uintptr_t>(&__stack_chk_guard),
    };
    std::uint64_t guard = 0;
    for (const std::uint64_t seed : seeds) {
        guard = (guard ^ seed) * 0x9E3779B97F4A7C15u;
        guard ^= guard >> 32;
    }
    __stack_chk_guard = guard & ~std::uintptr_t{0xFF};
}

}  // namespace
