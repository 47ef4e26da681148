#include "transport/cloud/secure_channel_crypto.h"

#include <mbedtls/hkdf.h>
#include <mbedtls/md.h>

#include <cstring>

namespace tarvik {
namespace {

const std::uint8_t* BytesOf(std::string_view text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

}  // namespace

bool ReadPublicKey(EcGroup* group, const EncodedPoint& from, EcPoint* point) {
    return mbedtls_ecp_point_read_binary(group->Get(), point->Get(), from.data(), from.size()) ==
               0 &&
           mbedtls_ecp_check_pubkey(group->Get(), point->Get()) == 0;
}

bool HkdfExtract(ByteView ikm, Secret<32>* prk) {
    return mbedtls_hkdf_extract(mbedtls_md_info_from_type(MBEDTLS_MD_SHA256), nullptr, 0, ikm.data,
                                ikm.size, prk->data()) == 0;
}

bool HkdfExpand(const Secret<32>& prk, std::string_view info, Secret<32>* out) {
    return mbedtls_hkdf_expand(mbedtls_md_info_from_type(MBEDTLS_MD_SHA256), prk.data(), prk.size(),
                               BytesOf(info), info.size(), out->data(), out->size()) == 0;
}

AeadNonce NonceFor(const Secret<32>& salt, std::uint64_t counter) {
    constexpr std::size_t kCounterOffset = 4;
    AeadNonce nonce;
    std::memcpy(nonce.data(), salt.data(), nonce.size());
    for (std::size_t i = 0; i < sizeof counter; ++i) {
        const auto digit = static_cast<std::uint8_t>(counter >> 8 * i);
        nonce[kCounterOffset + i] = static_cast<std::uint8_t>(nonce[kCounterOffset + i] ^ digit);
    }
    return nonce;
}

bool AeadKey::Set(const Secret<kAeadKeySize>& key) {
    return mbedtls_gcm_setkey(gcm_.Get(), MBEDTLS_CIPHER_ID_AES, key.data(), kAeadKeySize * 8) == 0;
}

bool AeadKey::Encrypt(const AeadNonce& nonce, std::string_view additional, ByteView plain,
                      std::uint8_t* out, std::uint8_t* tag) {
    return mbedtls_gcm_crypt_and_tag(gcm_.Get(), MBEDTLS_GCM_ENCRYPT, plain.size, nonce.data(),
                                     nonce.size(), BytesOf(additional), additional.size(),
                                     plain.data, out, kAeadTagSize, tag) == 0;
}

bool AeadKey::Decrypt(const AeadNonce& nonce, std::string_view additional, ByteView cipher,
                      const std::uint8_t* tag, std::uint8_t* out) {
    return mbedtls_gcm_auth_decrypt(gcm_.Get(), cipher.size, nonce.data(), nonce.size(),
                                    BytesOf(additional), additional.size(), tag, kAeadTagSize,
                                    cipher.data, out) == 0;
}

}  // namespace tarvik
