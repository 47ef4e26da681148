// dpdu run with the library of another vendor: results, exit codes, JUnit files.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "client_run.h"
#include "console/failure.h"
#include "path_text.h"
#include "script/key_program.h"
#include "xml/document.h"

namespace {

namespace fs = std::filesystem;

std::string WithoutTimes(std::string text) {
    for (std::size_t at; (at = text.find("  (")) != std::string::npos;)
        text.erase(at, text.find(')', at) + 1 - at);
    const std::size_t end = text.find(" steps in ");
    return end == std::string::npos ? text : text.substr(0, end) + " steps\n";
}

// "dpdu run - ARGUMENTS..." with the script on standard input.
ClientResult RunText(const std::string& script, const std::vector<std::string>& arguments = {},
                     const std::string& scenario = "") {
    ClientSetup setup;
    setup.arguments = {"run", "-"};
    setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
    setup.input = script;
    setup.scenario = scenario;
    ClientResult result = RunClient(setup);
    result.output = WithoutTimes(result.output);
    return result;
}

class JUnitFile {
public:
    JUnitFile() : path_(TemporaryPath("results.xml")) {}
    ~JUnitFile() { RemoveFile(path_); }

    const std::string& Path() const { return path_; }
    dpdu::xml::Document Read() const { return dpdu::xml::Parse(ReadWholeFile(path_)); }

private:
    std::string path_;
};

const dpdu::xml::Element& Suite(const dpdu::xml::Document& document) {
    return *document.root.FindChild("testsuite");
}

std::string AttributeOf(const dpdu::xml::Element& element, const char* name) {
    const std::string* value = element.FindAttribute(name);
    return value ? *value : "missing";
}

TEST(DpduRun, StepsArePrintedWithTheirLines) {
    const ClientResult result = RunText(
        "# VIN\n22 F1 90\nexpect 62 F1 90 ..\nset vin = answer[3..5]\nprint VIN ${vin:text}\n");
    ExpectOutput(result,
                 "2: 22 F1 90 -> 62 F1 90 54 45 53 54 56 31 4E 30 30 30 30 30 30 30 30 30 31\n"
                 "4: vin = 54 45 53\n"
                 "VIN TES\n"
                 "passed: 4 steps\n");
}

TEST(DpduRun, QuietPrintsWhatTheScriptPrints) {
    ExpectOutput(RunText("22 F1 90\nprint done", {"--quiet"}), "done\n");
}

TEST(DpduRun, EmptyScriptPasses) { ExpectOutput(RunText("# nothing"), "passed: 0 steps\n"); }

TEST(DpduRun, OneLinkServesAllRequestsToAControlUnit) {
    const ClientResult result =
        RunText("repeat 20\n22 F1 90\nend\necu 7E1:7E9\n22 F1 90\necu 7E0:7E8\n3E 00");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_EQ(std::count(result.report.begin(), result.report.end(), "startcomm"), 2);
}

TEST(DpduRun, UnmetExpectationStopsTheScriptAndNamesItsLine) {
    const ClientResult result = RunText("10 03\nexpect 50 04\n22 F1 90");
    EXPECT_EQ(result.exit_code, kUnmetExpectation);
    EXPECT_EQ(result.error,
              "dpdu: standard input:2: expect 50 04: expected 50 04 .., came 50 03\n");
    EXPECT_EQ(result.output, "1: 10 03 -> 50 03\n");
}

TEST(DpduRun, FirstAlternativeThatMatchesIsEnough) {
    const std::string script = "22 F1 FF\nexpect 62 .. or negative 31 or none";
    EXPECT_EQ(RunText(script).exit_code, kOk);
    const ClientResult result = RunText("22 F1 FF\nexpect 62 .. or negative 22 or none");
    EXPECT_EQ(result.exit_code, kUnmetExpectation);
    EXPECT_TRUE(
        Contains(result.error,
                 "expected 62 .. or negative response conditionsNotCorrect (0x22) or no answer, "
                 "came 7F 22 31 (negative response requestOutOfRange (0x31) to service 0x22)"))
        << result.error;
}

TEST(DpduRun, EveryExpectationOfARequestCounts) {
    EXPECT_EQ(RunText("22 F1 90\nexpect 62 ..\nexpect positive\nexpect negative").exit_code,
              kUnmetExpectation);
}

TEST(DpduRun, RequestWithoutExpectationNeedsAPositiveAnswer) {
    const ClientResult negative = RunText("22 F1 FF");
    EXPECT_EQ(negative.exit_code, kNegativeResponse);
    EXPECT_TRUE(Contains(negative.error,
                         "standard input:1: 22 F1 FF: expected a positive answer, came 7F 22 31"))
        << negative.error;
    const ClientResult silent = RunText("ecu 7E3:7EB\n22 F1 90");
    EXPECT_EQ(silent.exit_code, kNoAnswer);
    EXPECT_TRUE(Contains(silent.error,
                         "standard input:2: 22 F1 90: expected a positive answer, came no answer"))
        << silent.error;
}

TEST(DpduRun, SilenceMayBeExpected) {
    EXPECT_EQ(RunText("ecu 7E3:7EB\n22 F1 90\nexpect none").exit_code, kOk);
    EXPECT_EQ(RunText("22 F1 90\nexpect none").exit_code, kUnmetExpectation);
    // Whoever asks for no positive answer gets none.
    EXPECT_EQ(RunText("ecu 7E3:7EB\n3E 80").exit_code, kOk);
    EXPECT_EQ(RunText("ecu 7E3:7EB\n22 80").exit_code, kNoAnswer);
}

TEST(DpduRun, ExpectationsOfAFunctionalRequestAreForEachUnit) {
    const std::string request = "functional 22 F1 90 units 7E0,7E1,7E2,7E3\n";
    ClientResult result = RunText(request + "expect from 7EA negative 31\nexpect from 7EB none");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.output, "  7E2:7EA -> 7F 22 31\n  7E3:7EB -> no answer\n"))
        << result.output;
    result = RunText(request + "expect from 7EA negative 31");
    EXPECT_EQ(result.exit_code, kNoAnswer);
    EXPECT_TRUE(Contains(result.error, "from 7E3:7EB, came no answer")) << result.error;
    result = RunText(request + "expect 62 .. or negative");
    EXPECT_EQ(result.exit_code, kUnmetExpectation);
    EXPECT_TRUE(Contains(result.error, "standard input:2: expect 62 .. or negative: "))
        << result.error;
    EXPECT_EQ(RunText("functional 22 F1 90\nexpect from 7E9 62 ..").exit_code, kFailure);
}

