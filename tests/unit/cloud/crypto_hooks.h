#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "link/packet.h"

// What the linker puts between the channel and mbedTLS, the packet wait and the release of memory.
// Each holds while the object lives; one of a kind at a time.
namespace tarvik::test {

using Bytes = std::vector<std::uint8_t>;

enum class CryptoStep {
    kSeed,
    kRandom,
    kGroupLoad,
    kMpiRead,
    kMpiWrite,
    kMultiply,
    kPointWrite,
    kPointLength,  // the point is written, but not in 65 bytes
    kGenerate,
    kAgree,
    kExtract,
    kExpand,
    kSetKey,
    kEncrypt,
};

inline constexpr int kCryptoFaultCode = -0x4321;

// The call of this function after the next `spared` ones fails, once.
class CryptoFault {
public:
    explicit CryptoFault(CryptoStep step, unsigned spared = 0);
    ~CryptoFault();
    CryptoFault(const CryptoFault&) = delete;
    CryptoFault& operator=(const CryptoFault&) = delete;

    bool Struck() const;
};

// The ephemeral key pair that the device draws.
class FixedEphemeral {
public:
    FixedEphemeral(const Bytes& scalar, const Bytes& point);
    ~FixedEphemeral();
    FixedEphemeral(const FixedEphemeral&) = delete;
    FixedEphemeral& operator=(const FixedEphemeral&) = delete;
};

// What the primitives gave, in order.
class CryptoRecord {
public:
    CryptoRecord();
    ~CryptoRecord();
    CryptoRecord(const CryptoRecord&) = delete;
    CryptoRecord& operator=(const CryptoRecord&) = delete;

    std::vector<Bytes> shared_secrets;
    std::vector<Bytes> extracted;
    std::size_t keys_set_up = 0;
};

// The next wait for a packet ends at once with this one, whatever it asks for.
void HandToNextWait(PacketPtr packet);

// Looks for these bytes, and for them in reverse, in every tracked block that is released.
class ReleasedMemory {
public:
    explicit ReleasedMemory(std::vector<Bytes> secrets);
    ~ReleasedMemory();
    ReleasedMemory(const ReleasedMemory&) = delete;
    ReleasedMemory& operator=(const ReleasedMemory&) = delete;

    std::size_t Blocks() const { return blocks_; }
    std::size_t Leaks() const { return leaks_; }
    void Look(const std::uint8_t* block, std::size_t size);

private:
    std::vector<Bytes> secrets_;
    std::size_t blocks_ = 0;
    std::size_t leaks_ = 0;
};

}  // namespace tarvik::test
