// The client's commands for many control units, raw frames, objects, IOCTLs and events, with
// another vendor's library.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "client_run.h"
#include "path_text.h"

namespace {

ClientResult RunInterrupted(const std::vector<std::string>& arguments, const std::string& when,
                            const std::string& scenario = "") {
    ClientSetup setup;
    setup.arguments = arguments;
    setup.scenario = scenario;
    setup.interrupt_when = when;
    return RunClient(setup);
}

std::ptrdiff_t CountReported(const ClientResult& result, const std::string& line) {
    return std::count(result.report.begin(), result.report.end(), line);
}

// ---------------------------------------------------------------------------------------------

TEST(DpduFunctional, EachControlUnitHasARowWithItsAnswerAndTime) {
    ExpectOutput(RunClient({"functional", "3E00", "--units", "7E0,7E1:7E9"}),
                 "UNIT     TIME    ANSWER  MEANING\n"
                 "7E0:7E8  1.5 ms  7E 00   TesterPresent zeroSubFunction\n"
                 "7E1:7E9  2.5 ms  7E 00   TesterPresent zeroSubFunction\n");
}

TEST(DpduFunctional, SilentAndNegativeControlUnitsAreReportedAndFailTheCommand) {
    const ClientResult result = RunClient({"functional", "22F190", "--units", "7E0,7E2-7E3"});
    ExpectFailure(result, "2 of 3 control units did not do as asked", kNoAnswer);
    EXPECT_EQ(result.output,
              "UNIT     TIME    ANSWER                                                       "
              "MEANING\n"
              "7E0:7E8  1.5 ms  62 F1 90 54 45 53 54 56 31 4E 30 30 30 30 30 30 30 30 30 31  "
              "ReadDataByIdentifier F190 VINDataIdentifier \"TESTV1N0000000001\"\n"
              "7E2:7EA  2.5 ms  7F 22 31                                                     "
              "ReadDataByIdentifier F190 VINDataIdentifier: negative response requestOutOfRange "
              "(0x31)\n"
              "7E3:7EB  -       no answer\n");
}

TEST(DpduFunctional, WithAnyOnePositiveAnswerIsEnough) {
    EXPECT_EQ(RunClient({"functional", "3E00", "--units", "7E3,7E0", "--any"}).exit_code, kOk);
    EXPECT_EQ(RunClient({"functional", "3E00", "--units", "7E3", "--any"}).exit_code, kNoAnswer);
}

TEST(DpduFunctional, FileGivesControlUnitsTheirNames) {
    const std::string path = TemporaryPath("units");
    std::ofstream(PathOf(path))
        << "# a car\n7E0:7E8  engine, left\n\n7E1   gearbox # eight above\n";
    const ClientResult text = RunClient({"functional", "3E00", "--file", path});
    EXPECT_EQ(text.output,
              "UNIT     NAME          TIME    ANSWER  MEANING\n"
              "7E0:7E8  engine, left  1.5 ms  7E 00   TesterPresent zeroSubFunction\n"
              "7E1:7E9  gearbox       2.5 ms  7E 00   TesterPresent zeroSubFunction\n");
    const Json units =
        Document(RunClient({"functional", "3E00", "--file", path, "--json"}))["controlUnits"];
    std::remove(path.c_str());
    ASSERT_EQ(units.size(), 2u);
    EXPECT_EQ(units[1]["name"], "gearbox");
    EXPECT_EQ(units[1]["responseId"], "7E9");
    EXPECT_EQ(units[1]["answers"][0]["afterUs"], 2500);
}

TEST(DpduFunctional, TimesThatTheLibraryDoesNotMeasureAreNotShown) {
    const std::vector<std::string> arguments = {"functional", "3E00", "--units", "7E0,7E1"};
    const ClientResult result = RunClient(arguments, "equal-stamps");
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_EQ(result.output,
              "UNIT     TIME  ANSWER  MEANING\n"
              "7E0:7E8  -     7E 00   TesterPresent zeroSubFunction\n"
              "7E1:7E9  -     7E 00   TesterPresent zeroSubFunction\n");
    EXPECT_EQ(
        result.error,
        "dpdu: TIME is not measurable with this library: it delivers all answers at once, here "
        "after 1.5 ms; --each-time also asks each control unit alone\n");
    const Json document =
        Document(RunClient({"functional", "3E00", "--units", "7E0,7E1", "--json"}, "equal-stamps"));
    EXPECT_EQ(document["times"], "none");
    EXPECT_EQ(document["allAnswersAfterUs"], 1500);
    EXPECT_FALSE(document["controlUnits"][0]["answers"][0].contains("afterUs"));
}

TEST(DpduFunctional, EachControlUnitIsTimedAloneOnRequest) {
    const ClientResult result = RunClient(
        {"functional", "22F190", "--units", "7E0,7E3,7E1", "--any", "--each-time"}, "equal-stamps");
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_TRUE(Contains(result.output, "UNIT     TIME ALONE  ANSWER")) << result.output;
    EXPECT_TRUE(Contains(result.output, "7E0:7E8  1.5 ms      ")) << result.output;
    EXPECT_TRUE(Contains(result.output, "7E3:7EB  -           no answer\n")) << result.output;
    EXPECT_TRUE(Contains(result.error, "TIME ALONE is that of a second request")) << result.error;
    ExpectMistakes({"functional", "1101", "--units", "7E0", "--each-time"}, {{}},
                   "only for services that read; ECUReset does more");
}

TEST(DpduFunctional, InvalidListIsAMistakeAndIsNamed) {
    ExpectMistakes({"functional", "3E00"}, {{"--units", "7E7-7E0"},
                                            {"--units", "7F8"},
                                            {"--units", "ecu"},
                                            {"--units", "7E0,7E0"},
                                            {"--units", ""},
                                            {"--units", "18DB33F1"},
                                            {"--file", "/nowhere/units"},
                                            {}});
}

// ---------------------------------------------------------------------------------------------

TEST(DpduScan, AnotherVendorsLibraryIsScannedWithLinks) {
    const ClientResult result = RunClient(
        {"scan", "--range", "7E0-7E3", "--range", "18DA10F1", "--dids", "F190", "--dids", "F1A0"});
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_EQ(result.output,
              "UNIT               FUNCTIONAL  DEFAULT SESSION  ACTIVE BEFORE  SERVICES     DTCS\n"
              "7E0:7E8            yes         yes              -              10 19 22 3E  -\n"
              "7E1:7E9            yes         yes              -              10 19 22 3E  -\n"
              "7E2:7EA            yes         yes              -              10 19 22 3E  -\n"
              "18DA10F1:18DAF110  no          yes              -              10 19 22 3E  -\n"
              "\n"
              "7E0:7E8\n"
              "  F190  \"TESTV1N0000000001\"  VINDataIdentifier\n"
              "  F1A0  00 0F 42 40\n"
              "\n"
              "7E1:7E9\n"
              "  F190  \"TESTV1N0000000002\"  VINDataIdentifier\n"
              "  F1A0  00 0F 42 40\n"
              "\n"
              "7E2:7EA\n"
              "  F1A0  00 0F 42 40\n"
              "\n"
              "18DA10F1:18DAF110\n"
              "  F190  \"TESTV1N0000000029\"  VINDataIdentifier\n"
              "  F1A0  00 0F 42 40\n");
    EXPECT_EQ(result.error,
              "dpdu: the scan only reads: it sends 3E 00, 10 01 (default session), 22 and 19, "
              "nothing else\n"
              "dpdu: 4 control units found\n");
    for (const std::string& line : result.report) {
        if (!line.starts_with("sent ")) continue;
        EXPECT_TRUE(line == "sent 3E00" || line == "sent 1001" || line == "sent 1901FF" ||
                    line == "sent 22F186" || line == "sent 22F190" || line == "sent 22F1A0")
            << line;
    }
}

TEST(DpduScan, ReceivedFramesThatAreNoAnswersAreNotControlUnits) {
    const ClientResult result = RunClient({"scan", "--method", "raw", "--range", "7E0", "--range",
                                           "18DA10F1", "--primitive", "sendrecv"});
    EXPECT_EQ(result.exit_code, kNoAnswer);
    EXPECT_EQ(result.output, "");
    for (const char* frame : {"000007DF short", "000007E0 short", "18DB33F1 long", "18DA10F1 long"})
        EXPECT_TRUE(Reported(result, std::string("frame ") + frame + " 023E00CCCCCCCCCC")) << frame;
}

TEST(DpduScan, InterruptionShowsWhatWasFoundSoFar) {
    const ClientResult result = RunInterrupted({"scan", "--range", "7E0-7E5", "--json"}, "hanging");
    EXPECT_EQ(result.exit_code, kInterrupted);
    const Json document = Document(result);
    EXPECT_EQ(document["complete"], false);
    EXPECT_EQ(document["controlUnits"].size(), 5u) << result.output;
    EXPECT_TRUE(
        Contains(result.error, "dpdu: interrupted; the scan is not complete, 5 control units"))
        << result.error;
}

TEST(DpduScan, LostModuleEndsIt) {
    const ClientResult result = RunClient({"scan", "--range", "7E0-7E1"}, "lost-module");
    EXPECT_EQ(result.exit_code, kModuleLost);
    EXPECT_TRUE(Contains(result.error, "the module is gone")) << result.error;
}

TEST(DpduScan, InvalidRangeIsAMistake) {
    ExpectMistakes({"scan"}, {{"--range", "7FF-700"},
                              {"--range", "700-18DA00F1"},
                              {"--range", "18DA00F1-18DB00F0"},
                              {"--range", "0-1FFFFFFF"},
                              {"--range", "x"},
                              {"--functional", "y"},
                              {"--dids", "F19F-F180"},
                              {"--dids", "10000"},
                              {"--offset", "800"},
                              {"--method", "guess"},
                              {"--primitive", "delay"},
                              {"--gap", "0"},
                              {"--tester-present", "100"},
                              {"--param", "CP_TesterPresentMessage=1101"}});
}

// ---------------------------------------------------------------------------------------------

TEST(DpduRawSend, FrameReachesTheLibraryWithItsIdentifierFirst) {
    const ClientResult result = RunClient({"raw", "send", "123", "DE", "AD"});
    ExpectOutput(result, "123  [2]  DE AD  sent once\n");
    EXPECT_TRUE(Reported(result, "frame 00000123 short DEAD"));
}

TEST(DpduRawSend, LongIdentifiersAreRecognisedByValueDigitsOrOption) {
    EXPECT_TRUE(Reported(RunClient({"raw", "send", "18DAF110"}), "frame 18DAF110 long "));
    EXPECT_TRUE(Reported(RunClient({"raw", "send", "800", "01"}), "frame 00000800 long 01"));
    EXPECT_TRUE(Reported(RunClient({"raw", "send", "00000123", "01"}), "frame 00000123 long 01"));
    EXPECT_TRUE(
        Reported(RunClient({"raw", "send", "123", "01", "--extended"}), "frame 00000123 long 01"));
    EXPECT_TRUE(Reported(RunClient({"raw", "send", "7FF", "01"}), "frame 000007FF short 01"));
}

TEST(DpduRawSend, RepeatsAsOftenAsRequested) {
    const ClientResult result =
        RunClient({"raw", "send", "123", "01", "--repeat", "5", "--period", "2", "--json"});
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_EQ(CountReported(result, "frame 00000123 short 01"), 5);
    EXPECT_EQ(Document(result),
              Json({{"id", "123"}, {"extended", false}, {"data", "01"}, {"sent", 5}}));
}

TEST(DpduRawSend, InterruptionEndsEndlessRepetitionSuccessfully) {
    const ClientResult result = RunInterrupted(
        {"raw", "send", "123", "01", "--repeat", "0", "--period", "5"}, "frame 00000123 short 01");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.output, "123  [1]  01  sent ")) << result.output;
}

