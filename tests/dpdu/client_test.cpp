// The client program as seen by its user, with another vendor's library.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client_run.h"
#include "path_text.h"

namespace {

namespace fs = std::filesystem;

// ---------------------------------------------------------------------------------------------

TEST(DpduLibrary, PathThatDoesNotExistGivesOneLineWithAdvice) {
    const ClientResult result = RunClient({"modules", "--library", "/nowhere/to_be_found"});
    EXPECT_EQ(result.exit_code, kNoLibrary);
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(IsOneErrorLine(result.error)) << result.error;
    EXPECT_TRUE(Contains(result.error, "cannot load the library '/nowhere/to_be_found'"));
    EXPECT_TRUE(Contains(result.error, "--library, --vendor or DPDU_LIBRARY"));
}

TEST(DpduLibrary, FileThatIsNotALibraryGivesOneLineWithAdvice) {
    const std::string path = TemporaryPath("text.dll");
    std::ofstream(PathOf(path)) << "not a library\n";
    const ClientResult result = RunClient({"modules", "--library", path});
    RemoveFile(path);
    EXPECT_EQ(result.exit_code, kNoLibrary);
    EXPECT_TRUE(IsOneErrorLine(result.error)) << result.error;
    EXPECT_TRUE(Contains(result.error, "cannot load the library '" + path + "'")) << result.error;
}

TEST(DpduLibrary, IncompleteLibraryIsRefusedNamingTheFirstMissingFunction) {
    const ClientResult result = RunClient({"modules", "--library", INCOMPLETE_LIBRARY});
    EXPECT_EQ(result.exit_code, kNoLibrary);
    EXPECT_TRUE(IsOneErrorLine(result.error)) << result.error;
    EXPECT_TRUE(Contains(result.error, "it lacks PDUIoCtl and 26 more functions"));
    EXPECT_TRUE(Contains(result.error, "--library, --vendor or DPDU_LIBRARY"));
}

TEST(DpduLibrary, OptionOverridesEnvironment) {
    ClientSetup setup;
    setup.arguments = {"modules", "--library", FAKE_LIBRARY};
    setup.library = "/nowhere/to_be_found";
    EXPECT_EQ(RunClient(setup).exit_code, kOk);
}

TEST(DpduLibrary, WithoutOptionAndEnvironmentTheOneBesideTheProgramIsLoaded) {
    const fs::path folder = PathOf(TemporaryPath("beside"));
    fs::create_directory(folder);
    ClientSetup setup;
    setup.program = TextOf(folder / fs::path(DPDU_PROGRAM).filename());
    setup.arguments = {"modules"};
    setup.has_library = false;
    fs::copy_file(DPDU_PROGRAM, PathOf(setup.program));

    const bool is_dll = fs::path(FAKE_LIBRARY).extension() == ".dll";
    const fs::path library = folder / (is_dll ? "tarvik_dpdu_x64.dll" : "libtarvik_dpdu_x64.so");
    const ClientResult without = RunClient(setup);
    EXPECT_EQ(without.exit_code, kNoLibrary);
    EXPECT_TRUE(Contains(without.error, library.filename().string())) << without.error;
    fs::copy_file(FAKE_LIBRARY, library);
    EXPECT_EQ(RunClient(setup).exit_code, kOk);
    // The same library, named in the other ways.
    setup.program = "";
    setup.has_library = true;
    setup.library = TextOf(library);
    EXPECT_EQ(RunClient(setup).exit_code, kOk);
    setup.library = "/nowhere/to_be_found";
    setup.arguments = {"modules", "--library", TextOf(library)};
    EXPECT_EQ(RunClient(setup).exit_code, kOk);
    fs::remove_all(folder);
}

TEST(DpduLibrary, ItsOwnPrintingDoesNotMixWithTheAnswers) {
    const ClientResult quiet = RunClient({"vin"});
    EXPECT_EQ(quiet.output, "TESTV1N0000000001\n");
    EXPECT_EQ(quiet.error, "");
    const ClientResult verbose = RunClient({"vin", "--verbose"});
    EXPECT_EQ(verbose.output, "TESTV1N0000000001\n");
    EXPECT_TRUE(Contains(verbose.error, "[fake] constructing\n"));
    EXPECT_TRUE(Contains(verbose.error, "[fake] working\n"));
}

TEST(DpduLibrary, RefusalToConstructIsReportedWithFunctionAndStatus) {
    ExpectFailure(RunClient({"modules"}, "refuses-construct"),
                  "PDUConstruct failed with PDU_ERR_FCT_FAILED (0x01)");
}

TEST(DpduLibrary, OptionStringIsPassedToConstruct) {
    EXPECT_TRUE(Reported(RunClient({"modules"}), "construct without options"));
    const ClientResult result = RunClient({"modules", "--library-options", "a='b c'"});
    EXPECT_TRUE(Reported(result, "construct a='b c'"));
}

// ---------------------------------------------------------------------------------------------

TEST(DpduModules, ListsNameSerialNumberConnectionAndState) {
    ExpectOutput(RunClient({"modules"}, "two-modules"),
                 "HANDLE  NAME   SERIAL  CONNECTION  STATE\n"
                 "5       Probe  S-1     USB         PDU_MODST_AVAIL\n"
                 "6       Probe  S-2     WLAN        PDU_MODST_AVAIL\n");
}

TEST(DpduModules, JsonAlsoContainsTheVendorsTexts) {
    const Json modules = Document(RunClient({"modules", "--json"}))["modules"];
    ASSERT_EQ(modules.size(), 1u);
    EXPECT_EQ(modules[0]["handle"], 5);
    EXPECT_EQ(modules[0]["serialNumber"], "S-1");
    EXPECT_EQ(modules[0]["state"], "PDU_MODST_AVAIL");
    EXPECT_EQ(modules[0]["vendorModuleName"],
              "VendorName='Other' ModuleName='Probe' SerialNumber='S-1' ConnectionType='USB'");
    EXPECT_EQ(modules[0]["vendorAdditionalInfo"], "Interface='wire'");
}

TEST(DpduModules, NoModuleIsAFailureWithAnEmptyList) {
    const ClientResult result = RunClient({"modules", "--wait", "0", "--json"}, "no-module");
    ExpectFailure(result, "no module found", kNoModule);
    EXPECT_EQ(Document(result), Json({{"modules", Json::array()}}));
}

TEST(DpduModules, LateModuleIsAwaited) {
    EXPECT_EQ(RunClient({"vin", "--wait", "60"}, "late-module").output, "TESTV1N0000000001\n");
}

TEST(DpduModules, SeveralModulesRequireAChoice) {
    ExpectFailure(RunClient({"vin"}, "two-modules"),
                  "2 modules found, choose one with --module TEXT: S-1 USB; S-2 WLAN", kUsage);
}

TEST(DpduModules, ModuleIsChosenByAnyPartOfItsNameIgnoringCase) {
    const ClientResult result = RunClient({"vin", "--module", "wlan"}, "two-modules");
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_TRUE(Reported(result, "module 6"));
}

TEST(DpduModules, SlowScanIsAnnouncedOnceOnStandardError) {
    const ClientResult result = RunClient({"modules"}, "slow-scan");
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.progress, "dpdu: looking for a module...\n");
}

