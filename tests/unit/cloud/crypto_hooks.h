#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

// What tests put between the channel and mbedTLS, whose functions the linker redirects to these
// hooks. Each is in force while its object lives; one of a kind at a time.
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

// Lets one call of this function fail: the first after the next `spared` ones.
class CryptoFault {
public:
    explicit CryptoFault(CryptoStep step, unsigned spared = 0);
    ~CryptoFault();
    CryptoFault(const CryptoFault&) = delete;
    CryptoFault& operator=(const CryptoFault&) = delete;

    bool Struck() const;
};

// Determines the ephemeral key pair that the device draws.
class FixedEphemeral {
public:
    FixedEphemeral(const Bytes& scalar, const Bytes& point);
    ~FixedEphemeral();
    FixedEphemeral(const FixedEphemeral&) = delete;
    FixedEphemeral& operator=(const FixedEphemeral&) = delete;
};

// What the primitives returned, in order.
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

// Calls `look` before each step.
class CryptoObserver {
public:
    explicit CryptoObserver(std::function<void()> look);
    ~CryptoObserver();
    CryptoObserver(const CryptoObserver&) = delete;
    CryptoObserver& operator=(const CryptoObserver&) = delete;
};

}  // namespace tarvik::test
