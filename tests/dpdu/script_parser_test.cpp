// Parsing scripts, values, patterns and JUnit XML, without a library.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "console/failure.h"
#include "script/junit.h"
#include "script/parser.h"
#include "script/values.h"
#include "xml/document.h"

namespace dpdu::script {
namespace {

Script Parse(const std::string& text, const Variables& variables = {}) {
    return ParseScript("car.dpdu", text, variables);
}

// Why the script is refused; empty: it is not.
std::string Refusal(const std::string& text) {
    try {
        Parse(text);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "";
}

Bytes RequestOf(const std::string& line) {
    const Script script = Parse(line);
    return Evaluate(std::get<RequestStep>(script.steps.at(0).action).request, {}, {});
}

bool Expects(const std::string& pattern, const Bytes& answer, const Variables& variables = {}) {
    const Script script = Parse("22 F1 90\nexpect " + pattern, variables);
    const auto& step = std::get<ExpectStep>(script.steps.at(1).action);
    return Matches(std::get<Pattern>(step.any_of.at(0)), variables, answer);
}

TEST(ScriptParser, RequestHasEachFormOfBytes) {
    const Bytes bytes = {0x22, 0xF1, 0x90};
    for (const char* line :
         {"22 F1 90", "22F190", "22:F1:90", "0x22 0xF1 0x90", " \t22f190  # VIN"}) {
        EXPECT_EQ(RequestOf(line), bytes) << line;
    }
    EXPECT_EQ(RequestOf("AA"), Bytes{0xAA});
}

TEST(ScriptParser, LinesOfEachSystemAreCountedTheSame) {
    for (const char* text : {"10 03\n\n# two\n3E 00",
                             "\xEF\xBB\xBF"
                             "10 03\r\n\r\n# two\r\n3E 00\r\n"}) {
        const Script script = Parse(text);
        ASSERT_EQ(script.steps.size(), 2u);
        EXPECT_EQ(script.steps[0].line, 1u);
        EXPECT_EQ(script.steps[1].line, 4u);
        EXPECT_EQ(script.steps[1].text, "3E 00");
    }
}

TEST(ScriptParser, EmptyScriptHasNoSteps) {
    for (const char* text : {"", "\n", "# nothing", "   \r\n"})
        EXPECT_TRUE(Parse(text).steps.empty()) << text;
}

TEST(ScriptParser, HashInsideOfAWordOrQuotesBeginsNoComment) {
    const Script script = Parse("raw send 7DF#0210 # comment\nprint \"a # b\" #c");
    EXPECT_EQ(script.steps[0].text, "raw send 7DF#0210");
    EXPECT_EQ(PrintedText(std::get<PrintStep>(script.steps[1].action), {}), "a # b");
}

TEST(ScriptParser, QuoteInsideOfQuotesIsWrittenTwice) {
    const Script script = Parse(R"(print "say ""yes""" now)");
    EXPECT_EQ(PrintedText(std::get<PrintStep>(script.steps[0].action), {}), R"(say "yes" now)");
}

TEST(ScriptParser, RefusalsNameFileLineAndWhatIsAllowed) {
    const std::pair<const char*, const char*> rows[] = {
        {"\nbla", "car.dpdu:2: 'bla' is not a step; allowed: a request such as 22 F1 90, ecu, end"},
        {"22 F1 9", "car.dpdu:1: '22 F1 9' is not in one of the forms 22F190, 22 F1 90"},
        {"expect 50", "car.dpdu:1: 'expect' is on the lines after a request"},
        {"22 F1 90\nwait 1s\nexpect 62",
         "car.dpdu:3: 'expect' is on the lines after a request, not after 'wait'"},
        {"22 F1 90\nrepeat 2\nexpect 62\nend", "car.dpdu:3: 'expect' is on the lines after"},
        {"22 F1 90\nexpect",
         "allowed: bytes such as 62 F1 90 ??, exactly with bytes, none, positive"},
        {"22 F1 90\nexpect exactly 62 ..", "'exactly' and '..' contradict each other"},
        {"22 F1 90\nexpect 62 .. 01", "'..' is at the end"},
        {"22 F1 90\nexpect 62 ?", "'62 ?' is not in one of the forms"},
        {"22 F1 90\nexpect negative 3", "'negative' takes one code such as 31; allowed: expect"},
        {"22 F1 90\nexpect from 7E8 62", "'from' is for functional requests"},
        {"functional 3E 00 units 7E0\nexpect from 7E9 none",
         "car.dpdu:2: the request is not for a control unit that answers on 7E9"},
        {"wait", "car.dpdu:1: something is missing; allowed: wait 100ms"},
        {"wait 100", "'100' is not a time such as 100ms or 2.5s"},
        {"wait 0ms", "'0ms' is not a time"},
        {"wait 86401s", "'86401s' is not a time"},
        {"wait nans", "'nans' is not a time"},
        {"wait 1s 2s", "'2s' is too much; allowed: wait 100ms"},
        {"repeat 0\n3E 00\nend", "'0' is not a number from 1 to 1000000"},
        {"repeat 1000001\n3E 00\nend", "'1000001' is not a number"},
        {"repeat 2\n3E 00", "car.dpdu:2: the block of line 1 has no end"},
        {"repeat 2\nend", "car.dpdu:2: the block has no steps"},
        {"end", "'end' without a block"},
        {"repeat 2\ntest a\n3E 00\nend\nend", "a test is not inside of another block"},
        {"test\n3E 00\nend", "the test has no name"},
        {"22 $vin", "$vin has no value yet; set it on an earlier line or with --var vin=BYTES"},
        {"print ${vin:text}", "$vin has no value yet"},
        {"print $", "'$' is not a variable such as $vin"},
        {"print ${vin", "'${' without '}'"},
        {"set vin = answer", "there is no answer yet"},
        {"22 F1 90\nset vin = answer[4..3]", "'answer[4..3]' ends before it begins"},
        {"22 F1 90\nset vin = answer[x]", "'answer[x]' is not a part such as answer[3]"},
        {"22 F1 90\nset vin = answer[1", "'answer[1' is not a part"},
        {"set 1x = 00", "'1x' is not a name followed by ="},
        {"set x", "'x' is not a name followed by ="},
        {"set x =", "the value is missing; allowed: set NAME ="},
        {"seed-key 02 program", "a level is odd, from 01 to 7D"},
        {"seed-key 7F program", "a level is odd, from 01 to 7D"},
        {"seed-key 01", "something is missing; allowed: seed-key [LEVEL] PROGRAM"},
        {"raw send 7DF", "a # is missing after the identifier"},
        {"raw send 20000000#00", "'20000000' is not a CAN identifier"},
        {"raw send 7DF#01 02 03 04 05 06 07 08 09", "a frame holds at most 8 bytes"},
        {"raw hear 7DF", "'raw' is not a step"},
        {"functional 22 F1 90 units", "no control unit is named"},
        {"functional 22 F1 90 units 7E0,7E0", "two control units answer on 7E8"},
        {"functional 22 F1 90 on xyz", "'xyz' is not a CAN identifier"},
        {"ecu 7E0-7E7", "'7E0-7E7' is not one control unit; allowed: ecu 7E0:7E8"},
        {"param CP_P2Max", "'CP_P2Max' has no value; allowed: param NAME=VALUE"},
        {"tester-present on 4001s", "a period is at most 4000s; allowed: tester-present on [TIME]"},
        {":22", "':22' is not a step"},
        {"tester-present maybe", "neither on nor off; allowed: tester-present on [TIME]"},
        {"print \"open", "the quote before 'open' is not closed"},
        {"print \"a\"b", "a blank is missing after \"a\""},
    };
    for (const auto& [text, reason] : rows)
        EXPECT_NE(Refusal(text).find(reason), std::string::npos) << text << "\n" << Refusal(text);
}

TEST(ScriptParser, BlocksMayBeInsideOfEachOtherToALimit) {
    const auto nested = [](int depth) {
        std::string text;
        for (int i = 0; i < depth; ++i)
            text += "repeat 2\n";
        text += "3E 00\n";
        for (int i = 0; i < depth; ++i)
            text += "end\n";
        return text;
    };
    EXPECT_EQ(Refusal(nested(32)), "");
    EXPECT_EQ(Refusal(nested(33)), "car.dpdu:33: more than 32 blocks inside of each other");
    const Script script = Parse(nested(2));
    const auto& outer = std::get<RepeatStep>(script.steps.at(0).action);
    EXPECT_EQ(std::get<RepeatStep>(outer.steps.at(0).action).count, 2u);
}

TEST(ScriptParser, RequestBeforeAnExpectationIsCheckedByIt) {
    const Script script = Parse("10 03\n3E 00\n# comment\nexpect 7E ..");
    EXPECT_FALSE(std::get<RequestStep>(script.steps[0].action).is_checked_later);
    EXPECT_TRUE(std::get<RequestStep>(script.steps[1].action).is_checked_later);
}

TEST(ScriptParser, FunctionalRequestKnowsWhichUnitsAreCheckedLater) {
    const Script some =
        Parse("functional 3E 00 on 700 units 7E0-7E1 713:77D\nexpect from 7E9 7E 00");
    const auto& step = std::get<FunctionalStep>(some.steps[0].action);
    EXPECT_EQ(step.id, 0x700u);
    ASSERT_EQ(step.units.size(), 3u);
    EXPECT_EQ(step.units[2].response_id, 0x77Du);
    EXPECT_FALSE(step.are_all_checked_later);
    EXPECT_EQ(step.checked_later, std::set<std::uint32_t>{0x7E9});
    const Script all = Parse("functional 3E 00 units 7E0\nexpect positive");
    EXPECT_TRUE(std::get<FunctionalStep>(all.steps[0].action).are_all_checked_later);
}

TEST(ScriptParser, SeedKeyTakesLevelProgramAndArguments) {
    const Script script =
        Parse("seed-key 11 \"C:\\my programs\\key.exe\" -v \"two words\"\nseed-key key");
    const auto& step = std::get<SeedKeyStep>(script.steps[0].action);
    EXPECT_EQ(step.level, 0x11);
    EXPECT_EQ(step.program, "C:\\my programs\\key.exe");
    EXPECT_EQ(step.arguments, (std::vector<std::string>{"-v", "two words"}));
    EXPECT_EQ(std::get<SeedKeyStep>(script.steps[1].action).level, 1);
    EXPECT_EQ(std::get<SeedKeyStep>(script.steps[1].action).program, "key");
}

TEST(ScriptParser, FramesWithEightDigitsOrALargeIdentifierHave29Bits) {
    const Script script = Parse("raw send 7DF#02:10:03\nraw send 000007DF#\nraw expect 18DAF110");
    const auto& sent = std::get<RawSendStep>(script.steps[0].action);
    EXPECT_EQ(Evaluate(sent.data, {}, {}), (Bytes{0x02, 0x10, 0x03}));
    EXPECT_FALSE(sent.frame.is_29_bit);
    EXPECT_TRUE(std::get<RawSendStep>(script.steps[1].action).frame.is_29_bit);
    EXPECT_TRUE(std::get<RawExpectStep>(script.steps[2].action).frame.is_29_bit);
}

TEST(ScriptParser, VariablesOfTheCommandLineAreBytesOrText) {
    Variables variables;
    ParseVariable("serial=00:01", &variables);
    ParseVariable("name=\"WTV x\"", &variables);
    EXPECT_EQ(variables["serial"], (Bytes{0x00, 0x01}));
    EXPECT_EQ(variables["name"], (Bytes{'W', 'T', 'V', ' ', 'x'}));
    for (const char* text : {"serial", "=00", "a=xyz", "a=$b", "a=answer", "a="})
        EXPECT_THROW(ParseVariable(text, &variables), UsageError) << text;
}

TEST(ScriptValues, AreThePartsOneAfterTheOther) {
    const Script script =
        Parse("22 F1 90\nset a = 01 answer[1] \"AB\" $b answer[2..] answer[0..1]", {{"b", {0xBB}}});
    const Value& value = std::get<SetStep>(script.steps[1].action).value;
    EXPECT_EQ(Evaluate(value, {{"b", {0xBB}}}, {0x62, 0xF1, 0x90}),
              (Bytes{0x01, 0xF1, 'A', 'B', 0xBB, 0x90, 0x62, 0xF1}));
}

TEST(ScriptValues, PartBeyondTheAnswerIsRefused) {
    const auto slice = [](const std::string& part, const Bytes& answer) {
        const Script script = Parse("22 F1 90\nset a = " + part);
        return Evaluate(std::get<SetStep>(script.steps[1].action).value, {}, answer);
    };
    EXPECT_EQ(slice("answer[2]", {1, 2, 3}), Bytes{3});
    EXPECT_THROW(slice("answer[3]", {1, 2, 3}), AnswerTooShort);
    EXPECT_EQ(slice("answer[3..]", {1, 2, 3}), Bytes{});
    EXPECT_THROW(slice("answer[4..]", {1, 2, 3}), AnswerTooShort);
    for (const char* part : {"answer[18446744073709551615]", "answer[1..18446744073709551615]"})
        EXPECT_THROW(slice(part, {1, 2, 3}), AnswerTooShort) << part;
}

TEST(ScriptValues, HaveALargestSize) {
    const Script script = Parse("set a = $b $b", {{"b", {0xBB}}});
    const Value& value = std::get<SetStep>(script.steps[0].action).value;
    constexpr std::size_t kHalf = 1 << 19;
    EXPECT_EQ(Evaluate(value, {{"b", Bytes(kHalf)}}, {}).size(), 2 * kHalf);
    EXPECT_THROW(Evaluate(value, {{"b", Bytes(kHalf + 1)}}, {}), ValueTooLarge);
}

TEST(ScriptValues, PrintedVariablesAreHexadecimalOrText) {
    const Variables variables = {{"vin", {'W', 'T', 0x00, 0xFF}}};
    const Script script = Parse("print $vin/${vin}.${vin:text} $$5", variables);
    EXPECT_EQ(PrintedText(std::get<PrintStep>(script.steps[0].action), variables),
              "57 54 00 FF/57 54 00 FF.WT.. $5");
}

TEST(ScriptPattern, MatchesTheBeginningOfAnAnswer) {
    EXPECT_TRUE(Expects("50 03", {0x50, 0x03}));
    EXPECT_TRUE(Expects("50 03", {0x50, 0x03, 0x00, 0x32, 0x01, 0xF4}));
    EXPECT_FALSE(Expects("50 03", {0x50}));
    EXPECT_FALSE(Expects("50 03", {0x50, 0x02}));
}

TEST(ScriptPattern, MatchesTheWholeAnswerIfToldTo) {
    EXPECT_TRUE(Expects("exactly 50 03", {0x50, 0x03}));
    EXPECT_FALSE(Expects("exactly 50 03", {0x50, 0x03, 0x00}));
    EXPECT_FALSE(Expects("exactly 50 03", {0x50}));
}

TEST(ScriptPattern, TwoDotsAllowAnythingFurtherAlsoNothing) {
    for (const char* pattern : {"50 03 ..", "5003..", "50:03 .."}) {
        EXPECT_TRUE(Expects(pattern, {0x50, 0x03})) << pattern;
        EXPECT_TRUE(Expects(pattern, {0x50, 0x03, 0x00, 0x32})) << pattern;
        EXPECT_FALSE(Expects(pattern, {0x50, 0x02, 0x00})) << pattern;
    }
    EXPECT_TRUE(Expects("..", {0x7F, 0x10, 0x12}));
}

TEST(ScriptPattern, TwoQuestionMarksAreOneByte) {
    EXPECT_TRUE(Expects("62 ?? 90", {0x62, 0xF1, 0x90}));
    EXPECT_TRUE(Expects("62??90", {0x62, 0xF1, 0x90}));
    EXPECT_FALSE(Expects("62 ?? 90", {0x62, 0x90}));
    EXPECT_FALSE(Expects("62 F1 ??", {0x62, 0xF1}));
}

TEST(ScriptPattern, VariablesAreTheirBytes) {
    const Variables variables = {{"vin", {0x57, 0x54}}};
    EXPECT_TRUE(Expects("62 $vin ..", {0x62, 0x57, 0x54}, variables));
    EXPECT_FALSE(Expects("62 $vin", {0x62, 0x57}, variables));
}

// -------------------------------------------------------------------------------------------------

TEST(JUnit, ReaderSeesCasesTheirOutcomeAndEveryCharacter) {
    TestSuite suite;
    suite.name = "<a> & \"b\"";
    suite.started = "2026-11-23T20:15:00";
    TestCase passed;
    passed.name = "line 1: 22 F1 90";
    passed.outcome = TestCase::Outcome::kPassed;
    passed.seconds = 0.25;
    passed.output = "one\ntwo]]>\r\n";
    TestCase failed;
    failed.name = "tab\tand line\nend";
    failed.outcome = TestCase::Outcome::kFailed;
    constexpr char kMessage[] = "nul \0 escape \x1B \xFF \xED\xA0\x80 \xEF\xBF\xBE ü";
    failed.message = std::string(kMessage, sizeof kMessage - 1);
    failed.details = "expected: 50\ncame: 7F";
    TestCase broken;
    broken.outcome = TestCase::Outcome::kBroken;
    suite.cases = {passed, failed, broken, TestCase()};

    const xml::Document document = xml::Parse(JUnitText(suite));
    EXPECT_EQ(document.root.name, "testsuites");
    const xml::Element& read = *document.root.FindChild("testsuite");
    for (const auto& [name, value] :
         std::vector<std::pair<std::string, std::string>>{{"name", suite.name},
                                                          {"tests", "4"},
                                                          {"failures", "1"},
                                                          {"errors", "1"},
                                                          {"skipped", "1"},
                                                          {"timestamp", suite.started}}) {
        ASSERT_TRUE(read.FindAttribute(name)) << name;
        EXPECT_EQ(*read.FindAttribute(name), value);
    }
    const auto cases = read.ChildrenNamed("testcase");
    ASSERT_EQ(cases.size(), 4u);
    EXPECT_EQ(*cases[0]->FindAttribute("time"), "0.250");
    EXPECT_EQ(cases[0]->FindChild("system-out")->text, passed.output);
    EXPECT_EQ(*cases[1]->FindAttribute("name"), failed.name);
    const xml::Element* failure = cases[1]->FindChild("failure");
    ASSERT_TRUE(failure);
    EXPECT_EQ(*failure->FindAttribute("message"),
              R"(nul \x00 escape \x1B \xFF \xED\xA0\x80 \xEF\xBF\xBE ü)");
    EXPECT_EQ(failure->text, failed.details);
    EXPECT_TRUE(cases[2]->FindChild("error"));
    EXPECT_TRUE(cases[3]->FindChild("skipped"));
}

}  // namespace
}  // namespace dpdu::script
