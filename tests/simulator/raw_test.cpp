// CAN frames that are not diagnostic requests, in both directions.

#include <gtest/gtest.h>

#include "host.h"
#include "vehicle/byte_pattern.h"
#include "vehicle/raw_traffic.h"

namespace brennix::test {
namespace {

constexpr const char* kRawCar = R"({
    "control_units": [
        {"name": "engine", "request": "7E0", "response": "7E8", "functional": ["7DF"],
         "data": {"F190": "WTVDEM0S1M0000001"}},
        {"name": "gearbox", "request": "7E1", "response": "7E9", "functional": ["7DF"],
         "behaviour": {"delay_ms": 20}}
    ],
    "raw": {
        "frames": [
            {"name": "speed", "id": "1A0", "period_ms": 5, "counter": 1,
             "data": ["10 FE", "20 FE"]},
            {"name": "stopped", "id": "2A0", "period_ms": 0}
        ],
        "answers": [
            {"id": "600", "data": "01 ?? *",
             "frames": [{"id": "601", "data": "41"}, {"id": "602", "delay_ms": 5}]},
            {"id": "18DA00F1", "id_mask": "1FFF00FF",
             "frames": [{"id": "18DAF110", "data": "01 02 03 04 05 06 07 08"}]}
        ]
    }})";

Bytes RawPacket(std::uint32_t id, const Bytes& data, std::uint16_t flags = 0) {
    Bytes packet = MakeRawPacket({id, data});
    packet[14] = static_cast<std::uint8_t>(flags);
    return packet;
}

const Bytes kReceptionOn = RawPacket(0, {}, 1);
const Bytes kReceptionOff = RawPacket(0, {}, 2);

class Raw : public testing::Test {
protected:
    explicit Raw(const std::string& car = kRawCar)
        : simulator_(std::vector<std::string>{car}), host_(simulator_.PortPath()) {}
    void SetUp() override { ASSERT_TRUE(host_.Sync()); }

    nlohmann::json RawState() { return nlohmann::json::parse(simulator_.Command("raw").substr(3)); }
    // Switches reception and waits until the dongle has done so.
    void Switch(const Bytes& packet) {
        const std::string seen = simulator_.Command("record count in RAWC").substr(3);
        ASSERT_TRUE(host_.Send(packet));
        const std::string next = std::to_string(std::stoul(seen) + 1);
        ASSERT_EQ(simulator_.Command("wait " + next + " 10000 in RAWC"), "ok " + next);
    }
    // Reads until a frame with this id comes.
    Bytes ReadFrame(std::uint32_t id) {
        for (;;) {
            const std::optional<Bytes> packet = host_.Read();
            if (!packet) return {};
            if (packet->size() == 24 && LoadU32(packet->data() + 8) == id) return *packet;
        }
    }

    RunningSimulator simulator_;
    HostPort host_;
};

// A vehicle without frames of its own, so that only requested frames come.
class QuietRaw : public Raw {
protected:
    QuietRaw() : Raw(CarJson()) {}
};

TEST(BytePattern, MatchesWildcardDigits) {
    const auto matches = [](const char* pattern, const char* bytes) {
        return BytePattern::Parse(pattern).value().Matches(ParseHex(bytes).value());
    };
    EXPECT_TRUE(matches("22 F190", "22 F1 90"));
    EXPECT_FALSE(matches("22 F190", "22 F1 91"));
    EXPECT_FALSE(matches("22 F190", "22 F1 90 00"));
    EXPECT_TRUE(matches("22 F?90", "22 FA 90"));
    EXPECT_FALSE(matches("22 ?A", "22 AB"));
    EXPECT_TRUE(matches("22 *", "22"));
    EXPECT_TRUE(matches("22 *", "22 01 02"));
    EXPECT_FALSE(matches("22 ?? *", "22"));
    EXPECT_TRUE(matches("", ""));
    for (const char* text : {"2", "22 *1", "* 22", "2G", "222"})
        EXPECT_FALSE(BytePattern::Parse(text).has_value()) << text;
}

TEST(RawPacket, HasAFixedLength) {
    EXPECT_EQ(ToHex(MakeRawPacket({0x18DAF110, {1, 2, 3}})),
              "435741521800000010F1DA18030000000102030000000000");
}

TEST_F(Raw, SendsNothingBeforeReceptionIsOn) {
    EXPECT_EQ(simulator_.Command("raw send 123 01"), "ok 0");
    host_.Send(RawPacket(0x600, {0x01, 0x02}));
    ASSERT_TRUE(host_.Send(Identify()));
    const std::optional<Bytes> packet = host_.Read();
    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(PacketType(*packet), type::kLogn);
    EXPECT_EQ(RawState().at("sent"), 0);
}

TEST_F(Raw, PeriodicFramesCountAndChange) {
    Switch(kReceptionOn);
    EXPECT_EQ(ReadFrame(0x1A0), RawPacket(0x1A0, {0x10, 0xFE}));
    EXPECT_EQ(ReadFrame(0x1A0), RawPacket(0x1A0, {0x20, 0xFF}));
    EXPECT_EQ(ReadFrame(0x1A0), RawPacket(0x1A0, {0x10, 0x00}));
    EXPECT_EQ(ReadFrame(0x1A0), RawPacket(0x1A0, {0x20, 0x01}));
    EXPECT_EQ(simulator_.Violations(), 0u);
}

