#include "unit/cloud/secure_fixture.h"
#include "unit/faults/packet_wait_fault.h"

namespace tarvik::test {
namespace {

constexpr const char* kNoAnswer = "[CloudSec] [E] Failed to read ident ack";

class SecureIdentify : public SecureChannel {
protected:
    static Bytes Deva(std::uint32_t status, std::uint32_t capabilities, std::uint32_t size = 16) {
        Bytes packet(std::max<std::size_t>(size, 16));
        StoreU32(packet.data(), kTypeDeva);
        StoreU32(packet.data() + 4, size);
        StoreU32(packet.data() + 8, status);
        StoreU32(packet.data() + 12, capabilities);
        packet.resize(size);
        return packet;
    }
    // The line for the device of the first vector.
    std::string SendingLine() const {
        const Bytes& key = vector_.device_public_key;
        char text[128];
        FormatText(text, sizeof text,
                   "[CloudSec] [I] Sending device identification: "
                   "UUID=%02X:%02X:%02X:%02X:%02X:%02X",
                   key[1], key[2], key[3], key[4], key[5], key[6]);
        return text;
    }
    static constexpr std::uint32_t kUntouched = 0xABCD;
    std::uint32_t status_ = kUntouched;
};

TEST_F(SecureIdentify, PacketMatchesTheVectors) {
    for (const SecureVector& vector : SecureVectors()) {
        SCOPED_TRACE(vector.name);
        ASSERT_TRUE(Establish(vector));
        PacketPtr deva = PacketFrom(vector.packets[7].sealed);
        ASSERT_TRUE(CloudSecOpen(&cloud_session, deva));
        Append(&relay_.rx, std::move(deva));
        ASSERT_TRUE(CloudSecIdentify(&relay_, &status_));
        PacketPtr devi = TakePacket(&relay_.tx, 0);
        EXPECT_EQ(BytesOf(devi), vector.packets[0].plain);
        EXPECT_EQ(BytesOf(CloudSecSeal(std::move(devi))), vector.packets[0].sealed);
        EXPECT_EQ(status_, LoadU32(vector.packets[7].plain.data() + 8));
    }
}

struct StatusRow {
    std::uint32_t status;
    const char* text;
};
constexpr StatusRow kStatusRows[] = {
    {0, "0 (OK (registered)), capabilities=0x80000003"},
    {1, "1 (ISOLATED (unknown device)), capabilities=0x80000003"},
    {2, "2 (REJECTED (blacklisted)), capabilities=0x80000003"},
    {3, "3 (UNKNOWN), capabilities=0x80000003"},
    {7, "7 (UNKNOWN), capabilities=0x80000003"},
    {0xFFFFFFFF, "4294967295 (UNKNOWN), capabilities=0x80000003"},
};

TEST_F(SecureIdentify, EveryStatusIsReported) {
    ASSERT_TRUE(Load(vector_));
    for (const StatusRow& row : kStatusRows) {
        LogCapture log;
        Answer(Deva(row.status, 0x80000003));
        EXPECT_TRUE(CloudSecIdentify(&relay_, &status_));
        EXPECT_EQ(status_, row.status);
        EXPECT_EQ(Lines(log),
                  (Texts{SendingLine(),
                         std::string("[CloudSec] [I] Device identification acknowledged: status=") +
                             row.text}));
    }
}

TEST_F(SecureIdentify, CapabilitiesHaveEightDigits) {
    ASSERT_TRUE(Load(vector_));
    LogCapture log;
    Answer(Deva(0, 0xA));
    EXPECT_TRUE(CloudSecIdentify(&relay_, &status_));
    EXPECT_TRUE(log.Mentions("capabilities=0x0000000a\n"));
}

TEST_F(SecureIdentify, ShortIdIsZeroWithoutAnIdentity) {
    LogCapture log;
    Answer(Deva(0, 0));
    EXPECT_TRUE(CloudSecIdentify(&relay_, &status_));
    const Bytes devi = Sent();
    ASSERT_EQ(devi.size(), 84u);
    EXPECT_TRUE(IsZero(devi.data() + 8, 76));
    EXPECT_TRUE(log.Has("[CloudSec] [I] Sending device identification: UUID=00:00:00:00:00:00"));
}

TEST_F(SecureIdentify, MissingAnswerTimesOut) {
    ASSERT_TRUE(Load(vector_));
    const LeapingTick tick;
    LogCapture log;
    EXPECT_FALSE(CloudSecIdentify(&relay_, &status_));
    EXPECT_EQ(Lines(log), (Texts{SendingLine(), kNoAnswer}));
    EXPECT_EQ(status_, kUntouched);
}

TEST_F(SecureIdentify, AbortEndsTheWait) {
    std::atomic<bool> abort{true};
    FakeTick tick(1000);  // the time never runs out
    EXPECT_FALSE(CloudSecIdentify(&relay_, &status_, &abort));
}

TEST_F(SecureIdentify, AnswerWithoutBothFieldsIsRefused) {
    ASSERT_TRUE(Load(vector_));
    for (std::uint32_t size = 8; size < 16; ++size) {
        LogCapture log;
        Answer(Deva(0, 0, size));
        EXPECT_FALSE(CloudSecIdentify(&relay_, &status_)) << size;
        EXPECT_EQ(Lines(log), (Texts{SendingLine(), kNoAnswer}));
        EXPECT_EQ(status_, kUntouched);
    }
}

TEST_F(SecureIdentify, LongerAnswerIsAccepted) {
    Answer(Deva(1, 0, 40));
    EXPECT_TRUE(CloudSecIdentify(&relay_, &status_));
    EXPECT_EQ(status_, kDeviceIsolated);
}

TEST_F(SecureIdentify, PacketOfAnotherTypeIsRefused) {
    ASSERT_TRUE(Load(vector_));
    HandToNextWait(MakePacket(kTypeBusy, 12));
    LogCapture log;
    EXPECT_FALSE(CloudSecIdentify(&relay_, &status_));
    EXPECT_EQ(Lines(log), (Texts{SendingLine(), "[CloudSec] [E] Unexpected ident ack type: BUSY"}));
    EXPECT_EQ(status_, kUntouched);
}

TEST_F(SecureIdentify, FlippingAnyBitOfTheSealedAnswerMakesItInvalid) {
    ASSERT_TRUE(Establish(vector_));
    const Bytes& sealed = vector_.packets[7].sealed;
    for (std::size_t bit = std::size_t{8} * 8; bit < sealed.size() * 8; ++bit) {
        Bytes flipped = sealed;
        flipped[bit / 8] = static_cast<std::uint8_t>(flipped[bit / 8] ^ 1 << bit % 8);
        PacketPtr packet = PacketFrom(flipped);
        ASSERT_FALSE(CloudSecOpen(&cloud_session, packet)) << "bit " << bit;
    }
    PacketPtr packet = PacketFrom(sealed);
    EXPECT_TRUE(CloudSecOpen(&cloud_session, packet));
}

// Deliberate: an unsealed answer is accepted too, and its bits are not protected.
TEST_F(SecureIdentify, UnsealedAnswerIsReadWithAnyBitFlipped) {
    const Bytes deva = Deva(0, 0);
    for (std::size_t bit = 0; bit < deva.size() * 8; ++bit) {
        const std::size_t offset = bit / 8;
        Bytes flipped = deva;
        flipped[offset] = static_cast<std::uint8_t>(flipped[offset] ^ 1 << bit % 8);
        const std::uint32_t size = LoadU32(flipped.data() + 4);
        if (size < MIN_PKT_SIZE || size > MAX_PKT_SIZE) continue;  // no carrier hands that over
        flipped.resize(size);
        const LeapingTick tick;
        Answer(flipped);
        status_ = kUntouched;
        const bool read = offset >= 4 && size >= 16;
        ASSERT_EQ(CloudSecIdentify(&relay_, &status_), read) << "bit " << bit;
        EXPECT_EQ(status_, read ? LoadU32(flipped.data() + 8) : kUntouched);
        while (TakePacket(&relay_.rx, 0) != nullptr) {
        }
    }
}

}  // namespace
}  // namespace tarvik::test
