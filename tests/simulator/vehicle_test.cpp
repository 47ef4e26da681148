// How the control units of a vehicle file answer.

#include <gtest/gtest.h>

#include "vehicle/vehicle.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix::test {
namespace {

constexpr const char* kCar = R"({
    "control_units": [
        {"name": "engine", "request": "7E0", "response": "7E8", "functional": ["7DF"],
         "sessions": {"01": {}, "03": {"p2_ms": 25, "p2_star_ms": 4000}},
         "session_timeout_ms": 50,
         "data": {"F190": "VIN", "F187": {"hex": "0A 0B"},
                  "1234": {"hex": "01", "sessions": ["03"]},
                  "2000": {"hex": "00 00", "writable": true}},
         "trouble_codes": ["P0301", {"code": "U0100-87", "status": "08"}, "C12345"],
         "answers": [
             {"request": "31 01 FF 00", "response": "71 01 FF 00"},
             {"request": "27 ?? *", "response": "67 02"},
             {"request": "85 02"}]},
        {"name": "abs", "request": "713", "response": "77D", "functional": ["7DF"]}]})";

class Car : public testing::Test {
protected:
    // The messages on the bus, as "ID: BYTES".
    std::vector<std::string> Ask(std::uint32_t id, const std::string& request) {
        std::vector<BusMessage> messages;
        vehicle_.Ask(id, ParseHex(request).value(), {}, {}, &messages);
        std::vector<std::string> texts;
        for (const BusMessage& message : messages) {
            texts.push_back(std::to_string(message.response_id) + ":" + ToHex(message.data));
        }
        return texts;
    }
    std::string AskEngine(const std::string& request) {
        const std::vector<std::string> texts = Ask(0x7E0, request);
        return texts.size() == 1 ? texts[0].substr(5) : std::to_string(texts.size()) + " answers";
    }
    Vehicle vehicle_{ReadVehicle(kCar, "car").control_units};
};

TEST_F(Car, ReadsDataIdentifiers) {
    EXPECT_EQ(AskEngine("22 F1 90"), "62F19056494E");
    EXPECT_EQ(AskEngine("22 F1 87 F1 90"), "62F1870A0BF19056494E");
    EXPECT_EQ(AskEngine("22 F1 87 FF FF"), "62F1870A0B");
    EXPECT_EQ(AskEngine("22 FF FF"), "7F2231");
    EXPECT_EQ(AskEngine("22 F1"), "7F2213");
}

TEST_F(Car, ReadsSessionDataOnlyInThatSession) {
    vehicle_.SetTesterPresent(20);  // keeps the session, however long the requests take
    EXPECT_EQ(AskEngine("22 12 34"), "7F2231");
    EXPECT_EQ(AskEngine("10 03"), "500300190190");
    EXPECT_EQ(AskEngine("22 12 34"), "62123401");
}

TEST_F(Car, SessionEndsUnlessItIsKeptAlive) {
    vehicle_.SetTesterPresent(20);
    AskEngine("10 03");
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    EXPECT_EQ(AskEngine("22 12 34"), "62123401");
    vehicle_.SetTesterPresent(0);
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    EXPECT_EQ(AskEngine("22 12 34"), "7F2231");
}

TEST_F(Car, StartsOnlyKnownSessions) {
    EXPECT_EQ(AskEngine("10 02"), "7F1012");
    EXPECT_EQ(AskEngine("10"), "7F1013");
    EXPECT_EQ(AskEngine("10 83"), "0 answers");  // positive answer suppressed
}

TEST_F(Car, WritesOnlyWritableData) {
    EXPECT_EQ(AskEngine("2E 20 00 AA BB"), "6E2000");
    EXPECT_EQ(AskEngine("22 20 00"), "622000AABB");
    EXPECT_EQ(AskEngine("2E 20 00 AA"), "7F2E13");
    EXPECT_EQ(AskEngine("2E F1 90 41 42 43"), "7F2E31");
}

TEST_F(Car, ReadsTroubleCodes) {
    EXPECT_EQ(AskEngine("19 02 FF"), "5902FF0301002FC1008708C123452F");
    EXPECT_EQ(AskEngine("19 02 04"), "5902FF0301002FC123452F");
    EXPECT_EQ(AskEngine("19 01 FF"), "5901FF010003");
    EXPECT_EQ(AskEngine("19 0A"), "590AFF0301002FC1008708C123452F");
    EXPECT_EQ(AskEngine("19 02"), "7F1913");
    EXPECT_EQ(AskEngine("19 55"), "7F1912");
}

