#include <chrono>

#include "conformance/framework/rounds.h"
#include "conformance/framework/simulator.h"
#include "doctor_run.h"

namespace {

class DpduDoctor : public DoctorTest {};

TEST_F(DpduDoctor, FindsNothingWrongIfEverythingIsRight) {
    const ClientResult result = RunWith(GoodConfig());
    EXPECT_EQ(result.exit_code, kOk) << result.output;
    for (const char* subject : {"library", "configuration", "transports", "serverPublicKey",
                                "devicePrivateKey", "ports", "relay", "clock"}) {
        EXPECT_TRUE(HasLine(result, "ok", subject, "")) << subject << "\n" << result.output;
    }
    EXPECT_FALSE(Contains(result.output, "WRONG")) << result.output;
    EXPECT_TRUE(HasLine(result, "ok", "relay", "takes connections"));
    EXPECT_TRUE(HasLine(result, "ok", "transports", "serial port, relay over TCP"));
}

TEST_F(DpduDoctor, DoesNotStartTheLibrary) {
    WriteConfig(GoodConfig().dump());
    const std::string before = ReadWholeFile(TextOf(ConfigPath()));
    Run();
    EXPECT_EQ(relay_.Count("in NHS1"), 0u);
    EXPECT_EQ(ReadWholeFile(TextOf(ConfigPath())), before);
}

TEST_F(DpduDoctor, JsonHasEveryFindingWithItsAdvice) {
    nlohmann::ordered_json config = GoodConfig();
    config["serverPublicKey"] = "";
    WriteConfig(config.dump());
    const ClientResult result = RunClient({"doctor", "--json", "--library", LibraryUnderTest()});
    EXPECT_EQ(result.exit_code, kFailure);
    bool found = false;
    const Json document = Document(result);
    for (const Json& finding : document["findings"]) {
        if (finding["subject"] != "serverPublicKey") continue;
        found = true;
        EXPECT_EQ(finding["state"], "WRONG");
        EXPECT_TRUE(Contains(finding["advice"], "brennix-relay keygen"));
    }
    EXPECT_TRUE(found);
}

// ---------------------------------------------------------------- the dongle

class DpduDoctorDongle : public DoctorTest {
protected:
    void SetUp() override {
        DoctorTest::SetUp();
        simulator_.Reset();
    }
    void TearDown() override {
        simulator_.Reset();
        std::filesystem::remove(LogPath());
        DoctorTest::TearDown();
    }
    // What an application has written that ended before.
    static void WriteLog(const std::string& lines) {
        std::ofstream(LogPath(), std::ios::binary) << lines;
    }
    static ClientResult RunWithoutRelay() { return RunWith("useCloud", false); }

    static constexpr char kAttempt[] =
        "[2026-01-02 03:04:05] [ConnectSerialPort] Initialized CRITICAL_SECTION for Queues at "
        "0x00005555deadbeef (port 5)\n";
    static constexpr char kSilence[] =
        "[2026-01-02 03:04:06] [ConnectSerialPort] COM5: No response from device. Closing "
        "again.\n";
    static constexpr char kDeparture[] =
        "[2026-01-02 03:04:07] [SerialConnect]   COM5 got disconnected, set to unused\n";

