// dpdu trace report as seen by its user, and the data in its page. A browser shows it in
// tests/report.

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client_run.h"
#include "path_text.h"
#include "text/hex.h"
#include "trace_files.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

std::string BytesOf(const std::string& path) {
    std::ifstream file(PathOf(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A path in the folder for temporary files where no file is, removed with the object.
class FreePath {
public:
    FreePath() : path_(TextOf(fs::temp_directory_path() / ("dpdu_report_" + Name() + ".html"))) {
        fs::remove(PathOf(path_));
    }
    ~FreePath() {
        std::error_code ignored;
        fs::remove(PathOf(path_), ignored);
    }
    FreePath(const FreePath&) = delete;
    FreePath& operator=(const FreePath&) = delete;

    const std::string& Path() const { return path_; }

private:
    static std::string Name() {
        return testing::UnitTest::GetInstance()->current_test_info()->name();
    }
    std::string path_;
};

std::string FromBase64(const std::string& text) {
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0;
    unsigned value = 0;
    for (const char c : text) {
        const std::size_t digit = digits.find(c);
        if (digit == std::string::npos) break;
        value = value << 6 | static_cast<unsigned>(digit);
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        bytes.push_back(static_cast<char>(value >> bits & 0xFF));
    }
    return bytes;
}

std::string Inflated(const std::string& deflated) {
    std::string bytes(1'000'000, '\0');
    auto size = static_cast<uLongf>(bytes.size());
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(bytes.data()), &size,
                         reinterpret_cast<const Bytef*>(deflated.data()),
                         static_cast<uLong>(deflated.size())),
              Z_OK);
    bytes.resize(size);
    return bytes;
}

// The text of the first script whose tag has the attribute.
std::string ScriptWith(const std::string& page, const std::string& attribute) {
    const std::size_t tag = page.find(attribute + ">");
    if (tag == std::string::npos) return "";
    const std::size_t begin = tag + attribute.size() + 1;
    return page.substr(begin, page.find("</script>", begin) - begin);
}

// The tables of a page with one chunk, decoded as the page does.
class Page {
public:
    explicit Page(const std::string& page)
        : facts(Json::parse(ScriptWith(page, "id=\"facts\""))),
          layout_(Json::parse(ScriptWith(page, "id=\"layout\""))) {
        const std::string chunk = ScriptWith(page, "class=\"chunk\"");
        const std::size_t end = chunk.find('\n');
        rows_ = Json::parse(chunk.substr(0, end)).at("rows");
        bytes_ = Inflated(FromBase64(chunk.substr(end + 1)));
        std::size_t at = 0;
        for (std::size_t table = 0; table < layout_.size(); ++table) {
            for (const Json& column : layout_[table].at("columns"))
                at = Decode(layout_[table].at("name"), column, rows_[table], at);
        }
        payloads_ = bytes_.substr(at);
    }

    const std::vector<std::int64_t>& Column(const std::string& name) const {
        return columns_.at(name);
    }
    // Of all rows, in hexadecimal.
    std::vector<std::string> Payloads(const std::string& table) const {
        std::vector<std::string> texts;
        for (std::size_t row = 0; row < Column(table + ".payload").size(); ++row) {
            const auto at = static_cast<std::size_t>(Column(table + ".payload")[row]);
            const auto size = static_cast<std::size_t>(Column(table + ".recorded")[row]);
            const std::string bytes = payloads_.substr(at, size);
            texts.push_back(dpdu::HexText(dpdu::Bytes(bytes.begin(), bytes.end())));
        }
        return texts;
    }

    Json facts;

private:
    std::size_t Decode(const std::string& table, const Json& column, std::size_t rows,
                       std::size_t at) {
        const std::map<std::string, std::size_t> planes = {{"byte", 1}, {"number", 4}, {"time", 7}};
        const std::size_t size = planes.at(column[1]);
        std::vector<std::int64_t>& values = columns_[table + "." + column[0].get<std::string>()];
        std::uint64_t before = 0;
        for (std::size_t row = 0; row < rows; ++row) {
            std::uint64_t value = 0;
            for (std::size_t plane = 0; plane < size; ++plane) {
                const auto byte = static_cast<std::uint8_t>(bytes_.at(at + plane * rows + row));
                value |= std::uint64_t{byte} << (8 * plane);
            }
            if (size > 1) value += before;
            const std::uint64_t mask = ~std::uint64_t{0} >> (64 - 8 * size);
            before = value & mask;
            values.push_back(static_cast<std::int64_t>(before));
        }
        return at + size * rows;
    }

    Json layout_;
    Json rows_;
    std::string bytes_;
    std::string payloads_;
    std::map<std::string, std::vector<std::int64_t>> columns_;
};

Page PageOf(std::vector<std::string> arguments) {
    const FreePath target;
    arguments.insert(arguments.begin(), {"-o", target.Path()});
    const ClientResult result = RunTrace("report", arguments);
    EXPECT_EQ(result.exit_code, 0) << result.error;
    EXPECT_EQ(result.output, target.Path() + "\n");
    return Page(BytesOf(target.Path()));
}

TEST(TraceReport, HasTheRequestAndItsNegativeAnswer) {
    const Page page = PageOf({CounterTrace("negative")});
    EXPECT_EQ(page.Column("spans.requestId"), (std::vector<std::int64_t>{0x7E0}));
    EXPECT_EQ(page.Column("spans.responseId"), (std::vector<std::int64_t>{0x7E8}));
    EXPECT_EQ(page.Column("spans.nrc"), (std::vector<std::int64_t>{0x31}));
    EXPECT_EQ(page.Column("spans.sent"), (std::vector<std::int64_t>{15413774983}));
    EXPECT_EQ(page.Column("spans.answered"), (std::vector<std::int64_t>{15413775134}));
    EXPECT_EQ(page.Payloads("spans"), (std::vector<std::string>{"7F2231"}));
    const auto request = static_cast<std::size_t>(page.Column("spans.request").front());
    EXPECT_EQ(page.Payloads("requests").at(request), "22FFFF");
    EXPECT_EQ(page.Column("requests.process").at(request), 8150);
    EXPECT_EQ(page.facts.at("negativeResponses").at("49"), "requestOutOfRange");
    EXPECT_EQ(page.facts.at("services").at("34"), "ReadDataByIdentifier");
    EXPECT_EQ(page.facts.at("files").at(0).at("records"), 37);
}

TEST(TraceReport, EachControlUnitThatAnswersAFunctionalRequestHasItsOwnExchange) {
    const Page page = PageOf({CounterTrace("functional")});
    EXPECT_EQ(page.Column("spans.responseId"), (std::vector<std::int64_t>{0x7E8, 0x7E9, 0x77D}));
    EXPECT_EQ(page.Column("spans.flags"), (std::vector<std::int64_t>{1, 1, 1}));
}

// The payload of the answers is cut after the second control unit; the third is known by its item.
TEST(TraceReport, AnAnswerThatOnlyItsItemHasIsThereOnce) {
    std::string text = TraceText("functional");
    const std::string third = "020000001000000062f18754562d4142532d313137302d42";
    const std::size_t at = text.find(third);
    ASSERT_NE(at, std::string::npos);
    text.replace(at, third.size() + std::string("\",\"rx_hex_len\":72").size(),
                 "\",\"rx_hex_len\":48");
    const TemporaryTrace trace(text);
    const Page page = PageOf({trace.Path()});
    EXPECT_EQ(page.Column("spans.responseId"), (std::vector<std::int64_t>{0x7E8, 0x7E9, 0x77D}));
    EXPECT_EQ(page.Payloads("spans").back(), "62F18754562D4142532D313137302D42");
}

TEST(TraceReport, ARequestThatWasSentAgainIsMarked) {
    const TemporaryTrace trace(StartLine(1, 10, 5, "3e") + StateLine(2, 20, 5, kExecuting) +
                               SentLine(3, 30, 5) + ReceivedLine(4, 40, 5, "50") +
                               SentLine(5, 50, 5) + ReceivedLine(6, 60, 5) +
                               StateLine(7, 70, 5, kFinished) + FreeLine(8, 80, 5));
    const Page page = PageOf({trace.Path()});
    EXPECT_EQ(page.Column("spans.flags"), (std::vector<std::int64_t>{0, 2}));
    EXPECT_EQ(page.Column("spans.sent"), (std::vector<std::int64_t>{30, 50}));
    EXPECT_EQ(page.Payloads("spans"), (std::vector<std::string>{"50", "7E"}));
}

TEST(TraceReport, SessionsHaveTheirTimes) {
    const std::string session = TraceLine(1, 10, "log_start", "\"flush_ms\":500,\"session\":3") +
                                StartLine(2, 20, 5, "3e") + TraceLine(3, 90, "log_stop", "");
    const TemporaryTrace trace(session + session.substr(0, session.find("{\"seq\":3")));
    const Json sessions = PageOf({trace.Path()}).facts.at("files").at(0).at("sessions");
    ASSERT_EQ(sessions.size(), 2U);
    EXPECT_EQ(sessions[0].at("number"), 3);
    EXPECT_EQ(sessions[0].at("last").get<int>() - sessions[0].at("first").get<int>(), 80);
    EXPECT_TRUE(sessions[0].at("wasStopped"));
    EXPECT_FALSE(sessions[1].at("wasStopped"));
}

TEST(TraceReport, HasRawFramesOfBothDirections) {
    const Page sent = PageOf({CounterTrace("raw_send")});
    ASSERT_FALSE(sent.Column("frames.id").empty());
    EXPECT_EQ(sent.Column("frames.flags").front() & 1, 1);
    const Page received = PageOf({CounterTrace("raw_listen")});
    ASSERT_FALSE(received.Column("frames.id").empty());
    EXPECT_EQ(received.Column("frames.flags").front() & 1, 0);
}

TEST(TraceReport, ATimeOutHasNoAnswer) {
    const Page page = PageOf({CounterTrace("silent")});
    ASSERT_FALSE(page.Column("spans.result").empty());
    EXPECT_EQ(page.Column("spans.result").front(), 2);
    EXPECT_EQ(page.Column("spans.recorded").front(), 0);
}

TEST(TraceReport, SeveralTracesAreInOnePage) {
    const Page page = PageOf({CounterTrace("negative"), CounterTrace("silent")});
    EXPECT_EQ(page.facts.at("files").size(), 2U);
    EXPECT_TRUE(page.facts.at("hasCalendarTime"));
    EXPECT_EQ(page.Column("requests.file").back(), 1);
}

TEST(TraceReport, CountsWhatItPassedOver) {
    const TemporaryTrace trace(TraceText("negative") + "{\"seq\":1,nonsense\n" +
                               TraceLine(99, 5, "of_the_future", "\"x\":1"));
    const FreePath target;
    const ClientResult result = RunTrace("report", {"-o", target.Path(), trace.Path()});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_NE(result.error.find("1 damaged line (first: line 38) passed over"), std::string::npos)
        << result.error;
    const Page page(BytesOf(target.Path()));
    EXPECT_EQ(page.facts.at("files").at(0).at("damaged").at("first"), 38);
    EXPECT_EQ(page.facts.at("files").at(0).at("unknown").at("count"), 1);
}

TEST(TraceReport, TextOfATraceCannotEndItsScript) {
    const std::string line = TraceLine(
        99, 5, "cloud_pkt",
        R"("dir":"rx","stage":"plain","type":1,"type_str":"</script><b>","len":4,"hex":"","hex_len":0,"trunc":false)");
    const TemporaryTrace trace(TraceText("negative") + line);
    const FreePath target;
    ASSERT_EQ(RunTrace("report", {"-o", target.Path(), trace.Path()}).exit_code, 0);
    const std::string page = BytesOf(target.Path());
    EXPECT_EQ(page.find("</script><b>"), std::string::npos);
    EXPECT_EQ(Page(page).facts.at("packetTypes").at(0), "</script><b>");
}

TEST(TraceReport, AllowsItsOwnScriptOnly) {
    const FreePath target;
    ASSERT_EQ(RunTrace("report", {"-o", target.Path(), CounterTrace("negative")}).exit_code, 0);
    const std::string page = BytesOf(target.Path());
    EXPECT_NE(page.find("default-src 'none'; script-src 'sha256-"), std::string::npos);
    EXPECT_EQ(page.find(" src="), std::string::npos);
    EXPECT_EQ(page.find("http://"), std::string::npos);
    EXPECT_EQ(page.find("https://"), std::string::npos);
}

TEST(TraceReport, AFailureLeavesTheFormerReport) {
    const FreePath target;
    std::ofstream(PathOf(target.Path())) << "former";
    const TemporaryTrace nothing("nothing of a trace\n");
    const ClientResult result = RunTrace("report", {"-o", target.Path(), nothing.Path()});
    EXPECT_EQ(result.exit_code, kFailure);
    EXPECT_NE(result.error.find("holds not a single line of a trace"), std::string::npos);
    EXPECT_EQ(BytesOf(target.Path()), "former");
}

TEST(TraceReport, DoesNotOverwriteItsTrace) {
    const std::string trace = CounterTrace("negative");
    const ClientResult result = RunTrace("report", {"-o", trace, trace});
    EXPECT_EQ(result.exit_code, kUsage);
    EXPECT_NE(result.error.find("would be overwritten"), std::string::npos) << result.error;
}

}  // namespace
