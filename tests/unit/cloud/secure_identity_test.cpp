#include <cstring>
#include <fstream>
#include <iterator>

#include "unit/cloud/secure_fixture.h"
#include "unit/test_system.h"

namespace tarvik::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOrder = "ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551";
constexpr const char* kOrderLessOne =
    "ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632550";

class SecureIdentity : public SecureChannel {
protected:
    void SetUp() override {
        SecureChannel::SetUp();
        SetText(config.serverPublicKey, HexOf(vector_.server_public_key));
    }
    // Where a missing configuration file is created.
    fs::path File() const { return folders_.Library() / "config.json"; }
    std::string SavedText() const { return fs::exists(File()) ? ReadFile(File()) : std::string(); }
    static std::string PrivateKey() { return HexOf(BytesOfArray(cloud_identity.devicePrivateKey)); }
    static bool LoadWithPrivateKey(const std::string& text) {
        SetText(config.devicePrivateKey, text);
        return CloudSecLoadIdentity();
    }
    static bool LoadWithServerKey(const std::string& text) {
        SetText(config.serverPublicKey, text);
        return CloudSecLoadIdentity();
    }
};

// --- random generator ---

const ChildBody kSeedsAgain("seeds-again", [] {
    LogCapture log;
    bool first = true;
    {
        const CryptoFault fault(CryptoStep::kSeed);
        first = CloudSecInitRng();
    }
    const bool logged = log.Has("[CloudSec] [E] mbedtls_ctr_drbg_seed failed: -0x4321");
    return !first && logged && CloudSecInitRng() && CloudSecInitRng() ? 0 : 1;
});
TEST(SecureRandom, FailedSeedIsLoggedAndRetried) {
    EXPECT_EQ(RunChild("seeds-again").exit_code, 0);
}

const ChildBody kUnseededIdentity("unseeded-identity", [] {
    LogCapture log;
    const CryptoFault fault(CryptoStep::kSeed);
    const bool loaded = CloudSecLoadIdentity();
    return !loaded && log.Has("[CloudSec] [E] Failed to initialize RNG") ? 0 : 1;
});
TEST(SecureRandom, IdentityIsNotLoadedWithoutASeed) {
    EXPECT_EQ(RunChild("unseeded-identity").exit_code, 0);
}

const ChildBody kUnseededDerivation("unseeded-derivation", [] {
    LogCapture log;
    const CryptoFault fault(CryptoStep::kSeed);
    const bool derived = CloudSecDerivePublicKey();
    return !derived && log.Has("[CloudSec] [E] Failed to initialize RNG") ? 0 : 1;
});
TEST(SecureRandom, PublicKeyIsNotDerivedWithoutASeed) {
    EXPECT_EQ(RunChild("unseeded-derivation").exit_code, 0);
}

TEST_F(SecureIdentity, SeedIsDrawnOncePerProcess) {
    const CryptoFault fault(CryptoStep::kSeed);
    EXPECT_TRUE(CloudSecInitRng());
    EXPECT_FALSE(fault.Struck());
}

// --- public key ---

TEST_F(SecureIdentity, PublicKeyIsDerivedFromThePrivateKey) {
    for (const SecureVector& vector : SecureVectors()) {
        SCOPED_TRACE(vector.name);
        std::copy(vector.device_private_key.begin(), vector.device_private_key.end(),
                  cloud_identity.devicePrivateKey.begin());
        ASSERT_TRUE(CloudSecDerivePublicKey());
        EXPECT_EQ(BytesOfArray(cloud_identity.devicePublicKey), vector.device_public_key);
    }
}

struct DerivationFault {
    CryptoStep step;
    const char* line;
};
constexpr DerivationFault kDerivationFaults[] = {
    {CryptoStep::kGroupLoad, "[CloudSec] [E] ecp_group_load failed: -0x4321"},
    {CryptoStep::kMpiRead, "[CloudSec] [E] mpi_read_binary failed: -0x4321"},
    {CryptoStep::kMultiply, "[CloudSec] [E] ecp_mul failed: -0x4321"},
    {CryptoStep::kPointWrite, "[CloudSec] [E] ecp_point_write_binary failed: -0x4321"},
    {CryptoStep::kPointLength, "[CloudSec] [E] unexpected out_len: 33 (expected 65)"},
};