TEST(DpduRun, AnswerThatIsTooShortForAVariableIsAnUnmetExpectation) {
    const ClientResult result = RunText("10 03\nset x = answer[2..3]");
    EXPECT_EQ(result.exit_code, kUnmetExpectation);
    EXPECT_TRUE(Contains(result.error, "the answer has 2 bytes, so there is no byte 3"))
        << result.error;
}

TEST(DpduRun, VariableOfTheCommandLineIsInRequestAndExpectation) {
    EXPECT_EQ(RunText("22 $which\nexpect 62 $which ..", {"--var", "which=F1 90"}).exit_code, kOk);
    ExpectMistakes({"run", "-", "--var"}, {{"which"}, {"which=xyz"}, {"1=00"}}, "--var");
}

TEST(DpduRun, SettingsTakeEffectWithTheNextRequest) {
    const ClientResult result = RunText(
        "22 F1 A0\nexpect 62 F1 A0 00 0F 42 40\nparam CP_P2Max=50000\n22 F1 A0\n"
        "expect 62 F1 A0 00 00 C3 50\ntester-present on 500ms\n22 F1 A3\nexpect 62 F1 A3 00 07 A1 "
        "20\n"
        "tester-present off\n22 F1 A2\nexpect 62 F1 A2 00 00 00 00");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_FALSE(Reported(result, "disconnected while started"));
}

TEST(DpduRun, ComParamThatTheLibraryDoesNotHaveFailsOnItsLine) {
    const ClientResult result = RunText("3E 00\nparam CP_None=1");
    EXPECT_EQ(result.exit_code, kFailure);
    EXPECT_TRUE(
        Contains(result.error, "standard input:2: param CP_None=1: the library has no ComParam"))
        << result.error;
    EXPECT_EQ(RunText("param CP_P2Max=long").exit_code, kFailure);
}

TEST(DpduRun, TimeoutEndsARequestThatHangs) {
    const ClientResult result = RunText("ecu 7E5:7ED\ntimeout 100ms\n22 F1 90");
    EXPECT_EQ(result.exit_code, kNoAnswer);
    EXPECT_TRUE(Contains(result.error, "within 100 ms")) << result.error;
    EXPECT_TRUE(Reported(result, "cancelled"));
}

