#include <algorithm>
#include <string>

#include "doctor/access.h"
#include "doctor/configuration.h"
#include "doctor/diagnoses.h"
#include "platform/files.h"
#include "text/hex.h"
#include "transport/cloud/secure_channel_crypto.h"

namespace dpdu {
namespace {

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

Finding DigitsFinding(Diagnosis diagnosis, std::size_t bytes, const std::string& text) {
    return Found(diagnosis,
                 {{"digits", std::to_string(2 * bytes)}, {"length", std::to_string(text.size())}});
}

Finding ServerKeyFinding(const std::string& text) {
    if (text.empty()) return Found(Diagnosis::kServerKeyMissing);
    if (!IsHex(text, tarvik::kPointSize)) {
        return DigitsFinding(Diagnosis::kServerKeyDigits, tarvik::kPointSize, text);
    }
    return Found(IsOnCurve(text) ? Diagnosis::kServerKey : Diagnosis::kServerKeyCurve);
}

Finding DeviceKeyFinding(const std::string& text) {
    if (text.empty()) return Found(Diagnosis::kDeviceKeyNone);
    if (IsMalformedDeviceKey(text)) {
        return DigitsFinding(Diagnosis::kDeviceKeyDigits, tarvik::kScalarSize, text);
    }
    return Found(IsScalar(text) ? Diagnosis::kDeviceKey : Diagnosis::kDeviceKeyCurve);
}

bool IsWriteNeeded(const tarvik::Config& config) {
    return config.useCloud && config.devicePrivateKey[0] == '\0';
}

}  // namespace

bool IsServerKey(const std::string& text) {
    return IsHex(text, tarvik::kPointSize) && IsOnCurve(text);
}

bool IsDeviceKey(const std::string& text) {
    return IsHex(text, tarvik::kScalarSize) && IsScalar(text);
}

bool IsMalformedDeviceKey(const std::string& text) {
    return !text.empty() && !IsHex(text, tarvik::kScalarSize);
}

Findings CheckKeys(const ConfigFile& file) {
    if (!file.is_usable || !file.values.useCloud) return {};
    return {ServerKeyFinding(file.values.serverPublicKey),
            DeviceKeyFinding(file.values.devicePrivateKey)};
}

Findings CheckPermissions(const ConfigFile& file) {
    if (!file.is_there || !file.copied_to.empty()) return {};
    Findings findings;
    const std::string readers = OtherReaders(file.path);
    if (!readers.empty()) {
        const bool is_secret = file.values.devicePrivateKey[0] != '\0';
        findings.push_back(
            Found(is_secret ? Diagnosis::kPermissionsKey : Diagnosis::kPermissionsReaders,
                  {{"path", file.path},
                   {"readers", readers},
                   {"command", KeepToOwnerCommand(file.path)}}));
    }
    if (IsWriteNeeded(file.values) && !tarvik::OsFileWritable(file.path.c_str())) {
        findings.push_back(Found(Diagnosis::kPermissionsWrite, {{"path", file.path}}));
    }
    if (findings.empty()) findings.push_back(Found(Diagnosis::kPermissions));
    return findings;
}

}  // namespace dpdu
