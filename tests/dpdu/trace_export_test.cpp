// dpdu trace export as seen by its user, and the frames that it derives from requests.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client_run.h"
#include "path_text.h"
#include "text/hex.h"
#include "trace/bus_messages.h"
#include "trace/pcapng.h"
#include "trace_files.h"

namespace {

using Json = nlohmann::json;
using dpdu::Bytes;
using dpdu::trace::IsoTpFrames;

ClientResult Export(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "--format");
    return RunTrace("export", arguments);
}

std::string Exported(const std::string& format, const std::string& text) {
    const TemporaryTrace trace(text);
    const ClientResult result = Export({format, trace.Path()});
    EXPECT_EQ(result.exit_code, 0) << result.error;
    return result.output;
}

std::string AscHeader(const std::string& date, const std::string& kind = "is UTC") {
    return "date " + date +
           "\n"
           "base hex  timestamps absolute\n"
           "internal events logged\n"
           "// made from a D-PDU trace: its date " +
           kind +
           ", times count from its first line\n"
           "// ISO-TP frames are reconstructed from whole requests and answers: each has the time\n"
           "// of its message, without flow control and filling bytes\n"
           "Begin Triggerblock " +
           date +
           "\n"
           "   0.000000 Start of measurement\n";
}

TEST(TraceExport, CandumpShowsRequestAndAnswersAsFrames) {
    ExpectOutput(Export({"candump", CounterTrace("functional")}),
                 "(0000015413.355492) can0 7DF#0322F187\n"
                 "(0000015413.355778) can0 7E8#101062F18754562D\n"
                 "(0000015413.355778) can0 7E8#21454E472D303831\n"
                 "(0000015413.355778) can0 7E8#22352D41\n"
                 "(0000015413.355778) can0 7E9#101062F18754562D\n"
                 "(0000015413.355778) can0 7E9#215443552D303432\n"
                 "(0000015413.355778) can0 7E9#22302D43\n"
                 "(0000015413.355778) can0 77D#101062F18754562D\n"
                 "(0000015413.355778) can0 77D#214142532D313137\n"
                 "(0000015413.355778) can0 77D#22302D42\n");
}

TEST(TraceExport, AscShowsTimesFromTheFirstLineAndMarksReconstructedFrames) {
    const ClientResult result = Export({"asc", CounterTrace("functional")});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.output, AscHeader("Thu Jan 1 04:16:53.153 am 1970") +
                                 R"(   0.201855 1  7DF             Tx   d 4 03 22 F1 87
// reconstructed: answer to request 2, 16 bytes
   0.202141 1  7E8             Rx   d 8 10 10 62 F1 87 54 56 2D
   0.202141 1  7E8             Rx   d 8 21 45 4E 47 2D 30 38 31
   0.202141 1  7E8             Rx   d 4 22 35 2D 41
// reconstructed: answer to request 2, 16 bytes
   0.202141 1  7E9             Rx   d 8 10 10 62 F1 87 54 56 2D
   0.202141 1  7E9             Rx   d 8 21 54 43 55 2D 30 34 32
   0.202141 1  7E9             Rx   d 4 22 30 2D 43
// reconstructed: answer to request 2, 16 bytes
   0.202141 1  77D             Rx   d 8 10 10 62 F1 87 54 56 2D
   0.202141 1  77D             Rx   d 8 21 41 42 53 2D 31 31 37
   0.202141 1  77D             Rx   d 4 22 30 2D 42
End TriggerBlock
)");
}