TEST(DpduRawSend, InterruptionBeforeTheLastRepetitionIsAFailure) {
    const ClientResult result =
        RunInterrupted({"raw", "send", "123", "01", "--repeat", "100000", "--period", "100"},
                       "frame 00000123 short 01");
    EXPECT_EQ(result.exit_code, kInterrupted);
    EXPECT_TRUE(Contains(result.error, "dpdu: interrupted\n")) << result.error;
}

TEST(DpduRawSend, OtherLibrariesMaySendWithSendRecv) {
    const ClientResult result = RunClient({"raw", "send", "123", "01", "--primitive", "sendrecv"});
    EXPECT_TRUE(Reported(result, "frame 00000123 short 01"));
    EXPECT_FALSE(Reported(result, "receiving"));
}

TEST(DpduRawSend, InvalidFrameIsAMistake) {
    ExpectMistakes({"raw", "send"}, {{"20000000", "01"},
                                     {"xyz"},
                                     {"123", "010203040506070809"},
                                     {"123", "0"},
                                     {"123", "01", "--primitive", "delay"}});
}

// ---------------------------------------------------------------------------------------------

TEST(DpduRawListen, FramesAreLinesAndTotalsFollow) {
    ExpectOutput(RunClient({"raw", "listen", "--count", "5"}),
                 "(000.000000)  can0       0C0  [2]  0C 80\n"
                 "(000.004095)  can0       7E8  [4]  03 7F 22 31\n"
                 "(000.004096)  can0       0C0  [2]  0D 10\n"
                 "(000.008192)  can0  18DAF110  [0]\n"
                 "(000.012288)  can0  00000123  [1]  FF\n"
                 "\n"
                 "ID        COUNT  PERIOD  LAST DATA\n"
                 "0C0       2      4.1 ms  0D 10\n"
                 "7E8       1      -       03 7F 22 31\n"
                 "00000123  1      -       FF\n"
                 "18DAF110  1      -       \n");
}