// ---------------------------------------------------------------------------------------------

TEST(DpduVersion, ShowsVersionsAndDatesDecoded) {
    const ClientResult result = RunClient({"version"});
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_TRUE(Contains(result.output, "Library        Other D-PDU")) << result.output;
    EXPECT_TRUE(Contains(result.output, "7.8.9")) << result.output;
    EXPECT_TRUE(Contains(result.output, "2024-05-22")) << result.output;
}

TEST(DpduVersion, JsonHasATextThatFillsItsWholeField) {
    const Json document = Document(RunClient({"version", "--json"}));
    EXPECT_EQ(document["vendor"], std::string(64, 'V'));
    EXPECT_EQ(document["iso22900Part1"], "2.1.0");
    EXPECT_EQ(document["iso22900Part2"], "2.2.0");
    EXPECT_EQ(document["hardwareSerialNumber"], 4711);
    EXPECT_EQ(document["hardware"]["version"], "1.2.3");
    EXPECT_EQ(document["firmware"]["name"], "probe-fw");
    EXPECT_EQ(document["library"]["date"], "2024-05-22");
}

// ---------------------------------------------------------------------------------------------

TEST(DpduRequest, SingleAnswerIsPrintedAsHexadecimalOnly) {
    ExpectOutput(RunClient({"request", "22", "F1", "90"}),
                 "62 F1 90 54 45 53 54 56 31 4E 30 30 30 30 30 30 30 30 30 31\n");
}