TEST_F(Raw, ReceptionEndsWithTheLastListener) {
    Switch(kReceptionOn);
    Switch(kReceptionOn);
    Switch(kReceptionOff);
    EXPECT_EQ(RawState().at("listeners"), 1);
    EXPECT_FALSE(ReadFrame(0x1A0).empty());
    Switch(kReceptionOff);
    EXPECT_EQ(simulator_.Command("raw send 123 01"), "ok 0");
    Switch(kReceptionOff);
    EXPECT_EQ(RawState().at("listeners"), 0);
}

TEST_F(Raw, SwitchedReceptionFollowsTheLastCommand) {
    RunningSimulator simulator({CarJson("", "").substr(0, CarJson().size() - 1) +
                                R"(, "raw": {"reception": "switched"}})"});
    HostPort host(simulator.PortPath());
    ASSERT_TRUE(host.Sync());
    host.Send(kReceptionOn);
    host.Send(kReceptionOn);
    host.Send(kReceptionOff);
    ASSERT_EQ(simulator.Command("wait 3 10000 in RAWC"), "ok 3");
    EXPECT_EQ(simulator.Command("raw send 123 01"), "ok 0");
}

TEST_F(Raw, ReceptionEndsWhenTheHostLeaves) {
    Switch(kReceptionOn);
    ASSERT_FALSE(ReadFrame(0x1A0).empty());
    host_.Close();
    ASSERT_EQ(simulator_.Command("wait 3 10000 event"), "ok 3");  // plugged in, on, closed
    EXPECT_EQ(RawState().at("listeners"), 0);
}

TEST_F(Raw, FramesAreAnsweredByIdAndData) {
    Switch(kReceptionOn);
    host_.Send(RawPacket(0x600, {0x02, 0x00}));
    host_.Send(RawPacket(0x600, {0x01, 0x00}));
    EXPECT_EQ(ReadFrame(0x601), RawPacket(0x601, {0x41}));
    EXPECT_EQ(ReadFrame(0x602), RawPacket(0x602, {}));
    EXPECT_EQ(RawState().at("ids").at("600"), nlohmann::json({{"count", 2}, {"last", "0100"}}));
}

