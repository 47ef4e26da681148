// Parts of the doctor whose causes a test cannot bring about.
#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <system_error>

#include "doctor/access.h"
#include "doctor/bluetooth.h"
#include "doctor/check.h"
#include "doctor/dongle_answer.h"
#include "doctor/surroundings.h"

namespace dpdu {
namespace {

using std::chrono::seconds;

std::string IdOf(const Finding& finding) { return finding.id; }

// ---------------------------------------------------------------- running checks

TEST(DoctorChecks, ReportInTheirOrderWhateverEndsFirst) {
    std::mutex lock;
    std::condition_variable changed;
    bool second_is_done = false;
    const auto first = [&](CheckRun* run) {
        std::unique_lock hold(lock);
        changed.wait(hold, [&] { return second_is_done; });
        run->Add(Found(Diagnosis::kClock));
    };
    const auto second = [&](CheckRun* run) {
        run->Add(Found(Diagnosis::kServerKey));
        const std::lock_guard hold(lock);
        second_is_done = true;
        changed.notify_all();
    };
    const Examination examination = RunChecks(
        {{"first", Diagnosis::kCheckLate, first}, {"second", Diagnosis::kCheckLate, second}},
        seconds(600));
    ASSERT_EQ(examination.findings.size(), 2u);
    EXPECT_EQ(examination.findings[0].id, "clock");
    EXPECT_EQ(examination.findings[1].id, "server-key");
    EXPECT_FALSE(examination.is_interrupted);
    EXPECT_FALSE(examination.is_hanging);
}

TEST(DoctorChecks, ThatIsLateIsAskedToEndAndKeepsWhatItHasFound) {
    const auto wait = [](CheckRun* run) {
        run->Add(Found(Diagnosis::kClock));
        std::mutex lock;
        std::condition_variable changed;
        bool is_asked = false;
        run->OnStop([&] {
            const std::lock_guard hold(lock);
            is_asked = true;
            changed.notify_all();
        });
        std::unique_lock hold(lock);
        changed.wait(hold, [&] { return is_asked; });
        EXPECT_TRUE(run->Stop());
    };
    const Examination examination =
        RunChecks({{"waiting", Diagnosis::kPortsLate, wait}}, seconds(0));
    ASSERT_EQ(examination.findings.size(), 2u);
    EXPECT_EQ(examination.findings[0].id, "clock");
    EXPECT_EQ(examination.findings[1].id, "ports-late");
    EXPECT_EQ(examination.findings[1].text, "not all ports were checked within 0 seconds");
    EXPECT_FALSE(examination.is_hanging);
}

// What the check that hangs uses; it outlives the test.
struct Gate {
    std::mutex lock;
    std::condition_variable changed;
    bool is_open = false;

