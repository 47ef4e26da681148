// dpdu trace latest and prune: the files that the library has left in the temporary folder.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client_run.h"
#include "console/failure.h"
#include "path_text.h"
#include "process.h"
#include "text/names.h"
#include "trace/trace_files.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

void SetVariable(const char* name, const std::string& value) {
#ifdef _WIN32
    _putenv_s(name, value.c_str());
#else
    setenv(name, value.c_str(), 1);
#endif
}

// A temporary folder of its own, for this process and the client. No process has these numbers.
class LeftFiles : public testing::Test {
protected:
    void SetUp() override {
        old_ = fs::temp_directory_path();
        folder_ = old_ / ("dpdu_left_" + std::to_string(OwnProcessId()));
        fs::create_directory(folder_);
        Use(folder_);
    }
    void TearDown() override {
        Use(old_);
        // On Windows the files of a program that has ended may be in use a moment longer.
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        std::error_code error;
        do {
            fs::remove_all(folder_, error);
        } while (error && std::chrono::steady_clock::now() < deadline);
        EXPECT_FALSE(fs::exists(folder_));
    }

    std::string Leave(const std::string& name, std::chrono::hours age) {
        const fs::path path = folder_ / name;
        std::ofstream(path) << "left\n";
        fs::last_write_time(path, fs::file_time_type::clock::now() - age);
        return TextOf(path);
    }
    bool Has(const std::string& name) const { return fs::exists(folder_ / name); }

    static ClientResult Prune(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "--older-than");
        return RunTrace("prune", arguments);
    }

    fs::path folder_;

private:
    static void Use(const fs::path& folder) {
        for (const char* name : {"TMPDIR", "TMP", "TEMP"})
            SetVariable(name, TextOf(folder));
    }
    fs::path old_;
};

constexpr char kOldTrace[] = "dpdu_coptrace_4294967290_1.jsonl";
constexpr char kOldLog[] = "dpdu_debug_4294967290.log";

TEST_F(LeftFiles, LatestIsTheNewestTraceOfAnyProcess) {
    Leave(kOldTrace, 5h);
    const std::string newest = Leave("dpdu_coptrace_4294967291_12.jsonl", 1h);
    const std::string log = Leave(kOldLog, 0h);
    EXPECT_EQ(RunTrace("latest", {}).output, newest + "\n");
    EXPECT_EQ(RunTrace("latest", {"--log"}).output, log + "\n");
    const Json document = Document(RunTrace("latest", {"--json"}));
    EXPECT_EQ(document["path"], newest);
    EXPECT_EQ(document["process"], 4294967291);
    EXPECT_EQ(document["isRunning"], false);
}

TEST_F(LeftFiles, LatestSaysWhatToSwitchOnIfThereIsNone) {
    ExpectFailure(RunTrace("latest", {}), "no trace in " + TextOf(fs::temp_directory_path()) +
                                              "; is enableCopTrace on in the library's "
                                              "configuration?");
}

TEST_F(LeftFiles, PruneRemovesOldTracesAndLogsOnly) {
    Leave(kOldTrace, 200h);
    Leave(kOldLog, 169h);
    Leave("dpdu_coptrace_4294967291_1.jsonl", 167h);
    for (const char* other : {"dpdu_coptrace_x_1.jsonl", "dpdu_coptrace_1.jsonl", "notes.jsonl",
                              "dpdu_debug_.log", "dpdu_debug_12.log.bak", "dpdu_coptrace__1.jsonl"})
        Leave(other, 1000h);
    ExpectOutput(Prune({"7d", "--yes"}), "2 files, 0.0 MB removed\n");
    EXPECT_FALSE(Has(kOldTrace));
    EXPECT_FALSE(Has(kOldLog));
    EXPECT_TRUE(Has("dpdu_coptrace_4294967291_1.jsonl"));
    for (const char* other : {"dpdu_coptrace_x_1.jsonl", "dpdu_coptrace_1.jsonl", "notes.jsonl",
                              "dpdu_debug_.log", "dpdu_debug_12.log.bak", "dpdu_coptrace__1.jsonl"})
        EXPECT_TRUE(Has(other)) << other;
}