TEST(TraceExport, TimesOfDayAreThoseOfTheFilesLastChange) {
    const std::string text = SentLine(1, 1'000'000, 1) + StartLine(2, 1'000'500, 1, "3e00") +
                             StateLine(3, 3'500'000, 1, kExecuting) + SentLine(4, 3'600'000, 1) +
                             FreeLine(5, 4'000'000, 1);
    // Mon Nov 23 2026, 21:00:00.25 UTC
    const TemporaryTrace trace(text, 1'795'467'600'250'000);
    EXPECT_EQ(Export({"candump", trace.Path()}).output, "(1795467599.850000) can0 7E0#023E00\n");
    EXPECT_TRUE(Export({"asc", trace.Path()})
                    .output.starts_with(AscHeader("Mon Nov 23 08:59:57.250 pm 2026") +
                                        "   2.600000 1  7E0"));
    const Json events = Json::parse(Export({"chrome", trace.Path()}).output)["traceEvents"];
    EXPECT_EQ(events[2]["ts"], 1'795'467'597'250'500);
}

TEST(TraceExport, MiddayAndMidnightAreTwelveOClock) {
    const std::string text = StartLine(1, 1'000'000, 1, "3e00") + SentLine(2, 1'000'000, 1);
    for (const auto& [hour, name] : {std::pair(0U, "12:00:00.000 am"), {12U, "12:00:00.000 pm"}}) {
        const TemporaryTrace trace(text, 1'795'392'000'000'000 + hour * 3'600'000'000ULL);
        EXPECT_TRUE(Contains(Export({"asc", trace.Path()}).output,
                             std::string("date Mon Nov 23 ") + name + " 2026\n"));
    }
}

TEST(TraceExport, SilentControlUnitHasNoFrame) {
    EXPECT_EQ(Export({"candump", CounterTrace("silent")}).output,
              "(0000015413.984264) can0 7E5#0322F190\n");
}

TEST(TraceExport, LongRequestIsShownAsFarAsRecordedAndTheRestIsReported) {
    const ClientResult result = Export({"asc", CounterTrace("long_request")});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.error,
              "dpdu: payloads of which the trace holds only a part, so that their last frames are "
              "missing: 1\n");
    EXPECT_TRUE(Contains(result.output,
                         "// reconstructed: request 2, 603 bytes, only the first 448 were "
                         "recorded\n   0.202343 1  7E0             Tx   d 8 12 5B 2E F1 5A"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "Rx   d 4 03 7F 2E 31\nEnd TriggerBlock\n"));
}

TEST(TraceExport, FramesOfRealRawLinksAreShownInBothDirections) {
    EXPECT_EQ(Export({"candump", CounterTrace("raw_send")}).output,
              "(0000018584.756653) can0 123#DEADBEEF\n"
              "(0000018584.776841) can0 123#DEADBEEF\n"
              "(0000018584.800442) can0 123#DEADBEEF\n");
    EXPECT_EQ(Export({"candump", CounterTrace("raw_listen")}).output,
              "(0000018585.252280) can0 0C0#0C80000000000000\n"
              "(0000018585.252290) can0 1A0#00640000\n"
              "(0000018585.252295) can0 18FEF718#FFFFFFFF1401FFFF\n"
              "(0000018585.276215) can0 0C0#0D10000000000001\n"
              "(0000018585.293340) can0 0C0#0C80000000000002\n");
}

// A raw link: STARTCOMM sends, SENDRECV receives.
std::string RawTrace() {
    const auto start = [](int seq, int ts_us, int cop, int type, const std::string& hex) {
        const std::string length = std::to_string(hex.size() / 2);
        return CopLine(seq, ts_us, "cop_start", cop,
                       ",\"copType\":" + std::to_string(type) + ",\"tx_len\":" + length +
                           ",\"tx_hex\":\"" + hex + "\",\"tx_hex_len\":" + length +
                           ",\"tx_trunc\":false,\"numSend\":1,\"numRecv\":0");
    };
    const auto received = [](int seq, int ts_us, const std::string& hex) {
        const std::string length = std::to_string(hex.size() / 2);
        return CopLine(seq, ts_us, "cop_rx", 2,
                       ",\"uniq\":0,\"acc\":0,\"rx_len\":" + length + ",\"rx_hex\":\"" + hex +
                           "\",\"rx_hex_len\":" + length + ",\"rx_trunc\":false");
    };
    const std::string idle = ",\"final\":32784";
    return start(1, 1'000'000, 2, 32772, "") + StateLine(2, 1'000'100, 2, kExecuting) +
           CopLine(3, 1'000'200, "cop_sendrecv_meta", 2,
                   ",\"raw\":true,\"reqAddrMode\":1,\"canFuncReqId\":0,\"canFuncReqFormat\":0,"
                   "\"canPhysReqId\":0,\"canPhysReqFormat\":0,\"canRespUSDTId\":0,"
                   "\"canRespUSDTFormat\":0,\"rc78\":0") +
           StateLine(4, 1'000'300, 2, kFinished) +
           start(5, 1'500'000, 3, 32769, "00000123DEADBEEF") +
           CopLine(6, 1'500'250, "cop_free", 3, idle) + received(7, 1'600'000, "0000045601") +
           received(8, 1'700'000, "18daf110") + start(9, 1'800'000, 4, 32769, "18DA10F1023E00") +
           CopLine(10, 1'800'001, "cop_free", 4, idle) +
           start(11, 1'900'000, 5, 32769, "00000123000102030405060708") +
           CopLine(12, 1'900'001, "cop_free", 5, idle) + start(13, 2'000'000, 6, 32769, "") +
           StateLine(14, 2'000'001, 6, kFinished) + FreeLine(15, 2'000'002, 6);
}

TEST(TraceExport, RawFramesAreShownExactlyAsRecorded) {
    const TemporaryTrace trace(RawTrace());
    const ClientResult result = Export({"candump", trace.Path()});
    EXPECT_EQ(result.output,
              "(0000000001.500250) can0 123#DEADBEEF\n"
              "(0000000001.600000) can0 456#01\n"
              "(0000000001.700000) can0 18DAF110#\n"
              "(0000000001.800001) can0 18DA10F1#023E00\n");
    EXPECT_EQ(result.error, "dpdu: raw frames of more than eight bytes, which are left out: 1\n");
    EXPECT_EQ(Exported("asc", RawTrace()),
              AscHeader("Thu Jan 1 12:00:01.000 am 1970") +
                  "   0.500250 1  123             Tx   d 4 DE AD BE EF\n"
                  "   0.600000 1  456             Rx   d 1 01\n"
                  "   0.700000 1  18DAF110x       Rx   d 0\n"
                  "   0.800001 1  18DA10F1x       Tx   d 3 02 3E 00\n"
                  "End TriggerBlock\n");
}

TEST(TraceExport, RawFramesAreCountedInTheSummary) {
    const TemporaryTrace trace(RawTrace());
    const Json document =
        Json::parse(RunClient({"trace", "summary", "--json", trace.Path()}).output);
    EXPECT_EQ(document["links"][0]["rawSent"], 3);
    EXPECT_EQ(document["links"][0]["rawReceived"], 2);
    ASSERT_EQ(document["rawFrames"].size(), 4u);
    EXPECT_EQ(document["rawFrames"][0], Json::parse(R"({"id": "123", "sent": true, "frames": 2})"));
}

TEST(TraceExport, ChromeHasAProcessForEachModuleAndSpansForEachRequest) {
    EXPECT_EQ(Exported("chrome", StartLine(1, 1000, 1, "3e00") + StateLine(2, 1100, 1, kExecuting) +
                                     SentLine(3, 1200, 1) + ReceivedLine(4, 1700, 1, "7e00") +
                                     StateLine(5, 1800, 1, kFinished) +
                                     CopLine(6, 1850, "notify_end", 1,
                                             ",\"itemType\":4865,\"evtType\":2049,\"t0_us\":1810,"
                                             "\"t1_us\":1850,\"dur_us\":40") +
                                     FreeLine(7, 1900, 1)),
              R"({"displayTimeUnit":"ms","traceEvents":[
{"name":"process_name","ph":"M","pid":1,"tid":0,"args":{"name":"process 7, module 0"}},
{"name":"thread_name","ph":"M","pid":1,"tid":1,"args":{"name":"link 1"}},
{"name":"queued 3E 00","cat":"queued","ph":"b","pid":1,"tid":1,"ts":1000,"id":"7.1"},
{"name":"queued 3E 00","cat":"queued","ph":"e","pid":1,"tid":1,"ts":1100,"id":"7.1"},
{"name":"3E 00","cat":"request","ph":"X","pid":1,"tid":1,"ts":1100,"dur":800,"args":{)"
              R"("comPrimitive":1,"type":"SENDRECV","address":"7E0:7E8","request":"3E 00",)"
              R"("requestLength":2,"outcome":"no answer","answers":[{"from":"7E8",)"
              R"("data":"7E 00","length":2}]}},
{"name":"waiting for 7E8","cat":"wait","ph":"X","pid":1,"tid":1,"ts":1200,"dur":500,"args":{)"
              R"("result":"answered","timeoutMs":550}},
{"name":"callback","cat":"callback","ph":"X","pid":1,"tid":1,"ts":1810,"dur":40}
]}
)");
}

TEST(TraceExport, ChromeShowsTelemetryAsCountersAndRawFramesAsInstants) {
    EXPECT_EQ(Exported("chrome",
                       TraceLine(1, 500, "telemetry",
                                 "\"pkt_len\":60,\"v\":1,\"u\":2,\"rt\":3,\"rhz\":-1,\"tasks\":4,"
                                 "\"q\":{\"cr\":5,\"ct\":-1,\"can\":-1},\"i\":{\"si\":-1,\"mx\":-1,"
                                 "\"ru\":-1},\"tele_json_len\":0,\"tele_json_trunc\":false,"
                                 "\"tele_json\":\"\"")),
              R"({"displayTimeUnit":"ms","traceEvents":[
{"name":"process_name","ph":"M","pid":1,"tid":0,"args":{"name":"process 7, telemetry"}},
{"name":"rt","cat":"telemetry","ph":"C","pid":1,"ts":500,"args":{"value":3}},
{"name":"tasks","cat":"telemetry","ph":"C","pid":1,"ts":500,"args":{"value":4}},
{"name":"q.cr","cat":"telemetry","ph":"C","pid":1,"ts":500,"args":{"value":5}}
]}
)");
    const ClientResult raw = Export({"chrome", CounterTrace("raw_send")});
    EXPECT_TRUE(Contains(raw.output, R"({"name":"123 sent","cat":"raw","ph":"i","pid":1,"tid":0,)"
                                     R"("ts":18584756653,"s":"t","args":{"data":"DE AD BE EF"}})"))
        << raw.output;
}