TEST_F(SecureIdentity, EachFailedStepOfTheDerivationHasItsLogLine) {
    cloud_identity.devicePrivateKey[31] = 1;
    for (const DerivationFault& row : kDerivationFaults) {
        const CryptoFault fault(row.step);
        LogCapture log;
        EXPECT_FALSE(CloudSecDerivePublicKey());
        EXPECT_EQ(Lines(log), Texts{row.line});
    }
}

// --- the device's key ---

TEST_F(SecureIdentity, ConfiguredKeysAreLoaded) {
    LogCapture log;
    ASSERT_TRUE(Load(vector_));
    EXPECT_TRUE(cloud_identity.identityLoaded);
    EXPECT_EQ(BytesOfArray(cloud_identity.devicePrivateKey), vector_.device_private_key);
    EXPECT_EQ(BytesOfArray(cloud_identity.devicePublicKey), vector_.device_public_key);
    EXPECT_EQ(BytesOfArray(cloud_identity.serverPublicKey), vector_.server_public_key);
    EXPECT_EQ(Lines(log), Texts{"[CloudSec] [I] Device identity loaded successfully"});
    EXPECT_FALSE(fs::exists(File()));
}

TEST_F(SecureIdentity, LinesAlsoGoToTheConsole) {
    ASSERT_TRUE(Load(vector_));
    std::string text = console_.Text();
    std::erase(text, '\r');
    EXPECT_EQ(text, "[CloudSec] [I] Device identity loaded successfully\n");
}

TEST_F(SecureIdentity, UpperCaseDigitsAreAccepted) {
    std::string text = HexOf(vector_.device_private_key);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char digit) { return static_cast<char>(std::toupper(digit)); });
    ASSERT_TRUE(LoadWithPrivateKey(text));
    EXPECT_EQ(BytesOfArray(cloud_identity.devicePublicKey), vector_.device_public_key);
    EXPECT_EQ(config.devicePrivateKey, text);
}

TEST_F(SecureIdentity, MalformedPrivateKeyStopsTheAttemptAndIsKept) {
    const std::string good = HexOf(vector_.device_private_key);
    std::vector<std::string> malformed = {good.substr(1), good + "0", "0", good + good.substr(1)};
    // What number conversions would accept as a pair, and neighbours of the digits.
    for (const char* pair :
         {"0x", "+1", "-1", " 1", "1 ", "g0", "0g", "/0", ":0", "@0", "`0", "G0"})
        malformed.push_back(good.substr(0, 62) + pair);
    for (const char* pair : {"0x", "zz"})
        malformed.push_back(pair + good.substr(2));
    for (const std::string& text : malformed) {
        SCOPED_TRACE(text);
        LogCapture log;
        EXPECT_FALSE(LoadWithPrivateKey(text));
        EXPECT_EQ(Lines(log), Texts{"[CloudSec] [E] Failed to parse devicePrivateKey from config"});
        EXPECT_EQ(config.devicePrivateKey, text);
        EXPECT_FALSE(cloud_identity.identityLoaded);
        EXPECT_FALSE(fs::exists(File()));
    }
}

TEST_F(SecureIdentity, MissingPrivateKeyIsMadeAndSaved) {
    LogCapture log;
    ASSERT_TRUE(LoadWithPrivateKey(""));
    EXPECT_EQ(Lines(log), (Texts{"[CloudSec] [I] Generating new device keypair (no key in config)",
                                 "[CloudSec] [I] New device private key saved to config.json",
                                 "[CloudSec] [I] Device identity loaded successfully"}));
    EXPECT_EQ(std::strlen(config.devicePrivateKey), 64u);
    EXPECT_EQ(config.devicePrivateKey, PrivateKey());
    EXPECT_NE(SavedText().find("\"devicePrivateKey\":\"" + PrivateKey() + "\""), std::string::npos);
}

