// What a host sees on the port.

#include <gtest/gtest.h>

#include "host.h"
#include "protocol/request.h"

namespace brennix::test {
namespace {

Bytes VinAnswer(const std::string& vin) {
    Bytes bytes = ParseHex("62 F1 90").value();
    AppendText(&bytes, vin, vin.size());
    return bytes;
}

const Bytes kEngineVin = VinAnswer("VIN-OF-THE-ENGINE");

class Port : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(host_.Sync()); }
    SingleResponse Ask(const Bytes& request) {
        EXPECT_TRUE(host_.Send(request));
        const std::optional<SingleResponse> response = AsSingle(host_.Read());
        EXPECT_TRUE(response.has_value());
        return response.value_or(SingleResponse{});
    }
    RunningSimulator simulator_;
    HostPort host_{simulator_.PortPath()};
};

TEST_F(Port, EchoesSync) {
    host_.Send(Sync());
    EXPECT_EQ(host_.ReadBytes(8), (Bytes{0x43, 0x4E, 0x59, 0x53, 8, 0, 0, 0}));
}

TEST_F(Port, AnswersIdentifyWithItsLogin) {
    host_.Send(Identify());
    const std::optional<Bytes> login = host_.Read();
    ASSERT_TRUE(login);
    ASSERT_EQ(login->size(), 192u);
    EXPECT_EQ(TypeName(PacketType(*login)), "LOGN");
    EXPECT_EQ(Bytes(login->begin() + 12, login->begin() + 18), (Bytes{2, 0, 0, 0, 0, 7}));
    EXPECT_EQ(LoadU32(login->data() + 20), 5u);
    EXPECT_STREQ(reinterpret_cast<const char*>(login->data() + 32), "9.8");
    EXPECT_STREQ(reinterpret_cast<const char*>(login->data() + 64), "Test dongle");
}

TEST_F(Port, AnswersARequestWithTheControlUnitsAnswer) {
    const SingleResponse response = Ask(SingleRequest(7, kReadVin));
    EXPECT_EQ(response.id, 7u);
    EXPECT_LT(response.wait_time, 1000u);
    EXPECT_EQ(response.data, kEngineVin);
}

TEST_F(Port, AnswersARequestThatComesByteByByte) {
    for (const std::uint8_t byte : SingleRequest(7, kReadVin))
        host_.Send(Bytes{byte});
    EXPECT_EQ(AsSingle(host_.Read()).value().data, kEngineVin);
}

TEST_F(Port, ReportsAMissingAnswerAfterTheTimeOut) {
    const SingleResponse response = Ask(SingleRequest(8, kReadVin, 0x123, 0x456, 30));
    EXPECT_EQ(response.wait_time, kNoAnswerInTime);
    EXPECT_TRUE(response.data.empty());
}

TEST_F(Port, IgnoresAnAnswerOnAnotherId) {
    EXPECT_EQ(Ask(SingleRequest(8, kReadVin, 0x7E0, 0x7E9, 30)).wait_time, kNoAnswerInTime);
}

TEST_F(Port, AnswersTheMultiFormWithOneEntryPerControlUnit) {
    host_.Send(MultiRequest(9, kReadVin, {{0x713, 0x77D}, {0x111, 0x112}, {0x7E0, 0x7E8}}, 40));
    const std::optional<Bytes> packet = host_.Read();
    ASSERT_TRUE(packet);
    const Bytes abs = VinAnswer("VIN-OF-THE-ABS");
    Bytes expected;
    AppendU32(&expected, 0xFFFFFFFD);
    AppendU32(&expected, 2);
    AppendU32(&expected, 9);
    AppendU32(&expected, 2);  // the engine is the third entry of the request, and answers first
    AppendU32(&expected, static_cast<std::uint32_t>(kEngineVin.size()));
    AppendBytes(&expected, kEngineVin);
    expected.insert(expected.end(), 4, 0);  // 8 + 20 bytes make 32
    AppendU32(&expected, 0);
    AppendU32(&expected, static_cast<std::uint32_t>(abs.size()));
    AppendBytes(&expected, abs);
    expected.insert(expected.end(), 7, 0);  // 8 + 17 bytes make 32
    EXPECT_EQ(*packet, MakePacket(type::kCres, expected));
}

TEST_F(Port, MultiFormWithoutAnyAnswerHasNoEntries) {
    host_.Send(MultiRequest(9, kReadVin, {{0x111, 0x112}}, 20));
    const std::optional<Bytes> packet = host_.Read();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->size(), 20u);
    EXPECT_EQ(LoadU32(packet->data() + 12), 0u);
}

