// The channel's memory: it is tracked, it is released, and it then holds no secrets.
#include "unit/cloud/secure_fixture.h"
#include "unit/faults/memory_watch_fault.h"

namespace tarvik::test {
namespace {

class SecureMemory : public SecureChannel {
protected:
    void SetUp() override {
        SecureChannel::SetUp();
        ASSERT_TRUE(Load(vector_));
        ASSERT_TRUE(Handshake(vector_));  // the queues keep what they need for their first packet
        EmptyQueues();
        CloudSecClearSession();
    }
    // Everything that nobody else may find.
    std::vector<Bytes> Secrets() const {
        return {vector_.device_private_key,
                vector_.device_ephemeral_private_key,
                vector_.shared_secret_1,
                vector_.shared_secret_2,
                vector_.nhs1_key,
                vector_.session_prk,
                vector_.tx_key,
                vector_.rx_key,
                vector_.nonce_salt};
    }
    void EmptyQueues() {
        for (PacketQueue* queue : {&relay_.rx, &relay_.tx}) {
            while (TakePacket(queue, 0) != nullptr) {
            }
        }
    }
};

TEST_F(SecureMemory, ComesFromTheTrackedAllocator) {
    const MemoryUse before = LiveMemory();
    ASSERT_TRUE(Handshake(vector_));
    EmptyQueues();
    EXPECT_EQ(LiveMemory().blocks, before.blocks + 2);  // a key schedule for each direction
    CloudSecClearSession();
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

TEST_F(SecureMemory, StaysFlatOverManySessions) {
    ASSERT_TRUE(Handshake(vector_));
    EmptyQueues();
    const MemoryUse before = LiveMemory();
    for (int round = 0; round < 50; ++round) {
        if (round % 2 == 0) CloudSecClearSession();
        ASSERT_TRUE(Load(vector_));
        ASSERT_TRUE(Handshake(vector_));
        CloudSecSeal(PacketFrom(vector_.packets[0].plain));
        EmptyQueues();
    }
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

TEST_F(SecureMemory, NoReleasedBlockHoldsASecret) {
    const ReleasedMemory released(Secrets());
    ASSERT_TRUE(Load(vector_));
    ASSERT_TRUE(Handshake(vector_));
    PacketPtr packet = CloudSecSeal(PacketFrom(vector_.packets[0].plain));
    CloudSecClearSession();
    EXPECT_GT(released.Blocks(), 100u);
    EXPECT_EQ(released.Leaks(), 0u);
}

TEST_F(SecureMemory, ScanOfReleasedBlocksFindsSecrets) {
    ReleasedMemory released(Secrets());
    FreeMem(PacketFrom(vector_.shared_secret_2).release());
    EXPECT_EQ(released.Leaks(), 1u);
    FreeMem(PacketFrom(Bytes(vector_.tx_key.rbegin(), vector_.tx_key.rend())).release());
    EXPECT_EQ(released.Leaks(), 2u);
}

// The steps from the first secret on, each failing.
constexpr struct {
    CryptoStep step;
    unsigned spared;
} kFaults[] = {
    {CryptoStep::kPointWrite, 0}, {CryptoStep::kMpiRead, 3},  {CryptoStep::kAgree, 0},
    {CryptoStep::kMpiWrite, 2},   {CryptoStep::kExtract, 0},  {CryptoStep::kSetKey, 0},
    {CryptoStep::kEncrypt, 0},    {CryptoStep::kMpiRead, 5},  {CryptoStep::kMpiRead, 7},
    {CryptoStep::kAgree, 1},      {CryptoStep::kMpiWrite, 3}, {CryptoStep::kExtract, 1},
    {CryptoStep::kExpand, 1},     {CryptoStep::kExpand, 2},   {CryptoStep::kSetKey, 1},
    {CryptoStep::kSetKey, 2},
};

TEST_F(SecureMemory, NoFailedHandshakeLeavesSecretsOrBlocks) {
    const MemoryUse before = LiveMemory();
    const ReleasedMemory released(Secrets());
    for (const auto& row : kFaults) {
        const CryptoFault fault(row.step, row.spared);
        EXPECT_FALSE(Handshake(vector_));
        EXPECT_TRUE(fault.Struck());
        EXPECT_TRUE(SessionIsClear());
        EmptyQueues();
        EXPECT_EQ(LiveMemory().blocks, before.blocks);
    }
    Bytes wrong_tag = vector_.nhs2;
    wrong_tag[8] ^= 1;
    EXPECT_FALSE(Handshake(vector_, wrong_tag));
    EXPECT_TRUE(SessionIsClear());
    EmptyQueues();
    const LeapingTick tick;
    EXPECT_FALSE(CloudSecHandshake(&relay_));  // no answer
    EmptyQueues();
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(released.Leaks(), 0u);
}

// The heap runs out after each of the first requests, then after ever larger numbers of them.
TEST_F(SecureMemory, HandshakeSurvivesAnExhaustedHeap) {
    const MemoryUse before = LiveMemory();
    const LeapingTick tick;
    bool succeeded = false;
    int failures = 0;
    for (std::uint32_t allowed = 0; !succeeded && allowed < 1'000'000;
         allowed += 1 + allowed / 16) {
        const FixedEphemeral ephemeral(vector_.device_ephemeral_private_key,
                                       vector_.device_ephemeral_public_key);
        Answer(vector_.nhs2);
        {
            const FailingHeap heap(allowed);
            succeeded = CloudSecHandshake(&relay_);
        }
        EXPECT_EQ(CloudSecEstablished(), succeeded);
        if (!succeeded) {
            ++failures;
            EXPECT_TRUE(SessionIsClear());
        }
        EmptyQueues();
        const std::uint64_t schedules = succeeded ? 2 : 0;
        ASSERT_EQ(LiveMemory().blocks, before.blocks + schedules) << "allowed " << allowed;
    }
    EXPECT_TRUE(succeeded);
    EXPECT_GT(failures, 20);
}

TEST_F(SecureMemory, IdentificationSurvivesAnExhaustedHeap) {
    const LeapingTick tick;
    std::uint32_t status = 0;
    bool identified = true;
    {
        const FailingHeap heap;
        identified = CloudSecIdentify(&relay_, &status);
    }
    EXPECT_FALSE(identified);
}

}  // namespace
}  // namespace tarvik::test
