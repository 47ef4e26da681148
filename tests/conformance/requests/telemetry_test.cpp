// The dongle's telemetry reports in debug log and trace.

#include <gtest/gtest.h>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/trace_file.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

class TelemetryReports : public SerialDongle {
protected:
    Settings FirstSettings() const override { return {.enableCopTrace = true, .useSerial = true}; }

    void SendBytes(const std::string& text) {
        simulator.Command("packet TELE " + Hex({text.begin(), text.end()}));
    }
    // An answer shows that everything sent earlier has been processed.
    void ExpectRequestsToGoOn() {
        EngineLink link(hMod);
        EXPECT_EQ(link.Request(ReadVin(), PositiveRead()).results.size(), 1u);
    }
};

constexpr char kReport[] =
    R"({"v":1,"u":123456,"rt":7,"rhz":100,"cr":2,"ct":3,"can":4,"si":5,"mx":6,"ru":8,)"
    R"("tasks":[{"n":"a","x":5},{"n":"b","x":9},{"n":"c","x":9},{"n":"d","x":1}]})";
constexpr char kValues[] =
    "[TELE] v=1 u_ms=123456 rt=7 rhz=100 tasks=4 q(cr=2 ct=3 can=4) i(si=5 mx=6 ru=8) len=*";

TEST_F(TelemetryReports, AreLoggedWithTheBusiestTasks) {
    const LogCapture log;
    simulator.Command(std::string("tele ") + kReport);
    EXPECT_TRUE(Eventually([&] { return log.HasLike("[TELE] top_tasks: *"); }));
    EXPECT_EQ(log.MissingOf({kValues,
                             "[TELE] top_tasks: b x=9bp s=-1 st=-1 p=-1 | c x=9bp s=-1 st=-1 p=-1 "
                             "| a x=5bp s=-1 st=-1 p=-1"}),
              "");
    EXPECT_FALSE(log.HasLike("[TELE] json=*"));
}

TEST_F(TelemetryReports, AreTracedWithTheirText) {
    simulator.Command(std::string("tele ") + kReport);
    const std::vector<nlohmann::json> events = WaitForTrace("telemetry", 1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["u"], 123456);
    EXPECT_EQ(events[0]["tasks"], 4);
    EXPECT_EQ(events[0]["q"], (nlohmann::json{{"cr", 2}, {"ct", 3}, {"can", 4}}));
    EXPECT_EQ(events[0]["i"], (nlohmann::json{{"si", 5}, {"mx", 6}, {"ru", 8}}));
    EXPECT_EQ(events[0]["tele_json_trunc"], false);
    EXPECT_EQ(events[0]["tele_json"], kReport);
}

TEST_F(TelemetryReports, WithoutTextAreLoggedAndNotTraced) {
    const LogCapture log;
    SendBytes("");
    SendBytes(std::string(1, '\0'));
    EXPECT_TRUE(Eventually(
        [&] { return log.Count("[HandleTelemetryPacket] TELE packet has empty payload") == 2; }));
    simulator.Command("tele {}");
    EXPECT_EQ(WaitForTrace("telemetry", 1).size(), 1u);
}

TEST_F(TelemetryReports, InFragmentsAreReassembled) {
    const LogCapture log;
    simulator.Command(R"(behaviour {"fragment": 24})");
    simulator.Command(std::string("tele ") + kReport);
    EXPECT_TRUE(Eventually([&] { return log.HasLike(kValues); }));
}

// Whatever the text, every line of the trace is valid JSON and requests are answered.
TEST_F(TelemetryReports, WithHostileTextDoNoHarm) {
    constexpr std::size_t kRoom = 4096 - 8;
    const std::string tasks = "{\"tasks\":[";
    const std::string texts[] = {
        std::string(kRoom, '['),
        std::string(kRoom, '{'),
        std::string(kRoom, '"'),
        std::string(kRoom, '\\'),
        std::string(kRoom, '\0'),
        std::string(kRoom, '\xFF'),
        std::string(kRoom, '\n'),
        tasks + std::string(kRoom - tasks.size(), '['),
        "{\"v\":" + std::string(kRoom - 5, '9'),
        R"({"tasks":[{"n":"a\"},{\"x\":9\\","x":1},{"n":"%s%n","x":2},{"n":"cut \)",
        kReport + std::string(100, '}'),
    };
    std::size_t sent = 0;
    for (const std::string& text : texts) {
        SendBytes(text);
        ++sent;
    }
    // ReadTrace fails on a line that is not JSON.
    const std::vector<nlohmann::json> events = WaitForTrace("telemetry", sent);
    ASSERT_EQ(events.size(), sent);
    for (std::size_t i = 0; i < sent; ++i)
        EXPECT_EQ(events[i]["pkt_len"], 8 + texts[i].size()) << i;
    ExpectRequestsToGoOn();
}

TEST_F(TelemetryReports, DoNotDisturbARequestInFlight) {
    EngineLink link(hMod);
    simulator.Command(R"(next 1 {"delay_ms": 200})");
    const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    for (int i = 0; i < 20; ++i)
        simulator.Command(std::string("tele ") + kReport);
    EXPECT_EQ(link.WaitFor(hCoP).results.size(), 1u);
    EXPECT_EQ(WaitForTrace("telemetry", 20).size(), 20u);
}

}  // namespace
}  // namespace conformance