TEST_F(Port, DelayedAnswerDoesNotDelayTheNext) {
    simulator_.Command(R"(next 1 {"delay_ms": 200})");
    Bytes both = SingleRequest(1, kReadVin);
    AppendBytes(&both, SingleRequest(2, kReadVin));
    host_.Send(both);  // together: the second arrives long before the first is answered
    const SingleResponse first = AsSingle(host_.Read()).value();
    const SingleResponse second = AsSingle(host_.Read()).value();
    EXPECT_EQ(first.id, 2u);
    EXPECT_EQ(second.id, 1u);
    EXPECT_GE(second.wait_time, 199u);
}

TEST_F(Port, AnswerLaterThanTheTimeOutCountsAsNone) {
    simulator_.Command(R"(next 1 {"delay_ms": 5000})");
    EXPECT_EQ(Ask(SingleRequest(1, kReadVin, 0x7E0, 0x7E8, 30)).wait_time, kNoAnswerInTime);
}

TEST_F(Port, WaitsThroughResponsePendingBeyondTheTimeOut) {
    simulator_.Command(R"(next 1 {"pending": 4, "pending_interval_ms": 30})");
    const SingleResponse response = Ask(SingleRequest(1, kReadVin, 0x7E0, 0x7E8, 60));
    EXPECT_EQ(response.data, kEngineVin);
    EXPECT_GE(response.wait_time, 119u);
}

TEST_F(Port, SilentControlUnitCausesATimeOut) {
    simulator_.Command(R"(unit engine {"silent": true})");
    EXPECT_EQ(Ask(SingleRequest(1, kReadVin, 0x7E0, 0x7E8, 30)).wait_time, kNoAnswerInTime);
}

TEST_F(Port, NegativeResponseNamesTheService) {
    simulator_.Command(R"(unit engine {"negative": "22"})");
    EXPECT_EQ(Ask(SingleRequest(1, kReadVin)).data, (Bytes{0x7F, 0x22, 0x22}));
}

TEST_F(Port, BehaviourForSomeRequestsEndsAfterTheLast) {
    simulator_.Command(R"(unit engine {"negative": "22", "for_requests": 2})");
    EXPECT_EQ(Ask(SingleRequest(1, kReadVin)).data.size(), 3u);
    EXPECT_EQ(Ask(SingleRequest(2, kReadVin)).data.size(), 3u);
    EXPECT_EQ(Ask(SingleRequest(3, kReadVin)).data, kEngineVin);
}

TEST_F(Port, BusyPacketsComeBeforeTheAnswer) {
    simulator_.Command("busy 2 engine is starting");
    host_.Send(SingleRequest(5, kReadVin));
    Bytes busy;
    AppendU32(&busy, 5);
    AppendText(&busy, "engine is starting", 18);
    EXPECT_EQ(host_.Read(), MakePacket(type::kBusy, busy));
    EXPECT_EQ(host_.Read(), MakePacket(type::kBusy, busy));
    EXPECT_EQ(AsSingle(host_.Read()).value().data, kEngineVin);
}

TEST_F(Port, LostAnswerNeverComesWithOrWithoutBusy) {
    simulator_.Command(R"(next 1 {"busy": 1, "lost": true})");
    host_.Send(SingleRequest(5, kReadVin));
    host_.Send(SingleRequest(6, kReadVin));
    EXPECT_EQ(TypeName(PacketType(host_.Read().value())), "BUSY");
    EXPECT_EQ(AsSingle(host_.Read()).value().id, 6u);
}

TEST_F(Port, StrayAnswersPrecedeAndDuplicatesFollowTheRightOne) {
    simulator_.Command(R"(next 1 {"stray": 1, "duplicate": 1})");
    EXPECT_NE(Ask(SingleRequest(5, kReadVin)).id, 5u);
    EXPECT_EQ(AsSingle(host_.Read()).value().id, 5u);
    EXPECT_EQ(AsSingle(host_.Read()).value().id, 5u);
}

TEST_F(Port, WrongIdReplacesTheRightOne) {
    simulator_.Command(R"(next 1 {"wrong_id": true})");
    EXPECT_NE(Ask(SingleRequest(5, kReadVin)).id, 5u);
    EXPECT_EQ(Ask(SingleRequest(6, kReadVin)).id, 6u);
}