    conformance::Simulator simulator_;

private:
    static std::filesystem::path LogPath() {
        const char* scratch = std::getenv("BRENNIX_SIM_SCRATCH");
        return std::filesystem::path(scratch ? scratch : "") / "tmp" / "dpdu_debug_1.log";
    }
};

TEST_F(DpduDoctorDongle, ThatDoesNotAnswerIsWrong) {
    simulator_.Command("mute");
    const ClientResult result = RunWithoutRelay();
    ExpectWrong(result, "ports", "does not answer -> wait until its LED is on");
}

TEST_F(DpduDoctorDongle, ThatAnswersOnlyTheFifthSyncIsFine) {
    simulator_.Command("ignore SYNC 4");
    const ClientResult result = RunWithoutRelay();
    EXPECT_TRUE(HasLine(result, "ok", "ports", "a dongle on ")) << result.output;
}

TEST_F(DpduDoctorDongle, ThatStartedAfterTheLibraryHadAskedIsNoted) {
    WriteLog(std::string(kAttempt) + kSilence);
    const ClientResult result = RunWithoutRelay();
    EXPECT_EQ(result.exit_code, kOk) << result.output;
    EXPECT_TRUE(
        HasLine(result, "note", "ports", "answers, but did not when an application asked it ("))
        << result.output;
    EXPECT_TRUE(
        HasLine(result, "note", "ports",
                "-> start the application, or construct again, when the dongle's LED is on"))
        << result.output;
}

TEST_F(DpduDoctorDongle, ThatTheLibraryAskedAgainIsFine) {
    for (const char* later : {kAttempt, kDeparture}) {
        WriteLog(std::string(kAttempt) + kSilence + later);
        const ClientResult result = RunWithoutRelay();
        EXPECT_TRUE(HasLine(result, "ok", "ports", "a dongle on ")) << result.output;
    }
}

// ---------------------------------------------------------------- configuration

TEST_F(DpduDoctor, MissingConfigurationIsWrong) {
    ExpectWrong(Run(), "configuration", "is missing");
    EXPECT_FALSE(std::filesystem::exists(ConfigPath()));
}

TEST_F(DpduDoctor, AdviceForAMissingConfigurationIsToCreateItsFolderIfTheLibraryCannot) {
    std::filesystem::remove_all(Folder() / "Tarvik");
    ExpectWrong(Run("no_such_folder/library"), "configuration", "-> create its folder: mkdir");
    ExpectWrong(Run(), "configuration", "-> 'dpdu modules' makes one");  // beside the library

    std::filesystem::create_directories(ConfigPath().parent_path());
    ExpectWrong(Run("no_such_folder/library"), "configuration", "-> 'dpdu modules' makes one");
}

TEST_F(DpduDoctor, NamesBeyondTheCodePageAreShownAsTheyAre) {
    WriteConfig(GoodConfig().dump());
    const std::filesystem::path library =
        Folder() / std::filesystem::path(LibraryUnderTest()).filename();
    std::filesystem::copy_file(LibraryUnderTest(), library);
    const ClientResult result = Run(TextOf(library));
    EXPECT_EQ(result.exit_code, kOk) << result.output;
    EXPECT_TRUE(HasLine(result, "ok", "library", TextOf(library))) << result.output;
    EXPECT_TRUE(HasLine(result, "ok", "configuration", TextOf(ConfigPath()))) << result.output;

    std::filesystem::rename(ConfigPath(), Folder() / "config.json");
    const ClientResult beside = Run(TextOf(library));
    EXPECT_TRUE(HasLine(beside, "ok", "configuration", TextOf(Folder() / "config.json")))
        << beside.output;
    std::filesystem::remove(Folder() / "config.json");
    std::filesystem::remove(library);
}

TEST_F(DpduDoctor, InvalidJsonIsWrongAndItsLineIsNamed) {
    const struct {
        const char* text;
        const char* fault;
    } rows[] = {
        {"{\n\"useSerial\": true,\n\"useCloud\": yes }", "line 3: "},
        {"{ \"useSerial\": true", "unexpected end of data"},
        {"", "unexpected end of data"},
        {"[ true ]", "it is not in { }"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        WriteConfig(row.text);
        ExpectWrong(Run(), "configuration", row.fault);
    }
}

TEST_F(DpduDoctor, ByteOrderMarkIsSkipped) {
    WriteConfig("\xEF\xBB\xBF" + GoodConfig().dump());
    const ClientResult result = Run();
    EXPECT_EQ(result.exit_code, kOk) << result.output;
    EXPECT_TRUE(HasLine(result, "ok", "transports", "serial port, relay over TCP"));
}

TEST_F(DpduDoctor, ConfigurationOf1024BytesIsFineAndALongerOneIsWrong) {
    std::string text = GoodConfig().dump();
    text.resize(1024, ' ');
    WriteConfig(text);
    EXPECT_EQ(Run().exit_code, kOk);
    WriteConfig(text + ' ');
    ExpectWrong(Run(), "configuration", "1025 of the 1024 bytes");
}

// It is short enough if compact, but not as the library writes it.
TEST_F(DpduDoctor, ConfigurationThatGrowsTooLongWithTheLibrarysKeyIsWrong) {
    nlohmann::ordered_json config = GoodConfig();
    config["devicePrivateKey"] = "";
    EXPECT_EQ(RunWith(config).exit_code, kOk);
    config["websocketAddress"] = "ws://" + std::string(250, 'w');
    config["proxyAddress"] = std::string(220, 'p');
    ASSERT_LE(config.dump().size(), 1024u);
    ExpectWrong(RunWith(config), "configuration", "would not be read again");
}

TEST_F(DpduDoctor, MissingAndUnknownKeysAreNoted) {
    nlohmann::ordered_json config = GoodConfig();
    config.erase("useBle");
    config["useBluetooth"] = false;
    const ClientResult result = RunWith(config);
    EXPECT_EQ(result.exit_code, kOk) << result.output;
    EXPECT_TRUE(HasLine(result, "note", "configuration", "count as on: useBle ->"));
    EXPECT_TRUE(HasLine(result, "note", "configuration", "unknown: useBluetooth ->"));
    EXPECT_TRUE(HasLine(result, "ok", "transports", "Bluetooth LE"));
}

TEST_F(DpduDoctor, KeyOfAWrongTypeIsWrong) {
    ExpectWrong(RunWith("useSerial", "false"), "configuration", "useSerial (true");
    ExpectWrong(RunWith("proxyAddress", 3128), "configuration", "proxyAddress (a");
}

TEST_F(DpduDoctor, TruncatedTextIsWrong) {
    ExpectWrong(RunWith("proxyAddress", std::string(256, 'p')), "configuration",
                "cut: proxyAddress");
}

TEST_F(DpduDoctor, NoEnabledTransportIsWrong) {
    nlohmann::ordered_json config = GoodConfig();
    config["useSerial"] = config["useCloud"] = false;
    ExpectWrong(RunWith(config), "transports", "all are off");
}

TEST_F(DpduDoctor, InvalidKeysAreReported) {
    std::string beside_the_curve = conformance::Relay::PublicKey();
    beside_the_curve.back() = beside_the_curve.back() == '0' ? '1' : '0';
    const struct {
        const char* key;
        std::string value;
        const char* state;
        const char* part;
    } rows[] = {
        {"serverPublicKey", "", "WRONG", "is missing"},
        {"serverPublicKey", std::string(129, '4'), "WRONG", "(129 characters)"},
        {"serverPublicKey", "zz" + std::string(128, '4'), "WRONG", "not 130 hexadecimal"},
        {"serverPublicKey", beside_the_curve, "WRONG", "no point of the curve"},
        {"devicePrivateKey", std::string(63, '1'), "WRONG", "(63 characters)"},
        {"devicePrivateKey", "0x" + std::string(62, '1'), "WRONG", "not 64 hexadecimal"},
        {"devicePrivateKey", std::string(64, 'f'), "note", "no key of the curve"},
        {"devicePrivateKey", "", "ok", "the library makes one"},
    };
    for (const auto& row : rows) {
        const ClientResult result = RunWith(row.key, row.value);
        EXPECT_TRUE(HasLine(result, row.state, row.key, row.part)) << row.value << result.output;
        EXPECT_EQ(result.exit_code, std::string(row.state) == "WRONG" ? kFailure : kOk);
    }
}

// ---------------------------------------------------------------- surroundings

TEST_F(DpduDoctor, LibraryThatDoesNotLoadIsWrong) {
    WriteConfig(GoodConfig().dump());
    ExpectWrong(Run(INCOMPLETE_LIBRARY), "library", "lacks");
}

TEST_F(DpduDoctor, RelayThatRefusesConnectionsIsWrong) {
    relay_.Listen(false);
    ExpectWrong(RunWith(GoodConfig()), "relay", "takes no connection");
    ExpectWrong(RunWith(WebSocketConfig()), "relay", "takes no connection");
}

TEST_F(DpduDoctor, InvalidAddressIsWrong) {
    ExpectWrong(RunWith("serverAddress", ""), "relay", "serverAddress is empty");
    ExpectWrong(RunWith("serverAddress", "relay"), "relay", "not HOST:PORT");
    ExpectWrong(RunWith(WebSocketConfig("http://127.0.0.1")), "relay", "not ws://HOST");
}

TEST_F(DpduDoctor, CertificateIsCheckedAsTheLibraryDoes) {
    nlohmann::ordered_json config = WebSocketConfig(conformance::Relay::SecureWebSocketAddress());
    const ClientResult checked = RunWith(config);
    ExpectWrong(checked, "relay", "certificate");
    config["disableCertValidation"] = true;
    const ClientResult unchecked = RunWith(config);
    EXPECT_EQ(unchecked.exit_code, kOk) << unchecked.output;
    EXPECT_TRUE(HasLine(unchecked, "ok", "relay", "opens a WebSocket")) << unchecked.output;
    EXPECT_TRUE(HasLine(unchecked, "note", "relay", "not checked"));
}

TEST_F(DpduDoctor, ProxyIsUsedAsTheLibraryDoes) {
    nlohmann::ordered_json config = WebSocketConfig();
    config["useProxy"] = true;
    config["proxyAddress"] = conformance::Relay::ProxyAddress();
    const ClientResult through = RunWith(config);
    EXPECT_EQ(through.exit_code, kOk) << through.output;
    EXPECT_TRUE(HasLine(through, "ok", "transports", "a WebSocket and a proxy"));
    // Wine's HTTP service accepts the setting but connects without the proxy.
    if (conformance::kSpeed == conformance::Speed::kWine) return;
    relay_.Command("proxy refuse 407");
    const ClientResult refused = RunWith(config);
    ExpectWrong(refused, "relay", "the proxy's settings");
}

TEST_F(DpduDoctor, ServerThatIsNotARelayIsWrong) {
    relay_.Fault("accept http 404");
    ExpectWrong(RunWith(WebSocketConfig()), "relay", "opens no WebSocket");
}

TEST_F(DpduDoctor, ServerThatNeverAnswersIsGivenUpAfterTenSeconds) {
    relay_.Fault("accept deaf");
    ExpectWrong(RunWith(WebSocketConfig()), "relay", "no answer within 10 seconds");
}

TEST_F(DpduDoctor, ClockBeforeTheConfigurationsTimeStampIsWrong) {
    WriteConfig(GoodConfig().dump());
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(ConfigPath(), now + std::chrono::hours(48));
    ExpectWrong(Run(), "clock", "config.json");
}

}  // namespace
