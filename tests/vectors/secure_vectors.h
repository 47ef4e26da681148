#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Whole sessions of the cloud's secure channel with every value on the way: see README.md beside
// this file, whose field names these are.
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

// All of them; ends the process with a line on standard error when the file cannot be read.
const std::vector<SecureVector>& SecureVectors();

Bytes BytesOfHex(std::string_view text);
std::string HexOf(const Bytes& bytes);

}  // namespace tarvik::test
