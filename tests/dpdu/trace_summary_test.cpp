// dpdu trace summary as seen by its user.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "client_run.h"
#include "trace/statistics.h"
#include "trace_files.h"

namespace {

using Json = nlohmann::json;

ClientResult Summarise(const std::vector<std::string>& arguments) {
    return RunTrace("summary", arguments);
}

Json Document(const std::string& path) {
    const ClientResult result = Summarise({"--json", path});
    EXPECT_EQ(result.exit_code, 0) << result.error;
    return Json::parse(result.output, nullptr, false);
}

Json Document(const TemporaryTrace& trace) { return Document(trace.Path()); }

TEST(TraceSummary, ShowsSessionsLinksControlUnitsAndSlowestRequests) {
    ExpectOutput(Summarise({TracePath("functional")}), R"(Duration           0.202 s in 1 session
Lines              46
Requests           3 (1 STARTCOMM, 1 STOPCOMM, 1 SENDRECV)
  finished         3
  cancelled        0
  no end recorded  0
  with errors      0
Time-outs          0
Retries            0
Negative answers   0
Busy               0
Callbacks          7, longest 0.026 ms

Sessions
  PROCESS  SESSION  LINES  SECONDS  END
  8123     1        46     0.202    stopped

Links
  MODULE  LINK  REQUESTS  WITH ERRORS  RAW SENT  RAW RECEIVED
  0       0     3         0            0         0

Control units (times from request to answer in ms)
  ADDRESS  ASKED  ANSWERS  NEGATIVE  SILENT  MIN    AVG    MAX    P95
  713:77D  1      1        0         0       -      -      -      -
  7DF      1      3        -         0       0.286  0.286  0.286  0.286
  7E0:7E8  1      1        0         0       -      -      -      -
  7E1:7E9  1      1        0         0       -      -      -      -

Slowest requests (from start to end)
  MS     AT S   PROCESS  COP  ADDRESS  REQUEST   OUTCOME
  0.381  0.201  8123     2    7DF      22 F1 87  3 answers
)");
}

TEST(TraceSummary, SilentControlUnitIsATimeOutAndAnError) {
    const Json document = Document(TracePath("silent"));
    EXPECT_EQ(document["requests"]["timeOuts"], 1);
    EXPECT_EQ(document["requests"]["withErrors"], 1);
    EXPECT_EQ(document["requests"]["errors"],
              Json::parse(R"([{"code": 257, "meaning": "nothing was received", "count": 1}])"));
    EXPECT_EQ(document["controlUnits"], Json::parse(R"([{"requestId": "7E5", "responseId": "7ED",
        "functional": false, "asked": 1, "answers": 0, "negative": 0, "silent": 1,
        "answerTime": null}])"));
}

TEST(TraceSummary, NegativeAnswersAreCountedByTheirCode) {
    const Json document = Document(TracePath("negative"));
    EXPECT_EQ(document["requests"]["negative"],
              Json::parse(R"([{"code": 49, "name": "requestOutOfRange", "count": 1}])"));
    EXPECT_EQ(document["controlUnits"][0]["negative"], 1);
    EXPECT_EQ(document["slowest"][0]["outcome"],
              "negative response requestOutOfRange (0x31) to service 0x22");
}

TEST(TraceSummary, LongRequestKeepsItsControlUnitAlthoughItsLinesAreTruncated) {
    const Json document = Document(TracePath("long_request"));
    EXPECT_EQ(document["cutLines"], 2);
    EXPECT_EQ(document["damagedLines"], 0);
    EXPECT_EQ(document["controlUnits"][0]["requestId"], "7E0");
    EXPECT_EQ(document["controlUnits"][0]["responseId"], "7E8");
    EXPECT_EQ(document["slowest"][0]["request"], "2E F1 5A 41 41 41 41 41 .. (603 bytes)");
}

TEST(TraceSummary, SeveralFilesAreAddedUp) {
    const ClientResult result =
        Summarise({"--json", TracePath("three_units"), TracePath("silent"), "--slowest", "2"});
    const Json document = Json::parse(result.output);
    EXPECT_EQ(document["sessions"].size(), 2u);
    EXPECT_EQ(document["requests"]["types"]["SENDRECV"], 4);
    ASSERT_EQ(document["slowest"].size(), 2u);
    EXPECT_EQ(document["slowest"][0]["process"], 8166);
    EXPECT_EQ(document["slowest"][0]["durationUs"], 551155);
    EXPECT_EQ(document["slowest"][1]["durationUs"], 271);
}