TEST_F(Port, LongAnswerIsSentInFragmentsOfTheGivenSize) {
    simulator_.Command(R"(behaviour {"fragment": 32})");
    host_.Send(SingleRequest(5, kReadVin));
    Bytes whole;
    for (std::uint16_t index = 0; index < 3; ++index) {
        const Bytes fragment = host_.Read().value();
        EXPECT_EQ(TypeName(PacketType(fragment)), "FRAG");
        EXPECT_EQ(LoadU16(fragment.data() + 8), index);
        EXPECT_EQ(LoadU16(fragment.data() + 10), 3u);
        EXPECT_EQ(LoadU32(fragment.data() + 12), 40u);
        EXPECT_EQ(fragment.size(), index < 2 ? 32u : 24u);
        AppendBytes(&whole, ByteSpan(fragment).subspan(16));
    }
    EXPECT_EQ(AsSingle(whole).value().data, kEngineVin);
}

TEST_F(Port, AnswerLongerThanAPacketIsAlwaysFragmented) {
    Bytes value(5000, 0x41);
    simulator_.Command("data engine F190 " + ToHex(value));
    host_.Send(SingleRequest(5, kReadVin));
    const Bytes first = host_.Read().value();
    EXPECT_EQ(first.size(), 4096u);
    EXPECT_EQ(LoadU32(first.data() + 12), 5023u);
    EXPECT_EQ(host_.Read().value().size(), 16u + 5023u - 4080u);
}

TEST_F(Port, FragmentedRequestIsReassembled) {
    const Bytes request = SingleRequest(5, kReadVin);
    for (std::uint16_t index = 0; index < 2; ++index) {
        Bytes payload;
        AppendU16(&payload, index);
        AppendU16(&payload, 2);
        AppendU32(&payload, static_cast<std::uint32_t>(request.size()));
        AppendBytes(&payload, ByteSpan(request).subspan(index == 0 ? 0 : 20,
                                                        index == 0 ? 20 : request.size() - 20));
        host_.Send(MakePacket(type::kFrag, payload));
    }
    EXPECT_EQ(AsSingle(host_.Read()).value().data, kEngineVin);
    EXPECT_EQ(simulator_.Violations(), 0u);
}

TEST_F(Port, GarbageIsFollowedByASync) {
    simulator_.Command(R"(next 1 {"garbage": 20})");
    host_.Send(SingleRequest(5, kReadVin));
    const Bytes noise = host_.ReadBytes(20);
    EXPECT_GT(PacketLength(noise), kMaxPacketSize);
    EXPECT_EQ(host_.Read(), Sync());
    EXPECT_EQ(AsSingle(host_.Read()).value().data, kEngineVin);
}

TEST_F(Port, ShortGarbageIsFollowedByTwoSyncs) {
    simulator_.Command(R"(next 1 {"garbage": 3})");
    host_.Send(SingleRequest(5, kReadVin));
    host_.ReadBytes(3);
    EXPECT_EQ(host_.Read(), Sync());
    EXPECT_EQ(host_.Read(), Sync());
    EXPECT_EQ(AsSingle(host_.Read()).value().data, kEngineVin);
}

TEST_F(Port, PacketArrivesInPieces) {
    simulator_.Command("pieces 3 5");
    host_.Send(Sync());
    EXPECT_EQ(host_.ReadBytes(3, 2000), (Bytes{0x43, 0x4E, 0x59}));
    EXPECT_EQ(host_.ReadBytes(5), (Bytes{0x53, 8, 0, 0, 0}));
}

TEST_F(Port, CutEndsThePortWithinAPacket) {
    simulator_.Command("cut 11");
    host_.Send(SingleRequest(5, kReadVin));
    EXPECT_EQ(host_.ReadBytes(40).size(), 11u);
    EXPECT_TRUE(host_.IsAtEnd());
    EXPECT_EQ(simulator_.State().at("plugged"), false);
}

TEST_F(Port, MutePortRecordsEverythingAndAnswersNothing) {
    simulator_.Command("mute");
    host_.Send(Sync());
    EXPECT_EQ(simulator_.Command("wait 2 10000 in SYNC"), "ok 2");
    EXPECT_EQ(simulator_.Command("mute off"), "ok");
    host_.Send(Identify());
    EXPECT_EQ(TypeName(PacketType(host_.Read().value())), "LOGN");
}

TEST_F(Port, IgnoredPacketsStayUnanswered) {
    simulator_.Command("ignore SYNC 2");
    for (int i = 0; i < 3; ++i)
        host_.Send(Sync());
    host_.Send(Identify());
    EXPECT_EQ(host_.Read(), Sync());
    EXPECT_EQ(TypeName(PacketType(host_.Read().value())), "LOGN");
}