TEST(DpduRun, RawFramesAreSentAndExpectedBesideRequests) {
    const ClientResult result =
        RunText("set x = 01\nraw send 123#DE AD $x\nraw send 18DAF110#\n22 F1 90");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Reported(result, "frame 00000123 short DEAD01"));
    EXPECT_TRUE(Reported(result, "frame 18DAF110 long "));
    EXPECT_EQ(RunText("raw expect 0C0 within 2s").exit_code, kOk);
    const ClientResult missing = RunText("raw expect 5FF#01 within 20ms");
    EXPECT_EQ(missing.exit_code, kUnmetExpectation);
    EXPECT_TRUE(
        Contains(missing.error, "expected 5FF#01 within 20 ms, came no frame with this identifier"))
        << missing.error;
}

TEST(DpduRun, UnlockedControlUnitNeedsNoKey) {
    ExpectOutput(RunText("seed-key 01 no_such_program"), "1: 27 01 -> 67 01\npassed: 1 steps\n");
}

TEST(DpduRun, SyntaxErrorIsFoundBeforeTheLibraryIsLoaded) {
    const ClientResult result = RunText("22 F1 90\n22 F1 9\n");
    EXPECT_EQ(result.exit_code, kUsage);
    EXPECT_TRUE(Contains(result.error, "standard input:2: '22 F1 9' is not in one of the forms"));
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(result.report.empty());
}

TEST(DpduRun, CheckSendsNothing) {
    const ClientResult result = RunText("22 F1 90", {"--check"});
    ExpectOutput(result, "standard input: no errors\n");
    EXPECT_TRUE(result.report.empty());
    EXPECT_EQ(RunText("22 F1", {"--dry-run"}).exit_code, kOk);
    EXPECT_EQ(RunText("wait 1", {"--dry-run"}).exit_code, kUsage);
}

TEST(DpduRun, ScriptThatCannotBeReadIsRefused) {
    const ClientResult result = RunClient({"run", TemporaryPath("nothing")});
    EXPECT_EQ(result.exit_code, kUsage);
    EXPECT_TRUE(Contains(result.error, "cannot be read")) << result.error;
}

TEST(DpduRun, JsonHasOneDocumentForEachStepAndALastOne) {
    ClientSetup setup;
    setup.arguments = {"run", "-", "--json"};
    setup.input = "22 F1 90\nexpect 62 F1 91 ..";
    const ClientResult result = RunClient(setup);
    EXPECT_EQ(result.exit_code, kUnmetExpectation);
    const std::vector<Json> lines = DocumentLines(result);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0]["step"], "request");
    EXPECT_EQ(lines[0]["request"], "22F190");
    EXPECT_EQ(lines[0]["passed"], true);
    EXPECT_EQ(lines[0]["controlUnits"][0]["responseId"], "7E8");
    EXPECT_EQ(lines[0]["controlUnits"][0]["answers"][0]["data"],
              "62F19054455354563"
              "14E30303030303030303031");
    EXPECT_EQ(lines[1]["line"], 2);
    EXPECT_EQ(lines[1]["passed"], false);
    EXPECT_EQ(lines[1]["expected"], "62 F1 91 ..");
    EXPECT_TRUE(lines[1]["came"].get<std::string>().starts_with("62 F1 90"));
    EXPECT_EQ(lines[2]["result"], "failed");
    EXPECT_EQ(lines[2]["exitCode"], kUnmetExpectation);
    EXPECT_EQ(lines[2]["steps"], 2);
    EXPECT_EQ(lines[2]["line"], 2);
    EXPECT_TRUE(lines[2]["seconds"].is_number());
}

TEST(DpduRun, JsonOfARefusedScriptIsOneDocument) {
    ClientSetup setup;
    setup.arguments = {"run", "-", "--json"};
    setup.input = "wait";
    const Json document = Document(RunClient(setup));
    EXPECT_EQ(document["exitCode"], kUsage);
    EXPECT_EQ(document["result"], "error");
}

