#include <algorithm>
#include <string>

#include "doctor/access.h"
#include "doctor/configuration.h"
#include "platform/files.h"
#include "text/hex.h"
#include "transport/cloud/secure_channel_crypto.h"

namespace dpdu {
namespace {

constexpr char kServerSubject[] = "serverPublicKey";
constexpr char kDeviceSubject[] = "devicePrivateKey";

// Only hexadecimal digits, as the library requires.
bool IsHex(const std::string& text, std::size_t bytes) {
    return text.size() == 2 * bytes &&
           text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
}

bool IsOnCurve(const std::string& text) {
    const std::optional<Bytes> bytes = ParseHex(text);
    tarvik::EncodedPoint encoded = {};
    std::copy(bytes->begin(), bytes->end(), encoded.begin());
    tarvik::EcGroup group;
    tarvik::EcPoint point;
    return mbedtls_ecp_group_load(group.Get(), MBEDTLS_ECP_DP_SECP256R1) == 0 &&
           tarvik::ReadPublicKey(&group, encoded, &point);
}

bool IsScalar(const std::string& text) {
    tarvik::EcGroup group;
    tarvik::BigNumber scalar;
    return mbedtls_ecp_group_load(group.Get(), MBEDTLS_ECP_DP_SECP256R1) == 0 &&
           mbedtls_mpi_read_string(scalar.Get(), 16, text.c_str()) == 0 &&
           mbedtls_ecp_check_privkey(group.Get(), scalar.Get()) == 0;
}

std::string Digits(std::size_t bytes, const std::string& text) {
    return "is not " + std::to_string(2 * bytes) + " hexadecimal digits (" +
           std::to_string(text.size()) + " characters)";
}

Finding ServerKeyFinding(const std::string& text) {
    const std::string advice = "get it from the relay, for example with 'brennix-relay keygen'";
    if (text.empty()) return {Verdict::kWrong, kServerSubject, "is missing", advice};
    if (!IsHex(text, tarvik::kPointSize)) {
        return {Verdict::kWrong, kServerSubject, Digits(tarvik::kPointSize, text), advice};
    }
    if (!IsOnCurve(text)) {
        return {Verdict::kWrong, kServerSubject, "is no point of the curve P-256", advice};
    }
    return {Verdict::kFine, kServerSubject, "is a key of the curve P-256"};
}

Finding DeviceKeyFinding(const std::string& text) {
    if (text.empty()) {
        return {Verdict::kFine, kDeviceSubject, "is empty: the library makes one"};
    }
    if (!IsHex(text, tarvik::kScalarSize)) {
        return {Verdict::kWrong, kDeviceSubject, Digits(tarvik::kScalarSize, text),
                "clear it, and register the new device with the relay"};
    }
    if (!IsScalar(text)) {
        return {Verdict::kNote, kDeviceSubject, "is no key of the curve P-256",
                "the library replaces it; register the new device with the relay"};
    }
    return {Verdict::kFine, kDeviceSubject, "is a key of the curve P-256"};
}

bool IsWriteNeeded(const tarvik::Config& config) {
    return config.useCloud && config.devicePrivateKey[0] == '\0';
}

}  // namespace

Findings CheckKeys(const ConfigFile& file) {
    if (!file.is_usable || !file.values.useCloud) return {};
    return {ServerKeyFinding(file.values.serverPublicKey),
            DeviceKeyFinding(file.values.devicePrivateKey)};
}

Findings CheckPermissions(const ConfigFile& file) {
    constexpr char kSubject[] = "permissions";
    if (!file.is_there || !file.copied_to.empty()) return {};
    Findings findings;
    const std::string readers = OtherReaders(file.path);
    if (!readers.empty()) {
        const bool is_secret = file.values.devicePrivateKey[0] != '\0';
        findings.push_back({is_secret ? Verdict::kWrong : Verdict::kNote, kSubject,
                            file.path + " can be read by " + readers,
                            KeepToOwnerCommand(file.path)});
    }
    if (IsWriteNeeded(file.values) && !tarvik::OsFileWritable(file.path.c_str())) {
        findings.push_back({Verdict::kWrong, kSubject,
                            "the library cannot keep its key in " + file.path,
                            "let this user write it"});
    }
    if (findings.empty()) findings.push_back({Verdict::kFine, kSubject, "only its owner reads it"});
    return findings;
}

}  // namespace dpdu