TEST(DpduRequest, BytesMayHaveAnyOfTheFormsInOneArgumentOrSeveral) {
    const std::string answer = "62 F1 90 54 45 53 54 56 31 4E 30 30 30 30 30 30 30 30 30 31\n";
    for (const std::vector<std::string>& form : std::vector<std::vector<std::string>>{
             {"22F190"}, {"22 F1 90"}, {"22:F1:90"}, {"0x22", "0xF1", "0x90"}}) {
        std::vector<std::string> arguments = {"request"};
        arguments.insert(arguments.end(), form.begin(), form.end());
        ExpectOutput(RunClient(arguments), answer);
    }
}

TEST(DpduRequest, BytesAreReadFromStandardInput) {
    ClientSetup setup;
    setup.arguments = {"request", "-"};
    setup.input = "22:F1:A4\n";
    ExpectOutput(RunClient(setup), "62 F1 A4\n");
    setup.arguments = {"functional", "-", "--units", "7E0"};
    setup.input = "3E 00";
    EXPECT_TRUE(Contains(RunClient(setup).output, "7E 00"));
    setup.input = "3E 0";
    const ClientResult broken = RunClient(setup);
    EXPECT_EQ(broken.exit_code, kUsage);
    EXPECT_TRUE(Contains(broken.error, "standard input '3E 0' is not")) << broken.error;
    EXPECT_EQ(RunClient({"request", "-"}).exit_code, kUsage);  // nothing to read
}

TEST(DpduRequest, BrokenOrMixedBytesAreAMistakeThatShowsTheForms) {
    ExpectMistakes({"request"}, {{"22F19"}, {"22", "F1:90"}, {"0x22", "F1"}, {"22F1", "90"}},
                   "22F190, 22 F1 90, 22:F1:90 or 0x22 0xF1 0x90");
}

TEST(DpduRequest, WithDecodeASecondLineSaysWhatTheAnswerMeans) {
    ExpectOutput(RunClient({"request", "22F190", "--decode"}),
                 "62 F1 90 54 45 53 54 56 31 4E 30 30 30 30 30 30 30 30 30 31\n"
                 "  ReadDataByIdentifier F190 VINDataIdentifier \"TESTV1N0000000001\"\n");
    EXPECT_EQ(RunClient({"request", "22F190", "--ecu", "7E2:7EA", "--decode"}).output,
              "7F 22 31\n"
              "  ReadDataByIdentifier F190 VINDataIdentifier: negative response requestOutOfRange "
              "(0x31)\n");
}

TEST(DpduRequest, JsonHasRequestAndAnswerDecoded) {
    const Json document = Document(RunClient({"request", "22F190", "--json"}));
    EXPECT_EQ(document["decodedRequest"]["text"], "ReadDataByIdentifier F190 VINDataIdentifier");
    const Json& decoded = document["controlUnits"][0]["answers"][0]["decoded"];
    EXPECT_EQ(decoded["service"], "ReadDataByIdentifier");
    EXPECT_EQ(decoded["data"][0]["identifier"], "F190");
    EXPECT_EQ(decoded["data"][0]["name"], "VINDataIdentifier");
    EXPECT_EQ(decoded["data"][0]["text"], "TESTV1N0000000001");
}