TEST(TraceExport, ChromeAcceptsSeveralTracesAndSeparatesTheirProcesses) {
    const ClientResult result = Export({"chrome", CounterTrace("silent"),
                                        CounterTrace("functional"), CounterTrace("three_units")});
    const Json events = Json::parse(result.output)["traceEvents"];
    std::vector<std::string> processes;
    for (const Json& event : events) {
        if (event["name"] == "process_name") processes.push_back(event["args"]["name"]);
    }
    EXPECT_EQ(processes,
              (std::vector<std::string>{"process 8166, module 0", "process 8123, module 0",
                                        "process 8106, module 0"}));
    EXPECT_EQ(Export({"asc", CounterTrace("silent"), CounterTrace("functional")}).exit_code, 2);
}

std::string Hex(const std::string& bytes) { return dpdu::HexText({bytes.begin(), bytes.end()}); }

TEST(TraceExport, PcapngIsASectionWithInterfacesAndPackets) {
    const std::string target = TemporaryPath("export.pcapng");
    ExpectOutput(Export({"pcapng", CounterTrace("raw_send"), "-o", target}), "");
    std::ifstream stream(PathOf(target), std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(stream), {}};
    stream.close();
    RemoveFile(target);
    ASSERT_GT(file.size(), 12U);
    EXPECT_EQ(Hex(file.substr(0, 4)), "0A0D0D0A");
    EXPECT_EQ(Hex(file.substr(8, 4)), "4D3C2B1A");
    // Blocks have their length before and behind them, and follow each other without gaps.
    std::vector<std::string> types;
    for (std::size_t at = 0; at < file.size();) {
        types.push_back(Hex(file.substr(at, 4)));
        std::size_t length = 0;
        for (std::size_t i = 0; i < 4; ++i)
            length |= std::size_t{static_cast<unsigned char>(file.at(at + 4 + i))} << (8 * i);
        ASSERT_GE(length, 12U);
        ASSERT_LE(length, file.size() - at);
        EXPECT_EQ(length % 4, 0U);
        EXPECT_EQ(file.substr(at + length - 4, 4), file.substr(at + 4, 4));
        at += length;
    }
    EXPECT_EQ(types, (std::vector<std::string>{"0A0D0D0A", "01000000", "06000000", "06000000",
                                               "06000000"}));
}

