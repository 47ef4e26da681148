#include "link/telemetry.h"

#include <cstdlib>

#include "link_support.h"

namespace tarvik::test {
namespace {

// What a report with this text leaves in the log.
std::vector<std::string> Report(const std::string& json) {
    const LogCapture log;
    HandleTelemetryPacket(*PacketWithText(kTypeTele, json));
    return log.Lines();
}

std::string Values(const std::string& json) { return Report(json).at(0); }

// "x=1" for a key anywhere in the log line.
bool Shows(const std::string& json, const std::string& part) {
    return Values(json).find(part) != std::string::npos;
}

std::string TopTasks(const std::string& tasks) {
    const std::string prefix = "[TELE] top_tasks: ";
    const std::vector<std::string> lines = Report("{\"tasks\":" + tasks + "}");
    if (lines.size() < 2) return "";
    EXPECT_EQ(lines[1].substr(0, prefix.size()), prefix);
    return lines[1].substr(prefix.size());
}

TEST(Telemetry, KeyCutBeforeItsLastQuoteHasNoValue) {
    // What follows the packet in memory looks like the rest of the key.
    const PacketPtr packet = PacketWithText(kTypeTele, R"({"u":5,"v":1)");
    packet->length -= 3;
    const LogCapture log;
    HandleTelemetryPacket(*packet);
    EXPECT_TRUE(log.Lines().at(0).starts_with("[TELE] v=-1 u_ms=5 "));
}

TEST(Telemetry, EmptyObjectShowsEveryValueAsMissing) {
    EXPECT_EQ(Report("{}"),
              (std::vector<std::string>{"[TELE] v=-1 u_ms=-1 rt=-1 rhz=-1 tasks=0 q(cr=-1 ct=-1 "
                                        "can=-1) i(si=-1 mx=-1 ru=-1) len=10"}));
}

TEST(Telemetry, ShowsTheValuesOfItsKeys) {
    const std::string json =
        R"({"v":1,"u":123456,"rt":7,"rhz":100,"cr":2,"ct":3,"can":4,"si":5,"mx":6,"ru":8,)"
        R"("tasks":[{"n":"main","x":50,"r":9,"s":1024,"st":2,"p":5}]})";
    const std::vector<std::string> lines = Report(json);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0],
              "[TELE] v=1 u_ms=123456 rt=7 rhz=100 tasks=1 q(cr=2 ct=3 can=4) i(si=5 mx=6 ru=8) "
              "len=" +
                  std::to_string(json.size() + 8));
    EXPECT_EQ(lines[1], "[TELE] top_tasks: main x=50bp s=1024 st=2 p=5");
}