TEST(DpduRun, JUnitFileHasACaseForEachStepAndTest) {
    const JUnitFile file;
    const std::string script =
        "10 03\ntest VIN <of> \"engine\"\n22 F1 90\nprint \"& \x1B[1m\"\nexpect 62 F1 91 "
        "..\nend\nrepeat 2\n3E 00\nend\n";
    const ClientResult result = RunText(script, {"--junit", file.Path()});
    EXPECT_EQ(result.exit_code, kUnmetExpectation);
    const dpdu::xml::Document document = file.Read();
    const dpdu::xml::Element& suite = Suite(document);
    EXPECT_EQ(AttributeOf(suite, "name"), "standard input");
    EXPECT_EQ(AttributeOf(suite, "tests"), "3");
    EXPECT_EQ(AttributeOf(suite, "failures"), "1");
    EXPECT_EQ(AttributeOf(suite, "skipped"), "1");
    const auto cases = suite.ChildrenNamed("testcase");
    ASSERT_EQ(cases.size(), 3u);
    EXPECT_EQ(AttributeOf(*cases[0], "name"), "line 1: 10 03");
    EXPECT_TRUE(Contains(cases[0]->ChildText("system-out"), "1: 10 03 -> 50 03"));
    EXPECT_EQ(AttributeOf(*cases[1], "name"), "VIN <of> engine");
    EXPECT_TRUE(Contains(cases[1]->ChildText("system-out"), "& \\x1B[1m"));
    const dpdu::xml::Element* failure = cases[1]->FindChild("failure");
    ASSERT_TRUE(failure);
    EXPECT_TRUE(
        AttributeOf(*failure, "message").starts_with("expected 62 F1 91 .., came 62 F1 90"));
    EXPECT_TRUE(failure->text.starts_with(
        "line 5: expect 62 F1 91 ..\nexpected: 62 F1 91 ..\ncame: 62 F1 90"))
        << failure->text;
    EXPECT_EQ(AttributeOf(*cases[2], "name"), "line 7: repeat 2");
    EXPECT_TRUE(cases[2]->FindChild("skipped"));
}

TEST(DpduRun, JUnitFileReplacesAnOlderOneAndLeavesNothingBeside) {
    const fs::path folder = PathOf(TemporaryPath("junit"));
    fs::create_directory(folder);
    const std::string path = TextOf(folder / "results.xml");
    for (const char* script : {"22 F1 FF", "3E 00"})
        RunText(script, {"--junit", path});
    EXPECT_EQ(AttributeOf(Suite(dpdu::xml::Parse(ReadWholeFile(path))), "failures"), "0");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
    fs::remove_all(folder);
}

TEST(DpduRun, JUnitFileIsWrittenForWhateverEndsTheScript) {
    const JUnitFile file;
    EXPECT_EQ(RunText("wait", {"--junit", file.Path()}).exit_code, kUsage);
    EXPECT_EQ(AttributeOf(Suite(file.Read()), "errors"), "1");
    EXPECT_EQ(RunText("3E 00", {"--junit", file.Path(), "--wait", "0"}, "no-module").exit_code,
              kNoModule);
    dpdu::xml::Document document = file.Read();
    EXPECT_EQ(AttributeOf(Suite(document), "errors"), "1");
    EXPECT_EQ(AttributeOf(*Suite(document).FindChild("testcase"), "name"), "line 1: 3E 00");
}

TEST(DpduRun, JUnitFileIsWrittenAlsoIfNobodyReadsTheOutput) {
    const JUnitFile file;
    ClientSetup setup;
    setup.arguments = {"run", "-", "--junit", file.Path()};
    setup.input = "22 F1 90\n3E 00";
    setup.has_reader = false;
    const ClientResult result = RunClient(setup);
    EXPECT_EQ(result.exit_code, kReaderGone);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(AttributeOf(Suite(file.Read()), "skipped"), "1");
}

TEST(DpduRun, JUnitFileThatCannotBeWrittenIsFoundBeforeAnythingIsSent) {
    const ClientResult result =
        RunText("3E 00", {"--junit", TemporaryPath("no_folder") + "/results.xml"});
    EXPECT_EQ(result.exit_code, kFailure);
    EXPECT_TRUE(Contains(result.error, "cannot be written")) << result.error;
    EXPECT_TRUE(result.report.empty());
    const fs::path folder = PathOf(TemporaryPath("junit_folder"));
    fs::create_directory(folder);
    const ClientResult of_folder = RunText("3E 00", {"--junit", TextOf(folder)});
    fs::remove(folder);
    EXPECT_EQ(of_folder.exit_code, kFailure);
    EXPECT_TRUE(Contains(of_folder.error, "is a folder")) << of_folder.error;
    EXPECT_TRUE(of_folder.report.empty());
}

