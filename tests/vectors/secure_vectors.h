#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Whole sessions of the cloud's secure channel with every intermediate value. README.md in this
// folder describes the fields, which have the same names there.
namespace tarvik::test {

using Bytes = std::vector<std::uint8_t>;

struct SealedVector {
    bool from_device;  // direction "tx"
    std::uint64_t counter;
    Bytes nonce, plain, sealed;
};

struct SecureVector {
    std::string name;
    Bytes device_private_key, device_public_key;
    Bytes server_private_key, server_public_key;
    Bytes device_ephemeral_private_key, device_ephemeral_public_key;
    Bytes relay_ephemeral_private_key, relay_ephemeral_public_key;
    Bytes shared_secret_1, shared_secret_2;
    Bytes nhs1_key, nhs1;
    Bytes session_prk, tx_key, rx_key, nonce_salt;
    Bytes welcome, nhs2;
    std::vector<SealedVector> packets;
};

// All of them. Ends the process with a line on standard error if the file cannot be read.
const std::vector<SecureVector>& SecureVectors();

Bytes BytesOfHex(std::string_view text);
std::string HexOf(const Bytes& bytes);

}  // namespace tarvik::test
