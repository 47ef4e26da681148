#include <cstring>

#include "unit/cloud/secure_fixture.h"

namespace tarvik::test {
namespace {

constexpr const char* kTooShort = "[CloudSec] [E] Packet too short for AEAD";

class SecureSession : public SecureChannel {
protected:
    void SetUp() override {
        SecureChannel::SetUp();
        ASSERT_TRUE(Establish(vector_));
        for (const SealedVector& packet : vector_.packets) {
            if (!packet.from_device && packet.counter < 4) from_relay_.push_back(&packet);
        }
        ASSERT_EQ(from_relay_.size(), 4u);
    }
    static Bytes Seal(const Bytes& plain) { return BytesOf(CloudSecSeal(PacketFrom(plain))); }
    // The packet inside, or nothing. A packet that is refused stays unchanged.
    static Bytes Open(const Bytes& sealed) {
        PacketPtr packet = PacketFrom(sealed);
        const bool opened = CloudSecOpen(&cloud_session, packet);
        if (opened) return BytesOf(packet);
        EXPECT_EQ(Bytes(packet->Bytes(), packet->Bytes() + sealed.size()), sealed);
        return {};
    }
    // Sealed by the relay, with the counter that the device expects.
    static Bytes FromRelay(const Bytes& plain) {
        Bytes sealed(24 + plain.size());
        StoreU32(sealed.data(), kTypeCryp);
        StoreU32(sealed.data() + 4, static_cast<std::uint32_t>(sealed.size()));
        AeadKey key;
        EXPECT_TRUE(key.Set(cloud_session.rxKey));
        EXPECT_TRUE(key.Encrypt(NonceFor(cloud_session.nonceSalt, cloud_session.rxCounter),
                                "v1|role=server|device", {plain.data(), plain.size()},
                                sealed.data() + 24, sealed.data() + 8));
        return sealed;
    }

