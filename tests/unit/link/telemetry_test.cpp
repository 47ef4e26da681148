#include "link/telemetry.h"

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

// "x=1" of the log line for a key, for one that stands anywhere in it.
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

TEST(Telemetry, OneTrailingNulIsNotPartOfTheText) {
    EXPECT_EQ(Values(std::string("{}\0", 3)), Values("{} "));
    EXPECT_EQ(Report(std::string("\0", 1)),
              (std::vector<std::string>{"[HandleTelemetryPacket] TELE packet has empty payload"}));
}

TEST(Telemetry, EmptyTextIsLogged) {
    EXPECT_EQ(Report(""),
              (std::vector<std::string>{"[HandleTelemetryPacket] TELE packet has empty payload"}));
}

TEST(Telemetry, ShorterThanAHeaderIsLogged) {
    const LogCapture log;
    const PacketPtr packet = MakePacket(kTypeTele, 8);
    packet->length = 7;
    HandleTelemetryPacket(*packet);
    EXPECT_EQ(log.Lines(),
              (std::vector<std::string>{"[HandleTelemetryPacket] TELE packet too short: 7 bytes"}));
}

TEST(Telemetry, WhiteSpaceMayStandAroundTheColon) {
    EXPECT_TRUE(Shows("{\"v\" \t\r\n: \n 42}", " v=42 "));
}

TEST(Telemetry, FirstOccurrenceOfAKeyWins) { EXPECT_TRUE(Shows(R"({"v":1,"v":2})", " v=1 ")); }

TEST(Telemetry, KeyMustStandInItsOwnQuotes) {
    EXPECT_TRUE(Shows(R"({"xv":1,"vx":2,"v":3})", " v=3 "));
    EXPECT_TRUE(Shows(R"({v:1})", " v=-1 "));
    EXPECT_TRUE(Shows(R"({"v)", " v=-1 "));
    EXPECT_TRUE(Shows(R"(v":1)", " v=-1 "));
}

TEST(Telemetry, KeyWithoutAColonIsAValueAndNotAKey) {
    EXPECT_TRUE(Shows(R"({"name":"v","v":3})", " v=3 "));
}

TEST(Telemetry, ValueThatIsNoNumberIsMissing) {
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

TEST(Telemetry, ElementsThatAreNoTaskObjectsAndTheCutOneAreNotRanked) {
    EXPECT_EQ(TopTasks(R"([1,"{",{"n":"a","x":1},[{"n":"no","x":9}],null])"),
              "a x=1bp s=-1 st=-1 p=-1");
    const std::vector<std::string> cut = Report(R"({"tasks":[{"n":"a","x":1},{"n":"b","x":12)");
    EXPECT_EQ(cut.at(1), "[TELE] top_tasks: a x=1bp s=-1 st=-1 p=-1");
}

TEST(Telemetry, OnlyTheFirst64TaskObjectsAreRanked) {
    std::string tasks = "[";
    for (int i = 0; i < 64; ++i)
        tasks += "{\"x\":1},";
    tasks += "{\"n\":\"late\",\"x\":99}]";
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