TEST(TraceExport, PcapngPacketHasTimeLengthsCommentAndDirection) {
    EXPECT_EQ(Hex(dpdu::trace::PcapngPacketBlock({.interface_number = 1,
                                                  .time_us = 0x0006000000000007,
                                                  .is_sent = true,
                                                  .bytes = {1, 2, 3, 4, 5},
                                                  .missing = 2,
                                                  .comment = "cut"})),
              "06000000"
              "3C000000"
              "01000000"
              "00000600"
              "07000000"
              "05000000"
              "07000000"
              "0102030405000000"
              "0100030063757400"
              "0200040002000000"
              "00000000"
              "3C000000");
}

TEST(TraceExport, PcapngFramesHaveTheMarkOf29BitIdentifiers) {
    EXPECT_EQ(dpdu::HexText(dpdu::trace::SocketCanFrame(0x7FF, false, {0xAB})),
              "000007FF01000000AB");
    EXPECT_EQ(dpdu::HexText(dpdu::trace::SocketCanFrame(0x123, true, {})), "8000012300000000");
}

TEST(TraceExport, PcapngMessagesNameTheirDissectorAndIdentifiers) {
    EXPECT_EQ(dpdu::HexText(dpdu::trace::ExportedPdu("uds", 0x7E0, 0x7E8, {0x3E, 0x00})),
              "000C000475647300"
              "0018000400000000"
              "00190004000007E0"
              "001A0004000007E8"
              "00000000"
              "3E00");
}