    std::vector<const SealedVector*> from_relay_;  // with counters 0 to 3
};

// --- vectors ---

TEST_F(SecureSession, EveryPacketMatchesTheVectors) {
    for (const SecureVector& vector : SecureVectors()) {
        SCOPED_TRACE(vector.name);
        ASSERT_TRUE(Establish(vector));
        for (const SealedVector& packet : vector.packets) {
            SCOPED_TRACE(packet.counter);
            const AeadNonce nonce = NonceFor(cloud_session.nonceSalt, packet.counter);
            EXPECT_EQ(BytesOfArray(nonce), packet.nonce);
            std::uint64_t& counter =
                packet.from_device ? cloud_session.txCounter : cloud_session.rxCounter;
            const bool jumps = packet.counter >= 4;
            EXPECT_TRUE(jumps || counter == packet.counter);
            counter = packet.counter;
            if (packet.from_device) {
                EXPECT_EQ(Seal(packet.plain), packet.sealed);
            } else {
                EXPECT_EQ(Open(packet.sealed), packet.plain);
            }
            EXPECT_EQ(counter, packet.counter + 1);
        }
    }
}

TEST_F(SecureSession, NonceHasTheCounterFromItsFifthByteOn) {
    Secret<32> salt;
    std::fill(salt.begin(), salt.end(), std::uint8_t{0xA5});
    const Bytes zero(12, 0xA5);
    EXPECT_EQ(BytesOfArray(NonceFor(salt, 0)), zero);
    for (unsigned i = 0; i < 8; ++i) {
        Bytes expected = zero;
        expected[4 + i] ^= 0xC3;
        EXPECT_EQ(BytesOfArray(NonceFor(salt, std::uint64_t{0xC3} << 8 * i)), expected);
    }
}

// --- sealing ---

TEST_F(SecureSession, SealedPacketIsTwentyFourBytesLonger) {
    const Bytes sealed = Seal(vector_.packets[1].plain);
    ASSERT_EQ(sealed.size(), 32u);
    EXPECT_EQ(LoadU32(sealed.data()), 0x43525950u);
    EXPECT_EQ(LoadU32(sealed.data() + 4), 32u);
}

TEST_F(SecureSession, NothingIsSealedBeforeTheHandshakeOrAfterTheEnd) {
    const Bytes& plain = vector_.packets[1].plain;
    CloudSecClearSession();
    LogCapture log;
    EXPECT_EQ(Seal(plain), plain);
    EXPECT_EQ(Lines(log), Texts{});
    EXPECT_EQ(cloud_session.txCounter, 0u);
}

TEST_F(SecureSession, FirstMessageIsNeverSealed) {
    EXPECT_EQ(Seal(vector_.nhs1), vector_.nhs1);
    EXPECT_EQ(cloud_session.txCounter, 0u);
}

// Deliberate: better unsealed than not at all.
TEST_F(SecureSession, PacketThatCannotBeSealedIsSentUnsealed) {
    const SealedVector& first = vector_.packets[0];
    for (int attempt = 0; attempt < 2; ++attempt) {
        LogCapture log;
        if (attempt == 0) {
            const CryptoFault fault(CryptoStep::kEncrypt);
            EXPECT_EQ(Seal(first.plain), first.plain);
        } else {
            PacketPtr packet = PacketFrom(first.plain);
            {
                const FailingHeap heap;
                packet = CloudSecSeal(std::move(packet));
            }
            EXPECT_EQ(BytesOf(packet), first.plain);
        }
        EXPECT_EQ(Lines(log), Texts{"[Cloud] Failed to seal packet"});
        EXPECT_EQ(cloud_session.txCounter, 0u);
    }
    EXPECT_EQ(Seal(first.plain), first.sealed);
}

TEST_F(SecureSession, PlainPacketIsTracedBeforeSealing) {
    TraceCapture trace;
    Seal(vector_.packets[1].plain);
    trace.Stop();
    EXPECT_EQ(trace.Count("cloud_pkt"), 1u);
    EXPECT_TRUE(
        trace.Mentions("\"dir\":\"tx\",\"stage\":\"plain\",\"type\":1229210958,"
                       "\"type_str\":\"NEDI\",\"len\":8,"));
}

TEST_F(SecureSession, FirstMessageIsNotTracedAsPlain) {
    TraceCapture trace;
    Seal(vector_.nhs1);
    trace.Stop();
    EXPECT_EQ(trace.Count("cloud_pkt"), 0u);
}

// --- opening ---

TEST_F(SecureSession, NothingIsOpenedBeforeTheHandshakeOrAfterTheEnd) {
    CloudSecClearSession();
    EXPECT_EQ(Open(from_relay_[0]->sealed), Bytes());
    EXPECT_EQ(cloud_session.rxCounter, 0u);
}

TEST_F(SecureSession, PacketWithoutRoomForATagIsTooShort) {
    for (std::uint32_t size = 8; size < 24; ++size) {
        Bytes sealed = from_relay_[0]->sealed;
        sealed.resize(size);
        StoreU32(sealed.data() + 4, size);
        LogCapture log;
        EXPECT_EQ(Open(sealed), Bytes());
        EXPECT_EQ(Lines(log), Texts{kTooShort});
    }
}

TEST_F(SecureSession, PacketWithNothingInsideIsRefused) {
    LogCapture log;
    EXPECT_EQ(Open(FromRelay({})), Bytes());
    EXPECT_EQ(Lines(log), Texts{});
    EXPECT_EQ(cloud_session.rxCounter, 0u);
}

TEST_F(SecureSession, GenuinePacketMustHoldAWholePacket) {
    const Bytes inner = from_relay_[2]->plain;
    for (std::size_t size = 0; size < inner.size(); ++size) {
        EXPECT_EQ(Open(FromRelay(Bytes(inner.begin(), inner.begin() + static_cast<long>(size)))),
                  Bytes());
    }
    Bytes longer = inner;
    longer.push_back(0);
    EXPECT_EQ(Open(FromRelay(longer)), Bytes());
    EXPECT_EQ(cloud_session.rxCounter, 0u);
    EXPECT_EQ(Open(FromRelay(inner)), inner);
    EXPECT_EQ(cloud_session.rxCounter, 1u);
}

TEST_F(SecureSession, ShortestInnerPacketIsAHeader) {
    const Bytes header = vector_.packets[1].plain;
    ASSERT_EQ(header.size(), 8u);
    EXPECT_EQ(Open(FromRelay(header)), header);
}

TEST_F(SecureSession, PacketWithAnyBitAfterTheHeaderFlippedIsRefused) {
    const SealedVector& first = *from_relay_[0];
    for (std::size_t bit = std::size_t{8} * 8; bit < first.sealed.size() * 8; ++bit) {
        Bytes flipped = first.sealed;
        flipped[bit / 8] = static_cast<std::uint8_t>(flipped[bit / 8] ^ 1 << bit % 8);
        ASSERT_EQ(Open(flipped), Bytes()) << "bit " << bit;
        ASSERT_EQ(cloud_session.rxCounter, 0u);
    }
    EXPECT_EQ(Open(first.sealed), first.plain);
}

// A carrier that reads another length delivers that many bytes, or none.
TEST_F(SecureSession, PacketWithAnyBitOfTheLengthFlippedIsRefused) {
    const SealedVector& first = *from_relay_[0];
    const auto length = static_cast<std::uint32_t>(first.sealed.size());
    for (unsigned bit = 0; bit < 32; ++bit) {
        const std::uint32_t changed = length ^ 1u << bit;
        if (changed < MIN_PKT_SIZE || changed > MAX_PKT_SIZE) continue;
        Bytes cut = first.sealed;
        StoreU32(cut.data() + 4, changed);
        cut.resize(changed);
        EXPECT_EQ(Open(cut), Bytes()) << "length " << changed;
    }
    EXPECT_EQ(Open(first.sealed), first.plain);
}

TEST_F(SecureSession, ReplayedPacketIsRefused) {
    for (const SealedVector* packet : from_relay_) {
        EXPECT_EQ(Open(packet->sealed), packet->plain);
        EXPECT_EQ(Open(packet->sealed), Bytes());
    }
    for (const SealedVector* packet : from_relay_)
        EXPECT_EQ(Open(packet->sealed), Bytes());
}

TEST_F(SecureSession, EarlyPacketIsRefusedUntilItsTurn) {
    for (std::size_t i = 0; i + 1 < from_relay_.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(Open(from_relay_[i + 1]->sealed), Bytes());
        EXPECT_EQ(Open(from_relay_[i]->sealed), from_relay_[i]->plain);
    }
}

TEST_F(SecureSession, NothingIsOpenedAfterADroppedPacket) {
    for (std::size_t dropped = 0; dropped < from_relay_.size(); ++dropped) {
        SCOPED_TRACE(dropped);
        ASSERT_TRUE(Establish(vector_));
        for (std::size_t i = 0; i < from_relay_.size(); ++i) {
            if (i == dropped) continue;
            EXPECT_EQ(Open(from_relay_[i]->sealed), i < dropped ? from_relay_[i]->plain : Bytes());
        }
    }
}

TEST_F(SecureSession, OwnPacketIsRefused) {
    EXPECT_EQ(Open(Seal(vector_.packets[1].plain)), Bytes());
}

TEST_F(SecureSession, WelcomeDoesNotAdvanceTheCounter) {
    EXPECT_EQ(from_relay_[0]->counter, 0u);
    EXPECT_EQ(Open(from_relay_[0]->sealed), from_relay_[0]->plain);
}

TEST_F(SecureSession, PacketIsRefusedWithoutMemory) {
    PacketPtr packet = PacketFrom(from_relay_[0]->sealed);
    bool opened = true;
    {
        const FailingHeap heap;
        opened = CloudSecOpen(&cloud_session, packet);
    }
    EXPECT_FALSE(opened);
    EXPECT_TRUE(CloudSecOpen(&cloud_session, packet));
}

// --- the end ---

TEST_F(SecureSession, ClearingZeroesEveryField) {
    Seal(vector_.packets[1].plain);
    Open(from_relay_[0]->sealed);
    EXPECT_FALSE(SessionIsClear());
    CloudSecClearSession();
    EXPECT_TRUE(SessionIsClear());
    EXPECT_FALSE(CloudSecEstablished());
    CloudSecClearSession();  // a second time does nothing
    EXPECT_TRUE(SessionIsClear());
}

TEST_F(SecureSession, ClearedSchedulesOpenAndSealNothing) {
    CloudSecClearSession();
    cloud_session.established = true;
    const Bytes& plain = vector_.packets[1].plain;
    EXPECT_EQ(Seal(plain), plain);
    EXPECT_EQ(Open(from_relay_[0]->sealed), Bytes());
}

TEST_F(SecureSession, MayBeClearedWhileOtherThreadsSealAndOpen) {
    std::atomic<bool> sealed{false};
    std::atomic<bool> opened{false};
    std::atomic<bool> done{false};
    Thread sender([&] {
        while (!done) {
            if (Seal(vector_.packets[3].plain).size() != vector_.packets[3].plain.size()) {
                sealed = true;
            }
        }
    });
    Thread receiver([&] {
        while (!done) {
            if (!Open(from_relay_[0]->sealed).empty()) opened = true;
        }
    });
    bool goes_on = true;
    for (int round = 0; round < 20 && goes_on; ++round) {
        goes_on = Eventually([&] { return sealed && opened; });
        CloudSecClearSession();
        sealed = opened = false;
        goes_on = goes_on && Handshake(vector_);
    }
    done = true;
    EXPECT_TRUE(goes_on);
}

}  // namespace
}  // namespace tarvik::test