TEST(DpduRequest, NegativeAnswerIsExplainedAndFails) {
    const ClientResult result = RunClient({"request", "22F190", "--ecu", "7E2:7EA"});
    ExpectFailure(result, "7E2:7EA: negative response requestOutOfRange (0x31) to service 0x22",
                  kNegativeResponse);
    EXPECT_EQ(result.output, "7F 22 31\n");
}

TEST(DpduRequest, MissingAnswerIsExplainedAndFails) {
    const ClientResult result = RunClient({"request", "22F190", "--ecu", "7E3:7EB"});
    ExpectFailure(result, "7E3:7EB: no answer, or none that was expected (PDU_ERR_EVT_RX_TIMEOUT)",
                  kNoAnswer);
    EXPECT_EQ(result.output, "");
}

TEST(DpduRequest, IdentifiersOf29BitsAreSetWithTheirFormat) {
    EXPECT_EQ(RunClient({"request", "1003", "--ecu", "18DA10F1:18DAF110"}).output, "50 03\n");
}

TEST(DpduRequest, SeveralControlUnitsAreAskedInTurnAndOneFailureDoesNotStopTheOthers) {
    const ClientResult result =
        RunClient({"request", "3E00", "--ecu", "7E3:7EB", "--ecu", "7E0:7E8", "--ecu", "7E1:7E9"});
    ExpectFailure(result, "1 of 3 control units did not do as asked", kNoAnswer);
    EXPECT_EQ(result.output,
              "7E3:7EB  -      no answer, or none that was expected (PDU_ERR_EVT_RX_TIMEOUT)\n"
              "7E0:7E8  7E 00  TesterPresent zeroSubFunction\n"
              "7E1:7E9  7E 00  TesterPresent zeroSubFunction\n");
}

TEST(DpduRequest, FunctionalRequestPrintsARowForEachControlUnitOfTheTable) {
    const ClientResult result = RunClient({"request", "3E00", "--functional", "7DF", "--ecu",
                                           "7E0:7E8", "--ecu", "7E3:7EB", "--ecu", "7E1:7E9"});
    EXPECT_EQ(result.exit_code, kNoAnswer);
    EXPECT_EQ(result.output,
              "7E0:7E8  7E 00  TesterPresent zeroSubFunction\n"
              "7E3:7EB  -      no answer\n"
              "7E1:7E9  7E 00  TesterPresent zeroSubFunction\n");
}

TEST(DpduRequest, FunctionalRequestAnsweredByAllSucceeds) {
    const ClientResult result = RunClient({"request", "22F190", "--functional", "7DF", "--ecu",
                                           "7E0:7E8", "--ecu", "7E1:7E9", "--json"});
    EXPECT_EQ(result.exit_code, kOk);
    const Json document = Document(result);
    EXPECT_EQ(document["request"], "22F190");
    EXPECT_EQ(document["functionalId"], "7DF");
    ASSERT_EQ(document["controlUnits"].size(), 2u);
    EXPECT_EQ(document["controlUnits"][1]["responseId"], "7E9");
    EXPECT_EQ(document["controlUnits"][1]["answers"][0]["data"],
              "62F1905445535456314E30303030303030303032");
}

TEST(DpduRequest, JsonNamesTheNegativeResponse) {
    const Json document = Document(RunClient({"request", "22F190", "--ecu", "7E2:7EA", "--json"}));
    const Json& answer = document["controlUnits"][0]["answers"][0];
    EXPECT_EQ(answer["data"], "7F2231");
    EXPECT_EQ(answer["acceptanceId"], 2);
    EXPECT_EQ(answer["negativeResponse"]["code"], 0x31);
    EXPECT_EQ(answer["negativeResponse"]["name"], "requestOutOfRange");
    EXPECT_EQ(answer["timestampUs"], 1234567);
}

