// A vehicle replayed from the library's trace file.

#include <gtest/gtest.h>

#include <sstream>

#include "host.h"
#include "replay/recording.h"

namespace brennix::test {
namespace {

// Writes trace lines like the library; times are in milliseconds.
class Trace {
public:
    Trace& Line(std::uint32_t at_ms, const std::string& event, const std::string& fields) {
        return Text(R"({"seq":)" + std::to_string(++sequence_) + R"(,"ts_us":)" +
                    std::to_string(5'000'000 + at_ms * 1000) +
                    R"(,"tick_ms":1,"pid":2,"tid":3,"ev":")" + event + "\"" + fields + "}");
    }
    Trace& Text(const std::string& line) {
        text_ += line + "\n";
        return *this;
    }
    Trace& Start(std::uint32_t at_ms, std::uint32_t handle, const std::string& meta = "") {
        const std::string cop = R"(,"hMod":0,"hCLL":0,"hCoP":)" + std::to_string(handle);
        Line(at_ms, "cop_start", cop + R"(,"copType":32772)");
        return Line(at_ms, "cop_sendrecv_meta",
                    cop + (meta.empty() ? R"(,"raw":false,"canFuncReqId":2015)" : meta));
    }
    Trace& Candidate(std::uint32_t handle, std::uint32_t request, std::uint32_t response) {
        return Line(0, "cop_ecu_candidate",
                    R"(,"hCoP":)" + std::to_string(handle) +
                        R"(,"idx":0,"uniq":1,"canPhysReqId":)" + std::to_string(request) +
                        R"(,"canRespUSDTId":)" + std::to_string(response));
    }
    Trace& Sent(std::uint32_t at_ms, std::uint32_t handle, const std::string& hex,
                std::uint32_t physical = 0x7E0, std::uint32_t response = 0x7E8) {
        return Line(at_ms, "comm_req_sent",
                    Head(handle) + R"(,"tx_len":)" + std::to_string(hex.size() / 2) +
                        R"(,"tx_hex":")" + hex +
                        R"(","tx_trunc":false,"can_id_tx_func":2015,"can_id_tx_phys":)" +
                        std::to_string(physical) + R"(,"can_id_rx":)" + std::to_string(response));
    }
    Trace& Received(std::uint32_t at_ms, std::uint32_t handle, const std::string& hex,
                    std::uint32_t wait_time = 7, std::size_t size = 0) {
        return Line(at_ms, "comm_res_received",
                    Head(handle) + R"(,"wait_time":)" + std::to_string(wait_time) +
                        R"(,"rx_len":)" + std::to_string(size == 0 ? hex.size() / 2 : size) +
                        R"(,"rx_hex":")" + hex + "\"");
    }
    Trace& Result(std::uint32_t at_ms, std::uint32_t handle, std::uint32_t position,
                  const std::string& hex) {
        return Line(at_ms, "cop_rx",
                    R"(,"hCoP":)" + std::to_string(handle) + R"(,"uniq":)" +
                        std::to_string(position) + R"(,"acc":1,"rx_len":)" +
                        std::to_string(hex.size() / 2) + R"(,"rx_hex":")" + hex + "\"");
    }
    Recording Make(const RecordingOptions& options = {}) const {
        std::istringstream file(text_);
        return MakeRecording(ReadTrace(&file), options);
    }

    const std::string& Contents() const { return text_; }

private:
    static std::string Head(std::uint32_t handle) {
        return R"(,"req_id":)" + std::to_string(handle);
    }
    std::string text_;
    std::uint32_t sequence_ = 0;
};

constexpr const char* kVin = "22f190";

Trace& AskOnce(Trace* trace, std::uint32_t handle, const std::string& asked,
               const std::string& answer) {
    trace->Start(handle * 100, handle);
    trace->Sent(handle * 100, handle, asked);
    return trace->Received(handle * 100 + 12, handle, answer);
}

TEST(Recording, HasRequestsWithTheirAnswersAndTimes) {
    Trace trace;
    AskOnce(&trace, 1, kVin, "62f19041");
    const Recording recording = trace.Make();
    ASSERT_EQ(recording.exchanges.size(), 1u);
    EXPECT_EQ(recording.exchanges[0].Describe(),
              "7E0 to 7E8: 22F190, answered after 12 ms: 62F19041");
    EXPECT_EQ(recording.Summary(), "requests: 1, raw frames: 0, telemetry reports: 0, lines: 4");
}