TEST(TraceExport, TargetFileHasTheSameBytesAsStandardOutput) {
    const std::string target = TemporaryPath("export.log");
    const ClientResult result = Export({"candump", CounterTrace("functional"), "-o", target});
    ExpectOutput(result, "");
    EXPECT_EQ(ReadWholeFile(target), Export({"candump", CounterTrace("functional")}).output);
    RemoveFile(target);
}

TEST(TraceExport, FailedExportLeavesNothing) {
    const std::string target = TemporaryPath("export.log");
    const TemporaryTrace rubbish("rubbish\n");
    ExpectFailure(Export({"asc", rubbish.Path(), "-o", target}),
                  "'" + rubbish.Path() + "' holds not a single line of a trace");
    EXPECT_FALSE(std::filesystem::exists(PathOf(target)));
}

TEST(TraceExport, FailedExportLeavesAnOlderFileAsItWas) {
    const TemporaryTrace older("notes\n");
    const TemporaryTrace rubbish("rubbish\n");
    EXPECT_EQ(Export({"asc", rubbish.Path(), "-o", older.Path()}).exit_code, 1);
    EXPECT_EQ(ReadWholeFile(older.Path()), "notes\n");
}

TEST(TraceExport, CompleteExportReplacesAnOlderFile) {
    const TemporaryTrace older("notes\n");
    ExpectOutput(Export({"candump", CounterTrace("functional"), "-o", older.Path()}), "");
    EXPECT_EQ(ReadWholeFile(older.Path()), Export({"candump", CounterTrace("functional")}).output);
}

TEST(TraceExport, TraceIsNotOverwrittenByItsOwnExport) {
    const TemporaryTrace trace(RawTrace());
    const ClientResult result = Export({"asc", trace.Path(), "-o", trace.Path()});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(ReadWholeFile(trace.Path()), RawTrace());
}

TEST(TraceExport, MissingFolderGivesOneErrorLine) {
    const ClientResult result =
        Export({"asc", CounterTrace("silent"), "-o", "/nowhere/to_be_found/export.asc"});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_TRUE(result.error.starts_with("dpdu: cannot write '/nowhere/to_be_found/export.asc': "))
        << result.error;
}

TEST(TraceExport, UnknownFormatIsRefused) {
    const ClientResult result = Export({"pcap", CounterTrace("silent")});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_TRUE(result.error.ends_with("see dpdu trace export --help\n")) << result.error;
}

// ---------------------------------------------------------------------------------------------

TEST(IsoTp, SevenBytesAreASingleFrameAndEightAreTwo) {
    EXPECT_EQ(IsoTpFrames({{1, 2, 3, 4, 5, 6, 7}, 7}),
              (std::vector<Bytes>{{0x07, 1, 2, 3, 4, 5, 6, 7}}));
    EXPECT_EQ(IsoTpFrames({{1, 2, 3, 4, 5, 6, 7, 8}, 8}),
              (std::vector<Bytes>{{0x10, 8, 1, 2, 3, 4, 5, 6}, {0x21, 7, 8}}));
    EXPECT_TRUE(IsoTpFrames({{}, 0}).empty());
}

TEST(IsoTp, NumbersOfConsecutiveFramesWrapAtSixteen) {
    const std::vector<Bytes> frames = IsoTpFrames({Bytes(6 + 7 * 17, 0xAA), 6 + 7 * 17});
    ASSERT_EQ(frames.size(), 18u);
    EXPECT_EQ(frames[15][0], 0x2F);
    EXPECT_EQ(frames[16][0], 0x20);
    EXPECT_EQ(frames[17][0], 0x21);
}

TEST(IsoTp, MoreThan4095BytesUseTheLongFirstFrame) {
    EXPECT_EQ(IsoTpFrames({Bytes(4095, 0xAA), 4095})[0],
              (Bytes{0x1F, 0xFF, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}));
    EXPECT_EQ(IsoTpFrames({Bytes(4096, 0xAA), 4096})[0],
              (Bytes{0x10, 0, 0, 0, 0x10, 0, 0xAA, 0xAA}));
}

TEST(IsoTp, TruncatedPayloadGivesOnlyFullyKnownFrames) {
    EXPECT_EQ(IsoTpFrames({Bytes(12, 0xAA), 20}).size(), 1u);
    EXPECT_EQ(IsoTpFrames({Bytes(13, 0xAA), 20}).size(), 2u);
    EXPECT_TRUE(IsoTpFrames({Bytes(2, 0xAA), 3}).empty());
    EXPECT_TRUE(IsoTpFrames({Bytes(5, 0xAA), 20}).empty());
}

}  // namespace
