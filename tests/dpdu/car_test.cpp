// The client program with this project's library, a simulated dongle on a serial port and the
// demonstration car.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "car_run.h"
#include "conformance/framework/simulator.h"
#include "path_text.h"
#include "root/own_entry.h"

namespace {

namespace fs = std::filesystem;

class DpduCar : public testing::Test {
protected:
    static void SetUpTestSuite() { ConfigureLibrary(); }

    static ClientResult Run(const std::vector<std::string>& arguments) {
        return RunWithCar(arguments);
    }
    // The same for a command that succeeds.
    static ClientResult RunSuccessfully(const std::vector<std::string>& arguments) {
        ClientResult result = Run(arguments);
        EXPECT_EQ(result.exit_code, kOk) << result.error;
        return result;
    }
};

TEST_F(DpduCar, DongleIsListed) {
    const Json modules = Document(RunSuccessfully({"modules", "--json"}))["modules"];
    ASSERT_EQ(modules.size(), 1u);
    EXPECT_EQ(modules[0]["name"], "Brennix demo");
    EXPECT_EQ(modules[0]["serialNumber"], "02:42:52:4E:58:01");
    EXPECT_EQ(modules[0]["connection"], "USB");
}

TEST_F(DpduCar, VersionIsThatOfTheLibrary) {
    EXPECT_EQ(Document(RunSuccessfully({"version", "--json"}))["library"]["name"],
              "Tarvik D-PDU API");
}

TEST_F(DpduCar, VinOfThreeControlUnitsIsRead) {
    EXPECT_EQ(
        RunSuccessfully({"vin", "--ecu", "7E0:7E8", "--ecu", "7E1:7E9", "--ecu", "713:77D"}).output,
        "7E0:7E8  WTVDEM0S1M0000001\n"
        "7E1:7E9  WTVDEM0S1M0000001\n"
        "713:77D  WTVDEM0S1M0000001\n");
}

TEST_F(DpduCar, FunctionalAnswersAreAssignedToTheirControlUnitsAndASilentOneIsReported) {
    const ClientResult result = Run({"request", "22F187", "--functional", "7DF", "--ecu", "713:77D",
                                     "--ecu", "7E5:7ED", "--ecu", "7E0:7E8"});
    EXPECT_EQ(result.exit_code, kNoAnswer);
    EXPECT_EQ(result.output,
              "713:77D  62 F1 87 54 56 2D 41 42 53 2D 31 31 37 30 2D 42  ReadDataByIdentifier F187 "
              "vehicleManufacturerSparePartNumberDataIdentifier \"TV-ABS-1170-B\"\n"
              "7E5:7ED  -                                                no answer\n"
              "7E0:7E8  62 F1 87 54 56 2D 45 4E 47 2D 30 38 31 35 2D 41  ReadDataByIdentifier F187 "
              "vehicleManufacturerSparePartNumberDataIdentifier \"TV-ENG-0815-A\"\n");
}

TEST_F(DpduCar, TroubleCodesAreRead) {
    const ClientResult result = RunSuccessfully({"dtc", "--ecu", "713:77D"});
    EXPECT_TRUE(Contains(result.output, "  C0035-11  2F  testFailed")) << result.output;
    EXPECT_TRUE(Contains(result.output, "  U0100-87  08  confirmedDTC\n"));
}

TEST_F(DpduCar, NegativeResponseIsNamed) {
    const ClientResult result = Run({"request", "22F1FF"});
    EXPECT_EQ(result.exit_code, kNegativeResponse);
    EXPECT_EQ(result.output, "7F 22 31\n");
    EXPECT_TRUE(Contains(result.error, "requestOutOfRange")) << result.error;
}

TEST_F(DpduCar, AbsentControlUnitIsAFailure) {
    const ClientResult result = Run({"request", "22F190", "--ecu", "7E6:7EE"});
    EXPECT_EQ(result.exit_code, kNoAnswer);
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(Contains(result.error, "PDU_ERR_EVT_TX_ERROR")) << result.error;
}

TEST_F(DpduCar, FailureNamesTheLogThatTheLibraryWrites) {
    const ClientResult result = Run({"request", "22F190", "--ecu", "7E6:7EE"});
    const std::size_t at = result.error.find("; the library's log is ");
    ASSERT_NE(at, std::string::npos) << result.error;
    const std::string path = result.error.substr(at + 23, result.error.size() - at - 24);
    EXPECT_TRUE(Contains(ReadWholeFile(path), "[PDUConstruct]")) << path;
}

TEST_F(DpduCar, AllComParamsOfTheLibraryAreListed) {
    EXPECT_EQ(Document(RunSuccessfully({"comparam", "list", "--json"}))["comParams"].size(), 228u);
}

TEST_F(DpduCar, ComParamsOfEveryTypeAreSetAndReadBack) {
    const Json params = Document(RunSuccessfully(
        {"comparam", "set", "CP_P2Max=50000", "CP_TesterPresentMessage=3E80",
         "CP_CanBaudrateRecord=500000,250000", "CP_SessionTimingOverride=1:0:50:1:244",
         "CP_AccessTimingOverride=1:2:3:4:5:6", "--json"}))["comParams"];
    ASSERT_EQ(params.size(), 5u);
    EXPECT_EQ(params[0]["value"], 50000);
    EXPECT_EQ(params[1]["value"], "3E80");
    EXPECT_EQ(params[2]["value"], Json({500000, 250000}));
    EXPECT_EQ(params[3]["value"], Json::parse("[[1, 0, 50, 1, 244]]"));
    EXPECT_EQ(params[4]["value"], Json::parse("[[1, 2, 3, 4, 5, 6]]"));
}

TEST_F(DpduCar, FunctionalTableHasARowForEachControlUnit) {
    const Json units = Document(RunSuccessfully(
        {"functional", "22F187", "--units", "7E0,7E1,713:77D", "--json"}))["controlUnits"];
    ASSERT_EQ(units.size(), 3u);
    EXPECT_EQ(units[1]["answers"][0]["data"], "62F18754562D5443552D303432302D43");
}

TEST_F(DpduCar, FunctionalTimesAreThoseOfTheControlUnitsOrNone) {
    conformance::Simulator simulator;
    simulator.Command(R"(unit abs {"delay_ms": 150})");
    const ClientResult together =
        RunSuccessfully({"functional", "22F187", "--units", "7E0,713:77D"});
    const Json alone = Document(RunSuccessfully(
        {"functional", "22F187", "--units", "7E0,713:77D", "--each-time", "--json"}));
    simulator.Command(R"(unit abs {"delay_ms": 0})");
    EXPECT_TRUE(Contains(together.output, "7E0:7E8  -     62 F1 87 ")) << together.output;
    EXPECT_TRUE(Contains(together.error, "TIME is not measurable with this library"))
        << together.error;
    EXPECT_EQ(alone["times"], "alone");
    EXPECT_GE(alone["allAnswersAfterUs"], 150'000);  // the late one's time
    const Json& units = alone["controlUnits"];
    EXPECT_FALSE(units[0]["answers"][0].contains("afterUs"));
    EXPECT_GE(units[1]["aloneAfterUs"], 150'000);
    EXPECT_LT(units[0]["aloneAfterUs"], units[1]["aloneAfterUs"]);
}

TEST_F(DpduCar, RawFramesOfTheBusAreReceived) {
    const std::vector<Json> lines =
        DocumentLines(RunSuccessfully({"raw", "listen", "--filter", "0C0", "--filter", "18FEF718",
                                       "--count", "5", "--time", "30", "--json"}));
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[5]["frames"], 5);
    for (const Json& total : lines[5]["totals"])
        EXPECT_EQ(total["extended"], total["id"] == "18FEF718") << total;
}

TEST_F(DpduCar, RawFrameIsSent) {
    EXPECT_EQ(RunSuccessfully({"raw", "send", "600", "01", "0D", "--repeat", "3", "--period", "10"})
                  .output,
              "600  [2]  01 0D  sent 3 times\n");
}

TEST_F(DpduCar, BatteryAndIgnitionAreRead) {
    EXPECT_EQ(Run({"ioctl", "battery"}).output,
              "13.800 V  constant of the library, not measured\n"
              "the dongle reported no voltage; measure the battery before programming\n");
    EXPECT_EQ(Run({"ioctl", "ignition"}).output,
              "on  constant of the library, not measured\n"
              "the dongle reported no ignition\n");
    const ClientResult refused = Run({"ioctl", "cable"});
    EXPECT_EQ(refused.exit_code, kFailure);
    EXPECT_TRUE(Contains(refused.error, "PDU_ERR_ID_NOT_SUPPORTED")) << refused.error;
}

TEST_F(DpduCar, BatteryAndIgnitionOfTheDonglesTelemetryAreBesideTheConstants) {
    conformance::Simulator simulator;
    simulator.Command(R"(telemetry 100 {"v": 1, "bat": 11250, "ign": 0, "tasks": []})");
    EXPECT_EQ(Run({"ioctl", "battery"}).output,
              "13.800 V  constant of the library, not measured\n"
              "11.250 V  reported by the dongle\n");
    EXPECT_EQ(Run({"ioctl", "ignition"}).output,
              "on  constant of the library, not measured\n"
              "off  reported by the dongle\n");
    // What PDUIoCtl returns stays allocated, which a leak checker reports with the exit code.
    const Json document = Document(Run({"ioctl", "battery", "--json"}));
    EXPECT_EQ(document["source"], "constant of the library");
    EXPECT_EQ(document["dongle"], Json({{"batteryMv", 11250}, {"ignition", false}}));
    simulator.Command("telemetry 0");
}

TEST_F(DpduCar, VersionSaysWhichValuesAreConstants) {
    const std::string rows = RunSuccessfully({"version"}).output;
    EXPECT_TRUE(Contains(rows, "(constant of the library)")) << rows;
    EXPECT_TRUE(Contains(rows, "serial number 02:42:52:4E:58:01 (reported by the dongle)")) << rows;
}

TEST_F(DpduCar, ObjectsAreShownWithTheLibrarysIds) {
    EXPECT_EQ(RunSuccessfully({"objects", "ISO_11898_RAW", "HI", "PDU_IOCTL_READ_VBATT"}).output,
              "TYPE      ID    NAME\n"
              "protocol  3000  ISO_11898_RAW\n"
              "pin-type  0     HI\n"
              "ioctl     5005  PDU_IOCTL_READ_VBATT\n");
}

TEST_F(DpduCar, TesterPresentEndsAfterItsTime) {
    const ClientResult result =
        RunSuccessfully({"tester-present", "--period", "100", "--time", "0.3"});
    EXPECT_TRUE(Contains(result.output, "tester present 3E80 to 7E0:7E8 every 100 ms for "))
        << result.output;
}

TEST_F(DpduCar, MonitorShowsModuleLinkAndAnswers) {
    const ClientResult result =
        RunSuccessfully({"monitor", "22F190", "--period", "10", "--count", "40", "--json"});
    EXPECT_TRUE(Contains(result.output, "PDU_MODST_READY")) << result.output;
    EXPECT_TRUE(Contains(result.output, "PDU_CLLST_COMM_STARTED")) << result.output;
    EXPECT_TRUE(Contains(result.output, "answer 62 F1 90 57 54 56")) << result.output;
}

// A command that would go on for long, and the packet at which the dongle is pulled out.
struct LongCommand {
    const char* name;
    std::vector<std::string> arguments;
    const char* packet;
};

class DonglePulledOut : public testing::TestWithParam<LongCommand> {
protected:
    static void SetUpTestSuite() { ConfigureLibrary(); }
    void SetUp() override { conformance::Simulator().Reset(); }
    void TearDown() override { conformance::Simulator().Reset(); }
};

TEST_P(DonglePulledOut, IsALostModule) {
    const conformance::Thread hand([] {
        conformance::Simulator simulator;
        EXPECT_TRUE(simulator.WaitFor(1, GetParam().packet));
        simulator.Unplug();
    });
    const ClientResult result = RunWithCar(GetParam().arguments);
    EXPECT_EQ(result.exit_code, kModuleLost) << result.output;
    EXPECT_TRUE(Contains(result.error, "the module is gone")) << result.error;
}

INSTANTIATE_TEST_SUITE_P(
    Commands, DonglePulledOut,
    testing::Values(
        LongCommand{"RawListen", {"raw", "listen", "--filter", "777", "--time", "60"}, "in RAWC"},
        LongCommand{"RawListenOnABusyBus", {"raw", "listen", "--time", "60"}, "in RAWC"},
        LongCommand{"RawSend",
                    {"raw", "send", "600", "01", "--repeat", "600", "--period", "100"},
                    "in RAWC"},
        LongCommand{
            "TesterPresent", {"tester-present", "--period", "100", "--time", "60"}, "in TSPR"}),
    [](const testing::TestParamInfo<LongCommand>& command) { return command.param.name; });

TEST_F(DpduCar, MonitorSaysThatTheModuleIsGone) {
    conformance::Simulator().Reset();
    const conformance::Thread hand([] {
        conformance::Simulator simulator;
        EXPECT_TRUE(simulator.WaitFor(1, "in CREQ"));
        simulator.Unplug();
    });
    // The eleventh event is this, or the next.
    const ClientResult result = Run({"monitor", "22F190", "--period", "60000", "--count", "11"});
    conformance::Simulator().Reset();
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.output, "the module is gone")) << result.output;
}

