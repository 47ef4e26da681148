// The doctor with a dongle on a serial port.

#include "conformance/framework/rounds.h"
#include "conformance/framework/simulator.h"
#include "conformance/framework/system.h"
#include "doctor_run.h"

namespace {

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

TEST_F(DpduDoctorDongle, ThatLogsInIsFine) {
    const Examined examined = RunWith(SerialConfig());
    ExpectFine(examined, "port-dongle", "'Brennix demo' with mac 02:42:52:4E:58:01");
    ExpectFine(examined, "port-dongle", "firmware 1.5.0.62-simulated");
    EXPECT_EQ(simulator_.Violations(), 0u);
}

TEST_F(DpduDoctorDongle, ThatDoesNotAnswerIsWrong) {
    simulator_.Command("mute");
    ExpectWrong(RunWith(SerialConfig()), "port-silent", "does not answer");
}

TEST_F(DpduDoctorDongle, ThatAnswersOnlyTheFifthSyncIsFine) {
    simulator_.Command("ignore SYNC 4");
    ExpectFine(RunWith(SerialConfig()), "port-dongle");
}

TEST_F(DpduDoctorDongle, ThatDoesNotLogInIsWrong) {
    simulator_.Command("ignore IDEN 1000");
    ExpectWrong(RunWith(SerialConfig()), "port-no-login", "does not identify itself");
}

TEST_F(DpduDoctorDongle, ThatLogsInOnlyAfterTheThirdQuestionIsFine) {
    simulator_.Command("ignore IDEN 3");
    ExpectFine(RunWith(SerialConfig()), "port-dongle");
}

TEST_F(DpduDoctorDongle, OfAnotherModelIsWrong) {
    simulator_.Command(R"(dongle {"model": 6})");
    ExpectWrong(RunWith(SerialConfig()), "port-model", "is of model 6: 'Brennix demo'");
}

TEST_F(DpduDoctorDongle, ThatStartedAfterTheLibraryHadAskedIsNoted) {
    WriteLog(std::string(kAttempt) + kSilence);
    ExpectNote(RunWith(SerialConfig()), "port-dongle-late",
               "answers, but did not when an application asked it (");
}

TEST_F(DpduDoctorDongle, ThatTheLibraryAskedAgainIsFine) {
    for (const char* later : {kAttempt, kDeparture}) {
        WriteLog(std::string(kAttempt) + kSilence + later);
        ExpectFine(RunWith(SerialConfig()), "port-dongle");
    }
}

TEST_F(DpduDoctorDongle, ThatIsMissingIsWrongOnlyWithoutAnotherTransport) {
    simulator_.Unplug();
    ExpectWrong(RunWith(SerialConfig()), "port-none", "303A:1001");
    ExpectWrong(RunWith("dummyDevice", true), "port-none", "303A:1001");
    nlohmann::ordered_json config = SerialConfig();
    config["useCloud"] = true;
    ExpectNote(RunWith(config), "port-none-others", "303A:1001");
}

// Under Wine a port can be opened twice.
TEST_F(DpduDoctorDongle, ThatAnotherProgramUsesIsNotedAndLeftAlone) {
    if (conformance::kSpeed == conformance::Speed::kWine) GTEST_SKIP() << "ports are not exclusive";
    WriteConfig(SerialConfig().dump());
    const PortInUse port("/dev/ttyACM5");
    ASSERT_TRUE(port.IsOpen());
    const std::uint64_t before = simulator_.Count("in");
    ExpectNote(Run(), "port-in-use", "is in use");
    EXPECT_EQ(simulator_.Count("in"), before);
}

TEST_F(DpduDoctorDongle, InterruptionEndsTheDoctorWithWhatItHasFound) {
    const conformance::SilentPort nobody;
    simulator_.Command("mute");
    nlohmann::ordered_json config = SerialConfig();
    config["useCloud"] = true;
    config["serverAddress"] = nobody.Address();
    WriteConfig(config.dump());

    ClientSetup setup;
    setup.arguments = {"doctor", "--json", "--library", LibraryUnderTest()};
    setup.interrupt_after = [this] { return simulator_.WaitFor(1, "in SYNC"); };
    const ClientResult result = RunClient(setup);
    EXPECT_TRUE(result.error.starts_with("dpdu: interrupted")) << result.error;
    const Examined examined = {result.exit_code, result.output, Document(result)};
    EXPECT_EQ(examined.exit_code, kInterrupted);
    EXPECT_EQ(examined.document["interrupted"], true);
    EXPECT_TRUE(examined.Has("config")) << examined.output;
    EXPECT_FALSE(examined.Has("relay-late")) << examined.output;
}

}  // namespace