TEST(Recording, SpeedDividesTheTimes) {
    Trace trace;
    AskOnce(&trace, 1, kVin, "62");
    EXPECT_EQ(trace.Make({.speed = 2, .fill = {}}).exchanges[0].packets[0].at_ms, 6u);
    EXPECT_EQ(trace.Make({.speed = 0, .fill = {}}).exchanges[0].packets[0].at_ms, 0u);
    EXPECT_EQ(trace.Make({.speed = 0.5, .fill = {}}).exchanges[0].packets[0].at_ms, 24u);
}

TEST(Recording, ShowsBusyTimeOutAndMissingPackets) {
    Trace trace;
    trace.Start(0, 1).Sent(0, 1, kVin);
    trace.Line(5, "busy_received", R"(,"req_id":1,"reason":"not \"yet\"","reason_len":9)");
    trace.Line(6, "busy_received", R"(,"req_id":1,"reason":null,"reason_len":0)");
    trace.Received(500, 1, "", kNoAnswerInTime);
    trace.Start(600, 2).Sent(600, 2, "3e00");
    const Recording recording = trace.Make();
    ASSERT_EQ(recording.exchanges.size(), 2u);
    EXPECT_EQ(recording.exchanges[0].Describe(),
              "7E0 to 7E8: 22F190, busy after 5 ms, busy after 6 ms, nobody answered after 500 ms");
    EXPECT_EQ(recording.exchanges[0].packets[0].data, ParseHex("6E6F74202279657422").value());
    EXPECT_EQ(recording.exchanges[1].Describe(), "7E0 to 7E8: 3E00, no packet came back");
}

TEST(Recording, AnswerReportedBeforeItsRequestBelongsToIt) {
    Trace trace;
    trace.Start(0, 1).Received(1, 1, "7e00").Sent(2, 1, "3e00");
    trace.Received(10, 1, "7e01").Sent(11, 1, "3e00");
    const Recording recording = trace.Make();
    ASSERT_EQ(recording.exchanges.size(), 2u);
    EXPECT_EQ(recording.exchanges[0].Describe(), "7E0 to 7E8: 3E00, answered after 0 ms: 7E00");
    EXPECT_EQ(recording.exchanges[1].Describe(), "7E0 to 7E8: 3E00, answered after 0 ms: 7E01");
    EXPECT_TRUE(recording.strange_answers.empty());
}

TEST(Recording, SecondAnswerIsADuplicateAndOneWithoutARequestIsCounted) {
    Trace trace;
    AskOnce(&trace, 1, kVin, "62").Received(150, 1, "62").Received(200, 9, "7e00");
    const Recording recording = trace.Make();
    EXPECT_EQ(recording.exchanges[0].packets.size(), 2u);
    EXPECT_EQ(recording.strange_answers, std::vector<std::size_t>{6});
}

TEST(Recording, LinesOutOfOrderAreSorted) {
    Trace trace;
    trace.Text(R"({"seq":4,"ts_us":2000,"ev":"comm_res_received","req_id":1,"wait_time":0,)"
               R"("rx_len":1,"rx_hex":"7e"})");
    trace.Text(R"({"seq":3,"ts_us":1000,"ev":"comm_req_sent","req_id":1,"tx_len":1,"tx_hex":"3e",)"
               R"("can_id_tx_func":1,"can_id_tx_phys":1,"can_id_rx":2})");
    const Recording recording = trace.Make();
    ASSERT_EQ(recording.exchanges.size(), 1u);
    EXPECT_EQ(recording.exchanges[0].packets.size(), 1u);
}

