#include "vectors/secure_vectors.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>

namespace tarvik::test {

using Json = nlohmann::json;

Bytes BytesOfHex(std::string_view text) {
    Bytes bytes;
    for (std::size_t at = 0; at + 2 <= text.size(); at += 2) {
        const std::string pair(text.substr(at, 2));
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16)));
    }
    return bytes;
}

std::string HexOf(const Bytes& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

namespace {

Bytes Field(const Json& object, const char* name) {
    return BytesOfHex(object.at(name).get<std::string>());
}

SealedVector ReadPacket(const Json& packet) {
    return {packet.at("direction") == "tx", packet.at("counter").get<std::uint64_t>(),
            Field(packet, "nonce"), Field(packet, "plain"), Field(packet, "sealed")};
}

SecureVector ReadCase(const Json& from) {
    struct Row {
        const char* name;
        Bytes SecureVector::*field;
    };
    static constexpr Row kRows[] = {
        {"device_private_key", &SecureVector::device_private_key},
        {"device_public_key", &SecureVector::device_public_key},
        {"server_private_key", &SecureVector::server_private_key},
        {"server_public_key", &SecureVector::server_public_key},
        {"device_ephemeral_private_key", &SecureVector::device_ephemeral_private_key},
        {"device_ephemeral_public_key", &SecureVector::device_ephemeral_public_key},
        {"relay_ephemeral_private_key", &SecureVector::relay_ephemeral_private_key},
        {"relay_ephemeral_public_key", &SecureVector::relay_ephemeral_public_key},
        {"shared_secret_1", &SecureVector::shared_secret_1},
        {"shared_secret_2", &SecureVector::shared_secret_2},
        {"nhs1_key", &SecureVector::nhs1_key},
        {"nhs1", &SecureVector::nhs1},
        {"session_prk", &SecureVector::session_prk},
        {"tx_key", &SecureVector::tx_key},
        {"rx_key", &SecureVector::rx_key},
        {"nonce_salt", &SecureVector::nonce_salt},
        {"welcome", &SecureVector::welcome},
        {"nhs2", &SecureVector::nhs2},
    };
    SecureVector vector;
    vector.name = from.at("name").get<std::string>();
    for (const Row& row : kRows)
        vector.*row.field = Field(from, row.name);
    for (const Json& packet : from.at("packets"))
        vector.packets.push_back(ReadPacket(packet));
    return vector;
}

std::vector<SecureVector> ReadAll() {
    try {
        std::ifstream file(TARVIK_SECURE_VECTORS, std::ios::binary);
        std::vector<SecureVector> vectors;
        const Json content = Json::parse(file);
        for (const Json& from : content.at("cases"))
            vectors.push_back(ReadCase(from));
        return vectors;
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "%s: %s\n", TARVIK_SECURE_VECTORS, fault.what());
        std::exit(1);
    }
}

}  // namespace

const std::vector<SecureVector>& SecureVectors() {
    static const std::vector<SecureVector> vectors = ReadAll();
    return vectors;
}

}  // namespace tarvik::test