TEST_F(Port, UnplugEndsThePortAndReplugMakesANewOne) {
    simulator_.Command("unplug");
    EXPECT_TRUE(host_.IsAtEnd());
    EXPECT_FALSE(host_.Send(Sync()));
    EXPECT_EQ(simulator_.Command("replug"), "ok");
    HostPort again(simulator_.PortPath());
    EXPECT_TRUE(again.Sync());
}

TEST_F(Port, UnplugDropsDelayedAnswers) {
    simulator_.Command(R"(next 1 {"delay_ms": 100})");
    host_.Send(SingleRequest(1, kReadVin));
    ASSERT_EQ(simulator_.Command("wait 1 10000 in CREQ"), "ok 1");
    simulator_.Command("unplug");
    simulator_.Command("replug");
    HostPort again(simulator_.PortPath());
    ASSERT_TRUE(again.Sync());
    EXPECT_FALSE(again.Read(200).has_value());
}

TEST_F(Port, ReopenedPortStartsFresh) {
    host_.Send(ByteSpan(SingleRequest(1, kReadVin)).first(10));
    ASSERT_EQ(simulator_.Command("wait 1 10000 in SYNC"), "ok 1");
    host_.Close();
    HostPort again(simulator_.PortPath());
    EXPECT_TRUE(again.Sync());
    EXPECT_EQ(simulator_.Violations(), 0u);
}

TEST_F(Port, UnsolicitedPacketsAreSentOnCommand) {
    simulator_.Command("log first line\\nsecond");
    simulator_.Command("tele {\"v\": 1}");
    simulator_.Command("packet BUSY 01 00 00 00");
    simulator_.Command("send 01 02 03");
    EXPECT_EQ(host_.Read(),
              MakePacket(type::kLog, Bytes{'f', 'i', 'r', 's', 't', ' ', 'l', 'i', 'n', 'e', '\n',
                                           's', 'e', 'c', 'o', 'n', 'd'}));
    EXPECT_EQ(PacketType(host_.Read().value()), type::kTele);
    EXPECT_EQ(host_.Read(), MakePacket(type::kBusy, Bytes{1, 0, 0, 0}));
    EXPECT_EQ(host_.ReadBytes(3), (Bytes{1, 2, 3}));
}

TEST_F(Port, PingIsAnsweredByReplWithTheSamePayload) {
    simulator_.Command("ping 0A 0B");
    EXPECT_EQ(host_.Read(), MakePacket(type::kPing, Bytes{0x0A, 0x0B}));
    host_.Send(MakePacket(type::kRepl, Bytes{0x0A, 0x0B}));
    EXPECT_EQ(simulator_.Command("wait 1 10000 in REPL"), "ok 1");
    EXPECT_EQ(simulator_.Violations(), 0u);
}

TEST_F(Port, DongleCanBeChangedAtRunTime) {
    EXPECT_EQ(simulator_.Command(R"(dongle {"model": 4096, "name": "Renamed"})"), "ok");
    host_.Send(Identify());
    const Bytes login = host_.Read().value();
    EXPECT_EQ(LoadU32(login.data() + 20), 4096u);
    EXPECT_STREQ(reinterpret_cast<const char*>(login.data() + 64), "Renamed");
    simulator_.Command("reset");
    host_.Send(Identify());
    EXPECT_EQ(LoadU32(host_.Read().value().data() + 20), 5u);
}

TEST_F(Port, AnswersTenThousandRequestsInARow) {
    for (std::uint32_t id = 0; id < 10'000; ++id) {
        ASSERT_TRUE(host_.Send(SingleRequest(id, kReadVin)));
        ASSERT_EQ(AsSingle(host_.Read()).value().id, id);
    }
}

TEST_F(Port, AnswersAnyNumberOfRequestsSentAhead) {
    constexpr std::uint32_t kCount = 500;
    Bytes requests;
    for (std::uint32_t id = 0; id < kCount; ++id)
        AppendBytes(&requests, SingleRequest(id, kReadVin));
    std::thread sender([&] { host_.Send(requests); });
    for (std::uint32_t id = 0; id < kCount; ++id)
        EXPECT_EQ(AsSingle(host_.Read()).value().id, id);
    sender.join();
}

TEST(TwoPorts, AreTwoDongles) {
    RunningSimulator simulator({CarJson(), CarJson("", R"("model": 13)")});
    HostPort first(simulator.PortPath(0));
    HostPort second(simulator.PortPath(1));
    ASSERT_TRUE(first.Sync());
    ASSERT_TRUE(second.Sync());
    simulator.Command("@1 unplug");
    EXPECT_TRUE(second.IsAtEnd());
    EXPECT_TRUE(first.Sync());
}

}  // namespace
}  // namespace brennix::test