TEST(Recording, DamagedAndUnknownLinesAreCountedWithTheirNumbers) {
    Trace trace;
    trace.Text("no JSON").Line(0, "cop_vanish", "").Text("").Text("[1]").Text(R"({"seq":1})");
    AskOnce(&trace, 1, kVin, "62");
    trace.Text(R"({"seq":99,"ts_us":1,"ev":"comm_req_s)");
    trace.Text(std::string("{\"ev\":\"\xFF\xFE\"}"));
    const Recording recording = trace.Make();
    EXPECT_EQ(recording.damaged_lines, (std::vector<std::size_t>{1, 4, 5, 10, 11}));
    EXPECT_EQ(recording.unknown_lines, std::vector<std::size_t>{2});
    EXPECT_EQ(
        recording.Summary(),
        "requests: 1, raw frames: 0, telemetry reports: 0, lines: 11; 5 damaged (line 1, 4, 5, "
        "10, 11); 1 unknown (line 2)");
}

TEST(Recording, FieldsOfTheWrongTypeAreHarmless) {
    Trace trace;
    trace.Line(0, "comm_req_sent", R"(,"req_id":"x","tx_len":-1,"tx_hex":5)");
    trace.Line(0, "comm_req_sent", R"(,"req_id":1,"tx_len":4000000000,"tx_hex":"22")");
    trace.Line(0, "comm_res_received", R"(,"req_id":1,"wait_time":[],"rx_len":{},"rx_hex":"2")");
    trace.Line(0, "cop_rx", R"(,"hCoP":1,"uniq":77,"rx_len":3,"rx_hex":null)");
    trace.Line(0, "telemetry", R"(,"tele_json":7)").Line(0, "cop_sendrecv_meta", R"(,"raw":0)");
    trace.Line(0, "busy_received", R"(,"req_id":4)");
    const Recording recording = trace.Make();
    EXPECT_EQ(recording.damaged_lines, std::vector<std::size_t>{2});
    EXPECT_EQ(recording.strange_answers.size(), 2u);
}

std::string LongHex(std::size_t size) {
    std::string hex = "36";
    while (hex.size() < 2 * size)
        hex += "5a";
    return hex;
}

// The line ends within the bytes, without a line end.
TEST(Recording, LongRequestOfACutLineMatchesByItsFirstBytes) {
    Trace trace;
    trace.Start(0, 1).Candidate(1, 0x700, 0x708);
    trace.Text(
        R"({"seq":50,"ts_us":6000000,"ev":"comm_req_sent","req_id":1,"tx_len":600,"tx_hex":")" +
        LongHex(400) + "5" +
        R"({"seq":51,"ts_us":6009000,"ev":"comm_res_received","req_id":1,"wait_time":1,)"
        R"("rx_len":2,"rx_hex":"7601","rx_hex_len":2,"rx_trunc":false})");
    const Recording recording = trace.Make();
    ASSERT_EQ(recording.exchanges.size(), 1u);
    EXPECT_TRUE(recording.damaged_lines.empty());
    const Bytes data = ParseHex(LongHex(600)).value();
    brennix::Request request;
    request.physical_id = 0x700;
    request.response_id = 0x708;
    request.data = data;
    RecordingPlayer player(&recording);
    const RecordedExchange* exchange = player.Next(request);
    ASSERT_NE(exchange, nullptr);
    EXPECT_EQ(exchange->packets[0].data, (Bytes{0x76, 0x01}));
    request.data = ByteSpan(data).first(599);
    EXPECT_EQ(player.Next(request), nullptr);
}

TEST(Recording, CutAnswerIsLeftOutOrFilled) {
    Trace trace;
    trace.Start(0, 1).Sent(0, 1, kVin).Received(1, 1, "62f190", 1, 5);
    const Recording recording = trace.Make();
    EXPECT_EQ(recording.cut_answers, std::vector<std::size_t>{4});
    EXPECT_EQ(recording.exchanges[0].packets[0].wait_time, kNoAnswerInTime);
    const Recording filled = trace.Make({.speed = 1, .fill = 0xAA});
    EXPECT_EQ(filled.exchanges[0].packets[0].data, ParseHex("62F190AAAA").value());
}