TEST_F(SecureIdentity, MadeKeyIsUsedFromThenOn) {
    ASSERT_TRUE(LoadWithPrivateKey(""));
    const std::string made = PrivateKey();
    Config read{};
    ASSERT_TRUE(LoadConfig(&read));
    config = read;
    LogCapture log;
    ASSERT_TRUE(CloudSecLoadIdentity());
    EXPECT_EQ(PrivateKey(), made);
    EXPECT_EQ(Lines(log), Texts{"[CloudSec] [I] Device identity loaded successfully"});
}

TEST_F(SecureIdentity, EveryMadeKeyIsDifferent) {
    ASSERT_TRUE(LoadWithPrivateKey(""));
    const std::string first = PrivateKey();
    ASSERT_TRUE(LoadWithPrivateKey(""));
    EXPECT_NE(PrivateKey(), first);
}

TEST_F(SecureIdentity, KeyThatIsNotAScalarOfTheCurveIsReplaced) {
    for (const std::string& text :
         {std::string(64, 'f'), std::string(64, '0'), std::string(kOrder)}) {
        SCOPED_TRACE(text);
        LogCapture log;
        ASSERT_TRUE(LoadWithPrivateKey(text));
        EXPECT_EQ(Lines(log),
                  (Texts{"[CloudSec] [E] ecp_mul failed: -0x4C80",
                         "[CloudSec] [E] Failed to derive public key from stored private key",
                         "[CloudSec] [E] Generating new keypair instead",
                         "[CloudSec] [I] New device private key saved to config.json",
                         "[CloudSec] [I] Device identity loaded successfully"}));
        EXPECT_NE(config.devicePrivateKey, text);
        EXPECT_EQ(config.devicePrivateKey, PrivateKey());
        EXPECT_NE(SavedText().find(PrivateKey()), std::string::npos);
    }
}

TEST_F(SecureIdentity, LargestScalarOfTheCurveIsKept) {
    ASSERT_TRUE(LoadWithPrivateKey(kOrderLessOne));
    EXPECT_STREQ(config.devicePrivateKey, kOrderLessOne);
    EXPECT_FALSE(fs::exists(File()));
}

TEST_F(SecureIdentity, KeyThatCannotBeSavedIsUsedNevertheless) {
    HideLibraryFolder();
    HideUserFolder();
    LogCapture log;
    ASSERT_TRUE(LoadWithPrivateKey(""));
    EXPECT_EQ(Lines(log),
              (Texts{"[CloudSec] [I] Generating new device keypair (no key in config)",
                     "[CloudSec] [E] WARNING: Failed to save new device key to config.json",
                     "[CloudSec] [E] Key will be regenerated on next restart!",
                     "[CloudSec] [I] Device identity loaded successfully"}));
    EXPECT_EQ(config.devicePrivateKey, PrivateKey());
}

TEST_F(SecureIdentity, FailedDrawStopsTheAttempt) {
    const CryptoFault fault(CryptoStep::kRandom);
    LogCapture log;
    EXPECT_FALSE(LoadWithPrivateKey(""));
    EXPECT_EQ(Lines(log), (Texts{"[CloudSec] [I] Generating new device keypair (no key in config)",
                                 "[CloudSec] [E] Random generation failed: -0x4321"}));
    EXPECT_STREQ(config.devicePrivateKey, "");
}

TEST_F(SecureIdentity, DrawnNumberThatIsNotAScalarStopsTheAttempt) {
    const CryptoFault fault(CryptoStep::kMultiply);
    LogCapture log;
    EXPECT_FALSE(LoadWithPrivateKey(""));
    EXPECT_EQ(Lines(log), (Texts{"[CloudSec] [I] Generating new device keypair (no key in config)",
                                 "[CloudSec] [E] ecp_mul failed: -0x4321",
                                 "[CloudSec] [E] Failed to derive public key"}));
    EXPECT_STREQ(config.devicePrivateKey, "");
    EXPECT_FALSE(fs::exists(File()));
}