TEST(TraceSummary, DamagedAndUnknownLinesAreReportedWithTheFirstOfThem) {
    std::string text = TraceText("functional");
    text.insert(0, "rubbish\n" + TraceLine(1, 1, "coffee_break", "") + "more rubbish\n");
    const TemporaryTrace trace(text);
    const ClientResult result = Summarise({trace.Path()});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_TRUE(Contains(result.error, ": 2 damaged lines (first: line 1) passed over\n"))
        << result.error;
    EXPECT_TRUE(Contains(result.error, ": 1 unknown line (first: line 2) passed over\n"));
    EXPECT_TRUE(Contains(result.output, "Requests           3 ("));
}

TEST(TraceSummary, MissingFileGivesOneErrorLine) {
    const ClientResult result = Summarise({"/nowhere/to_be_found.jsonl"});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(result.error.starts_with("dpdu: cannot read '/nowhere/to_be_found.jsonl': "));
    EXPECT_EQ(result.error.find('\n'), result.error.size() - 1);
}

TEST(TraceSummary, FileWithoutAnyTraceLineGivesOneErrorLine) {
    for (const char* text : {"", "not a trace\n", "\n\n", "{\"seq\":1}\n"}) {
        const TemporaryTrace trace(text);
        SCOPED_TRACE(text);
        ExpectFailure(Summarise({trace.Path()}),
                      "'" + trace.Path() + "' holds not a single line of a trace");
    }
}

TEST(TraceSummary, FileNameIsRequired) {
    const ClientResult result = Summarise({});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_TRUE(result.error.ends_with("see dpdu trace summary --help\n")) << result.error;
}

// ---------------------------------------------------------------------------------------------

