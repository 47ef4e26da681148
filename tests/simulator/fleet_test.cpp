// Requests to many control units, and series of control units in vehicle files.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

#include "host.h"
#include "protocol/request.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix::test {
namespace {

const Bytes kReadSerial = {0x22, 0xF1, 0x8C};

std::string FleetFile(const char* name) {
    return std::string(BRENNIX_SIM_VEHICLES) + "/" + name + ".json";
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> FleetEntries(std::uint32_t count) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> entries;
    for (std::uint32_t i = 0; i < count; ++i)
        entries.emplace_back(0x600 + i, 0x680 + i);
    return entries;
}

struct MultiEntry {
    std::uint32_t id;
    Bytes data;
};

// The entries of a multi-form CRES.
std::vector<MultiEntry> ReadEntries(HostPort* host) {
    const std::optional<Bytes> packet = host->Read();
    if (!packet || PacketType(*packet) != type::kCres) return {};
    std::vector<MultiEntry> entries;
    const std::uint32_t count = LoadU32(packet->data() + 12);
    std::size_t at = 20;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::size_t size = LoadU32(packet->data() + at + 4);
        const auto begin = packet->begin() + static_cast<std::ptrdiff_t>(at + 8);
        entries.push_back({LoadU32(packet->data() + at),
                           Bytes(begin, begin + static_cast<std::ptrdiff_t>(size))});
        at += (8 + size + 7) / 8 * 8;
    }
    EXPECT_EQ(at, packet->size());
    return entries;
}

Bytes Serial(std::uint32_t unit) {
    return {0x62, 0xF1, 0x8C, 0, 0, 0, static_cast<std::uint8_t>(unit)};
}

class Fleet : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override { ASSERT_TRUE(host_.Sync()); }
    static std::string ReadText(const std::string& path) {
        std::ifstream file(path);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    RunningSimulator simulator_{std::vector<std::string>{ReadText(FleetFile(GetParam()))}};
    HostPort host_{simulator_.PortPath()};
};

class SoundFleet : public Fleet {};
class FaultyFleet : public Fleet {};
INSTANTIATE_TEST_SUITE_P(, SoundFleet, testing::Values("fleet"));
INSTANTIATE_TEST_SUITE_P(, FaultyFleet, testing::Values("fleet_faults"));

TEST_P(SoundFleet, AnyNumberOfControlUnitsAnswersInRequestOrder) {
    for (const std::uint32_t count : {1u, 2u, 20u, 64u}) {
        host_.Send(MultiRequest(count, kReadSerial, FleetEntries(count), 1000));
        const std::vector<MultiEntry> entries = ReadEntries(&host_);
        ASSERT_EQ(entries.size(), count);
        for (std::uint32_t i = 0; i < count; ++i) {
            EXPECT_EQ(entries[i].id, i);
            EXPECT_EQ(entries[i].data, Serial(i));
        }
    }
    EXPECT_EQ(simulator_.Violations(), 0u);
}

TEST_P(FaultyFleet, FaultsAppearInTheAnswer) {
    host_.Send(MultiRequest(5, kReadSerial, FleetEntries(64), 100));
    const std::vector<MultiEntry> entries = ReadEntries(&host_);
    std::map<std::uint32_t, std::size_t> answers;
    for (const MultiEntry& entry : entries) {
        ++answers[entry.id];
        if (entry.id < 64) {
            EXPECT_EQ(entry.data, Serial(entry.id));
        }
    }
    ASSERT_EQ(entries.size(), 63u);  // 61 that answer, one of them twice, and one unknown entry
    for (const std::uint32_t missing : {3u, 5u, 9u})
        EXPECT_EQ(answers.count(missing), 0u) << missing;
    EXPECT_EQ(answers[7], 2u);
    EXPECT_EQ(answers[64], 1u);
}

TEST_P(FaultyFleet, UnitWithAnotherIdAnswersOnThatId) {
    host_.Send(MultiRequest(5, kReadSerial, {{0x600, 0x680}, {0x609, 0x7FF}}, 100));
    const std::vector<MultiEntry> entries = ReadEntries(&host_);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[1].id, 1u);
    EXPECT_EQ(entries[1].data, Serial(9));
}

std::vector<ControlUnitSetup> ReadUnits(const std::string& units) {
    return ReadVehicle(R"({"control_units": [)" + units + "]}", "car").control_units;
}

TEST(UnitSeries, ExpandsToControlUnitsWithNamesIdsAndTexts) {
    const auto units = ReadUnits(R"({"count": 12, "name": "u", "request": "18DA00F1",
        "request_step": "100", "response": "18DAF100", "data": {"F187": "N{n}", "F18C":
        {"hex": "{hex} FF"}}, "except": [{"unit": 11, "name": "last", "data": {}}]})");
    ASSERT_EQ(units.size(), 12u);
    EXPECT_EQ(units[10].name, "u10");
    EXPECT_EQ(units[10].request_id, 0x18DA0AF1u);
    EXPECT_EQ(units[10].response_id, 0x18DAF10Au);
    EXPECT_EQ(units[10].data.at(0xF187).value, (Bytes{'N', '1', '0'}));
    EXPECT_EQ(units[10].data.at(0xF18C).value, (Bytes{0x0A, 0xFF}));
    EXPECT_EQ(units[11].name, "last");
    EXPECT_TRUE(units[11].data.empty());
}

std::string ErrorOfUnit(const std::string& unit) {
    return ErrorOfVehicle(R"({"control_units": [)" + unit + "]}");
}

TEST(UnitSeries, ErrorsNameTheControlUnit) {
    EXPECT_EQ(ErrorOfUnit(R"({"count": 2, "name": "u", "request": "1", "response": "2",
                          "except": [{"unit": 2}]})"),
              "car: control_units[0].except[0].unit: expected the number of one of the 2 control "
              "units, counted from 0");
    EXPECT_EQ(ErrorOfUnit(R"({"count": 2, "name": "u", "request": "1FFFFFFF", "response": "2"})"),
              "car: control_units[0].request: the last control unit's is above 1fffffff");
    EXPECT_EQ(ErrorOfUnit(R"({"count": 2, "name": "u", "request": "1", "response": "2",
                          "except": [{"unit": 1, "behaviour": {"bussy": 1}}]})"),
              "car: control_units[0] unit 1.behaviour.bussy: unknown key, did you mean \"busy\"?");
    EXPECT_EQ(ErrorOfUnit(R"({"count": 0, "name": "u", "request": "1", "response": "2"})"),
              "car: control_units[0].count: expected a whole number from 1 to 2048, found the "
              "number 0");
}

}  // namespace
}  // namespace brennix::test