TEST(DpduRawListen, OnlyFramesThatMatchAFilterCount) {
    const ClientResult one =
        RunClient({"raw", "listen", "--filter", "7E0/7F0", "--count", "1", "--log"});
    EXPECT_EQ(one.exit_code, kOk) << one.error;
    EXPECT_TRUE(Contains(one.output, " can0 7E8#037F2231\n")) << one.output;
    EXPECT_EQ(one.error, "dpdu: 1 frame received\n");
    const std::vector<Json> two = DocumentLines(RunClient(
        {"raw", "listen", "--filter", "0C0", "--filter", "123", "--count", "3", "--json"}));
    ASSERT_EQ(two.size(), 4u);
    EXPECT_EQ(two[2],
              Json({{"timeUs", 12288}, {"id", "00000123"}, {"extended", true}, {"data", "FF"}}));
    EXPECT_EQ(two[3]["frames"], 3);
    EXPECT_EQ(two[3]["totals"][0]["periodMs"], 4.1);
    EXPECT_TRUE(two[3]["totals"][1]["periodMs"].is_null());
}

TEST(DpduRawListen, CaptureHasEachFrameWithItsKindOfIdentifier) {
    const std::string path = TemporaryPath("capture.pcapng");
    const ClientResult result = RunClient({"raw", "listen", "--pcapng", path, "--count", "5"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, "dpdu: 5 frames received\n");
    const std::string capture = ReadWholeFile(path);
    EXPECT_TRUE(Contains(capture, std::string("\0\0\x07\xE8\x04\0\0\0\x03\x7F\"1", 12)));
    EXPECT_TRUE(Contains(capture, std::string("\x80\0\1\x23\1\0\0\0\xFF", 9)));
    ExpectMistakes({"raw", "listen"}, {{"--pcapng", path}},
                   "'" + path + "' exists already: name another file");
    EXPECT_EQ(ReadWholeFile(path), capture);
    RemoveFile(path);
}

TEST(DpduRawListen, TableWithoutATerminalIsPrintedOnceAtTheEnd) {
    const ClientResult result =
        RunClient({"raw", "listen", "--table", "--filter", "0C0", "--count", "2"});
    EXPECT_EQ(result.output,
              "ID   COUNT  PERIOD  LAST DATA\n"
              "0C0  2      4.1 ms  0D 10\n");
}

TEST(DpduRawListen, CountOfZeroIsRefusedWithTheReason) {
    ExpectMistakes({"raw", "listen"}, {{"--count", "0"}},
                   "0 would end before it begins; leave it out to go on until Ctrl-C");
    ExpectMistakes({"raw", "listen"}, {{"--count", "-1"},
                                       {"--count", "x"},
                                       {"--count", ""},
                                       {"--count", "99999999999999999999"}});
}

TEST(DpduTesterPresent, MessageOfMoreThanThirtyTwoBytesIsRefused) {
    const std::string longest(64, '3');
    EXPECT_EQ(RunClient({"tester-present", "--message", longest, "--time", "0.1"}).exit_code, kOk);
    ExpectMistakes({"tester-present"}, {{"--message", longest + "3E"}},
                   "at most 32 bytes, this one has 33");
}

TEST(DpduRawListen, FramesThatDoNotArriveInTimeAreAFailure) {
    const ClientResult result = RunClient({"raw", "listen", "--count", "6", "--time", "0.3"});
    ExpectFailure(result, "5 of 6 frames received", kNoAnswer);
}

TEST(DpduRawListen, InterruptionIsTheNormalEnd) {
    const ClientResult result = RunInterrupted({"raw", "listen"}, "receiving");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.output, "COUNT")) << result.output;
}