// Reading any file must end without harm.
TEST(Recording, SurvivesAnyDamage) {
    Trace trace;
    AskOnce(&trace, 1, kVin, "62f19041").Candidate(2, 0x7E0, 0x7E8);
    trace.Start(300, 2).Sent(300, 2, "3e00", kMultiRequestMark, 2);
    trace.Received(303, 2, "00000000020000007e000000000000000100000002000000", kMultiResponseMark);
    trace.Result(304, 2, 1, "7e01").Start(400, 3, R"(,"raw":true)").Result(410, 3, 0, "000001a001");
    trace.Line(500, "telemetry", R"(,"tele_json_trunc":false,"tele_json":"{}")");
    const std::string whole = trace.Contents();
    std::uint32_t state = 12345;
    const auto random = [&state](std::size_t below) {
        state = state * 1664525u + 1013904223u;
        return static_cast<std::size_t>(state >> 8) % below;
    };
    std::size_t readable = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text = whole.substr(0, whole.size() - random(3) * random(whole.size() / 2));
        for (std::size_t i = random(8); i > 0; --i)
            text[random(text.size())] = static_cast<char>(random(256));
        std::istringstream file(text);
        const Recording recording = MakeRecording(ReadTrace(&file), {});
        RecordingPlayer player(&recording);
        EXPECT_FALSE(recording.Summary().empty());
        readable += recording.exchanges.size();
    }
    EXPECT_GT(readable, 3000u);
}

class Replayed : public testing::Test {
protected:
    void Run(const Trace& trace, bool strict = false) {
        DongleSetup setup;
        const auto recording = std::make_shared<const Recording>(trace.Make());
        setup.raw.sequence = recording->frames;
        setup.timeline.events = recording->telemetry;
        setup.recording = recording;
        setup.strict_replay = strict;
        simulator_.emplace(std::vector<DongleSetup>{setup});
        host_.emplace(simulator_->PortPath());
        ASSERT_TRUE(host_->Sync());
    }
    std::string Ask(const std::string& hex, std::uint32_t request = 0x7E0,
                    std::uint32_t response = 0x7E8) {
        host_->Send(SingleRequest(++id_, ParseHex(hex).value(), request, response, 20));
        const auto answer = AsSingle(host_->Read()).value_or(SingleResponse{});
        EXPECT_EQ(answer.id, id_);
        return answer.wait_time == kNoAnswerInTime ? "nobody" : ToHex(answer.data);
    }
    std::optional<RunningSimulator> simulator_;
    std::optional<HostPort> host_;
    std::uint32_t id_ = 100;
};

TEST_F(Replayed, AnswersComeInRecordedOrderAndTheLastRepeats) {
    Trace trace;
    AskOnce(&trace, 1, kVin, "6201");
    AskOnce(&trace, 2, "3e00", "7e00");
    AskOnce(&trace, 3, kVin, "6202");
    Run(trace);
    EXPECT_EQ(Ask("22F190"), "6201");
    EXPECT_EQ(Ask("22F190"), "6202");
    EXPECT_EQ(Ask("22F190"), "6202");
    EXPECT_EQ(Ask("3E00"), "7E00");
    EXPECT_EQ(simulator_->Command("replay"),
              R"(ok {"requests":3,"played":4,"unknown":0,"last_unknown":""})");
}

TEST_F(Replayed, OrderRestartsAfterResetAndForTheNextHost) {
    Trace trace;
    AskOnce(&trace, 1, kVin, "6201");
    AskOnce(&trace, 2, kVin, "6202");
    Run(trace);
    EXPECT_EQ(Ask("22F190"), "6201");
    EXPECT_TRUE(host_->Sync());
    EXPECT_EQ(Ask("22F190"), "6202");
    EXPECT_EQ(simulator_->Command("timeline restart"), "ok");
    EXPECT_EQ(Ask("22F190"), "6201");
    host_->Close();
    ASSERT_EQ(simulator_->Command("wait 2 10000 event"), "ok 2");  // plugged in, closed
    host_.emplace(simulator_->PortPath());
    ASSERT_TRUE(host_->Sync());
    EXPECT_EQ(Ask("22F190"), "6201");
}

TEST_F(Replayed, RequestMatchesOnlyWithTheSameIdsAndBytes) {
    Trace trace;
    AskOnce(&trace, 1, kVin, "62");
    Run(trace);
    EXPECT_EQ(Ask("22F191"), "nobody");
    EXPECT_EQ(Ask("22F190", 0x7E1), "nobody");
    EXPECT_EQ(Ask("22F190", 0x7E0, 0x7E9), "nobody");
    EXPECT_EQ(Ask("22F190"), "62");
    EXPECT_EQ(simulator_->Violations(), 0u);
    EXPECT_EQ(simulator_->Command("replay"),
              R"(ok {"requests":1,"played":1,"unknown":3,"last_unknown":"7E0 to 7E9: 22F190"})");
}