TEST(Telemetry, EmptyStringEndsAtOnce) {
    EXPECT_EQ(TopTasks(R"([{"n":"","x":1},"",{"n":"b","x":0}])"),
              " x=1bp s=-1 st=-1 p=-1 | b x=0bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, TaskNameIsLoggedWithoutControlCharacters) {
    EXPECT_EQ(TopTasks("[{\"n\":\"a\n\x1B[0mb\x7F\xC3\xBC\",\"x\":1}]"),
              "a..[0mb.\xC3\xBC x=1bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, TopTasksEndWhereTheLineIsFull) {
    const std::string name(300, 'a');
    EXPECT_EQ(TopTasks("[{\"n\":\"" + name + "\",\"x\":9},{\"n\":\"b\",\"x\":1}]"),
              name.substr(0, 255));
}

TEST(Telemetry, OneTrailingNulIsNotPartOfTheText) {
    EXPECT_EQ(Values(std::string("{}\0", 3)), Values("{} "));
    EXPECT_EQ(Report(std::string("\0", 1)),
              (std::vector<std::string>{"[HandleTelemetryPacket] TELE packet has empty payload"}));
}

TEST(Telemetry, EmptyTextIsLogged) {
    EXPECT_EQ(Report(""),
              (std::vector<std::string>{"[HandleTelemetryPacket] TELE packet has empty payload"}));
}

TEST(Telemetry, PacketShorterThanAHeaderIsLogged) {
    const LogCapture log;
    const PacketPtr packet = MakePacket(kTypeTele, 8);
    packet->length = 7;
    HandleTelemetryPacket(*packet);
    EXPECT_EQ(log.Lines(),
              (std::vector<std::string>{"[HandleTelemetryPacket] TELE packet too short: 7 bytes"}));
}

TEST(Telemetry, WhiteSpaceAroundTheColonIsSkipped) {
    EXPECT_TRUE(Shows("{\"v\" \t\r\n: \n 42}", " v=42 "));
}

TEST(Telemetry, FirstOccurrenceOfAKeyWins) { EXPECT_TRUE(Shows(R"({"v":1,"v":2})", " v=1 ")); }

TEST(Telemetry, KeyMustBeQuoted) {
    EXPECT_TRUE(Shows(R"({"xv":1,"vx":2,"v":3})", " v=3 "));
    EXPECT_TRUE(Shows(R"({v:1})", " v=-1 "));
    EXPECT_TRUE(Shows(R"({"v)", " v=-1 "));
    EXPECT_TRUE(Shows(R"(v":1)", " v=-1 "));
    EXPECT_TRUE(Shows(R"("v":1)", " v=1 "));
}

TEST(Telemetry, KeyWithoutAColonIsAValueAndNotAKey) {
    EXPECT_TRUE(Shows(R"({"name":"v","v":3})", " v=3 "));
}

TEST(Telemetry, ValueThatIsNotANumberIsMissing) {
    for (const char* const value : {"\"12\"", "null", "true", "[1]", "{}", "+1", "-", "", ".5"}) {
        EXPECT_TRUE(Shows(std::string("{\"v\":") + value + "}", " v=-1 ")) << value;
    }
    EXPECT_TRUE(Shows("{\"v\":", " v=-1 "));
    EXPECT_TRUE(Shows("{\"v\"", " v=-1 "));
}

TEST(Telemetry, NumbersMayBeNegativeAndCountByTheirWholePart) {
    EXPECT_TRUE(Shows(R"({"v":-25})", " v=-25 "));
    EXPECT_TRUE(Shows(R"({"v":12.75})", " v=12 "));
    EXPECT_TRUE(Shows(R"({"v":12)", " v=12 "));
}

TEST(Telemetry, NumbersBeyond64BitsStopAtTheLimits) {
    EXPECT_TRUE(Shows(R"({"v":9223372036854775807})", " v=9223372036854775807 "));
    EXPECT_TRUE(Shows(R"({"v":9223372036854775808})", " v=9223372036854775807 "));
    EXPECT_TRUE(Shows(R"({"v":-9223372036854775808})", " v=-9223372036854775808 "));
    EXPECT_TRUE(Shows(R"({"v":-9223372036854775809})", " v=-9223372036854775808 "));
    EXPECT_TRUE(Shows("{\"v\":" + std::string(300, '9') + "}", " v=9223372036854775807 "));
}

TEST(Telemetry, TaskCountHonoursNestingAndQuotedText) {
    struct Row {
        const char* tasks;
        const char* shown;
    };
    constexpr Row kRows[] = {
        {"[]", " tasks=0 "},
        {"[ ]", " tasks=0 "},
        {"[1]", " tasks=1 "},
        {"[{},{},{}]", " tasks=3 "},
        {"[{\"a\":[1,2,{\"b\":3}]},{\"c\":4}]", " tasks=2 "},
        {"[\"a,b]c\",\"d\\\"e,f\"]", " tasks=2 "},
        {"[[1,2],[3,4],[]] , [9]", " tasks=3 "},
        {"{\"a\":1}", " tasks=0 "},
        {"7", " tasks=0 "},
        {"[{\"a\":1},{\"b\"", " tasks=2 "},
        {"[{},", " tasks=1 "},
        {"[\"cut off", " tasks=1 "},
        {"[}},{}", " tasks=2 "},
    };
    for (const Row& row : kRows) {
        EXPECT_TRUE(Shows(std::string("{\"tasks\":") + row.tasks, row.shown)) << row.tasks;
    }
}

TEST(Telemetry, TopTasksAreTheThreeBusiestAndEqualsKeepTheirOrder) {
    EXPECT_EQ(TopTasks(R"([{"n":"a","x":5},{"n":"b","x":9},{"n":"c","x":9},{"n":"d","x":1}])"),
              "b x=9bp s=-1 st=-1 p=-1 | c x=9bp s=-1 st=-1 p=-1 | a x=5bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, RunTimeDecidesAmongEquallyBusyTasks) {
    EXPECT_EQ(TopTasks(R"([{"n":"a","x":1,"r":5},{"n":"b","x":1,"r":6},{"n":"c","x":1,"r":-7}])"),
              "b x=1bp s=-1 st=-1 p=-1 | a x=1bp s=-1 st=-1 p=-1 | c x=1bp s=-1 st=-1 p=-1");
    EXPECT_EQ(TopTasks(R"([{"n":"a","x":1,"r":0},{"n":"b","x":1,"r":1}])"),
              "b x=1bp s=-1 st=-1 p=-1 | a x=1bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, TaskWithoutBusynessRanksByItsRunTimeAlone) {
    EXPECT_EQ(
        TopTasks(R"([{"n":"a","r":3},{"n":"b","x":-4,"r":2000000},{"n":"c","x":1},{"n":"d"}])"),
        "b x=-4bp s=-1 st=-1 p=-1 | c x=1bp s=-1 st=-1 p=-1 | a x=-1bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, HugeNumbersRankHighestWithoutWrapping) {
    EXPECT_EQ(TopTasks(R"([{"n":"a","x":10},{"n":"b","x":9223372036854775807,"r":5}])"),
              "b x=9223372036854775807bp s=-1 st=-1 p=-1 | a x=10bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, OnlyCompleteTaskObjectsAreRanked) {
    EXPECT_EQ(TopTasks(R"([1,"{",{"n":"a","x":1},[{"n":"no","x":9}],null])"),
              "a x=1bp s=-1 st=-1 p=-1");
    const std::vector<std::string> cut = Report(R"({"tasks":[{"n":"a","x":1},{"n":"b","x":12)");
    EXPECT_EQ(cut.at(1), "[TELE] top_tasks: a x=1bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, OnlyTheFirst64TaskObjectsAreRanked) {
    std::string tasks = "[";
    for (int i = 0; i < 63; ++i)
        tasks += "{\"x\":1},";
    tasks += "{\"n\":\"last\",\"x\":98},{\"n\":\"late\",\"x\":99}]";
    EXPECT_EQ(TopTasks(tasks).find("last x=98bp"), 0u);
    EXPECT_EQ(TopTasks(tasks).find("late"), std::string::npos);
    EXPECT_TRUE(Shows("{\"tasks\":" + tasks + "}", " tasks=65 "));
}

TEST(Telemetry, TopTaskTextStopsAtItsBuffer) {
    const std::string name(300, 'n');
    EXPECT_EQ(TopTasks("[{\"n\":\"" + name + "\",\"x\":1}]"), std::string(255, 'n'));

    // The first entry leaves exactly 16, then 15 bytes.
    const std::string tail = " x=9bp s=-1 st=-1 p=-1";
    for (const std::size_t left : {16u, 15u}) {
        const std::string first(256 - left - tail.size(), 'a');
        const std::string text =
            TopTasks("[{\"n\":\"" + first + "\",\"x\":9},{\"n\":\"second\",\"x\":1}]");
        EXPECT_EQ(text, first + tail + (left == 16 ? " | second x=1bp" : ""));
    }
}

// ---- hostile texts ------------------------------------------------------------------------------

// Each number of the log line, in its order; the length of the packet comes last.
std::vector<long long> Numbers(const std::string& line) {
    std::vector<long long> numbers;
    for (std::size_t at = line.find('='); at != std::string::npos; at = line.find('=', at + 1)) {
        numbers.push_back(std::strtoll(line.c_str() + at + 1, nullptr, 10));
    }
    return numbers;
}

TEST(Telemetry, TruncatedTextShowsWhatIsComplete) {
    const std::string whole =
        R"({"v":11,"u":22,"rt":33,"rhz":44,"cr":55,"ct":66,"can":77,"si":88,"mx":99,"ru":10,)"
        R"("tasks":[{"n":"a\"],b","x":5,"r":6},[1,[2]],{"n":"c","x":7}]})";
    const std::vector<long long> all = Numbers(Values(whole));
    ASSERT_EQ(all.size(), 12u);
    std::vector<long long> before(11, -1);
    before[4] = 0;  // tasks
    for (std::size_t length = 1; length <= whole.size(); ++length) {
        SCOPED_TRACE(whole.substr(0, length));
        const std::vector<long long> now = Numbers(Values(whole.substr(0, length)));
        ASSERT_EQ(now.size(), 12u);
        for (std::size_t i = 0; i < 11; ++i) {
            // Missing, its first digits, or whole; once it is there it stays.
            const bool is_part = now[i] == all[i] || now[i] == all[i] / 10 || i == 4;
            EXPECT_TRUE(now[i] == before[i] || is_part) << "number " << i << ": " << now[i];
            EXPECT_LE(now[4], all[4]);
        }
        before.assign(now.begin(), now.begin() + 11);
    }
    EXPECT_EQ(Numbers(Values(whole)), all);
}

std::string Repeated(const std::string& text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST(Telemetry, DeepNestingIsWalkedAtAnyDepth) {
    constexpr std::size_t kDepth = 100'000;
    for (const std::string open : {"[", "{", "{\"a\":[", "[{"}) {
        SCOPED_TRACE(open);
        const std::string deep = Repeated(open, kDepth);
        EXPECT_TRUE(Shows("{\"tasks\":[" + deep, " tasks=1 "));
        EXPECT_TRUE(Shows("{\"v\":3,\"tasks\":[{}," + deep, " v=3 "));
        EXPECT_TRUE(Shows(deep + "\"u\":4", " u_ms=4 "));
    }
    const std::string closed = Repeated("[", kDepth) + Repeated("]", kDepth);
    EXPECT_TRUE(Shows("{\"tasks\":[" + closed + ",{}," + closed + "]}", " tasks=3 "));
    const std::string objects = Repeated("{\"a\":", kDepth) + "1" + Repeated("}", kDepth);
    EXPECT_EQ(TopTasks("[" + objects + ",{\"n\":\"b\",\"x\":1}]").find("b x=1bp"), 0u);
}

TEST(Telemetry, UnmatchedClosingBracketsAreIgnored) {
    EXPECT_TRUE(Shows(Repeated("]", 100'000) + "\"v\":5", " v=5 "));
    EXPECT_TRUE(Shows("{\"tasks\":[" + Repeated("}", 100'000) + ",{}]", " tasks=2 "));
    EXPECT_TRUE(Shows("{\"tasks\":[{]},{}]}", " tasks=2 "));
}

TEST(Telemetry, ManyTasksAreCounted) {
    EXPECT_TRUE(Shows("{\"tasks\":[" + Repeated("{},", 100'000) + "{}]}", " tasks=100001 "));
    EXPECT_TRUE(Shows("{\"tasks\":[" + Repeated(",", 100'000) + "1]}", " tasks=1 "));
}

TEST(Telemetry, NumbersOfAnyLengthAreLimitedTo64Bits) {
    struct Row {
        std::string number;
        const char* shown;
    };
    const Row rows[] = {
        {std::string(100'000, '9'), " v=9223372036854775807 "},
        {"-" + std::string(100'000, '9'), " v=-9223372036854775808 "},
        {std::string(100'000, '0') + "7", " v=7 "},
        {"-0", " v=0 "},
        {"1e999", " v=1 "},
        {"0x7F", " v=0 "},
        {"--1", " v=-1 "},
        {"NaN", " v=-1 "},
        {"Infinity", " v=-1 "},
    };
    for (const Row& row : rows) {
        EXPECT_TRUE(Shows("{\"v\":" + row.number + "}", row.shown)) << row.number.substr(0, 20);
    }
}

TEST(Telemetry, HugeNumbersOfTasksAreRankedAndShownWithoutWrapping) {
    const std::string nines(100, '9');
    EXPECT_EQ(TopTasks("[{\"n\":\"a\",\"x\":-" + nines + ",\"r\":-" + nines +
                       "},{\"n\":\"b\",\"x\":" + nines + ",\"r\":-" + nines +
                       "},{\"n\":\"c\",\"x\":1,\"r\":" + nines + "},{\"n\":\"d\",\"r\":0}]"),
              "b x=9223372036854775807bp s=-1 st=-1 p=-1 | "
              "c x=1bp s=-1 st=-1 p=-1 | d x=-1bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, QuotesEscapesAndBracketsInsideNamesAreText) {
    struct Row {
        const char* name;  // in the text, and as shown
    };
    constexpr Row kRows[] = {{R"(say \"hi\")"}, {R"(back\\slash\\)"},  {R"(a\"},{\"x\":9)"},
                             {R"(]}],[{)"},     {R"(comma, colon: )"}, {R"(\u0041\n\")"},
                             {"caf\xC3\xA9"},   {"\x80\xFE\xFF"},      {"%s%n%99999d"}};
    for (const Row& row : kRows) {
        const std::string tasks = std::string("[{\"n\":\"") + row.name + "\",\"x\":1},{\"x\":0}]";
        EXPECT_EQ(TopTasks(tasks), std::string(row.name) +
                                       " x=1bp s=-1 st=-1 p=-1 |  x=0bp s=-1 "
                                       "st=-1 p=-1");
        EXPECT_TRUE(Shows("{\"tasks\":" + tasks + ",\"v\":8}", " tasks=2 ")) << row.name;
        EXPECT_TRUE(Shows("{\"tasks\":" + tasks + ",\"v\":8}", " v=8 ")) << row.name;
    }
}

TEST(Telemetry, KeysInsideEscapedQuotesAreNotKeys) {
    EXPECT_TRUE(Shows(R"({"n":"\"v\":7","v":8})", " v=8 "));
    EXPECT_TRUE(Shows(R"({"n":"\"tasks\":[1,2]"})", " tasks=0 "));
}

// The text is searched: the first match counts, wherever it is.
TEST(Telemetry, KeyOfATaskThatComesFirstIsTaken) {
    EXPECT_TRUE(Shows(R"({"tasks":[{"v":5}],"v":1})", " v=5 "));
}

TEST(Telemetry, FirstOccurrenceThatIsNotANumberHidesALaterOne) {
    EXPECT_TRUE(Shows(R"({"v":"x","v":3})", " v=-1 "));
}

TEST(Telemetry, NameThatIsNotAStringOrDoesNotEndIsShownAsFarAsPossible) {
    EXPECT_EQ(TopTasks(R"([{"n":12,"x":1}])"), " x=1bp s=-1 st=-1 p=-1");
    EXPECT_EQ(TopTasks(R"([{"n":null,"x":1}])"), " x=1bp s=-1 st=-1 p=-1");
    EXPECT_EQ(TopTasks(R"([{"x":1,"n":"open}])"), "") << "the object does not end";
}

TEST(Telemetry, ZeroBytesInsideTheTextEndOnlyAName) {
    EXPECT_TRUE(Shows(std::string("{\"v\":1,\0\"u\":2}", 14), " u_ms=2 "));
    EXPECT_EQ(TopTasks(std::string("[{\"n\":\"a\0b\",\"x\":1}]", 19)), "a x=1bp s=-1 st=-1 p=-1");
    EXPECT_TRUE(Shows(std::string(100, '\0'), " v=-1 "));
}

TEST(Telemetry, EmptyTextShowsEveryValueAsMissing) {
    for (const std::string text :
         {" ", "\"", "\"\"", "[", ":", ",", "\\", "tasks", "\"tasks\":["}) {
        EXPECT_TRUE(Shows(text, "v=-1 u_ms=-1 rt=-1 rhz=-1 tasks=0 ")) << text;
    }
}

TEST(Telemetry, ReportsLeakNoMemory) {
    const MemoryUse before = LiveMemory();
    Report("{\"tasks\":[" + Repeated("[", 1000) + "{\"n\":\"" + std::string(1000, '"'));
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

TEST(Telemetry, IsShownInTheTrace) {
    TraceCapture trace;
    HandleTelemetryPacket(*PacketWithText(kTypeTele, R"({"v":1,"cr":2,"mx":3,"tasks":[{}]})"));
    trace.Stop();
    EXPECT_TRUE(trace.Mentions(
        "\"ev\":\"telemetry\",\"pkt_len\":42,\"v\":1,\"u\":-1,\"rt\":-1,\"rhz\":-1,\"tasks\":1,"
        "\"q\":{\"cr\":2,\"ct\":-1,\"can\":-1},\"i\":{\"si\":-1,\"mx\":3,\"ru\":-1},"
        "\"tele_json_len\":34,"));
}

}  // namespace
}  // namespace tarvik::test
