// Reading a trace: which lines are accepted or skipped, and their order.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console/failure.h"
#include "trace/file.h"
#include "trace_files.h"

namespace dpdu::trace {
namespace {

struct Reading {
    std::vector<Record> records;
    ReadReport report;
};

Reading Read(const std::string& text, std::size_t piece = std::string::npos) {
    Reading reading;
    LineReader reader([&](const Record& record) { reading.records.push_back(record); });
    for (std::size_t at = 0; at < text.size(); at += std::min(piece, text.size() - at))
        reader.Feed(std::string_view(text).substr(at, piece));
    reader.Finish();
    reading.report = reader.Report();
    return reading;
}

std::vector<std::int64_t> Sequence(const Reading& reading) {
    std::vector<std::int64_t> numbers;
    for (const Record& record : reading.records)
        numbers.push_back(record.Number(Field::kSeq));
    return numbers;
}

const std::string kGood = CopLine(5, 500, "cop_cancel_req", 3);

TEST(TraceReader, EveryLineOfARealTraceIsUnderstood) {
    for (const char* name :
         {"three_units", "functional", "negative", "silent", "raw_send", "raw_listen"}) {
        const std::string text = TraceText(name);
        const Reading reading = Read(text);
        const auto lines = static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
        EXPECT_EQ(reading.report.records, lines) << name;
        EXPECT_GT(lines, 15u) << name;
        EXPECT_EQ(reading.report.cut, 0u) << name;
        EXPECT_EQ(reading.report.damaged.count, 0u) << name;
        EXPECT_EQ(reading.report.unknown.count, 0u) << name;
    }
}

TEST(TraceReader, PiecesOfAnySizeGiveTheSameRecords) {
    const std::string text = TraceText("long_request");
    const Reading whole = Read(text);
    for (const std::size_t piece : {1u, 7u, 1000u})
        EXPECT_EQ(Sequence(Read(text, piece)), Sequence(whole)) << piece;
}

TEST(TraceReader, LineTruncatedByTheLibraryIsReadTogetherWithTheLineAfterIt) {
    const Reading reading = Read(TraceText("long_request"));
    EXPECT_EQ(reading.report.cut, 2u);
    EXPECT_EQ(reading.report.damaged.count, 0u);
    EXPECT_EQ(reading.report.records, 37u);
    ASSERT_EQ(reading.records.size(), 37u);
    const Record& start = reading.records[9];
    EXPECT_EQ(start.event, Event::kCopStart);
    EXPECT_TRUE(start.was_cut);
    EXPECT_EQ(start.U32(Field::kTxLength), 603u);
    EXPECT_GT(start.data.size(), 400u);
    EXPECT_EQ(Bytes(start.data.begin(), start.data.begin() + 3), (Bytes{0x2E, 0xF1, 0x5A}));
    EXPECT_EQ(reading.records[10].event, Event::kExpectedResponses);
}

TEST(TraceReader, LineThatEndsTooEarlyIsDamagedUnlessTheLibraryTruncatedIt) {
    const std::string text = TraceText("long_request");
    const std::size_t begin = text.find("{\"seq\":10,");
    EXPECT_EQ(Read(text.substr(begin, 1023)).report.cut, 1u);
    EXPECT_EQ(Read(text.substr(begin, 1022)).report.damaged.count, 1u);
    EXPECT_EQ(Read(text.substr(begin, 1022)).report.records, 0u);
}

TEST(TraceReader, DamagedLinesAreCountedAndTheRestIsRead) {
    const std::string no_hex = CopLine(1, 1, "cop_rx", 1,
                                       ",\"uniq\":0,\"acc\":1,\"rx_len\":1,\"rx_hex\":\"6x\","
                                       "\"rx_hex_len\":1,\"rx_trunc\":false");
    const std::string too_few = CopLine(1, 1, "cop_rx", 1,
                                        ",\"uniq\":0,\"acc\":1,\"rx_len\":2,\"rx_hex\":\"62\","
                                        "\"rx_hex_len\":2,\"rx_trunc\":false");
    const std::string missing = CopLine(1, 1, "cop_error", 1);
    const std::string negative = CopLine(1, 1, "cop_error", 1, ",\"err\":-1");
    const std::string too_large = CopLine(1, 1, "cop_error", 1, ",\"err\":4294967296");
    const std::string not_whole = CopLine(1, 1, "cop_error", 1, ",\"err\":1.5");
    for (const std::string& bad : {std::string("nonsense\n"), std::string("{}\n"),
                                   std::string("[1,2]\n"), std::string("\x01\xFF\xFE\n"),
                                   std::string("{\"seq\":\n"), std::string(70'000, '[') + "\n",
                                   no_hex, too_few, missing, negative, too_large, not_whole}) {
        const Reading reading = Read(kGood + bad + kGood);
        EXPECT_EQ(reading.report.records, 2u) << bad;
        EXPECT_EQ(reading.report.damaged.count, 1u) << bad;
        EXPECT_EQ(reading.report.damaged.first, 2u) << bad;
    }
}

TEST(TraceReader, EventsOfALaterLibraryAreUnknownNotDamaged) {
    const Reading reading = Read(kGood + TraceLine(6, 600, "coffee_break", "\"cups\":2") + kGood);
    EXPECT_EQ(reading.report.records, 2u);
    EXPECT_EQ(reading.report.damaged.count, 0u);
    EXPECT_EQ(reading.report.unknown.count, 1u);
    EXPECT_EQ(reading.report.unknown.first, 2u);
}

TEST(TraceReader, FieldsOfALaterLibraryAreIgnored) {
    const Reading reading =
        Read(CopLine(1, 1, "cop_error", 1,
                     ",\"err\":257,\"more\":[1,{\"err\":3}],\"q\":{\"err\":4},\"f\":null"));
    ASSERT_EQ(reading.records.size(), 1u);
    EXPECT_EQ(reading.records[0].U32(Field::kError), 257u);
}

TEST(TraceReader, BlankLinesAndWindowsLineEndsDoNotCount) {
    std::string text = kGood;
    text.insert(text.size() - 1, "\r");
    const Reading reading = Read("\n\r\n" + text + "  \n");
    EXPECT_EQ(reading.report.records, 1u);
    EXPECT_EQ(reading.report.damaged.count, 0u);
}

TEST(TraceReader, LineOfMoreThanAMegabyteIsSkippedAndCountedOnce) {
    const std::string endless(std::size_t{3} * 1024 * 1024, 'x');
    for (const std::size_t piece : {std::size_t{100'000}, std::string::npos}) {
        const Reading reading = Read(kGood + endless + "\n" + kGood, piece);
        EXPECT_EQ(reading.report.records, 2u);
        EXPECT_EQ(reading.report.damaged.count, 1u);
        EXPECT_EQ(reading.report.damaged.first, 2u);
    }
}

TEST(TraceReader, LastLineNeedsNoLineEnd) {
    EXPECT_EQ(Read(kGood.substr(0, kGood.size() - 1)).report.records, 1u);
}

TEST(TraceReader, LinesOutOfOrderAreSortedByTime) {
    const Reading reading =
        Read(CopLine(1, 100, "cop_cancel_req", 1) + CopLine(4, 400, "cop_cancel_req", 1) +
             CopLine(2, 200, "cop_cancel_req", 1) + CopLine(3, 200, "cop_cancel_req", 1));
    EXPECT_EQ(Sequence(reading), (std::vector<std::int64_t>{1, 2, 3, 4}));
}

TEST(TraceReader, SessionAfterAnotherIsNotMixedWithIt) {
    const std::string second =
        "{\"seq\":1,\"ts_us\":5,\"pid\":9,\"tid\":9,\"ev\":\"log_start\","
        "\"flush_ms\":500,\"session\":1}\n";
    const Reading reading = Read(CopLine(7, 1'000'000, "cop_cancel_req", 1) + second);
    EXPECT_EQ(Sequence(reading), (std::vector<std::int64_t>{7, 1}));
}

TEST(TraceReader, ReasonOfABusyIsUnescaped) {
    const Reading reading =
        Read(TraceLine(1, 1, "busy_received",
                       "\"req_id\":3,\"reason\":\"say \\\"{\\\\\\\"\\n\",\"reason_len\":9"));
    ASSERT_EQ(reading.records.size(), 1u);
    EXPECT_EQ(reading.records[0].reason, "say \"{\\\"\n");
    EXPECT_EQ(
        Read(TraceLine(1, 1, "busy_received", "\"req_id\":3,\"reason\":null,\"reason_len\":0"))
            .report.records,
        1u);
}

TEST(TraceReader, MissingFileIsAFailure) {
    EXPECT_THROW(ReadTraceFile("/nowhere/to_be_found.jsonl", [](const Record&) {}), Failure);
}

}  // namespace
}  // namespace dpdu::trace
