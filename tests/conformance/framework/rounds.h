#pragma once

// How often the long tests repeat what they do. The full number applies where the library runs at
// its own speed; under Wine and under a sanitizer each round costs many times as much.

#include <cstdint>

namespace conformance {

enum class Speed : std::uint8_t { kFull, kWine, kSanitizer };

// Set by the build.
inline constexpr Speed kSpeed = Speed::TARVIK_TEST_SPEED;

constexpr std::uint32_t Rounds(std::uint32_t full, std::uint32_t wine, std::uint32_t sanitizer) {
    switch (kSpeed) {
        case Speed::kFull:
            return full;
        case Speed::kWine:
            return wine;
        case Speed::kSanitizer:
            return sanitizer;
    }
    return full;
}

inline constexpr std::uint32_t kReplugCycles = Rounds(1000, 50, 20);
inline constexpr std::uint32_t kReplugWarmUp = Rounds(50, 10, 5);
inline constexpr std::uint32_t kRequests = Rounds(100'000, 2'000, 2'000);
inline constexpr std::uint32_t kFunctionalRequests = Rounds(10'000, 500, 500);
inline constexpr std::uint32_t kDestructRounds = Rounds(100, 25, 25);
inline constexpr std::uint32_t kRequestsPerLink = Rounds(50, 10, 10);
inline constexpr std::uint32_t kItemShuffles = Rounds(10, 5, 5);
inline constexpr std::uint32_t kRelayLosses = Rounds(2, 1, 1);
inline constexpr std::uint32_t kRandomCallsMs = 10'000;

// A sanitizer keeps released memory for a while, so memory is not compared there. Its own leak
// check replaces that.
inline constexpr bool kMemoryTells = kSpeed != Speed::kSanitizer;

}  // namespace conformance
