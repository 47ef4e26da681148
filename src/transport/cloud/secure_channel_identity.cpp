// The device's long-lived keys.
#include <cstring>

#include "support/config.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_random.h"
#include "transport/cloud/secure_channel_state.h"

namespace tarvik {
namespace {

bool SeedForIdentity() {
    if (CloudSecInitRng()) return true;
    CloudLog("[CloudSec] [E] Failed to initialize RNG\n");
    return false;
}

// --- public key ---

bool Succeeds(const char* function, int result) {
    if (result == 0) return true;
    CloudLog("[CloudSec] [E] %s failed: -0x%04X\n", function, MbedTlsCode(result));
    return false;
}

bool WritePublicKey(EcGroup* group, const EcPoint& point) {
    EncodedPoint encoded;
    std::size_t length = 0;
    if (!Succeeds(
            "ecp_point_write_binary",
            mbedtls_ecp_point_write_binary(group->Get(), point.Get(), MBEDTLS_ECP_PF_UNCOMPRESSED,
                                           &length, encoded.data(), encoded.size()))) {
        return false;
    }
    if (length != kPointSize) {
        CloudLog("[CloudSec] [E] unexpected out_len: %zu (expected %d)\n", length,
                 static_cast<int>(kPointSize));
        return false;
    }
    cloud_identity.devicePublicKey = encoded;
    return true;
}

}  // namespace

bool CloudSecDerivePublicKey() {
    if (!SeedForIdentity()) return false;
    EcGroup group;
    BigNumber scalar;
    EcPoint product;
    const auto& key = cloud_identity.devicePrivateKey;
    // The multiplication refuses a number that is not a scalar of the curve.
    return Succeeds("ecp_group_load",
                    mbedtls_ecp_group_load(group.Get(), MBEDTLS_ECP_DP_SECP256R1)) &&
           Succeeds("mpi_read_binary",
                    mbedtls_mpi_read_binary(scalar.Get(), key.data(), key.size())) &&
           Succeeds("ecp_mul",
                    mbedtls_ecp_mul(group.Get(), product.Get(), scalar.Get(), &group.Get()->G,
                                    mbedtls_ctr_drbg_random, CloudSecRng())) &&
           WritePublicKey(&group, product);
}

namespace {

// --- keys as text ---

int DigitValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

// Exactly `size` pairs of hexadecimal digits, nothing else.
bool ParseHex(const char* text, std::uint8_t* bytes, std::size_t size) {
    if (std::strlen(text) != 2 * size) return false;
    for (std::size_t i = 0; i < size; ++i) {
        const int high = DigitValue(text[2 * i]);
        const int low = DigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0) return false;
        bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return true;
}

void FormatHex(const Secret<kScalarSize>& bytes, char* text) {
    static constexpr char kDigits[] = "0123456789abcdef";
    for (const std::uint8_t byte : bytes) {
        *text++ = kDigits[byte >> 4];
        *text++ = kDigits[byte & 15];
    }
    *text = '\0';
}

// --- loading ---

// Deliberate: the number is not reduced to the order of the curve; the derivation refuses the few
// that are not scalars.
bool DrawPrivateKey() {
    auto& key = cloud_identity.devicePrivateKey;
    const int result = mbedtls_ctr_drbg_random(CloudSecRng(), key.data(), key.size());
    if (result == 0) return true;
    CloudLog("[CloudSec] [E] Random generation failed: -0x%04X\n", MbedTlsCode(result));
    return false;
}

bool MakeKeyPair(const char* failure) {
    if (!DrawPrivateKey()) return false;
    if (CloudSecDerivePublicKey()) return true;
    CloudLog("%s", failure);
    return false;
}

void SavePrivateKey() {
    static_assert(sizeof config.devicePrivateKey > 2 * kScalarSize);
    FormatHex(cloud_identity.devicePrivateKey, config.devicePrivateKey);
    if (WriteConfig(&config)) {
        CloudLog("[CloudSec] [I] New device private key saved to config.json\n");
        return;
    }
    CloudLog("[CloudSec] [E] WARNING: Failed to save new device key to config.json\n");
    CloudLog("[CloudSec] [E] Key will be regenerated on next restart!\n");
}

bool LoadDeviceKey() {
    auto& key = cloud_identity.devicePrivateKey;
    if (config.devicePrivateKey[0] == '\0') {
        CloudLog("[CloudSec] [I] Generating new device keypair (no key in config)\n");
        if (!MakeKeyPair("[CloudSec] [E] Failed to derive public key\n")) return false;
        SavePrivateKey();
        return true;
    }
    if (!ParseHex(config.devicePrivateKey, key.data(), key.size())) {
        CloudLog("[CloudSec] [E] Failed to parse devicePrivateKey from config\n");
        return false;
    }
    if (CloudSecDerivePublicKey()) return true;
    CloudLog("[CloudSec] [E] Failed to derive public key from stored private key\n");
    CloudLog("[CloudSec] [E] Generating new keypair instead\n");
    if (!MakeKeyPair("[CloudSec] [E] Failed to generate keypair\n")) return false;
    SavePrivateKey();
    return true;
}

bool LoadServerKey() {
    auto& key = cloud_identity.serverPublicKey;
    if (config.serverPublicKey[0] == '\0') {
        CloudLog("[CloudSec] [E] ERROR: serverPublicKey not set in config\n");
        return false;
    }
    if (ParseHex(config.serverPublicKey, key.data(), key.size())) return true;
    CloudLog("[CloudSec] [E] Failed to parse serverPublicKey from config\n");
    return false;
}

}  // namespace

bool CloudSecLoadIdentity() {
    cloud_identity.identityLoaded = false;
    if (!SeedForIdentity() || !LoadDeviceKey() || !LoadServerKey()) return false;
    cloud_identity.identityLoaded = true;
    CloudLog("[CloudSec] [I] Device identity loaded successfully\n");
    return true;
}

}  // namespace tarvik
