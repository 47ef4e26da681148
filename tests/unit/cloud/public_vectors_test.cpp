// The channel's primitives with the public vectors in Debian's package: NIST's for AES-GCM and
// ECDH, those of RFC 5869 for HKDF.
#include <mbedtls/ecdh.h>
#include <mbedtls/hkdf.h>

#include <fstream>
#include <map>

#include "unit/cloud/secure_fixture.h"

namespace tarvik::test {
namespace {

// Reads rows "name = value" in groups: a group ends where its first name appears again.
class VectorFile {
public:
    using Group = std::map<std::string, std::string>;

    explicit VectorFile(const std::string& name)
        : file_(std::string(TARVIK_PUBLIC_VECTORS) + "/" + name, std::ios::binary) {
        EXPECT_TRUE(file_.is_open())
            << name << " is missing: install the package python3-cryptography-vectors";
    }
    // `first` is the name that each group begins with. A row in brackets, "[Keylen = 256]", sets a
    // name for all groups after it; without "=" it sets "section". A word alone ("FAIL") is "word".
    std::vector<Group> Groups(const std::string& first) {
        std::vector<Group> groups;
        Group common;
        std::string line;
        while (std::getline(file_, line)) {
            line.erase(line.find_last_not_of(" \r\n") + 1);
            if (line.empty() || line[0] == '#') continue;
            if (line[0] == '[') {
                AddRow(line.substr(1, line.size() - 2), "section", &common);
                continue;
            }
            const bool begins = line.starts_with(first + " ");
            if (begins) groups.push_back(common);
            if (!groups.empty()) AddRow(line, "word", &groups.back());
        }
        return groups;
    }

private:
    static void AddRow(const std::string& row, const char* without_name, Group* group) {
        const std::size_t sign = row.find('=');
        if (sign == std::string::npos) {
            (*group)[without_name] = row;
            return;
        }
        std::string name = row.substr(0, sign);
        name.erase(name.find_last_not_of(' ') + 1);
        const std::size_t value = row.find_first_not_of(' ', sign + 1);
        (*group)[name] = value == std::string::npos ? "" : row.substr(value);
    }

