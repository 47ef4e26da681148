#include "transport/identification.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "unit/test_support.h"

namespace tarvik::test {
namespace {

class IdentificationTest : public testing::Test {
protected:
    IdentificationTest() {
        InitializeQueue(&queues_.rx);
        InitializeQueue(&queues_.tx);
        queues_.available = true;
    }
    ~IdentificationTest() override {
        FreeQueue(&queues_.rx);
        FreeQueue(&queues_.tx);
    }
    void Receive(PacketPtr packet) { ASSERT_TRUE(AppendPacket(&queues_.rx, packet, kNoTag)); }

    DeviceQueues queues_;
};

PacketPtr Login(const std::string& name) {
    PacketPtr login = MakePacket(kTypeLogn, kLoginSize);
    const std::uint8_t mac[] = {0xA0, 0xB1, 0xC2, 0xD3, 0xE4, 0xF5};
    std::memcpy(login->Bytes() + 12, mac, sizeof mac);
    std::memcpy(login->Bytes() + 64, name.data(), name.size());
    return login;
}

TEST_F(IdentificationTest, IdentifyQueuesOneIdenWithoutPayload) {
    SendIdentify(&queues_);
    const PacketPtr identify = TakePacket(&queues_.tx, 0);
    ASSERT_NE(identify, nullptr);
    EXPECT_EQ(identify->type, kTypeIden);
    EXPECT_EQ(identify->length, 8u);
    EXPECT_EQ(TakePacket(&queues_.tx, 0), nullptr);
}

TEST_F(IdentificationTest, WaitTakesTheLoginAndLeavesOtherPackets) {
    Receive(MakePacket(kTypeBusy, 12));
    Receive(Login("first"));
    Receive(Login("second"));
    const PacketPtr login = WaitForLogin(&queues_, 10'000, nullptr, nullptr);
    ASSERT_NE(login, nullptr);
    EXPECT_STREQ(LoginDeviceName(LoginFromPacket(*login)).text, "first");
    EXPECT_EQ(queues_.rx.count, 2u);
}

TEST_F(IdentificationTest, WaitEndsWithEitherFlag) {
    const std::atomic<bool> yes{true};
    const std::atomic<bool> no{false};
    constexpr std::uint32_t kOneHourMs = 3'600'000;
    EXPECT_EQ(WaitForLogin(&queues_, kOneHourMs, &yes, nullptr), nullptr);
    EXPECT_EQ(WaitForLogin(&queues_, kOneHourMs, nullptr, &no), nullptr);
}

TEST_F(IdentificationTest, LoginTextHasTheNameAndTheMacAddress) {
    EXPECT_STREQ(LoginText(LoginFromPacket(*Login("Dongle"))).text,
                 "'Dongle' with mac A0:B1:C2:D3:E4:F5");
    const std::string longest(32, 'N');
    EXPECT_EQ(LoginText(LoginFromPacket(*Login(longest))).text,
              "'" + longest + "' with mac A0:B1:C2:D3:E4:F5");
}

TEST_F(IdentificationTest, LoginTextHasNoControlCharacters) {
    EXPECT_STREQ(LoginText(LoginFromPacket(*Login("a\r\n\x1B[0m\xC3\xBC"))).text,
                 "'a...[0m\xC3\xBC' with mac A0:B1:C2:D3:E4:F5");
}

TEST_F(IdentificationTest, LoginIsPrintedAndReportedWithTransportAndQueues) {
    static constexpr Transport kOther = {"Other", 99,      "",      "",      1,
                                         0,       nullptr, nullptr, nullptr, nullptr,
                                         nullptr, nullptr, nullptr, 0,       0};
    const PacketPtr login = Login("Dongle");
    std::vector<DeviceReport> reports;
    StdoutCapture console;
    ReportLogin(
        kOther, *login, &queues_,
        [](void* context, const DeviceReport& report) {
            static_cast<std::vector<DeviceReport>*>(context)->push_back(report);
        },
        &reports);
    EXPECT_EQ(console.Text(),
              "[Other] OtherUpdateDevices received: 'Dongle' with mac A0:B1:C2:D3:E4:F5\r\n");
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].transport, 99u);
    EXPECT_EQ(reports[0].queues, &queues_);
    EXPECT_EQ(std::memcmp(reports[0].login.bytes, login->Bytes(), kLoginSize), 0);
}

TEST_F(IdentificationTest, PingIsAnsweredByReplWithTheSamePayload) {
    PacketPtr ping = MakePacket(kTypePing, 11);
    std::memcpy(ping->Bytes() + 8, "abc", 3);
    AnswerPing(&queues_, ping);
    const PacketPtr reply = TakePacket(&queues_.tx, 0);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(reply->type, kTypeRepl);
    EXPECT_EQ(reply->length, 11u);
    EXPECT_EQ(std::memcmp(reply->Bytes() + 8, "abc", 3), 0);
}

TEST_F(IdentificationTest, PingIsNotAnsweredWhileAnswersFillTheQueue) {
    constexpr std::uint32_t kFull = 4096;  // packets of 4096 bytes
    for (std::uint32_t i = 0; i < kFull + 10; ++i) {
        PacketPtr ping = MakePacket(kTypePing, 4096);
        AnswerPing(&queues_, ping);
    }
    EXPECT_EQ(queues_.tx.count, kFull);
}

TEST_F(IdentificationTest, PingAboveTheMtuIsAnsweredInFragments) {
    queues_.mtu = 100;
    PacketPtr ping = MakePacket(kTypePing, 101);
    AnswerPing(&queues_, ping);
    for (int i = 0; i < 2; ++i) {
        const PacketPtr fragment = TakePacket(&queues_.tx, 0);
        ASSERT_NE(fragment, nullptr);
        EXPECT_EQ(fragment->type, kTypeFrag);
        EXPECT_LE(fragment->length, 100u);
    }
    EXPECT_EQ(TakePacket(&queues_.tx, 0), nullptr);
}

}  // namespace
}  // namespace tarvik::test
