// What the dongle does unasked: telemetry, device log, battery and ignition over time.

#include <gtest/gtest.h>

#include "host.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix::test {
namespace {

std::string CarWith(const std::string& keys) {
    const std::string car = CarJson(R"("behaviour": {})");
    return car.substr(0, car.size() - 1) + ", " + keys + "}";
}

class Script : public testing::Test {
protected:
    void Run(const std::string& keys) {
        simulator_.emplace(std::vector<std::string>{keys.empty() ? CarJson() : CarWith(keys)});
        host_.emplace(simulator_->PortPath());
        ASSERT_TRUE(host_->Sync());
    }
    // The payload of the next packet of this type; skips others.
    std::string ReadText(std::uint32_t type) {
        for (;;) {
            const std::optional<Bytes> packet = host_->Read();
            if (!packet) return "nothing";
            const ByteSpan payload = PacketPayload(*packet);
            if (PacketType(*packet) == type) return {payload.begin(), payload.end()};
        }
    }
    std::uint32_t AskEngine(const Bytes& data) {
        host_->Send(SingleRequest(1, data, 0x7E0, 0x7E8, 50));
        return AsSingle(host_->Read()).value_or(SingleResponse{}).wait_time;
    }
    std::optional<RunningSimulator> simulator_;
    std::optional<HostPort> host_;
};

TEST_F(Script, TelemetryTextsTakeTurnsWhileAHostIsConnected) {
    Run(R"("telemetry": {"period_ms": 5, "json": [{"v": 1}, "{\"v\": 2", {}]})");
    EXPECT_EQ(ReadText(type::kTele), R"({"v":1})");
    EXPECT_EQ(ReadText(type::kTele), R"({"v": 2)");
    EXPECT_EQ(ReadText(type::kTele), "{}");
    EXPECT_EQ(ReadText(type::kTele), R"({"v":1})");
}

TEST_F(Script, OwnTelemetryIsComplete) {
    Run("");
    EXPECT_EQ(simulator_->Command("tele"), "ok");
    const nlohmann::json report = nlohmann::json::parse(ReadText(type::kTele));
    for (const char* key : {"v", "u", "rt", "rhz", "cr", "ct", "can", "si", "mx", "ru"})
        EXPECT_TRUE(report.at(key).is_number_unsigned()) << key;
    EXPECT_EQ(report.at("bat"), 13800);
    EXPECT_EQ(report.at("ign"), 1);
    std::uint32_t load = 0;
    for (const nlohmann::json& task : report.at("tasks")) {
        for (const char* key : {"r", "s", "st", "p"})
            EXPECT_TRUE(task.at(key).is_number_unsigned()) << key;
        load += task.at("x").get<std::uint32_t>();
    }
    EXPECT_EQ(report.at("tasks").size(), 10u);
    EXPECT_EQ(load, 10000u);
}

TEST_F(Script, TelemetryIsSetByCommand) {
    Run("");
    EXPECT_EQ(simulator_->Command(R"(telemetry 5 {"u": 7})"), "ok");
    EXPECT_EQ(ReadText(type::kTele), R"({"u":7})");
    EXPECT_EQ(ReadText(type::kTele), R"({"u":7})");
    EXPECT_EQ(simulator_->Command("telemetry 0"), "ok");
    EXPECT_EQ(simulator_->Command("telemetry 5 7"),
              "error: telemetry: expected an object, or text that is sent as it is, found the "
              "number 7");
}

TEST_F(Script, DeviceLogIsSentInOrderOfTime) {
    Run(R"("device_log": [{"at_ms": 20, "text": "third\n"}, {"at_ms": 0, "text": "first"},
                          {"at_ms": 0, "text": " second\n"}])");
    EXPECT_EQ(ReadText(type::kLog), "first");
    EXPECT_EQ(ReadText(type::kLog), " second\n");
    EXPECT_EQ(ReadText(type::kLog), "third\n");
}

TEST_F(Script, DeviceLogRestartsForTheNextHostAndOnCommand) {
    Run(R"("device_log": [{"at_ms": 0, "text": "hello"}])");
    EXPECT_EQ(ReadText(type::kLog), "hello");
    EXPECT_TRUE(host_->Sync());  // the same host: nothing restarts
    EXPECT_EQ(simulator_->Command("timeline restart"), "ok");
    EXPECT_EQ(ReadText(type::kLog), "hello");
    host_->Close();
    ASSERT_EQ(simulator_->Command("wait 2 10000 event"), "ok 2");  // plugged in, closed
    host_.emplace(simulator_->PortPath());
    ASSERT_TRUE(host_->Sync());
    EXPECT_EQ(ReadText(type::kLog), "hello");
}