TEST_F(Car, ClearsTroubleCodes) {
    EXPECT_EQ(AskEngine("14 03 01 00"), "54");
    EXPECT_EQ(AskEngine("14 03 01 00"), "7F1431");
    EXPECT_EQ(AskEngine("14 FF FF FF"), "54");
    EXPECT_EQ(AskEngine("19 02 FF"), "5902FF");
    EXPECT_EQ(AskEngine("14 FF FF FF"), "54");
}

TEST_F(Car, AnswersTesterPresentAndReset) {
    EXPECT_EQ(AskEngine("3E 00"), "7E00");
    EXPECT_EQ(AskEngine("3E 80"), "0 answers");
    EXPECT_EQ(AskEngine("3E 01"), "7F3E12");
    EXPECT_EQ(AskEngine("11 01"), "5101");
    EXPECT_EQ(AskEngine("11 09"), "7F1112");
}

TEST_F(Car, AnswerRowsTakePrecedenceOverServices) {
    EXPECT_EQ(AskEngine("31 01 FF 00"), "7101FF00");
    EXPECT_EQ(AskEngine("31 01 FF 01"), "7F3111");
    EXPECT_EQ(AskEngine("27 01"), "6702");
    EXPECT_EQ(AskEngine("27 02 11 22"), "6702");
    EXPECT_EQ(AskEngine("27"), "7F2711");
    EXPECT_EQ(AskEngine("85 02"), "0 answers");
}

TEST_F(Car, FunctionalRequestIsAnsweredOnlyByUnitsThatKnowIt) {
    EXPECT_EQ(Ask(0x7DF, "3E 00"), (std::vector<std::string>{"2024:7E00", "1917:7E00"}));
    EXPECT_EQ(Ask(0x7DF, "22 F1 90"), (std::vector<std::string>{"2024:62F19056494E"}));
    EXPECT_TRUE(Ask(0x7DF, "BA 01").empty());
    EXPECT_TRUE(Ask(0x123, "3E 00").empty());
}

TEST_F(Car, BehaviourShapesTheBusMessages) {
    Behaviour behaviour;
    behaviour.delay_ms = 10;
    behaviour.pending = 2;
    behaviour.pending_interval_ms = 7;
    behaviour.repeat = 1;
    std::vector<BusMessage> messages;
    vehicle_.Ask(0x713, Bytes{0x3E, 0x00}, behaviour, {}, &messages);
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_EQ(messages[0].at_ms, 10u);
    EXPECT_TRUE(messages[0].IsResponsePending());
    EXPECT_EQ(messages[1].at_ms, 17u);
    EXPECT_EQ(messages[2].at_ms, 24u);
    EXPECT_EQ(messages[3].data, (Bytes{0x7E, 0x00}));
}

TEST_F(Car, MoreSpecificBehaviourWinsSettingBySetting) {
    Behaviour dongle;
    dongle.delay_ms = 1;
    dongle.busy = 1;
    Behaviour special;
    special.busy = 3;
    std::vector<BusMessage> messages;
    vehicle_.Ask(0x713, Bytes{0x3E, 0x00}, dongle, special, &messages);
    EXPECT_EQ(vehicle_.LastBehaviour().delay_ms, 1u);
    EXPECT_EQ(vehicle_.LastBehaviour().busy, 3u);
}