TEST(DpduRequest, ExpectedResponsesReachTheLibraryInOrderWithTheirMasks) {
    const Json matched = Document(
        RunClient({"request", "3E00", "--expect", "FFFF", "--expect", "70AA/F000", "--json"}));
    EXPECT_EQ(matched["controlUnits"][0]["answers"][0]["acceptanceId"], 2);
    const ClientResult unmatched = RunClient({"request", "3E00", "--expect", "7E01"});
    EXPECT_EQ(unmatched.exit_code, kNoAnswer);
    EXPECT_EQ(unmatched.output, "");
}

TEST(DpduRequest, TimingReachesTheLibraryInMicroseconds) {
    EXPECT_EQ(RunClient({"request", "22F1A0"}).output, "62 F1 A0 00 0F 42 40\n");  // 1 s
    EXPECT_EQ(RunClient({"request", "22F1A0", "--p2", "150"}).output, "62 F1 A0 00 02 49 F0\n");
    EXPECT_EQ(RunClient({"request", "22F1A1", "--p2-star", "2000"}).output,
              "62 F1 A1 00 1E 84 80\n");
}

TEST(DpduRequest, TesterPresentIsOffUnlessAskedFor) {
    EXPECT_EQ(RunClient({"request", "22F1A2"}).output, "62 F1 A2 00 00 00 00\n");
    EXPECT_EQ(RunClient({"request", "22F1A4"}).output, "62 F1 A4\n");
    const std::vector<std::string> on = {"--tester-present", "2"};
    EXPECT_EQ(RunClient({"request", "22F1A2", on[0], on[1]}).output, "62 F1 A2 00 00 00 01\n");
    EXPECT_EQ(RunClient({"request", "22F1A3", on[0], on[1]}).output, "62 F1 A3 00 00 07 D0\n");
    EXPECT_EQ(RunClient({"request", "22F1A4", on[0], on[1]}).output, "62 F1 A4 3E 80\n");
}

TEST(DpduRequest, AnyComParamCanBeSetBeforeTheRequest) {
    EXPECT_EQ(RunClient({"request", "22F1A1", "--param", "CP_P2Star=0x10"}).output,
              "62 F1 A1 00 00 00 10\n");
    ExpectFailure(RunClient({"request", "22F190", "--param", "CP_Unheard=1"}),
                  "7E0:7E8: the library has no ComParam 'CP_Unheard' on this link");
    const ClientResult unfit = RunClient({"request", "22F190", "--param", "CP_P2Star=soon"});
    EXPECT_EQ(unfit.exit_code, kUsage);
    EXPECT_TRUE(Contains(unfit.error, "'soon' is not a value of this ComParam")) << unfit.error;
}

TEST(DpduRequest, UnknownProtocolIsNamedInTheError) {
    const ClientResult result = RunClient({"request", "22F190", "--protocol", "ISO_UNHEARD"});
    EXPECT_EQ(result.exit_code, kFailure);
    EXPECT_TRUE(Contains(result.error, "the library does not know the name 'ISO_UNHEARD'"));
}

TEST(DpduRequest, RefusedLinkIsReportedWithFunctionAndStatus) {
    ExpectFailure(RunClient({"request", "22F190"}, "refuses-link"),
                  "7E0:7E8: PDUCreateComLogicalLink failed with PDU_ERR_RESOURCE_BUSY (0x30)");
}

TEST(DpduRequest, ErrorOfTheLinkItselfIsReported) {
    ExpectFailure(RunClient({"request", "22F190"}, "lost-module"),
                  "7E0:7E8: the module is gone (PDU_ERR_EVT_LOST_COMM_TO_VCI)", kModuleLost);
}

TEST(DpduRequest, RequestThatNeverEndsIsCancelledAfterTheTimeout) {
    const ClientResult result =
        RunClient({"request", "22F190", "--ecu", "7E5:7ED", "--timeout", "3"});
    EXPECT_EQ(result.exit_code, kNoAnswer);
    EXPECT_TRUE(Contains(result.error,
                         "dpdu: 7E5:7ED: the library did not finish the request within 3 s; "))
        << result.error;
    EXPECT_TRUE(Reported(result, "cancelled"));
}