TEST(TraceSummary, RequestSentAgainIsARetryAndItsFirstAttemptATimeOut) {
    const TemporaryTrace trace(StartLine(1, 1000, 1, "3e") + StateLine(2, 1100, 1, kExecuting) +
                               SentLine(3, 1200, 1) + SentLine(4, 11'200, 1) +
                               ReceivedLine(5, 11'700, 1) + StateLine(6, 11'800, 1, kFinished) +
                               CopLine(7, 11'900, "cop_free", 1, ",\"final\":32786"));
    const Json document = Document(trace);
    EXPECT_EQ(document["requests"]["retries"], 1);
    EXPECT_EQ(document["requests"]["timeOuts"], 1);
    EXPECT_EQ(document["controlUnits"][0]["asked"], 2);
    EXPECT_EQ(document["controlUnits"][0]["silent"], 1);
    EXPECT_EQ(document["controlUnits"][0]["answerTime"]["minUs"], 500);
    EXPECT_EQ(document["slowest"][0]["durationUs"], 10'800);
}

TEST(TraceSummary, AnswerIsMatchedEvenIfItsLinePrecedesItsRequest) {
    const TemporaryTrace trace(StartLine(1, 1000, 1, "3e") + StateLine(2, 1100, 1, kExecuting) +
                               ReceivedLine(3, 1150, 1) + SentLine(4, 1200, 1) +
                               StateLine(5, 1300, 1, kFinished));
    const Json document = Document(trace);
    EXPECT_EQ(document["controlUnits"][0]["answers"], 1);
    EXPECT_EQ(document["requests"]["timeOuts"], 0);
    EXPECT_EQ(document["requests"]["strayAnswers"], 0);
}

TEST(TraceSummary, SecondAnswerToTheSameRequestIsStray) {
    const TemporaryTrace trace(StartLine(1, 1000, 1, "3e") + SentLine(2, 1100, 1) +
                               ReceivedLine(3, 1200, 1) + ReceivedLine(4, 1300, 1) +
                               StateLine(5, 1400, 1, kFinished));
    EXPECT_EQ(Document(trace)["requests"]["strayAnswers"], 1);
}

TEST(TraceSummary, CancelledAndUnfinishedRequestsAreNotTimeOuts) {
    const TemporaryTrace trace(StartLine(1, 1000, 1, "3e") + SentLine(2, 1100, 1) +
                               StateLine(3, 1400, 1, kCancelled) + StartLine(4, 2000, 2, "3e") +
                               StateLine(5, 2100, 2, kExecuting) + SentLine(6, 2200, 2));
    const Json requests = Document(trace)["requests"];
    EXPECT_EQ(requests["cancelled"], 1);
    EXPECT_EQ(requests["unfinished"], 1);
    EXPECT_EQ(requests["finished"], 0);
    EXPECT_EQ(requests["timeOuts"], 0);
}

TEST(TraceSummary, BusyIsCountedWithItsLastReason) {
    const TemporaryTrace trace(
        StartLine(1, 1000, 1, "3e") +
        TraceLine(2, 1100, "busy_received", "\"req_id\":1,\"reason\":null,\"reason_len\":0") +
        TraceLine(3, 1200, "busy_received",
                  "\"req_id\":1,\"reason\":\"line\\nend\",\"reason_len\":8"));
    const ClientResult result = Summarise({trace.Path()});
    EXPECT_TRUE(Contains(result.output, "Busy               2, last reason: line end\n"))
        << result.output;
}

std::string Telemetry(int seq, int v, int can) {
    return TraceLine(seq, seq * 1000, "telemetry",
                     "\"pkt_len\":60,\"v\":" + std::to_string(v) +
                         ",\"u\":-1,\"rt\":-1,\"rhz\":-1,\"tasks\":0,\"q\":{\"cr\":-1,\"ct\":-1,"
                         "\"can\":" +
                         std::to_string(can) +
                         "},\"i\":{\"si\":-1,\"mx\":-1,\"ru\":-1},\"tele_json_len\":2,"
                         "\"tele_json_trunc\":false,\"tele_json\":\"{\\\"v\\\":1}\"");
}

TEST(TraceSummary, TelemetryShowsTheExtremesOfTheReportedValues) {
    const TemporaryTrace trace(Telemetry(1, 5, 0) + Telemetry(2, -7, -1) + Telemetry(3, 4, 9));
    const Json telemetry = Document(trace)["telemetry"];
    EXPECT_EQ(telemetry["reports"], 3);
    EXPECT_EQ(telemetry["values"]["v"], Json::parse(R"({"least": -7, "greatest": 5, "last": 4})"));
    EXPECT_EQ(telemetry["values"]["q.can"],
              Json::parse(R"({"least": 0, "greatest": 9, "last": 9})"));
    EXPECT_FALSE(telemetry["values"].contains("u"));
}

TEST(TraceSummary, CloudPacketsAreAddedUpByDirectionAndType) {
    std::string text;
    for (int seq = 1; seq <= 2; ++seq) {
        text += TraceLine(seq, seq, "cloud_pkt",
                          "\"dir\":\"tx\",\"stage\":\"?\",\"type\":1,\"type_str\":\"QERC\",\"len\":"
                          "40,\"hex\":\"\",\"hex_len\":0,\"trunc\":false");
    }
    const TemporaryTrace trace(text);
    EXPECT_EQ(Document(trace)["cloudPackets"],
              Json::parse(R"([{"direction": "tx", "type": "QERC", "packets": 2, "bytes": 80}])"));
}

// ---------------------------------------------------------------------------------------------

TEST(TraceTimes, SmallTimesAreExactAndLargeOnesWithinFourPerMille) {
    dpdu::trace::TimeStatistics small;
    for (std::uint64_t time = 1; time <= 100; ++time)
        small.Add(time);
    EXPECT_EQ(small.PercentileUs(95), 95u);
    EXPECT_EQ(small.PercentileUs(50), 50u);
    EXPECT_EQ(small.MinUs(), 1u);
    EXPECT_EQ(small.MaxUs(), 100u);
    EXPECT_EQ(small.AverageUs(), 50u);

    dpdu::trace::TimeStatistics large;
    for (std::uint64_t time = 1; time <= 1000; ++time)
        large.Add(time * 1'000'003);
    EXPECT_GE(large.PercentileUs(95), 950u * 1'000'003);
    EXPECT_LE(large.PercentileUs(95), 950u * 1'000'003 / 1000 * 1004);
    EXPECT_EQ(large.PercentileUs(100), 1000u * 1'000'003);
}

TEST(TraceTimes, WithoutTimesEverythingIsZero) {
    const dpdu::trace::TimeStatistics none;
    EXPECT_EQ(none.PercentileUs(95), 0u);
    EXPECT_EQ(none.AverageUs(), 0u);
}

}  // namespace
