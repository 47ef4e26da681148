#pragma once

#include <atomic>
#include <cstdint>

#include "unit/cloud/fake_network.h"

namespace tarvik::test {

// The secure channel of these tests: it sends one NHS1 and one DEVI, and seals a packet by putting
// it into a CRYP unchanged.
struct FakeChannel {
    static void Reset();
    static void EndSession();
    // How often each of its steps fails before it works.
    static inline std::atomic<std::uint32_t> identity_failures{0};
    static inline std::atomic<std::uint32_t> handshake_failures{0};
    static inline std::atomic<std::uint32_t> identify_failures{0};
    static inline std::atomic<std::uint32_t> status{0};
};
Bytes SealedPacket(const Bytes& packet);

}  // namespace tarvik::test
