// The scan for control units, with this project's library and a vehicle with 64 of them.

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "car_run.h"
#include "conformance/framework/simulator.h"
#include "conformance/framework/waiting.h"

namespace {

constexpr std::uint64_t kAll = 100'000;  // of the simulator's record

class DpduScan : public testing::Test {
protected:
    static void SetUpTestSuite() { ConfigureLibrary(); }

    void SetUp() override { simulator_.Reset(); }
    void TearDown() override {
        simulator_.Command("replug");
        EXPECT_EQ(simulator_.Violations(), 0u);
    }

    conformance::Simulator simulator_;
};

using Units = std::map<std::string, Json>;  // by "request:response"

Units UnitsOf(const Json& document) {
    Units units;
    for (const Json& unit : document.at("controlUnits")) {
        const Json& request = unit.at("requestId");
        units[(request.is_null() ? "?" : request.get<std::string>()) + ":" +
              unit.at("responseId").get<std::string>()] = unit;
    }
    return units;
}

// What reached the bus.
std::set<std::string> SentRequests(conformance::Simulator* simulator) {
    std::set<std::string> requests;
    for (const Json& entry : simulator->Last(kAll, "in CREQ"))
        requests.insert(entry.at("fields").at("data").get<std::string>());
    for (const Json& entry : simulator->Last(kAll, "in RAWC")) {
        if (entry.at("fields").at("flags") != 0) continue;  // switches reception
        const std::string data = entry.at("fields").at("data");
        EXPECT_EQ(data.substr(0, 2), "02") << data;  // a whole request of two bytes
        requests.insert(data.substr(2, 4));
    }
    return requests;
}

bool Reads(const std::string& request) {
    return request == "1001" || request == "3E00" || request.starts_with("19") ||
           request.starts_with("22");
}

// ---------------------------------------------------------------------------------------------

TEST_F(DpduScan, FindsEveryControlUnitOfALargeVehicleAndOnlyReads) {
    const ClientResult result = RunWithCar({"scan", "--dids", "F187", "--json"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.error, "the scan only reads")) << result.error;
    const Json document = Document(result);
    EXPECT_EQ(document["method"], "raw");
    EXPECT_EQ(document["complete"], true);
    const Units units = UnitsOf(document);
    EXPECT_EQ(units.size(), 64u);
    for (const auto& [name, unit] : units) {
        EXPECT_EQ(unit.at("identifiers").size(), 1u) << name;
        EXPECT_FALSE(unit.contains("error")) << name;
    }
    ASSERT_TRUE(units.contains("722:7D2")) << result.output;  // an unusual response identifier
    ASSERT_TRUE(units.contains("786:7A6"));                   // likewise
    ASSERT_TRUE(units.contains("7E3:7EB"));                   // slow
    ASSERT_TRUE(units.contains("18DA80F1:18DAF180"));
    EXPECT_EQ(units.at("722:7D2")["identifiers"][0]["text"], "TV-BDY-2");
    EXPECT_EQ(units.at("7E3:7EB")["functional"], true);
    EXPECT_EQ(units.at("700:708")["functional"], false);
    EXPECT_EQ(units.at("18DA11F1:18DAF111")["functional"], true);
    EXPECT_EQ(units.at("7E0:7E8")["defaultSession"]["p2StarMs"], 5000);
    EXPECT_EQ(units.at("7E0:7E8")["troubleCodeCount"], 1);
    EXPECT_EQ(units.at("725:72D")["defaultSession"]["negativeResponse"]["name"],
              "conditionsNotCorrect");
    EXPECT_EQ(units.at("18DA80F1:18DAF180")["services"], Json({"10", "19", "22"}));

    const std::set<std::string> sent = SentRequests(&simulator_);
    EXPECT_EQ(sent.size(), 5u);  // 3E00, 1001, 22F186, 1901FF, 22F187
    for (const std::string& request : sent)
        EXPECT_TRUE(Reads(request)) << request;
    for (const Json& entry : simulator_.Last(kAll, "in TSPR"))
        EXPECT_EQ(entry.at("length"), 16) << "has a message, which the dongle would send";
}

TEST_F(DpduScan, LinksFindTheUsualResponseIdentifiersAndOnlyRead) {
    const ClientResult result =
        RunWithCar({"scan", "--method", "links", "--range", "7E6-7E7", "--range", "782", "--offset",
                    "20", "--range", "18DA27F1-18DA28F1", "--dids", "F187", "--json"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    const Json document = Document(result);
    EXPECT_EQ(document["method"], "links");
    const Units units = UnitsOf(document);
    ASSERT_EQ(units.size(), 2u) << result.output;
    EXPECT_EQ(units.at("782:7A2")["functional"], true);
    EXPECT_EQ(units.at("18DA27F1:18DAF127")["identifiers"][0]["text"], "TV-TRL-23");
    for (const std::string& request : SentRequests(&simulator_))
        EXPECT_TRUE(Reads(request)) << request;
}

TEST_F(DpduScan, TableHasARowForEachControlUnitAndItsIdentifiersBelow) {
    const ClientResult result = RunWithCar({"scan", "--range", "724-726", "--dids", "F180-F19F"});
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_TRUE(
        Contains(result.output,
                 "724:72C  yes         P2 50 ms, P2* 5000 ms  -              10 19 22 3E  0\n"
                 "725:72D  yes         conditionsNotCorrect   -              10 19 22 3E  0\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output,
                         "\n724:72C\n"
                         "  F187  \"TV-BDY-4\"  vehicleManufacturerSparePartNumberDataIdentifier\n"
                         "  F197  \"body 4\"    systemNameOrEngineTypeDataIdentifier\n"))
        << result.output;
}

// Those outside the range answer the functional request.
TEST_F(DpduScan, ControlUnitWhoseRequestIdentifierWasNotAskedIsStillShown) {
    simulator_.Command(
        R"(raw answer {"id": "7DF", "frames": [{"id": "5A0", "data": "02 7E 00"}]})");
    const ClientResult result = RunWithCar({"scan", "--range", "7FF"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.output, "?:5A0  yes         -  ")) << result.output;
}

// They answer raw frames only, so that there is nothing more to read.
TEST_F(DpduScan, ControlUnitsThatShareARequestIdentifierAreBothShown) {
    simulator_.Command(R"(raw answer {"id": "600", "frames": [{"id": "5A0", "data": "02 7E 00"},)"
                       R"( {"id": "5A1", "data": "03 7F 3E 12", "delay_ms": 20}]})");
    const ClientResult result =
        RunWithCar({"scan", "--range", "600-601", "--functional", "602", "--p2", "1"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.output, "600:5A0  no ")) << result.output;
    EXPECT_TRUE(Contains(result.output, "600:5A1  no ")) << result.output;
    EXPECT_TRUE(Contains(result.output, "does not answer any more\n")) << result.output;
}

// Its answers arrive while others are asked.
TEST_F(DpduScan, LateControlUnitIsNotTakenForItsNeighbour) {
    simulator_.Command(R"(raw answer {"id": "600", "frames": [{"id": "5A0", "data": "02 7E 00",)"
                       R"( "delay_ms": 150}]})");
    const ClientResult result =
        RunWithCar({"scan", "--range", "600-60F", "--functional", "610", "--p2", "1"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_TRUE(Contains(result.output, "600:5A0  no ")) << result.output;
}

TEST_F(DpduScan, SilenceIsNoAnswer) {
    const ClientResult result = RunWithCar({"scan", "--range", "600-603", "--functional", "600"});
    EXPECT_EQ(result.exit_code, kNoAnswer);
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(Contains(result.error, "no control unit has answered")) << result.error;
}

TEST_F(DpduScan, InterruptionKeepsWhatWasFound) {
    ClientSetup setup = CarSetup({"scan", "--range", "7E0-7FF", "--gap", "1000", "--json"});
    // Both functional requests, 7E0 and 7E1.
    setup.interrupt_after = [this] { return simulator_.WaitFor(5, "in RAWC"); };
    const ClientResult result = RunWithCar(setup);
    EXPECT_EQ(result.exit_code, kInterrupted);
    EXPECT_TRUE(Contains(result.error, "interrupted; the scan is not complete, ")) << result.error;
    const Json document = Document(result);
    EXPECT_EQ(document["complete"], false);
    EXPECT_EQ(document["exitCode"], kInterrupted);
    EXPECT_FALSE(document["controlUnits"].empty());
}

TEST_F(DpduScan, DonglePulledOutKeepsWhatWasFound) {
    DongleKeeper keeper;
    const conformance::Thread hand([&keeper] {
        conformance::Simulator simulator;
        EXPECT_TRUE(simulator.WaitFor(5, "in RAWC"));
        keeper.Stop();
        simulator.Unplug();
    });
    const ClientResult result =
        RunClient(CarSetup({"scan", "--range", "7E0-7FF", "--gap", "1000", "--json"}));
    EXPECT_EQ(result.exit_code, kModuleLost) << result.error;
    EXPECT_TRUE(Contains(result.error, "the scan is not complete, ")) << result.error;
    const Json document = Document(result);
    EXPECT_EQ(document["complete"], false);
    EXPECT_FALSE(document["controlUnits"].empty());
}

}  // namespace