TEST(DpduRawListen, InvalidFilterIsAMistake) {
    ExpectMistakes({"raw", "listen", "--filter"}, {{"xyz"}, {"7E8/"}, {"/7F0"}, {"20000000"}});
}

// ---------------------------------------------------------------------------------------------

TEST(DpduObjects, ListsWhatTheLibraryKnowsByType) {
    const ClientResult result = RunClient({"objects", "--type", "protocol"});
    ExpectOutput(result,
                 "TYPE      ID  NAME\n"
                 "protocol  71  ISO_15765_3_on_ISO_15765_2\n"
                 "protocol  73  ISO_11898_RAW\n");
    EXPECT_EQ(Document(RunClient({"objects", "--json"}))["objects"].size(), 28u);
}

TEST(DpduObjects, LooksUpNamesAndReportsUnknownOnes) {
    const ClientResult result = RunClient({"objects", "HI", "CP_P2Max", "Unheard"});
    ExpectFailure(result, "the library does not know the name 'Unheard'");
    EXPECT_EQ(result.output,
              "TYPE      ID   NAME\n"
              "pin-type  81   HI\n"
              "comparam  901  CP_P2Max\n");
}

TEST(DpduObjects, UnknownTypeIsAMistakeAndNoMatchAFailure) {
    EXPECT_EQ(RunClient({"objects", "--type", "car"}).exit_code, kUsage);
    ExpectFailure(RunClient({"objects", "--filter", "Unheard"}),
                  "the library knows no such object");
}