TEST_F(Script, BatteryAndIgnitionFollowTheFile) {
    Run(R"("power": [{"at_ms": 0, "battery_mV": 12400}, {"at_ms": 10, "ignition": false},
                     {"at_ms": 20, "battery_mV": 12100}])");
    ASSERT_EQ(simulator_->Command("wait 4 10000 event"), "ok 4");  // plugged in and three changes
    EXPECT_EQ(simulator_->Command("power"), R"(ok {"battery_mV":12100,"ignition":false})");
    simulator_->Command("tele");
    const nlohmann::json report = nlohmann::json::parse(ReadText(type::kTele));
    EXPECT_EQ(report.at("bat"), 12100);
    EXPECT_EQ(report.at("ign"), 0);
    simulator_->Command("record clear");
    EXPECT_EQ(simulator_->Command("reset"), "ok");  // restarts everything
    ASSERT_EQ(simulator_->Command("wait 4 10000 event"), "ok 4");
    const nlohmann::json events =
        nlohmann::json::parse(simulator_->Command("record last 4 event").substr(3));
    EXPECT_EQ(events[0].at("text"), "battery 13800 mV, ignition on");
    EXPECT_EQ(events[3].at("text"), "battery 12100 mV, ignition off");
}

TEST_F(Script, ControlUnitsSleepWhileTheIgnitionIsOff) {
    Run("");
    EXPECT_EQ(AskEngine({0x10, 0x03}), 0u);
    EXPECT_EQ(simulator_->Command("power 12000 off"),
              R"(ok {"battery_mV":12000,"ignition":false})");
    EXPECT_EQ(AskEngine({0x3E, 0x00}), 0xFFFFFFFFu);
    EXPECT_EQ(simulator_->Command("power 12000 on"), R"(ok {"battery_mV":12000,"ignition":true})");
    EXPECT_EQ(AskEngine({0x3E, 0x00}), 0u);
    const auto unit = nlohmann::json::parse(simulator_->Command("unit engine").substr(3));
    EXPECT_EQ(unit.at("session"), 1);
    simulator_->Command("power 12000 off");
    EXPECT_EQ(simulator_->Command("reset"), "ok");
    EXPECT_EQ(AskEngine({0x3E, 0x00}), 0u);
}

TEST(Power, PermanentControlUnitsNeedOnlyTheBattery) {
    const auto units = ReadVehicle(R"({"control_units": [
        {"name": "a", "request": "1", "response": "2", "permanent": true, "min_battery_mV": 9000},
        {"name": "b", "request": "1", "response": "3"}]})",
                                   "car")
                           .control_units;
    Vehicle vehicle(units);
    const auto answers = [&](const Power& power) {
        std::vector<BusMessage> messages;
        vehicle.SetPower(power);
        vehicle.Ask(1, Bytes{0x3E, 0x00}, {}, {}, &messages);
        return messages.size();
    };
    EXPECT_EQ(answers({12000, true}), 2u);
    EXPECT_EQ(answers({12000, false}), 1u);
    EXPECT_EQ(answers({8999, true}), 1u);
    EXPECT_EQ(answers({5999, true}), 0u);
}

TEST_F(Script, RawFramesStopWithTheIgnitionUnlessPermanent) {
    Run(R"("raw": {"frames": [
        {"name": "a", "id": "100", "period_ms": 2, "permanent": true},
        {"name": "b", "id": "200", "period_ms": 2}]})");
    simulator_->Command("power 12000 off");
    Bytes reception_on(16, 0);
    reception_on[6] = 1;
    host_->Send(MakePacket(type::kRawc, reception_on));
    for (int i = 0; i < 10; ++i) {
        const std::optional<Bytes> packet = host_->Read();
        ASSERT_TRUE(packet.has_value());
        EXPECT_EQ(LoadU32(packet->data() + 8), 0x100u);
    }
}

TEST(TimelineFile, ErrorsSayWhatIsExpected) {
    EXPECT_EQ(ErrorOfVehicle(R"({"telemetry": {}})"),
              "car: telemetry.period_ms: missing, expected the time from one report to the next, "
              "in milliseconds");
    EXPECT_EQ(ErrorOfVehicle(R"({"telemetry": {"period_ms": 1, "json": [[]]}})"),
              "car: telemetry.json[0]: expected an object, or text that is sent as it is, found "
              "an array");
    EXPECT_EQ(ErrorOfVehicle(R"({"device_log": [{"text": "a"}]})"),
              "car: device_log[0].at_ms: missing, expected milliseconds after the host's SYNC");
    EXPECT_EQ(ErrorOfVehicle(R"({"power": [{"at_ms": 0}]})"),
              "car: power[0]: expected \"battery_mV\", \"ignition\" or both");
}

}  // namespace
}  // namespace brennix::test
