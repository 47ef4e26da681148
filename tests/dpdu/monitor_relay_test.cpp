// The monitor with a relay.

#include "conformance/framework/waiting.h"
#include "doctor_run.h"

namespace {

class DpduMonitorRelay : public DoctorTest {
protected:
    void SetUp() override {
        DoctorTest::SetUp();
        relay_.Reset();
        nlohmann::ordered_json config = SerialConfig();
        config["useSerial"] = false;
        config["useCloud"] = true;
        WriteConfig(config.dump());
    }
    void TearDown() override {
        relay_.Reset();
        DoctorTest::TearDown();
    }

    conformance::Relay relay_;
};

// The texts of a source, in their order.
std::vector<std::string> TextsOf(const ClientResult& result, const std::string& source) {
    std::vector<std::string> texts;
    for (const Json& line : DocumentLines(result)) {
        if (line["source"] == source) texts.push_back(line["text"]);
    }
    return texts;
}

TEST_F(DpduMonitorRelay, ThatIsLostAndComesBackIsReported) {
    conformance::Gate ended;
    conformance::Thread hand([this, &ended] {
        EXPECT_TRUE(relay_.WaitFor(1, "in CREQ"));
        do {
            relay_.Command("kill");
        } while (!ended.Wait(std::chrono::milliseconds(500)));
    });
    ClientSetup setup;
    setup.arguments = {"monitor", "22F190",    "--period",         "60000", "--count",
                       "20",      "--library", LibraryUnderTest(), "--json"};
    // The library never releases information items, by design.
    setup.environment = {{"ASAN_OPTIONS", "detect_leaks=0"}};
    const ClientResult result = RunClient(setup);
    ended.Open();
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    std::vector<std::string> texts = TextsOf(result, "relay");
    ASSERT_GE(texts.size(), 3u) << result.output;
    texts.resize(3);
    EXPECT_EQ(texts, (std::vector<std::string>{"the relay is connected",
                                               "the relay is lost; connecting again",
                                               "the relay is connected"}));
}

}  // namespace