// ---------------------------------------------------------------------------------------------

TEST(DpduIoCtl, ShortNameStandardNameAndNumberAreEquivalent) {
    for (const std::string command : {"battery", "PDU_IOCTL_READ_VBATT"}) {
        const ClientResult result = RunClient({"ioctl", command});
        EXPECT_EQ(result.exit_code, kOk) << result.error;
        EXPECT_EQ(result.output, "12.034 V\n");
        EXPECT_TRUE(Reported(result, "ioctl 700 without input"));
    }
    EXPECT_EQ(RunClient({"ioctl", "700"}).output, "12034\n");
}

TEST(DpduIoCtl, InputsOfEveryTypeReachTheLibrary) {
    EXPECT_EQ(RunClient({"ioctl", "ignition"}).output, "off\n");
    EXPECT_EQ(RunClient({"ioctl", "ignition", "15"}).output, "on\n");
    EXPECT_TRUE(
        Reported(RunClient({"ioctl", "set-voltage", "5000:15"}), "ioctl 702 voltage 5000 pin 15"));
    EXPECT_TRUE(
        Reported(RunClient({"ioctl", "start-filter", "pass:1:FF:07,block-uudt:2:F0F0:1020"}),
                 "ioctl 704 filters 1:1:FF:07 18:2:F0F0:1020"));
    EXPECT_TRUE(Reported(RunClient({"ioctl", "706", "number=0x10"}), "ioctl 706 number 16"));
    EXPECT_TRUE(Reported(RunClient({"ioctl", "706", "switch=on"}), "ioctl 706 item type 6145"));
    EXPECT_TRUE(
        Reported(RunClient({"ioctl", "706", "vehicle=vin:ABC:all:5"}), "ioctl 706 item type 6144"));
    EXPECT_TRUE(
        Reported(RunClient({"ioctl", "706", "queue=10:circular"}), "ioctl 706 item type 4100"));
}