    std::ifstream file_;
};

Bytes FieldOf(const VectorFile::Group& group, const char* name) {
    const auto found = group.find(name);
    EXPECT_NE(found, group.end()) << name;
    return found == group.end() ? Bytes() : BytesOfHex(found->second);
}

template <std::size_t N>
void Fill(Secret<N>* secret, const Bytes& bytes) {
    ASSERT_EQ(bytes.size(), N);
    std::copy(bytes.begin(), bytes.end(), secret->begin());
}

class PublicVectors : public SecureChannel {
protected:
    // Whether the channel uses this form: a nonce of 12 bytes, a tag of 16.
    static bool IsOurForm(const VectorFile::Group& group) {
        return group.at("IVlen") == "96" && group.at("Taglen") == "128";
    }
    static AeadNonce NonceOf(const VectorFile::Group& group) {
        AeadNonce nonce{};
        const Bytes iv = FieldOf(group, "IV");
        std::copy(iv.begin(), iv.end(), nonce.begin());
        return nonce;
    }
    static std::string AdditionalOf(const VectorFile::Group& group) {
        const Bytes bytes = FieldOf(group, "AAD");
        return std::string(bytes.begin(), bytes.end());
    }
};

TEST_F(PublicVectors, AesGcmEncrypts) {
    unsigned count = 0;
    for (const auto& group : VectorFile("ciphers/AES/GCM/gcmEncryptExtIV256.rsp").Groups("Count")) {
        if (!IsOurForm(group)) continue;
        ++count;
        Secret<32> secret;
        Fill(&secret, FieldOf(group, "Key"));
        AeadKey key;
        ASSERT_TRUE(key.Set(secret));
        const Bytes plain = FieldOf(group, "PT");
        Bytes out(plain.size());
        Bytes tag(16);
        ASSERT_TRUE(key.Encrypt(NonceOf(group), AdditionalOf(group), {plain.data(), plain.size()},
                                out.data(), tag.data()));
        EXPECT_EQ(out, FieldOf(group, "CT"));
        EXPECT_EQ(tag, FieldOf(group, "Tag"));
    }
    EXPECT_EQ(count, 375u);
}

TEST_F(PublicVectors, AesGcmDecryptsAndRefuses) {
    unsigned opened = 0;
    unsigned refused = 0;
    for (const auto& group : VectorFile("ciphers/AES/GCM/gcmDecrypt256.rsp").Groups("Count")) {
        if (!IsOurForm(group)) continue;
        Secret<32> secret;
        Fill(&secret, FieldOf(group, "Key"));
        AeadKey key;
        ASSERT_TRUE(key.Set(secret));
        const Bytes cipher = FieldOf(group, "CT");
        Bytes out(cipher.size(), 0xEE);
        const bool genuine = group.count("word") == 0;
        ASSERT_EQ(key.Decrypt(NonceOf(group), AdditionalOf(group), {cipher.data(), cipher.size()},
                              FieldOf(group, "Tag").data(), out.data()),
                  genuine);
        EXPECT_EQ(out, genuine ? FieldOf(group, "PT") : Bytes(cipher.size()));
        ++(genuine ? opened : refused);
    }
    EXPECT_EQ(opened + refused, 375u);
    EXPECT_GT(opened, 100u);
    EXPECT_GT(refused, 100u);
}

// Compares the first 32 bytes, which are what the channel uses.
void ExpectExpansion(const Secret<32>& prk, const VectorFile::Group& group) {
    const Bytes info = FieldOf(group, "info");
    const std::string text(info.begin(), info.end());
    Secret<32> out;
    ASSERT_TRUE(HkdfExpand(prk, text, &out));
    Bytes expected = FieldOf(group, "OKM");
    ASSERT_GE(expected.size(), 32u);
    expected.resize(32);
    EXPECT_EQ(BytesOfArray(out), expected);
}

TEST_F(PublicVectors, HkdfExtractsAndExpands) {
    unsigned without_salt = 0;
    const auto groups = VectorFile("KDF/rfc-5869-HKDF-SHA256.txt").Groups("COUNT");
    ASSERT_EQ(groups.size(), 3u);
    for (const auto& group : groups) {
        SCOPED_TRACE(group.at("COUNT"));
        Secret<32> prk;
        Fill(&prk, FieldOf(group, "PRK"));
        ExpectExpansion(prk, group);
        if (!group.at("salt").empty()) continue;
        ++without_salt;
        const Bytes ikm = FieldOf(group, "IKM");
        Secret<32> extracted;
        ASSERT_TRUE(HkdfExtract({ikm.data(), ikm.size()}, &extracted));
        EXPECT_EQ(BytesOfArray(extracted), FieldOf(group, "PRK"));
    }
    EXPECT_EQ(without_salt, 1u);
}

TEST_F(PublicVectors, HkdfWithoutSaltOrInfo) {
    const auto groups = VectorFile("KDF/hkdf-generated.txt").Groups("COUNT");
    ASSERT_FALSE(groups.empty());
    for (const auto& group : groups) {
        ASSERT_EQ(group.at("Hash"), "SHA-256");
        ASSERT_EQ(group.at("salt"), "");
        const Bytes ikm = FieldOf(group, "IKM");
        Secret<32> prk;
        ASSERT_TRUE(HkdfExtract({ikm.data(), ikm.size()}, &prk));
        ExpectExpansion(prk, group);
    }
}

EncodedPoint PointOf(const VectorFile::Group& group, const char* x_name, const char* y_name) {
    EncodedPoint point{0x04};
    const Bytes x = FieldOf(group, x_name);
    const Bytes y = FieldOf(group, y_name);
    // The file omits leading zeroes.
    std::copy_backward(x.begin(), x.end(), point.begin() + 33);
    std::copy_backward(y.begin(), y.end(), point.end());
    return point;
}

bool Agree(const EncodedPoint& theirs, const Bytes& own, Bytes* secret) {
    EcGroup group;
    EcPoint point;
    BigNumber scalar;
    BigNumber x;
    EXPECT_EQ(mbedtls_ecp_group_load(group.Get(), MBEDTLS_ECP_DP_SECP256R1), 0);
    EXPECT_EQ(mbedtls_mpi_read_binary(scalar.Get(), own.data(), own.size()), 0);
    secret->assign(32, 0);
    return ReadPublicKey(&group, theirs, &point) &&
           mbedtls_ecdh_compute_shared(group.Get(), x.Get(), point.Get(), scalar.Get(),
                                       mbedtls_ctr_drbg_random, CloudSecRng()) == 0 &&
           mbedtls_mpi_write_binary(x.Get(), secret->data(), secret->size()) == 0;
}

Bytes Padded(Bytes bytes) {
    bytes.insert(bytes.begin(), 32 - bytes.size(), 0);
    return bytes;
}

TEST_F(PublicVectors, EcdhAgreesAndRefusesPointsThatAreNotOnTheCurve) {
    unsigned agreed = 0;
    unsigned refused = 0;
    for (const char* role : {"init", "resp"}) {
        VectorFile file("asymmetric/ECDH/KASValidityTest_ECCStaticUnified_NOKC_ZZOnly_" +
                        std::string(role) + ".fax");
        for (const auto& group : file.Groups("COUNT")) {
            if (group.at("section") != "EC - SHA256") continue;
            const std::string& result = group.at("Result");
            SCOPED_TRACE(result);
            Bytes secret;
            const bool usable =
                Agree(PointOf(group, "QsCAVSx", "QsCAVSy"), FieldOf(group, "dsIUT"), &secret);
            const bool agrees = usable && secret == Padded(FieldOf(group, "Z"));
            if (result.starts_with("P")) {
                EXPECT_TRUE(agrees);
                ++agreed;
            } else if (result.starts_with("F (1 ") || result.starts_with("F (2 ")) {
                EXPECT_FALSE(usable);  // the other side's point was altered
                ++refused;
            } else if (result.starts_with("F (7 ") || result.starts_with("F (8 ")) {
                EXPECT_FALSE(agrees);  // the scalar or the secret was altered
            }
        }
    }
    EXPECT_EQ(agreed, 36u);
    EXPECT_EQ(refused, 8u);
}

}  // namespace
}  // namespace tarvik::test
