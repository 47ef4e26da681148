#include <cstring>
#include <functional>

#include "unit/cloud/secure_fixture.h"
#include "unit/faults/packet_wait_fault.h"

namespace tarvik::test {
namespace {

constexpr const char* kStarting = "[CloudSec] [I] Starting handshake...";
constexpr const char* kSuccessful = "[CloudSec] [I] Handshake successful";
constexpr const char* kNotValid = "[CloudSec] [E] Failed to validate NHS2";
constexpr const char* kNoSecret1 = "[CloudSec] [E] Failed to compute shared secret 1";
constexpr const char* kShortWelcome = "[CloudSec] [E] enc_welcome too short";
constexpr const char* kBadWelcome = "[CloudSec] [E] Failed to decrypt welcome message";
constexpr const char* kBadEphemeral = "[CloudSec] [E] Failed to read server ephemeral public key";

constexpr std::size_t kKeyOffset = 24;
constexpr std::size_t kUnreadOffset = 89;
constexpr std::size_t kWelcomeOffset = 96;

Bytes WithLength(Bytes packet, std::size_t size) {
    packet.resize(size);
    StoreU32(packet.data() + 4, static_cast<std::uint32_t>(size));
    return packet;
}

class SecureHandshake : public SecureChannel {
protected:
    void SetUp() override {
        SecureChannel::SetUp();
        ASSERT_TRUE(Load(vector_));
    }
    // The lines of a handshake that must fail. It leaves no session and no packet.
    Texts Refused(const Bytes& nhs2) {
        const LeapingTick tick;
        LogCapture log;
        EXPECT_FALSE(Handshake(vector_, nhs2));
        EXPECT_TRUE(SessionIsClear());
        EXPECT_FALSE(CloudSecEstablished());
        while (!Sent().empty()) {
        }
        DropAnswers();
        return Lines(log);
    }
    void DropAnswers() {
        while (TakePacket(&relay_.rx, 0) != nullptr) {
        }
    }
};

// --- vectors ---

TEST_F(SecureHandshake, EveryValueMatchesTheVectors) {
    ASSERT_GE(SecureVectors().size(), 3u);
    for (const SecureVector& vector : SecureVectors()) {
        SCOPED_TRACE(vector.name);
        ASSERT_TRUE(Load(vector));
        LogCapture log;
        CryptoRecord record;
        ASSERT_TRUE(Handshake(vector));
        EXPECT_EQ(Sent(), vector.nhs1);
        EXPECT_EQ(record.shared_secrets,
                  (std::vector<Bytes>{vector.shared_secret_1, vector.shared_secret_2}));
        EXPECT_EQ(record.extracted, (std::vector<Bytes>{vector.nhs1_key, vector.session_prk}));
        EXPECT_EQ(BytesOfArray(cloud_session.txKey), vector.tx_key);
        EXPECT_EQ(BytesOfArray(cloud_session.rxKey), vector.rx_key);
        EXPECT_EQ(BytesOfArray(cloud_session.nonceSalt), vector.nonce_salt);
        EXPECT_EQ(cloud_session.txCounter, 0u);
        EXPECT_EQ(cloud_session.rxCounter, 0u);
        EXPECT_TRUE(CloudSecEstablished());
        EXPECT_EQ(Lines(log), (Texts{kStarting, kSuccessful}));
    }
}

TEST_F(SecureHandshake, FirstMessageHasItsLayout) {
    ASSERT_TRUE(Handshake(vector_));
    const Bytes nhs1 = Sent();
    ASSERT_EQ(nhs1.size(), 156u);
    EXPECT_EQ(LoadU32(nhs1.data()), 0x4E485331u);
    EXPECT_EQ(LoadU32(nhs1.data() + 4), 156u);
    EXPECT_TRUE(std::equal(vector_.device_ephemeral_public_key.begin(),
                           vector_.device_ephemeral_public_key.end(), nhs1.begin() + 24));
    EXPECT_EQ(LoadU16(nhs1.data() + 154), 0u);
}

TEST_F(SecureHandshake, EveryHandshakeDrawsANewEphemeralKey) {
    const LeapingTick tick;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    const Bytes first = Sent();
    const Bytes second = Sent();
    ASSERT_EQ(first.size(), 156u);
    ASSERT_EQ(second.size(), 156u);
    EXPECT_FALSE(std::equal(first.begin() + 24, first.begin() + 89, second.begin() + 24));
    EXPECT_FALSE(std::equal(first.begin() + 89, first.end(), second.begin() + 89));
}

TEST_F(SecureHandshake, KeySchedulesAreSetUpOncePerSession) {
    CryptoRecord record;
    ASSERT_TRUE(Handshake(vector_));
    EXPECT_EQ(record.keys_set_up, 3u);  // NHS1's, one for each direction
    for (const SealedVector& packet : vector_.packets) {
        if (packet.from_device) CloudSecSeal(PacketFrom(packet.plain));
    }
    EXPECT_EQ(record.keys_set_up, 3u);
}

// --- what is missing ---

TEST_F(SecureHandshake, NeedsAnIdentity) {
    Forget();
    LogCapture log;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_EQ(Lines(log), Texts{"[CloudSec] [E] Identity not loaded"});
    EXPECT_TRUE(Sent().empty());
}

TEST_F(SecureHandshake, NewAttemptEndsTheEarlierSession) {
    ASSERT_TRUE(Handshake(vector_));
    const LeapingTick tick;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_TRUE(SessionIsClear());
}

TEST_F(SecureHandshake, MissingAnswerTimesOut) {
    const LeapingTick tick;
    LogCapture log;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_EQ(Lines(log), (Texts{kStarting, "[CloudSec] [E] Timeout waiting for HS2", kNotValid}));
    EXPECT_EQ(LoadU32(Sent().data()), kTypeNhs1);
}

TEST_F(SecureHandshake, AnswerThatArrivesDuringTheWaitIsAccepted) {
    const FakeTick tick(1000);  // the time never runs out
    const FixedEphemeral ephemeral(vector_.device_ephemeral_private_key,
                                   vector_.device_ephemeral_public_key);
    Thread relay([this] {
        if (NextSent(&relay_) != nullptr) Answer(vector_.nhs2);
    });
    EXPECT_TRUE(CloudSecHandshake(&relay_));
}

TEST_F(SecureHandshake, AbortEndsTheWait) {
    FakeTick tick(1000);  // the time never runs out
    std::atomic<bool> abort{false};
    Thread relay([this, &abort] {
        NextSent(&relay_);
        abort = true;
    });
    EXPECT_FALSE(CloudSecHandshake(&relay_, &abort));
}

TEST_F(SecureHandshake, FirstMessageIsLostOnAnInactiveQueue) {
    FreeQueue(&relay_.tx);
    const LeapingTick tick;
    LogCapture log;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_TRUE(log.Has("[CloudSec] [E] Timeout waiting for HS2"));
}

TEST_F(SecureHandshake, OtherPacketsStayInTheQueue) {
    Answer(vector_.packets[1].plain);  // IDEN
    ASSERT_TRUE(Handshake(vector_));
    EXPECT_EQ(BytesOf(TakePacket(&relay_.rx, 0)), vector_.packets[1].plain);
}

TEST_F(SecureHandshake, PacketOfAnotherTypeIsRefused) {
    HandToNextWait(MakePacket(kTypeLogn, 192));
    LogCapture log;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_EQ(Lines(log),
              (Texts{kStarting, "[CloudSec] [E] Unexpected packet type: LOGN", kNotValid}));
}

TEST_F(SecureHandshake, RefusedTypeIsLoggedWithoutControlCharacters) {
    HandToNextWait(MakePacket(0x0A1B0041, 192));
    LogCapture log;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_TRUE(log.Has("[CloudSec] [E] Unexpected packet type: ...A"));
}

// --- the relay's static key ---

TEST_F(SecureHandshake, ServerKeyMustBeOnTheCurve) {
    const std::string good = HexOf(vector_.server_public_key);
    const std::string zero(64, '0');
    const std::string prime = "ffffffff00000001000000000000000000000000ffffffffffffffffffffffff";
    for (const std::string& text : {
             "00" + good.substr(2),
             "02" + good.substr(2),
             "03" + good.substr(2),
             good.substr(0, 129) + (good.back() == '0' ? "1" : "0"),  // not on the curve
             "04" + zero + zero,                                      // no point at all
             "04" + prime + good.substr(66),                          // X beyond the field
             std::string(130, '0'),
             std::string(130, 'f'),
         }) {
        SCOPED_TRACE(text);
        SetText(config.serverPublicKey, text);
        ASSERT_TRUE(CloudSecLoadIdentity());
        LogCapture log;
        EXPECT_FALSE(CloudSecHandshake(&relay_));
        EXPECT_EQ(Lines(log), (Texts{kStarting, "[CloudSec] [E] Failed to read server public key",
                                     kNoSecret1}));
        EXPECT_TRUE(Sent().empty());
    }
}

// --- the relay's message ---

TEST_F(SecureHandshake, MessageWithoutRoomForAWelcomeIsTooShort) {
    for (std::size_t size = 8; size < kWelcomeOffset + 7; ++size) {
        SCOPED_TRACE(size);
        EXPECT_EQ(Refused(WithLength(vector_.nhs2, size)),
                  (Texts{kStarting, kShortWelcome, kNotValid}));
    }
}

TEST_F(SecureHandshake, ShortestWelcomeHasSevenBytes) {
    ASSERT_EQ(vector_.nhs2.size(), kWelcomeOffset + 7);
    EXPECT_TRUE(Handshake(vector_));
}

TEST_F(SecureHandshake, LongerMessageDoesNotOpen) {
    EXPECT_EQ(Refused(WithLength(vector_.nhs2, vector_.nhs2.size() + 1)),
              (Texts{kStarting, kBadWelcome, kNotValid}));
    EXPECT_EQ(Refused(WithLength(vector_.nhs2, MAX_PKT_SIZE)),
              (Texts{kStarting, kBadWelcome, kNotValid}));
}

TEST_F(SecureHandshake, EphemeralKeyMustBeOnTheCurve) {
    Bytes nhs2 = vector_.nhs2;
    std::fill(nhs2.begin() + kKeyOffset + 1, nhs2.begin() + kUnreadOffset, std::uint8_t{0});
    EXPECT_EQ(Refused(nhs2), (Texts{kStarting, kBadEphemeral, kNotValid}));
    std::fill(nhs2.begin() + kKeyOffset, nhs2.begin() + kUnreadOffset, std::uint8_t{0});
    EXPECT_EQ(Refused(nhs2), (Texts{kStarting, kBadEphemeral, kNotValid}));
}

TEST_F(SecureHandshake, AnotherSessionsWelcomeDoesNotOpen) {
    EXPECT_EQ(Refused(SecureVectors()[1].nhs2), (Texts{kStarting, kBadWelcome, kNotValid}));
}

TEST_F(SecureHandshake, ReplayedWelcomeDoesNotOpenUnderAnotherEphemeralKey) {
    Answer(vector_.nhs2);
    LogCapture log;
    EXPECT_FALSE(CloudSecHandshake(&relay_));
    EXPECT_EQ(Lines(log), (Texts{kStarting, kBadWelcome, kNotValid}));
}

// What flipping a bit leads to depends on its position.
Texts OutcomeOfFlipAt(std::size_t offset) {
    if (offset < 4) {
        return {kStarting, "[CloudSec] [E] Timeout waiting for HS2", kNotValid};
    }
    const bool in_key = offset >= kKeyOffset && offset < kUnreadOffset;
    return {kStarting, in_key ? kBadEphemeral : kBadWelcome, kNotValid};
}

TEST_F(SecureHandshake, FlippingAnyBitThatIsReadFailsTheHandshake) {
    for (std::size_t bit = 0; bit < vector_.nhs2.size() * 8; ++bit) {
        const std::size_t offset = bit / 8;
        const bool is_length = offset >= 4 && offset < 8;
        const bool is_read = offset < kUnreadOffset || offset >= kWelcomeOffset;
        if (is_length || !is_read) continue;
        Bytes nhs2 = vector_.nhs2;
        nhs2[offset] = static_cast<std::uint8_t>(nhs2[offset] ^ 1 << bit % 8);
        ASSERT_EQ(Refused(nhs2), OutcomeOfFlipAt(offset)) << "bit " << bit;
    }
}

// A carrier that reads another length delivers that many bytes, or none.
TEST_F(SecureHandshake, FlippingAnyBitOfTheLengthFailsTheHandshake) {
    const auto length = static_cast<std::uint32_t>(vector_.nhs2.size());
    unsigned delivered = 0;
    for (unsigned bit = 0; bit < 32; ++bit) {
        const std::uint32_t changed = length ^ 1u << bit;
        if (changed < MIN_PKT_SIZE || changed > MAX_PKT_SIZE) continue;
        ++delivered;
        const char* line = changed < kWelcomeOffset + 7 ? kShortWelcome : kBadWelcome;
        EXPECT_EQ(Refused(WithLength(vector_.nhs2, changed)), (Texts{kStarting, line, kNotValid}));
    }
    EXPECT_EQ(delivered, 12u);  // 103 and every bit below 4096
}

// Deliberate: seven bytes between key and welcome are not read.
TEST_F(SecureHandshake, UnreadBytesAreIgnored) {
    Bytes nhs2 = vector_.nhs2;
    for (std::size_t offset = kUnreadOffset; offset < kWelcomeOffset; ++offset)
        nhs2[offset] = 0xFF;
    EXPECT_TRUE(Handshake(vector_, nhs2));
}

// --- every step may fail ---

struct HandshakeFault {
    CryptoStep step;
    unsigned spared;
    const char* line;
    const char* last;
};

// Reading or writing a point takes two numbers, X and Y.
constexpr HandshakeFault kHandshakeFaults[] = {
    {CryptoStep::kGroupLoad, 0, "[CloudSec] [E] Failed to load ECC group", kNoSecret1},
    {CryptoStep::kGenerate, 0, "[CloudSec] [E] Failed to generate ephemeral keypair", kNoSecret1},
    {CryptoStep::kPointWrite, 0, "[CloudSec] [E] Failed to write ephemeral public key", kNoSecret1},
    {CryptoStep::kPointLength, 0, "[CloudSec] [E] Failed to write ephemeral public key",
     kNoSecret1},
    {CryptoStep::kMpiRead, 3, "[CloudSec] [E] Failed to read server public key", kNoSecret1},
    {CryptoStep::kAgree, 0, kNoSecret1, kNoSecret1},
    {CryptoStep::kMpiWrite, 2, "[CloudSec] [E] Failed to write shared secret 1", kNoSecret1},
    {CryptoStep::kExtract, 0, "[CloudSec] [E] Failed to send NHS1", nullptr},
    {CryptoStep::kSetKey, 0, "[CloudSec] [E] Failed to send NHS1", nullptr},
    {CryptoStep::kEncrypt, 0, "[CloudSec] [E] Failed to send NHS1", nullptr},
    {CryptoStep::kMpiRead, 5, kBadEphemeral, kNotValid},
    {CryptoStep::kMpiRead, 7, "[CloudSec] [E] Failed to read device private key", kNotValid},
    {CryptoStep::kAgree, 1, "[CloudSec] [E] Failed to compute shared secret 2", kNotValid},
    {CryptoStep::kMpiWrite, 3, "[CloudSec] [E] Failed to write shared secret 2", kNotValid},
    {CryptoStep::kExtract, 1, "[CloudSec] [E] Failed to derive session keys", kNotValid},
    {CryptoStep::kExpand, 0, "[CloudSec] [E] Failed to derive session keys", kNotValid},
    {CryptoStep::kExpand, 1, "[CloudSec] [E] Failed to derive session keys", kNotValid},
    {CryptoStep::kExpand, 2, "[CloudSec] [E] Failed to derive session keys", kNotValid},
    {CryptoStep::kSetKey, 1, "[CloudSec] [E] Failed to derive session keys", kNotValid},
    {CryptoStep::kSetKey, 2, kBadWelcome, kNotValid},
};

TEST_F(SecureHandshake, NoKeyReachesTheSessionBeforeTheLastStep) {
    unsigned steps = 0;
    const CryptoObserver observer([&] {
        ++steps;
        EXPECT_TRUE(SessionIsClear()) << "before step " << steps;
    });
    ASSERT_TRUE(Handshake(vector_));
    EXPECT_GE(steps, 20u);
    EXPECT_FALSE(SessionIsClear());
}

TEST_F(SecureHandshake, SessionStaysClearWhicheverStepFails) {
    const CryptoObserver observer([] { EXPECT_TRUE(SessionIsClear()); });
    for (const HandshakeFault& row : kHandshakeFaults) {
        SCOPED_TRACE(row.line);
        const CryptoFault fault(row.step, row.spared);
        Refused(vector_.nhs2);
        EXPECT_TRUE(fault.Struck());
    }
    Bytes wrong_tag = vector_.nhs2;
    wrong_tag[8] ^= 1;
    Refused(wrong_tag);
    Refused(WithLength(vector_.nhs2, kWelcomeOffset));
}

TEST_F(SecureHandshake, EachStepHasALineForItsFailure) {
    for (const HandshakeFault& row : kHandshakeFaults) {
        SCOPED_TRACE(row.line);
        const CryptoFault fault(row.step, row.spared);
        Texts expected = {kStarting, row.line};
        if (row.last != nullptr) expected.push_back(row.last);
        EXPECT_EQ(Refused(vector_.nhs2), expected);
        EXPECT_TRUE(fault.Struck());
    }
    EXPECT_TRUE(Handshake(vector_));
}

}  // namespace
}  // namespace tarvik::test