TEST(DpduIoCtl, OutputsOfEveryTypeAreShown) {
    const ClientResult bytes = RunClient({"ioctl", "generic", "0102"});
    EXPECT_EQ(bytes.output, "CA FE\n");
    EXPECT_TRUE(Reported(bytes, "ioctl 703 bytes 0102"));
    const ClientResult entity = RunClient({"ioctl", "entity-status", "0xE80:100"});
    EXPECT_EQ(entity.output, "node, 2 of 4 sockets open, longest request 4096 bytes\n");
    EXPECT_TRUE(Reported(entity, "ioctl 705 address 3712 wait 100"));
    EXPECT_EQ(RunClient({"ioctl", "reset"}).output, "done\n");
    const Json json = Document(RunClient({"ioctl", "battery", "--json"}));
    EXPECT_EQ(json["command"], "PDU_IOCTL_READ_VBATT");
    EXPECT_EQ(json["output"]["value"], 12034);
    EXPECT_TRUE(Document(RunClient({"ioctl", "reset", "--json"}))["output"].is_null());
}

TEST(DpduIoCtl, RefusalAndUnknownNameAreFailures) {
    ExpectFailure(RunClient({"ioctl", "9999"}),
                  "PDUIoCtl failed with PDU_ERR_ID_NOT_SUPPORTED (0x62)");
    const ClientResult unknown = RunClient({"ioctl", "PDU_IOCTL_UNHEARD"});
    EXPECT_EQ(unknown.exit_code, kFailure);
    EXPECT_TRUE(Contains(unknown.error, "does not know the name 'PDU_IOCTL_UNHEARD'"));
}

TEST(DpduIoCtl, InputOfAnotherFormIsAMistakeAndTheFormIsShown) {
    ExpectMistakes({"ioctl"},
                   {{"set-voltage", "5000"},
                    {"set-voltage", "a:1"},
                    {"start-filter", "let:1:F:1"},
                    {"ethernet-switch", "x"},
                    {"ethernet-switch", "on:8:1"},
                    {"event-queue", "5:round"},
                    {"entity-status"},
                    {"generic", "xyz"}},
                   "is not an input of the form ");
}

TEST(DpduIoCtl, InputThatTheCommandDoesNotTakeIsAMistake) {
    ExpectMistakes({"ioctl", "start-filter"}, {{"pass:1:FF:0102"}}, "need the same length");
    ExpectMistakes({"ioctl", "battery"}, {{"1"}}, "needs its type");
    ExpectMistakes({"ioctl", "battery"}, {{"car=1"}}, "is not a type of input");
    ExpectMistakes({"ioctl", "reset"}, {{"none=1"}}, "takes no input");
}

// ---------------------------------------------------------------------------------------------

TEST(DpduTesterPresent, StartsAndStopsCommunicationWithPeriodAndMessage) {
    const ClientResult result = RunClient(
        {"tester-present", "--period", "500", "--message", "3E00", "--time", "0.2", "--json"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Reported(result, "tester present 3E00 every 500000"));
    EXPECT_TRUE(Reported(result, "stopcomm"));
    EXPECT_EQ(Document(result)["periodMs"], 500);
    EXPECT_EQ(Document(result)["to"], "7E0:7E8");
}

TEST(DpduTesterPresent, InterruptionIsTheNormalEndAndStopsCommunication) {
    const ClientResult result =
        RunInterrupted({"tester-present"}, "tester present 3E80 every 2000000");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Reported(result, "stopcomm"));
    EXPECT_TRUE(Contains(result.output, "tester present 3E80 to 7E0:7E8 every 2000 ms for "));
    EXPECT_FALSE(Reported(result, "disconnected while started"));
}

