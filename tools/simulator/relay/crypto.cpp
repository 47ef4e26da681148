#include "relay/crypto.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/obj_mac.h>
#include <openssl/rand.h>

#include <memory>
#include <stdexcept>

#include "relay/releaser.h"

namespace brennix {

namespace {

using Number = std::unique_ptr<BIGNUM, Releaser<BN_clear_free>>;
using CurvePoint = std::unique_ptr<EC_POINT, Releaser<EC_POINT_free>>;
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, Releaser<EVP_CIPHER_CTX_free>>;

// Only for calls that cannot fail with sane arguments.
void Require(bool done, const char* what) {
    if (!done) throw std::runtime_error(std::string("OpenSSL: ") + what + " failed");
}

const EC_GROUP* Curve() {
    static const EC_GROUP* const curve = EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1);
    Require(curve != nullptr, "P-256");
    return curve;
}

Number ToNumber(const Key& bytes) {
    Number number(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
    Require(number != nullptr, "BN_bin2bn");
    return number;
}

bool IsScalar(const BIGNUM* number) {
    return !BN_is_zero(number) && BN_cmp(number, EC_GROUP_get0_order(Curve())) < 0;
}

CurvePoint NewPoint() {
    CurvePoint point(EC_POINT_new(Curve()));
    Require(point != nullptr, "EC_POINT_new");
    return point;
}

Key Hmac(ByteSpan key, ByteSpan data) {
    Key result;
    unsigned size = 0;
    Require(HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), data.data(), data.size(),
                 result.data(), &size) != nullptr,
            "HMAC");
    return result;
}

}  // namespace

std::optional<KeyPair> KeyPairOf(const Key& secret) {
    const Number scalar = ToNumber(secret);
    if (!IsScalar(scalar.get())) return std::nullopt;
    const CurvePoint point = NewPoint();
    Require(EC_POINT_mul(Curve(), point.get(), scalar.get(), nullptr, nullptr, nullptr) == 1,
            "EC_POINT_mul");
    KeyPair pair = {secret, {}};
    Require(EC_POINT_point2oct(Curve(), point.get(), POINT_CONVERSION_UNCOMPRESSED,
                               pair.point.data(), pair.point.size(), nullptr) == kPointSize,
            "EC_POINT_point2oct");
    return pair;
}

KeyPair MakeKeyPair() {
    for (;;) {
        Key secret;
        Require(RAND_bytes(secret.data(), static_cast<int>(secret.size())) == 1, "RAND_bytes");
        if (const std::optional<KeyPair> pair = KeyPairOf(secret)) return *pair;
    }
}

std::optional<Key> SharedSecret(const Key& secret, const Point& point) {
    const Number scalar = ToNumber(secret);
    const CurvePoint other = NewPoint();
    // Refuses points that are not on the curve.
    if (EC_POINT_oct2point(Curve(), other.get(), point.data(), point.size(), nullptr) != 1) {
        return std::nullopt;
    }
    const CurvePoint product = NewPoint();
    const Number x(BN_new());
    Require(EC_POINT_mul(Curve(), product.get(), nullptr, other.get(), scalar.get(), nullptr) == 1,
            "EC_POINT_mul");
    if (EC_POINT_get_affine_coordinates(Curve(), product.get(), x.get(), nullptr, nullptr) != 1) {
        return std::nullopt;  // the point at infinity has none
    }
    Key shared;
    Require(BN_bn2binpad(x.get(), shared.data(), static_cast<int>(shared.size())) > 0,
            "BN_bn2binpad");
    return shared;
}

Key HkdfExtract(ByteSpan input) {
    static constexpr Key kNoSalt = {};
    return Hmac(kNoSalt, input);
}

Key HkdfExpand(const Key& key, std::string_view info) {
    Bytes block;
    AppendBytes(&block, AsBytes(info));
    block.push_back(1);  // one block is as long as the key
    return Hmac(key, block);
}

Encrypted Encrypt(const Key& key, const Nonce& nonce, std::string_view associated, ByteSpan plain) {
    const Cipher cipher(EVP_CIPHER_CTX_new());
    Encrypted result = {{}, Bytes(plain.size())};
    int size = 0;
    Tag end;  // GCM writes nothing more, but needs a buffer
    const bool done =
        cipher != nullptr &&
        EVP_EncryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, key.data(), nonce.data()) &&
        EVP_EncryptUpdate(cipher.get(), nullptr, &size, AsBytes(associated).data(),
                          static_cast<int>(associated.size())) &&
        EVP_EncryptUpdate(cipher.get(), result.text.data(), &size, plain.data(),
                          static_cast<int>(plain.size())) &&
        EVP_EncryptFinal_ex(cipher.get(), end.data(), &size) &&
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, result.tag.data());
    Require(done, "AES-256-GCM");
    return result;
}

std::optional<Bytes> Decrypt(const Key& key, const Nonce& nonce, std::string_view associated,
                             const Tag& tag, ByteSpan text) {
    const Cipher cipher(EVP_CIPHER_CTX_new());
    Bytes plain(text.size());
    Tag expected = tag;
    int size = 0;
    Tag end;
    const bool ready =
        cipher != nullptr &&
        EVP_DecryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, key.data(), nonce.data()) &&
        EVP_DecryptUpdate(cipher.get(), nullptr, &size, AsBytes(associated).data(),
                          static_cast<int>(associated.size())) &&
        EVP_DecryptUpdate(cipher.get(), plain.data(), &size, text.data(),
                          static_cast<int>(text.size())) &&
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, expected.data());
    Require(ready, "AES-256-GCM");
    if (EVP_DecryptFinal_ex(cipher.get(), end.data(), &size) != 1) return std::nullopt;
    return plain;
}

}  // namespace brennix