TEST_F(Replayed, UnknownRequestIsAViolationInStrictMode) {
    Trace trace;
    AskOnce(&trace, 1, kVin, "62");
    Run(trace, true);
    EXPECT_EQ(Ask("3E00"), "nobody");
    EXPECT_EQ(simulator_->LastViolation(), "not in the trace: 7E0 to 7E8: 3E00");
}

TEST_F(Replayed, BusyAndTimeOutAreReplayed) {
    Trace trace;
    trace.Start(0, 1).Sent(0, 1, kVin);
    trace.Line(1, "busy_received", R"(,"req_id":1,"reason":"soon","reason_len":4)");
    trace.Received(2, 1, "", kNoAnswerInTime);
    Run(trace);
    host_->Send(SingleRequest(5, {0x22, 0xF1, 0x90}));
    EXPECT_EQ(host_->Read(), MakeBusy(5, "soon"));
    EXPECT_EQ(AsSingle(host_->Read()).value().wait_time, kNoAnswerInTime);
}

// Entries belong to control units, at any position in the request.
TEST_F(Replayed, FunctionalAnswersFollowTheRequestsOrder) {
    Trace trace;
    trace.Start(0, 1).Candidate(1, 0x7E0, 0x7E8).Candidate(1, 0x7E1, 0x7E8);
    trace.Candidate(1, 0x713, 0x77D);
    trace.Sent(0, 1, "3e00", kMultiRequestMark, 2);
    trace.Received(3, 1,
                   "00000000020000007e00000000000000"
                   "01000000020000007e01000000000000",
                   kMultiResponseMark);
    Run(trace);
    host_->Send(MultiRequest(6, {0x3E, 0x00}, {{0x713, 0x77D}, {1, 2}, {0x7E0, 0x7E8}}));
    EXPECT_EQ(host_->Read(), MakeMultiResponse(6, {{2, {0x7E, 0x00}}, {0, {0x7E, 0x01}}}));
    host_->Send(MultiRequest(7, {0x3E, 0x01}, {{0x713, 0x77D}}, 20));
    EXPECT_EQ(host_->Read(), MakeMultiResponse(7, {}));
}

TEST_F(Replayed, CutFunctionalAnswerIsCompletedFromTheResults) {
    Trace trace;
    trace.Start(0, 1).Candidate(1, 0x7E0, 0x7E8).Candidate(1, 0x713, 0x77D);
    trace.Sent(0, 1, "3e00", kMultiRequestMark, 2);
    trace.Received(3, 1,
                   "00000000020000007e00000000000000"
                   "01000000",
                   kMultiResponseMark, 32);
    trace.Result(4, 1, 0, "7e00").Result(4, 1, 1, "7e01");
    Run(trace);
    host_->Send(MultiRequest(6, {0x3E, 0x00}, {{0x7E0, 0x7E8}, {0x713, 0x77D}}));
    EXPECT_EQ(host_->Read(), MakeMultiResponse(6, {{0, {0x7E, 0x00}}, {1, {0x7E, 0x01}}}));
}

TEST_F(Replayed, RawFramesAndTelemetryComeAtTheirTimes) {
    Trace trace;
    trace.Line(0, "log_start", "");
    trace.Start(10, 1, R"(,"raw":true)");
    trace.Result(20, 1, 0, "000001a00102").Result(30, 1, 0, "18daf110");
    trace.Line(15, "telemetry", R"(,"tele_json_trunc":false,"tele_json":"{\"v\":1}")");
    Run(trace);
    const std::optional<Bytes> report = host_->Read();
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(ToHex(PacketPayload(*report)), "7B2276223A317D");
    Bytes reception_on(16, 0);
    reception_on[6] = 1;
    host_->Send(MakePacket(type::kRawc, reception_on));
    EXPECT_EQ(host_->Read(), MakeRawPacket({0x1A0, {1, 2}}));
    EXPECT_EQ(host_->Read(), MakeRawPacket({0x18DAF110, {}}));
}

}  // namespace
}  // namespace brennix::test