TEST(DpduRun, InterruptionReleasesTheLinksAndWritesTheResults) {
    const JUnitFile file;
    ClientSetup setup;
    setup.arguments = {"run", "-", "--junit", file.Path()};
    setup.input = "22 F1 90\necu 7E5:7ED\n22 F1 90\n3E 00";
    setup.interrupt_when = "hanging";
    const ClientResult result = RunClient(setup);
    EXPECT_EQ(result.exit_code, kInterrupted);
    EXPECT_TRUE(Contains(result.error, "standard input:3: 22 F1 90: interrupted")) << result.error;
    EXPECT_TRUE(Reported(result, "cancelled"));
    const dpdu::xml::Document document = file.Read();
    EXPECT_EQ(AttributeOf(Suite(document), "errors"), "1");
    EXPECT_EQ(AttributeOf(Suite(document), "skipped"), "1");
}

TEST(DpduRun, InterruptionEndsAWait) {
    ClientSetup setup;
    setup.arguments = {"run", "-"};
    setup.input = "raw send 123#01\nwait 600s";
    setup.interrupt_when = "frame 00000123 short 01";
    EXPECT_EQ(RunClient(setup).exit_code, kInterrupted);
}

TEST(DpduRun, LostModuleHasItsOwnExitCode) {
    const ClientResult result = RunText("22 F1 90", {}, "lost-module");
    EXPECT_EQ(result.exit_code, kModuleLost);
}

TEST(DpduRun, UnpluggedModuleIsNotASilentControlUnit) {
    const ClientResult result =
        RunText("repeat 3\necu 7E3:7EB\n22 F1 90\nexpect none\nend", {}, "unplugged");
    EXPECT_EQ(result.exit_code, kModuleLost);
    EXPECT_TRUE(Contains(result.error, "the module is gone")) << result.error;
}

TEST(DpduRun, MistakesOfTheCommandLineAreRefused) {
    ExpectMistakes({"run", "-"}, {{"--ecu", "7E0"},
                                  {"--key-timeout", "0"},
                                  {"--raw-primitive", "other"},
                                  {"--timeout", "0"},
                                  {"second"}});
}

// -------------------------------------------------------------------------------------------------

using dpdu::script::KeyOf;

class KeyProgram : public testing::Test {
protected:
    // As in the client: a program need not read the seed.
    static void SetUpTestSuite() {
#ifdef SIGPIPE
        std::signal(SIGPIPE, SIG_IGN);
#endif
    }
};

constexpr std::chrono::milliseconds kPatience{20'000};
const dpdu::Bytes kSeed = {0x12, 0x34};

std::string KeyFailure(const std::string& program, const std::vector<std::string>& arguments,
                       std::chrono::milliseconds limit = kPatience) {
    try {
        KeyOf(kSeed, program, arguments, limit);
    } catch (const dpdu::Failure& failure) {
        return failure.what();
    }
    return "";
}

TEST_F(KeyProgram, GetsTheSeedOnItsInputAndPrintsTheKey) {
    EXPECT_EQ(KeyOf(kSeed, KEY_PROGRAM, {"seed"}, kPatience), kSeed);
}

TEST_F(KeyProgram, GetsItsArgumentsAsTheyAreWritten) {
    EXPECT_EQ(KeyOf(kSeed, KEY_PROGRAM, {"arguments", "a b", "\"q\\", "$(x) *", ""}, kPatience),
              (dpdu::Bytes{3, 'a', 3, '"', 6, '$', 0, 0}));
}

TEST_F(KeyProgram, FailuresAreNamed) {
    EXPECT_TRUE(Contains(KeyFailure(KEY_PROGRAM, {"fail"}), "failed: exit code 3"));
    EXPECT_TRUE(Contains(KeyFailure(KEY_PROGRAM, {"words"}), "printed 'no key', which is no key"));
    EXPECT_TRUE(Contains(KeyFailure(KEY_PROGRAM, {}), "printed '', which is no key"));
    EXPECT_TRUE(Contains(KeyFailure("no_such_program", {}), "'no_such_program' cannot be started"));
}

TEST_F(KeyProgram, IsEndedAfterItsTime) {
    EXPECT_TRUE(Contains(KeyFailure(KEY_PROGRAM, {"hang"}, std::chrono::milliseconds(100)),
                         "did not end within 100 ms"));
}

}  // namespace