TEST(DpduRequest, InterruptionCancelsTheRequestAndReleasesEverything) {
    ClientSetup setup;
    setup.arguments = {"request", "22F190", "--ecu", "7E5:7ED", "--ecu", "7E0:7E8"};
    setup.interrupt_when = "hanging";
    const ClientResult result = RunClient(setup);
    EXPECT_EQ(result.exit_code, kInterrupted);
    EXPECT_TRUE(Contains(result.error, "dpdu: interrupted\n")) << result.error;
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(Reported(result, "cancelled"));
}

TEST(DpduRequest, InterruptionStopsTesterPresentBeforeTheLinkIsDestroyed) {
    ClientSetup setup;
    setup.arguments = {"request", "22F190", "--ecu", "7E5:7ED", "--tester-present", "500"};
    setup.interrupt_when = "hanging";
    const ClientResult result = RunClient(setup);
    EXPECT_TRUE(Reported(result, "stopcomm"));
    EXPECT_FALSE(Reported(result, "disconnected while started"));
}

// ---------------------------------------------------------------------------------------------

TEST(DpduVin, SeveralControlUnitsHaveARowEach) {
    const ClientResult result = RunClient(
        {"vin", "--ecu", "7E0:7E8", "--ecu", "7E1:7E9", "--ecu", "7E2:7EA", "--ecu", "7E4:7EC"});
    ExpectFailure(result, "2 of 4 control units did not do as asked");
    EXPECT_EQ(result.output,
              "7E0:7E8  TESTV1N0000000001\n"
              "7E1:7E9  TESTV1N0000000002\n"
              "7E2:7EA  -                  negative response requestOutOfRange (0x31) to service "
              "0x22\n"
              "7E4:7EC  SHORT              not a well-formed VIN: 'SHORT'\n");
}

TEST(DpduVin, JsonHasNullForAMissingVin) {
    const Json units = Document(
        RunClient({"vin", "--ecu", "7E0:7E8", "--ecu", "7E3:7EB", "--json"}))["controlUnits"];
    ASSERT_EQ(units.size(), 2u);
    EXPECT_EQ(units[0]["vin"], "TESTV1N0000000001");
    EXPECT_FALSE(units[0].contains("error"));
    EXPECT_TRUE(units[1]["vin"].is_null());
    EXPECT_TRUE(units[1].contains("error"));
}

TEST(DpduDtc, ShowsCodeStatusByteAndStatusBits) {
    ExpectOutput(RunClient({"dtc", "--ecu", "7E0:7E8", "--ecu", "7E1:7E9"}),
                 "7E0:7E8: 2 trouble codes\n"
                 "  P0301-00  2F  testFailed, testFailedThisOperationCycle, pendingDTC, "
                 "confirmedDTC, testFailedSinceLastClear\n"
                 "  U0123-16  04  pendingDTC\n"
                 "7E1:7E9: no trouble codes\n");
}

TEST(DpduDtc, MaskIsSentInTheRequest) {
    const Json units = Document(RunClient({"dtc", "--mask", "08", "--json"}))["controlUnits"];
    ASSERT_EQ(units[0]["troubleCodes"].size(), 1u);
    EXPECT_EQ(units[0]["troubleCodes"][0]["code"], "P0301-00");
    EXPECT_EQ(units[0]["troubleCodes"][0]["raw"], "030100");
    EXPECT_EQ(units[0]["troubleCodes"][0]["status"], "2F");
    EXPECT_EQ(units[0]["troubleCodes"][0]["statusFlags"][0], "testFailed");
    EXPECT_EQ(units[0]["statusAvailabilityMask"], "FF");
}

TEST(DpduDtc, AnswerThatEndsWithinATroubleCodeIsAFailure) {
    ExpectFailure(RunClient({"dtc", "--ecu", "7E4:7EC"}), "7E4:7EC: unexpected answer 5902FF0301");
}