TEST_F(SecureIdentity, DrawThatReplacesABadKeyMayFailToo) {
    const std::string bad(64, 'f');
    const Texts before = {"[CloudSec] [E] ecp_mul failed: -0x4C80",
                          "[CloudSec] [E] Failed to derive public key from stored private key",
                          "[CloudSec] [E] Generating new keypair instead"};
    {
        // The stored key is refused before any blinding is drawn.
        const CryptoFault fault(CryptoStep::kRandom);
        LogCapture log;
        EXPECT_FALSE(LoadWithPrivateKey(bad));
        Texts expected = before;
        expected.push_back("[CloudSec] [E] Random generation failed: -0x4321");
        EXPECT_EQ(Lines(log), expected);
    }
    const CryptoFault fault(CryptoStep::kMultiply, 1);
    LogCapture log;
    EXPECT_FALSE(LoadWithPrivateKey(bad));
    Texts expected = before;
    expected.push_back("[CloudSec] [E] ecp_mul failed: -0x4321");
    expected.push_back("[CloudSec] [E] Failed to generate keypair");
    EXPECT_EQ(Lines(log), expected);
    EXPECT_EQ(config.devicePrivateKey, bad);
}

// --- the relay's key ---

TEST_F(SecureIdentity, MissingServerKeyStopsTheAttempt) {
    SetText(config.devicePrivateKey, HexOf(vector_.device_private_key));
    LogCapture log;
    EXPECT_FALSE(LoadWithServerKey(""));
    EXPECT_EQ(Lines(log), Texts{"[CloudSec] [E] ERROR: serverPublicKey not set in config"});
    EXPECT_FALSE(cloud_identity.identityLoaded);
}

TEST_F(SecureIdentity, MalformedServerKeyStopsTheAttempt) {
    SetText(config.devicePrivateKey, HexOf(vector_.device_private_key));
    const std::string good = HexOf(vector_.server_public_key);
    for (const std::string& text :
         {good.substr(1), good + "0", good.substr(2), good + "00", good.substr(0, 128) + "0x",
          good.substr(0, 128) + " 1", "z" + good.substr(1)}) {
        SCOPED_TRACE(text);
        LogCapture log;
        EXPECT_FALSE(LoadWithServerKey(text));
        EXPECT_EQ(Lines(log), Texts{"[CloudSec] [E] Failed to parse serverPublicKey from config"});
        EXPECT_FALSE(cloud_identity.identityLoaded);
    }
}

TEST_F(SecureIdentity, ServerKeyThatIsNotAPointIsLoaded) {
    SetText(config.devicePrivateKey, HexOf(vector_.device_private_key));
    EXPECT_TRUE(LoadWithServerKey(std::string(130, '0')));
    EXPECT_TRUE(cloud_identity.identityLoaded);
}

TEST_F(SecureIdentity, FailedLoadLeavesNoIdentity) {
    ASSERT_TRUE(Load(vector_));
    EXPECT_FALSE(LoadWithServerKey(""));
    LogCapture log;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_EQ(Lines(log), Texts{"[CloudSec] [E] Identity not loaded"});
}

TEST_F(SecureIdentity, ChangedConfigurationIsUsedByTheNextAttempt) {
    const SecureVector& other = SecureVectors()[1];
    ASSERT_TRUE(Load(vector_));
    ASSERT_TRUE(Load(other));
    EXPECT_EQ(BytesOfArray(cloud_identity.devicePublicKey), other.device_public_key);
    EXPECT_EQ(BytesOfArray(cloud_identity.serverPublicKey), other.server_public_key);
}

}  // namespace
}  // namespace tarvik::test