TEST_F(Raw, FramesAreAnsweredByMaskedId) {
    Switch(kReceptionOn);
    host_.Send(RawPacket(0x18DA55F1, {}));
    EXPECT_EQ(ReadFrame(0x18DAF110), RawPacket(0x18DAF110, {1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(Raw, ControlUnitsAnswerRequestsThatFitOneFrame) {
    Switch(kReceptionOn);
    host_.Send(RawPacket(0x7DF, {0x02, 0x3E, 0x00, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC}));
    EXPECT_EQ(ReadFrame(0x7E8), RawPacket(0x7E8, {0x02, 0x7E, 0x00}));
    EXPECT_EQ(ReadFrame(0x7E9), RawPacket(0x7E9, {0x02, 0x7E, 0x00}));
    host_.Send(RawPacket(0x7E0, {0x03, 0x22, 0xF1, 0x90}));
    EXPECT_EQ(ReadFrame(0x7E8), RawPacket(0x7E8, {0x10, 0x14, 0x62, 0xF1, 0x90, 'W', 'T', 'V'}));
}

TEST_F(Raw, ControlUnitsIgnoreFramesThatHoldNoWholeRequest) {
    Switch(kReceptionOn);
    for (const Bytes& data : {Bytes{}, Bytes{0x00}, Bytes{0x02, 0x3E}, Bytes{0x30, 0x00, 0x00},
                              Bytes{0x08, 0x3E, 0, 0, 0, 0, 0, 0}}) {
        host_.Send(RawPacket(0x7E0, data));
    }
    host_.Send(RawPacket(0x7E2, {0x02, 0x3E, 0x00}));  // nobody's id
    host_.Send(RawPacket(0x7E0, {0x02, 0x10, 0x01}));
    EXPECT_EQ(ReadFrame(0x7E8), RawPacket(0x7E8, {0x06, 0x50, 0x01, 0x00, 0x32, 0x01, 0xF4}));
}

TEST_F(Raw, FramesCanBeChangedStoppedAndReset) {
    simulator_.Command(R"(raw frame {"name": "speed", "id": "1A0", "period_ms": 0})");
    simulator_.Command(R"(raw frame {"name": "rpm", "id": "0C0", "period_ms": 5, "data": "AA"})");
    Switch(kReceptionOn);
    EXPECT_EQ(host_.Read(), RawPacket(0x0C0, {0xAA}));
    EXPECT_EQ(host_.Read(), RawPacket(0x0C0, {0xAA}));
    simulator_.Command("reset");
    EXPECT_FALSE(ReadFrame(0x1A0).empty());
}

TEST_F(QuietRaw, FramesAreSentOnCommand) {
    Switch(kReceptionOn);
    EXPECT_EQ(simulator_.Command("raw send 18DAF110 01 02"), "ok 1");
    EXPECT_EQ(host_.Read(), RawPacket(0x18DAF110, {1, 2}));
    EXPECT_EQ(simulator_.Command("raw send 7E8"), "ok 1");
    EXPECT_EQ(host_.Read(), RawPacket(0x7E8, {}));
}

TEST_F(QuietRaw, AnswersCanBeAdded) {
    simulator_.Command(R"(raw answer {"id": "700", "frames": [{"id": "701", "data": "55"}]})");
    Switch(kReceptionOn);
    host_.Send(RawPacket(0x700, {0x12}));
    EXPECT_EQ(host_.Read(), RawPacket(0x701, {0x55}));
}

TEST_F(QuietRaw, BurstArrivesCompleteAndInOrder) {
    constexpr std::uint32_t kCount = 5000;
    Switch(kReceptionOn);
    EXPECT_EQ(simulator_.Command("raw burst 5000 321"), "ok 5000");
    for (std::uint32_t i = 0; i < kCount; ++i) {
        const auto high = static_cast<std::uint8_t>(i >> 8);
        const auto low = static_cast<std::uint8_t>(i & 0xFF);
        ASSERT_EQ(host_.Read(), RawPacket(0x321, {0, 0, 0, 0, 0, 0, high, low})) << i;
    }
}

TEST_F(QuietRaw, FramesOfTheHostAreListed) {
    host_.Send(RawPacket(0x123, {1}));
    host_.Send(RawPacket(0x18DA10F1, {1, 2}));
    host_.Send(RawPacket(0x123, {}));
    ASSERT_EQ(simulator_.Command("wait 3 10000 in RAWC"), "ok 3");
    const auto list = nlohmann::json::parse(simulator_.Command("raw received 2").substr(3));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].at("id"), "18DA10F1");
    EXPECT_EQ(list[0].at("data"), "0102");
    EXPECT_EQ(list[0].at("at_ms"), 0);
    EXPECT_EQ(list[1].at("data"), "");
    EXPECT_EQ(RawState().at("received"), 3);
    EXPECT_EQ(simulator_.Command("raw clear"), "ok");
    EXPECT_EQ(RawState().at("received"), 0);
}

TEST_F(QuietRaw, FrameThatAnnouncesTooManyBytesIsReportedAndNotListed) {
    Bytes packet = RawPacket(0x123, {});
    packet[12] = 9;
    host_.Send(packet);
    ASSERT_EQ(simulator_.Command("wait 1 10000 violation"), "ok 1");
    EXPECT_EQ(simulator_.LastViolation(), "RAWC announces 9 data bytes, at most 8 fit");
    EXPECT_EQ(RawState().at("received"), 0);
}

TEST_F(QuietRaw, BadCommandIsAnsweredWithWhatIsExpected) {
    EXPECT_EQ(simulator_.Command("raw listen"),
              "error: raw: expected send, burst, received, clear, frame, answer or nothing, found "
              "\"listen\"");
    EXPECT_EQ(simulator_.Command("raw send"),
              "error: CAN id: expected hex text such as \"7E0\", at most 1fffffff, found the text "
              "\"\"");
    EXPECT_EQ(simulator_.Command("raw send 123 010203040506070809"),
              "error: raw: expected at most 8 bytes");
    EXPECT_EQ(simulator_.Command("raw burst 0 123"), "error: raw: expected 1 to 1000000 frames");
}

std::string ErrorOfRaw(const std::string& raw) { return ErrorOfVehicle(R"({"raw": )" + raw + "}"); }

TEST(RawFile, ErrorsSayWhatIsExpected) {
    EXPECT_EQ(ErrorOfRaw(R"({"frames": [{"name": "a", "id": "20000000"}]})"),
              "car: raw.frames[0].id: expected hex text such as \"7E0\", at most 1fffffff, found "
              "the text \"20000000\"");
    EXPECT_EQ(ErrorOfRaw(R"({"frames": [{"name": "a", "id": "1", "data": "010203040506070809"}]})"),
              "car: raw.frames[0].data: expected at most 8 bytes, found 9");
    EXPECT_EQ(ErrorOfRaw(R"({"frames": [{"name": "a", "id": "1", "data": "01", "counter": 1}]})"),
              "car: raw.frames[0].counter: the data have no byte 1, bytes are counted from 0");
    EXPECT_EQ(ErrorOfRaw(R"({"frames": [{"name": "a", "id": "1"}, {"name": "a", "id": "2"}]})"),
              "car: raw.frames[1].name: \"a\" is the name of another frame");
    EXPECT_EQ(ErrorOfRaw(R"({"answers": [{"id": "1"}]})"),
              "car: raw.answers[0].frames: missing, expected the frames that answer");
    EXPECT_EQ(ErrorOfRaw(R"({"reception": "maybe"})"),
              "car: raw.reception: expected \"counted\" or \"switched\", found the text \"maybe\"");
}

}  // namespace
}  // namespace brennix::test