TEST(DpduDtc, NegativeAnswerIsExplained) {
    ExpectFailure(RunClient({"dtc", "--ecu", "7E2:7EA"}),
                  "7E2:7EA: negative response serviceNotSupported (0x11) to service 0x19",
                  kNegativeResponse);
}

// ---------------------------------------------------------------------------------------------

TEST(DpduComParam, GetShowsTheLibrarysValuesOfEveryType) {
    ExpectOutput(RunClient({"comparam", "get", "CP_P2Max", "CP_T1Max", "CP_TesterPresentMessage",
                            "CP_CanBaudrateRecord", "CP_SessionTimingOverride"}),
                 "CP_P2Max                  150000          PDU_PT_UNUM32       PDU_PC_TIMING\n"
                 "CP_T1Max                  -3              PDU_PT_SNUM16       PDU_PC_TIMING\n"
                 "CP_TesterPresentMessage                   PDU_PT_BYTEFIELD    "
                 "PDU_PC_TESTER_PRESENT\n"
                 "CP_CanBaudrateRecord      500000,250000   PDU_PT_LONGFIELD    PDU_PC_BUSTYPE\n"
                 "CP_SessionTimingOverride  769:0:50:1:244  PDU_PT_STRUCTFIELD  PDU_PC_TIMING\n");
}

TEST(DpduComParam, SetShowsTheResultingValuesOfEveryType) {
    const Json params = Document(RunClient(
        {"comparam", "set", "CP_P2Max=0x100", "CP_T1Max=-300", "CP_TesterPresentMessage=3E80",
         "CP_CanBaudrateRecord=1,2,3", "CP_SessionTimingOverride=1:2:3:4:5,6:7:8:9:10",
         "CP_RequestAddrMode=2", "--json"}))["comParams"];
    ASSERT_EQ(params.size(), 6u);
    EXPECT_EQ(params[0]["value"], 256);
    EXPECT_EQ(params[0]["name"], "CP_P2Max");
    EXPECT_EQ(params[0]["id"], 901);
    EXPECT_EQ(params[0]["type"], "PDU_PT_UNUM32");
    EXPECT_EQ(params[0]["class"], "PDU_PC_TIMING");
    EXPECT_EQ(params[1]["value"], -300);
    EXPECT_EQ(params[2]["value"], "3E80");
    EXPECT_EQ(params[3]["value"], Json({1, 2, 3}));
    EXPECT_EQ(params[4]["value"], Json::parse("[[1, 2, 3, 4, 5], [6, 7, 8, 9, 10]]"));
    EXPECT_EQ(params[5]["value"], 2);
}

TEST(DpduComParam, RefusedValueIsReportedWithTheStatus) {
    const ClientResult result = RunClient({"comparam", "set", "CP_Baudrate=0", "--json"});
    const std::string message =
        "the library refused CP_Baudrate=0 with PDU_ERR_VALUE_NOT_SUPPORTED (0x61)";
    ExpectFailure(result, message);
    EXPECT_EQ(Document(result), Json({{"error", message}, {"exitCode", kFailure}}));
}

TEST(DpduComParam, UnknownNameIsAFailure) {
    ExpectFailure(RunClient({"comparam", "get", "CP_Unheard"}),
                  "the library has no ComParam 'CP_Unheard' on this link");
}

TEST(DpduComParam, ListShowsKnownComParamsAndFilters) {
    EXPECT_EQ(Document(RunClient({"comparam", "list", "--json"}))["comParams"].size(), 16u);
    const Json filtered =
        Document(RunClient({"comparam", "list", "--filter", "TesterPresent", "--json"}));
    ASSERT_EQ(filtered["comParams"].size(), 3u);
    EXPECT_EQ(filtered["comParams"][0]["name"], "CP_TesterPresentHandling");
    ExpectFailure(RunClient({"comparam", "list", "--filter", "Unheard"}),
                  "no ComParam whose name contains 'Unheard'");
}