TEST_F(LeftFiles, PruneKeepsFilesOfProcessesThatRun) {
    const std::string name = "dpdu_debug_" + std::to_string(OwnProcessId()) + ".log";
    Leave(name, 1000h);
    ExpectOutput(Prune({"1s", "--yes"}), "0 files, 0.0 MB removed\n");
    EXPECT_TRUE(Has(name));
}

TEST_F(LeftFiles, DryRunListsAndRemovesNothing) {
    const std::string path = Leave(kOldTrace, 200h);
    ExpectOutput(Prune({"7d", "--dry-run"}), path + "\n1 file, 0.0 MB would be removed\n");
    EXPECT_TRUE(Has(kOldTrace));
}

TEST_F(LeftFiles, WithoutATerminalPruneNeedsAgreement) {
    Leave(kOldTrace, 200h);
    const ClientResult result = Prune({"7d"});
    EXPECT_EQ(result.exit_code, kUsage);
    EXPECT_EQ(
        result.error,
        "dpdu: nobody can be asked here; --yes removes 1 file, 0.0 MB, --dry-run lists them\n");
    EXPECT_TRUE(Has(kOldTrace));
}

TEST_F(LeftFiles, PruneRefusesWhatIsNoAge) {
    ExpectMistakes({"trace", "prune", "--yes", "--older-than"},
                   {{"7"}, {"d"}, {"7w"}, {"-7d"}, {"1.5d"}, {"9999999999d"}}, "is not an age");
}

TEST_F(LeftFiles, PruneRefusesAnAgeThatTheClockOfFilesCannotCountBackTo) {
    Leave(kOldTrace, 200h);
    ExpectMistakes({"trace", "prune", "--yes", "--older-than"},
                   {{"36501d"}, {"100000d"}, {"876001h"}, {"3153600001s"}}, "is not an age");
    EXPECT_TRUE(Has(kOldTrace));
    ExpectOutput(Prune({"36500d", "--yes"}), "0 files, 0.0 MB removed\n");
    EXPECT_TRUE(Has(kOldTrace));
}

TEST_F(LeftFiles, FailureNamesTheLogOfThisProcessInTheTemporaryFolder) {
    const std::string log = Leave("dpdu_debug_" + std::to_string(OwnProcessId()) + ".log", 0h);
    EXPECT_EQ(dpdu::NextStep(dpdu::ExitCode::kFailure), "; the library's log is " + log);
}

#ifndef _WIN32  // where the system's folder depends on TMP
TEST_F(LeftFiles, WithoutTmpdirTheFolderIsTmpWhateverTheOtherVariablesName) {
    Leave("dpdu_debug_" + std::to_string(OwnProcessId()) + ".log", 0h);
    const std::string trace = Leave(kOldTrace, 0h);
    for (const bool is_set : {false, true}) {
        is_set ? SetVariable("TMPDIR", "") : static_cast<void>(unsetenv("TMPDIR"));
        EXPECT_EQ(dpdu::TemporaryFolder(), "/tmp");
        EXPECT_EQ(dpdu::NextStep(dpdu::ExitCode::kFailure), "");
        EXPECT_NE(RunTrace("latest", {}).output, trace + "\n");
    }
}
#endif

#ifndef _WIN32  // where a link takes a right that users do not have
TEST_F(LeftFiles, LinkWithTheNameOfATraceIsLeftAlone) {
    const std::string target = Leave("precious", 1000h);
    fs::create_symlink(target, folder_ / kOldTrace);
    ExpectOutput(Prune({"0s", "--yes"}), "0 files, 0.0 MB removed\n");
    EXPECT_TRUE(fs::is_symlink(folder_ / kOldTrace));
    EXPECT_TRUE(Has("precious"));
}
#endif

}  // namespace