// ---------------------------------------------------------------------------------------------

// The events without their time of day.
std::vector<std::string> EventTexts(const ClientResult& result) {
    std::vector<std::string> texts;
    for (const Json& event : DocumentLines(result)) {
        texts.push_back(event["source"].get<std::string>() + ": " +
                        event["text"].get<std::string>());
    }
    return texts;
}

bool HasEvent(const std::vector<std::string>& texts, const std::string& wanted) {
    return std::any_of(texts.begin(), texts.end(),
                       [&wanted](const std::string& text) { return text.starts_with(wanted); });
}

TEST(DpduMonitor, ShowsModuleLinkRequestAndAnswerAsTheyOccur) {
    const ClientResult result =
        RunClient({"monitor", "22F190", "--period", "10", "--count", "12", "--json"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    const std::vector<std::string> texts = EventTexts(result);
    ASSERT_EQ(texts.size(), 12u);
    EXPECT_TRUE(texts[0].starts_with("module 5: PDU_MODST_AVAIL  VendorName='Other'")) << texts[0];
    EXPECT_TRUE(texts[1].starts_with("module 5: PDU_MODST_READY")) << texts[1];
    EXPECT_EQ(texts[2], "link 40: PDU_CLLST_ONLINE");
    EXPECT_EQ(texts[3], "request 100: PDU_COPST_FINISHED");
    EXPECT_TRUE(
        HasEvent(texts, "request 101: sent 22 F1 90  ReadDataByIdentifier F190 VINDataIdentifier"));
    EXPECT_TRUE(HasEvent(texts, "request 101: PDU_COPST_EXECUTING"));
    EXPECT_TRUE(HasEvent(texts, "request 101: answer 62 F1 90"));
    EXPECT_TRUE(HasEvent(texts, "request 102: sent 22 F1 90"));
}

TEST(DpduMonitor, RecoversWhenTheModuleIsUnpluggedAndComesBack) {
    const ClientResult result = RunInterrupted({"monitor", "22F190", "--period", "20", "--json"},
                                               "answered after recovery", "unplugged");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    const std::vector<std::string> texts = EventTexts(result);
    EXPECT_TRUE(HasEvent(texts, "system: the list of modules has changed"));
    EXPECT_TRUE(HasEvent(texts, "module 5: the module is gone"));
    EXPECT_TRUE(HasEvent(texts, "monitor: starting the library again"));
    EXPECT_EQ(CountReported(result, "construct without options"), 2);
    EXPECT_EQ(CountReported(result, "destruct items=0 links=0 modules=0"), 2);
}

TEST(DpduMonitor, ErrorOfARequestIsAnEventAndDoesNotEndIt) {
    const ClientResult result = RunClient(
        {"monitor", "3E00", "--ecu", "7E3:7EB", "--period", "10", "--count", "12", "--json"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    const std::vector<std::string> texts = EventTexts(result);
    EXPECT_TRUE(HasEvent(texts, "request 101: error: no answer, or none that was expected"));
    EXPECT_TRUE(HasEvent(texts, "request 102: sent 3E 00"));
}

TEST(DpduMonitor, WithoutAModuleItWaitsAndInterruptionEndsItSuccessfully) {
    const ClientResult waiting = RunClient({"monitor", "--time", "0.3"}, "no-module");
    EXPECT_EQ(waiting.exit_code, kOk);
    EXPECT_EQ(waiting.output, "");
    const ClientResult result = RunInterrupted({"monitor", "3E00"}, "startcomm");
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.output, "link 40     PDU_CLLST_ONLINE\n")) << result.output;
}

TEST(DpduMonitor, LibraryThatCannotBeConstructedIsAFailure) {
    EXPECT_EQ(RunClient({"monitor", "--time", "5"}, "refuses-construct").exit_code, kFailure);
}

}  // namespace