#ifdef DESCRIPTION_FOLDER
// Library and description files in one folder, as they are installed.
class DpduInstalled : public DpduCar {
protected:
    void SetUp() override {
        const fs::path library = PathOf(Environment("TARVIK_DPDU_LIBRARY"));
        fs::create_directories(folder_);
        fs::copy_file(library, folder_ / dpdu::root::kLibraryFile);
        for (const char* name : {"tarvik_mdf.xml", "tarvik_cdf.xml"})
            fs::copy_file(fs::path(DESCRIPTION_FOLDER) / name, folder_ / name);
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::string RootFile() const { return TextOf(folder_ / "root.xml"); }

    const fs::path folder_ = PathOf(TemporaryPath("installed"));
};

// "subject: text", except of what depends on where the tests run.
std::vector<std::string> FindingsOf(const Json& findings, const std::string& state) {
    std::vector<std::string> texts;
    for (const Json& finding : findings) {
        const std::string subject = finding["subject"];
        const bool depends = subject == "rights" || subject == "addresses";
        if (depends || finding["state"] != state) continue;
        texts.push_back(subject + ": " + finding["text"].get<std::string>());
    }
    return texts;
}

TEST_F(DpduInstalled, RootCheckFindsNothingWrong) {
    const ClientResult added =
        RunClient({"root", "add", "--folder", TextOf(folder_), "--root", RootFile()});
    ASSERT_EQ(added.exit_code, kOk) << added.error;
    const ClientResult result = RunSuccessfully({"root", "check", "--root", RootFile(), "--json"});
    const Json findings = Document(result)["libraries"].at(0)["findings"];
    EXPECT_EQ(FindingsOf(findings, "WRONG"), std::vector<std::string>{});
    const std::vector<std::string> notes = FindingsOf(findings, "note");
    ASSERT_EQ(notes.size(), 1u) << result.output;
    EXPECT_TRUE(Contains(notes[0], "has the same ID 3000 as ISO_11898_RAW")) << notes[0];
    const std::vector<std::string> fine = FindingsOf(findings, "ok");
    ASSERT_EQ(fine.size(), 11u) << result.output;
    EXPECT_TRUE(fine[8].starts_with("ComParams: types and classes of 228 ")) << fine[8];
    EXPECT_TRUE(fine[9].starts_with("module types: ")) << fine[9];
    EXPECT_TRUE(fine[10].starts_with("versions: library ")) << fine[10];
}
#endif

}  // namespace