// ---------------------------------------------------------------------------------------------

TEST(DpduHelp, EveryCommandShowsExamplesAndExitCodes) {
    const std::vector<std::vector<std::string>> commands = {
        {"modules"},    {"version"},         {"request"},         {"vin"},
        {"dtc"},        {"comparam", "get"}, {"comparam", "set"}, {"comparam", "list"},
        {"functional"}, {"objects"},         {"ioctl"},           {"tester-present"},
        {"monitor"},    {"raw", "send"},     {"raw", "listen"}};
    for (std::vector<std::string> arguments : commands) {
        arguments.emplace_back("--help");
        const ClientResult result = RunClient(arguments);
        EXPECT_EQ(result.exit_code, kOk);
        EXPECT_EQ(result.error, "");
        EXPECT_TRUE(Contains(result.output, "\nExamples:\n  dpdu " + arguments[0]))
            << result.output;
        EXPECT_TRUE(Contains(result.output, "\nExit codes:\n    0")) << result.output;
        EXPECT_TRUE(Contains(result.output, "--json")) << result.output;
    }
}

// ---------------------------------------------------------------------------------------------

TEST(DpduFailure, MissingModuleAndMissingAnswerSayWhatToDoNext) {
    EXPECT_EQ(RunClient({"modules", "--wait", "0"}, "no-module").error,
              "dpdu: no module found; dpdu doctor finds out why\n");
    EXPECT_EQ(RunClient({"request", "22F190", "--ecu", "7E3:7EB"}).error,
              "dpdu: 7E3:7EB: no answer, or none that was expected (PDU_ERR_EVT_RX_TIMEOUT); check "
              "ignition and address, dpdu scan lists control units\n");
    EXPECT_EQ(RunClient({"request", "22F190"}, "lost-module").error,
              "dpdu: 7E0:7E8: the module is gone (PDU_ERR_EVT_LOST_COMM_TO_VCI); check its plug or "
              "connection and try again, dpdu doctor helps\n");
}

ClientResult RunWithoutReader(const std::vector<std::string>& arguments) {
    ClientSetup setup;
    setup.arguments = arguments;
    setup.has_reader = false;
    return RunClient(setup);
}

TEST(DpduFailure, OutputThatNobodyReadsEndsTheProgramWithoutALine) {
    const std::vector<std::vector<std::string>> commands = {
        {"objects"}, {"vin", "--json"}, {"monitor"}, {"raw", "listen"}};
    for (const std::vector<std::string>& command : commands) {
        SCOPED_TRACE(command.front());
        const ClientResult result = RunWithoutReader(command);
        EXPECT_EQ(result.exit_code, kReaderGone);
        EXPECT_EQ(result.error, "");
    }
}

TEST(DpduFailure, DocumentThatNobodyReadsLeavesTheLineOfTheFailure) {
    const ClientResult result = RunWithoutReader({"ioctl", "9999", "--json"});
    EXPECT_EQ(result.exit_code, kReaderGone);
    EXPECT_TRUE(IsOneErrorLine(result.error)) << result.error;
}

TEST(DpduFailure, LostModuleCountsMoreThanNegativeAndMissingAnswers) {
    const std::vector<std::string> units = {"request", "22F190", "--ecu", "7E2:7EA"};
    EXPECT_EQ(RunClient(units).exit_code, kNegativeResponse);
    std::vector<std::string> more = units;
    more.insert(more.end(), {"--ecu", "7E3:7EB"});
    EXPECT_EQ(RunClient(more).exit_code, kNoAnswer);
    EXPECT_EQ(RunClient(more, "lost-module").exit_code, kModuleLost);
}

TEST(DpduUsage, MistakeGivesOneLineAndExitCode2WithoutUsingTheLibrary) {
    ExpectMistakes({}, {{}, {"frobnicate"}, {"vin", "--frobnicate"}, {"request"}, {"comparam"}});
}

}  // namespace