    void Wait() {
        std::unique_lock hold(lock);
        changed.wait(hold, [this] { return is_open; });
    }
    void Open() {
        const std::lock_guard hold(lock);
        is_open = true;
        changed.notify_all();
    }
};

TEST(DoctorChecks, ThatHangsIsLeftToItself) {
    const auto gate = std::make_shared<Gate>();
    const auto hang = [gate](CheckRun*) { gate->Wait(); };
    const Examination examination =
        RunChecks({{"hanging", Diagnosis::kCheckLate, hang}}, seconds(0));
    EXPECT_TRUE(examination.is_hanging);
    ASSERT_EQ(examination.findings.size(), 1u);
    EXPECT_EQ(examination.findings[0].id, "check-late");
    EXPECT_EQ(examination.findings[0].text, "no result within 0 seconds: hanging");
    gate->Open();
}

TEST(DoctorChecks, ThatThrowsEndsTheProgramWithItsReason) {
    const auto fail = [](CheckRun*) { throw std::runtime_error("reason"); };
    EXPECT_THROW(RunChecks({{"failing", Diagnosis::kCheckLate, fail}}, seconds(600)),
                 std::runtime_error);
}

// ---------------------------------------------------------------- ports

TEST(DoctorPorts, ReasonWhyAPortIsNotOpenedDecides) {
    const std::atomic<bool> stop{false};
    const DongleAnswer answer = AskDongle("there-is-no-such-port", stop);
    EXPECT_EQ(answer.step, DongleAnswer::Step::kNotOpened);
    EXPECT_EQ(IdOf(AnswerFinding("COM5", answer, "")), "port-not-opened");
    EXPECT_EQ(IdOf(AnswerFinding("COM5", {.error = kErrorOfPortInUse}, "")), "port-in-use");
}

TEST(DoctorPorts, ThatIsNotReadyIsWrong) {
    using tarvik::PortReadiness;
    const auto id = [](PortReadiness readiness) {
        return IdOf(UnreadyFinding({5, "COM5", readiness}));
    };
    EXPECT_EQ(id(PortReadiness::kStarting), "port-starting");
    EXPECT_EQ(id(PortReadiness::kNoAccess), "port-no-access");
    EXPECT_EQ(id(PortReadiness::kStopped), "port-stopped");
    EXPECT_NE(UnreadyFinding({5, "COM5", PortReadiness::kStopped}).advice, "");
}

// ---------------------------------------------------------------- folder for log and trace

TEST(DoctorLogFolder, WithLessThan100MegabytesIsNoted) {
    EXPECT_EQ(IdOf(LogFolderFinding("x", 100'000'000)), "log-folder");
    const Finding full = LogFolderFinding("x", 99'999'999);
    EXPECT_EQ(full.id, "log-folder-full");
    EXPECT_EQ(full.text, "x has only 99 MB free");
}

// ---------------------------------------------------------------- Bluetooth

TEST(DoctorBluetooth, MessagesOfWindowsAreUnderstood) {
    const struct {
        const char* message;
        const char* id;
    } rows[] = {
        {"The scan was aborted: there is no Bluetooth radio, or it is switched off",
         "bluetooth-off"},
        {"The scan was aborted: Bluetooth is disabled by policy", "bluetooth-rights"},
        {"The scan was aborted: the radio does not support it", "bluetooth-adapter"},
        {"The scan was aborted: the user has not consented", "bluetooth-rights"},
        {"The scan was aborted: error 99", "bluetooth-failed"},
        {"The system cannot scan; is Bluetooth switched on?", "bluetooth-off"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(IdOf(RadioFinding(row.message, "no_such_folder")), row.id) << row.message;
}

class DoctorRadioSwitch : public testing::Test {
protected:
    void TearDown() override { std::filesystem::remove_all(folder_); }
    // As the system lists its switches.
    void Add(const std::string& name, const std::string& type, bool soft, bool hard) const {
        std::filesystem::create_directories(folder_ / name);
        std::ofstream(folder_ / name / "type") << type << "\n";
        std::ofstream(folder_ / name / "soft") << soft << "\n";
        std::ofstream(folder_ / name / "hard") << hard << "\n";
    }
    Finding Look(const std::string& message) const {
        return RadioFinding(message, folder_.string());
    }

    static constexpr char kOff[] = "the Bluetooth adapter is switched off";
    const std::filesystem::path folder_ =
        std::filesystem::path(testing::TempDir()) / "dpdu_doctor_switches";
};

TEST_F(DoctorRadioSwitch, OfSoftwareIsNamed) {
    Add("rfkill0", "wlan", true, true);
    Add("rfkill1", "bluetooth", false, false);
    EXPECT_EQ(Look(kOff).id, "bluetooth-off");
    Add("rfkill2", "bluetooth", true, false);
    EXPECT_EQ(Look(kOff).id, "bluetooth-blocked");
    EXPECT_EQ(Look(kOff).advice, "rfkill unblock bluetooth");
    EXPECT_EQ(Look("the Bluetooth service is not running").id, "bluetooth-service");
}

TEST_F(DoctorRadioSwitch, OfTheComputerCountsMore) {
    Add("rfkill0", "bluetooth", true, true);
    EXPECT_EQ(Look(kOff).id, "bluetooth-blocked");
    EXPECT_EQ(Look(kOff).text, "the radio is blocked by a switch or key of the computer");
    EXPECT_EQ(Look("there is no Bluetooth adapter").id, "bluetooth-blocked");
}

}  // namespace
}  // namespace dpdu