TEST(VehicleFile, ErrorsNameTheKeyAndWhatIsExpected) {
    const std::pair<const char*, const char*> files[] = {
        {"{\n\"dongle\": ,", "car: no valid JSON at line 2"},
        {R"({"dongle": {"model": 1e999}})", "car: a number is too large"},
        {"[]", "car: top level: expected an object, found an array"},
        {R"({"dongel": {}})", "car: dongel: unknown key, did you mean \"dongle\"?"},
        {R"({"vehicle": {}})",
         "car: vehicle: unknown key, known keys: description dongle control_units raw "
         "telemetry device_log power"},
        {R"({"dongle": {"model": "five"}})",
         "car: dongle.model: expected a whole number from 0 to 4294967295, found the text "
         "\"five\""},
        {R"({"dongle": {"model": "one\nline"}})",
         "car: dongle.model: expected a whole number from 0 to 4294967295, found the text "
         "\"one line\""},
        {R"({"on\ne\u007f": {}})",
         "car: on e : unknown key, known keys: description dongle control_units raw telemetry "
         "device_log power"},
        {R"({"control_units": [{"name": "two\nwords", "request": "1", "response": "2"}]})",
         "car: control_units[0].name: expected a name without blanks"},
        {R"({"dongle": {"mac": "02:00"}})",
         "car: dongle.mac: expected a MAC address such as \"02:00:00:00:00:01\", found the text "
         "\"02:00\""},
        {R"({"dongle": {"name": "123456789012345678901234567890123"}})",
         "car: dongle.name: expected text of at most 32 bytes, found the text "
         "\"123456789012345678901234567890123\""},
        {R"({"dongle": {"ignore": {"SY": 1}}})",
         "car: dongle.ignore.SY: no packet type, expected four letters"},
        {R"({"dongle": {"behaviour": {"fragment": 16}}})",
         "car: dongle.behaviour.fragment: expected a whole number from 17 to 4096, found the "
         "number 16"},
        {R"({"control_units": {}})", "car: control_units: expected an array, found an object"},
        {R"({"control_units": [{"request": "7E0", "response": "7E8"}]})",
         "car: control_units[0].name: missing, expected the control unit's name"},
        {R"({"control_units": [{"name": "a", "response": "7E8"}]})",
         "car: control_units[0].request: missing, expected the CAN id of its requests, as hex "
         "text"},
        {R"({"control_units": [{"name": "a", "request": 2016, "response": "7E8"}]})",
         "car: control_units[0].request: expected hex text such as \"7E0\", at most 1fffffff, "
         "found the number 2016"},
        {R"({"control_units": [{"name": "a", "request": "1", "response": "2", "data": {"XY": ""}}]})",
         "car: control_units[0].data.XY: expected hex text such as \"7E0\", at most ffff, found "
         "the text \"XY\""},
        {R"({"control_units": [{"name": "a", "request": "1", "response": "2",
             "data": {"F190": {"hex": "0"}}}]})",
         "car: control_units[0].data.F190.hex: expected bytes as hex text such as \"62 F1 90\", "
         "found the text \"0\""},
        {R"({"control_units": [{"name": "a", "request": "1", "response": "2",
             "data": {"F190": {"text": "a", "hex": "00"}}}]})",
         "car: control_units[0].data.F190: expected either \"text\" or \"hex\""},
        {R"({"control_units": [{"name": "a", "request": "1", "response": "2",
             "trouble_codes": ["X0301"]}]})",
         "car: control_units[0].trouble_codes[0]: expected a trouble code such as \"P0301\", "
         "\"P0301-16\" or \"030116\", found the text \"X0301\""},
        {R"({"control_units": [{"name": "a", "request": "1", "response": "2",
             "answers": [{"request": "22 * 33"}]}]})",
         "car: control_units[0].answers[0].request: expected bytes such as \"22 F1 90\", "
         "\"??\" for any byte and \"*\" at the end for any more, found the text \"22 * 33\""},
        {R"({"control_units": [{"name": "a", "request": "1", "response": "2"},
             {"name": "a", "request": "3", "response": "4"}]})",
         "car: control_units[1].name: \"a\" is the name of another control unit"},
    };
    for (const auto& [text, expected] : files)
        EXPECT_EQ(ErrorOfVehicle(text), expected) << text;
}

TEST(VehicleFile, ExamplesAreValid) {
    for (const char* name :
         {"demo", "difficult", "fleet", "fleet_faults", "large", "mute", "unknown_model"}) {
        EXPECT_NO_THROW(LoadVehicleFile(std::string(BRENNIX_SIM_VEHICLES) + "/" + name + ".json"))
            << name;
    }
}

TEST(VehicleFile, MissingFileIsNamed) {
    try {
        LoadVehicleFile("/nowhere/car.json");
        ADD_FAILURE();
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "/nowhere/car.json: cannot be read");
    }
}

}  // namespace
}  // namespace brennix::test
