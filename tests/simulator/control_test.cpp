// The control channel and the record.

#include <gtest/gtest.h>

#include <thread>

#include "control/commands.h"
#include "host.h"

namespace brennix::test {
namespace {

class Control : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(host_.Sync()); }
    RunningSimulator simulator_{std::vector<std::string>{CarJson(), CarJson()}};
    HostPort host_{simulator_.PortPath()};
};

TEST_F(Control, BadLineIsAnsweredWithWhatIsExpected) {
    EXPECT_EQ(simulator_.Command("frobnicate"), "error: unknown command \"frobnicate\", try help");
    EXPECT_EQ(simulator_.Command("@7 stats"), "error: no dongle @7");
    EXPECT_EQ(simulator_.Command("@x stats"), "error: expected a number after @, found \"x\"");
    EXPECT_EQ(simulator_.Command("garbage many"),
              "error: garbage: expected a number of bytes, found \"many\"");
    EXPECT_EQ(simulator_.Command("send 0G"), "error: send: expected hex bytes, found \"0G\"");
    EXPECT_EQ(simulator_.Command("unplug cable"),
              "error: unplug: expected device, port or nothing, found \"cable\"");
    EXPECT_EQ(simulator_.Command("unit gearbox {}"), "error: unit: no control unit \"gearbox\"");
    EXPECT_EQ(simulator_.Command(R"(next 1 {"bussy": 1})"),
              "error: behaviour.bussy: unknown key, did you mean \"busy\"?");
    EXPECT_EQ(simulator_.Command("next 1 {"), "error: behaviour: no valid JSON at line 1");
    EXPECT_EQ(simulator_.Command("ignore S 1"),
              "error: ignore: expected a packet type, found \"S\"");
    EXPECT_EQ(simulator_.Command("record sing"),
              "error: record: expected clear, flush, count or last");
    EXPECT_EQ(simulator_.Command("cut 0"), "error: cut: expected at least one byte");
}

TEST_F(Control, HelpNamesEveryCommand) {
    const std::string help = simulator_.Command("help");
    for (const char* name : {"stats", "unplug", "replug", "mute", "next", "wait", "quit"}) {
        EXPECT_NE(help.find(name), std::string::npos) << name;
        EXPECT_NE(Commands::Help().find(name), std::string::npos) << name;
    }
}

TEST_F(Control, RecordCountsByDirectionTypeAndDongle) {
    host_.Send(Identify());
    host_.Read();
    EXPECT_EQ(simulator_.Command("record count in"), "ok 2");
    EXPECT_EQ(simulator_.Command("record count SYNC"), "ok 2");
    EXPECT_EQ(simulator_.Command("record count out LOGN"), "ok 1");
    EXPECT_EQ(simulator_.Command("@1 record count in"), "ok 0");
    EXPECT_EQ(simulator_.Command("record clear"), "ok");
    EXPECT_EQ(simulator_.Command("record count"), "ok 0");
}

TEST_F(Control, RecordShowsPacketsWithTheirFields) {
    host_.Send(SingleRequest(42, {0x3E, 0x00}));
    host_.Read();
    const std::string answer = simulator_.Command("record last 2");
    const nlohmann::json entries = nlohmann::json::parse(answer.substr(3));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].at("direction"), "in");
    EXPECT_EQ(entries[0].at("type"), "CREQ");
    EXPECT_EQ(entries[0].at("length"), 34);
    EXPECT_EQ(entries[0].at("fields").at("request_id"), 42);
    EXPECT_EQ(entries[0].at("fields").at("physical"), "7E0");
    EXPECT_EQ(entries[0].at("fields").at("data"), "3E00");
    EXPECT_EQ(entries[1].at("fields").at("data"), "7E00");
    EXPECT_EQ(entries[1].at("fields").at("wait_time"), 0);
    EXPECT_EQ(entries[1].at("hex"),
              "53455243160000000000000002000000"
              "2A0000007E00");
}

TEST_F(Control, RecordShowsTheMultiForm) {
    host_.Send(MultiRequest(9, {0x3E, 0x00}, {{0x7E0, 0x7E8}, {0x713, 0x77D}}));
    host_.Read();
    const nlohmann::json entries =
        nlohmann::json::parse(simulator_.Command("record last 2").substr(3));
    EXPECT_EQ(entries[0].at("fields").at("form"), "multi");
    EXPECT_EQ(entries[0].at("fields").at("entries")[1].at("response"), "77D");
    EXPECT_EQ(entries[1].at("fields").at("entries")[1].at("data"), "7E00");
}

TEST_F(Control, RecordReplacesInvalidUtf8) {
    simulator_.Command("packet LOG FF FE 41");
    host_.Read();
    const nlohmann::json entries =
        nlohmann::json::parse(simulator_.Command("record last 1 LOG").substr(3));
    EXPECT_EQ(entries[0].at("hex"), "20474F4C0B000000FFFE41");
}

TEST_F(Control, WaitEndsWhenItsEntryArrives) {
    std::thread sender([this] { host_.Send(Identify()); });
    EXPECT_EQ(simulator_.Command("wait 1 10000 in IDEN"), "ok 1");
    sender.join();
}

TEST_F(Control, WaitEndsWhenTheTimeIsUp) {
    EXPECT_EQ(simulator_.Command("wait 5 20 in SYNC"), "error: time is up with 1 entries");
}

TEST_F(Control, UnitReportsItsState) {
    host_.Send(SingleRequest(1, {0x10, 0x03}));
    host_.Read();
    const std::string answer = simulator_.Command("unit engine");
    EXPECT_EQ(nlohmann::json::parse(answer.substr(3)).at("session"), 3);
}

TEST_F(Control, StatsReportWhetherAHostIsConnected) {
    EXPECT_EQ(simulator_.State().at("host"), true);
    EXPECT_EQ(simulator_.State().at("opens"), 1);
    EXPECT_EQ(simulator_.State(1).at("host"), false);
    host_.Close();
    EXPECT_EQ(simulator_.Command("@0 wait 2 10000 event"), "ok 2");  // plugged in, closed
    EXPECT_EQ(simulator_.State().at("host"), false);
}

}  // namespace
}  // namespace brennix::test
