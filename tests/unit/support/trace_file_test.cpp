#include "support/trace_file.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/process.h"
#include "unit/faults/debug_output_fault.h"
#include "unit/faults/files_fault.h"

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using test::DebugOutputCapture;

class TraceFile : public testing::Test {
protected:
    fs::path PathOf(int session) const {
        return folders_.Temp() / ("dpdu_coptrace_" + std::to_string(OsProcessId()) + "_" +
                                  std::to_string(session) + ".jsonl");
    }
    // What is left of `text` when a file that holds it is cut to a clean line end and then
    // continued.
    std::string Continued(const std::string& text) {
        std::int32_t session = 100;
        OsAppendFile* file = CreateTraceFile(&session);
        EXPECT_TRUE(OsAppendFileWrite(file, text.data(), text.size()));
        BringToCleanLineEnd(file);
        EXPECT_TRUE(OsAppendFileWrite(file, "next\n", 5));
        OsAppendFileClose(file);
        const std::string left = test::ReadFile(PathOf(session));
        fs::remove(PathOf(session));
        return left;
    }

    test::TestFolders folders_;
};

TEST_F(TraceFile, IsCreatedForTheNextSession) {
    const DebugOutputCapture debug;
    std::int32_t session = 0;
    OsAppendFile* file = CreateTraceFile(&session);
    ASSERT_NE(file, nullptr);
    OsAppendFileClose(file);
    EXPECT_EQ(session, 1);
    EXPECT_TRUE(fs::exists(PathOf(1)));
    EXPECT_EQ(debug.Text(), "[CopLog] Creating trace file: " + PathOf(1).string() + "\n");
}

TEST_F(TraceFile, LeftoverFilesAreSkippedAndNotTouched) {
    test::WriteFile(PathOf(1), "old");
    test::WriteFile(PathOf(2), "older");
    std::int32_t session = 0;
    OsAppendFile* file = CreateTraceFile(&session);
    OsAppendFileClose(file);
    EXPECT_EQ(session, 3);
    EXPECT_EQ(test::ReadFile(PathOf(1)), "old");
    EXPECT_EQ(test::ReadFile(PathOf(2)), "older");
}

TEST_F(TraceFile, UnwritableFolderGivesNone) {
    const std::string missing = (folders_.Temp() / "no" / "").string();
    test::ReportTempPath(missing, static_cast<std::uint32_t>(missing.size()));
    std::int32_t session = 0;
    EXPECT_EQ(CreateTraceFile(&session), nullptr);
}

TEST_F(TraceFile, TempPathThatFailsOrIsTooLongIsReplacedByTheFallback) {
    for (const std::uint32_t length : {0u, static_cast<std::uint32_t>(kMaxPath), 1000u}) {
        test::ReportTempPath("unusable", length);
        const DebugOutputCapture debug;
        std::int32_t session = 0;
        OsAppendFileClose(CreateTraceFile(&session));
        const std::string name = OsFallbackTempPath() + PathOf(session).filename().string();
        EXPECT_NE(debug.Text().find("[CopLog] Creating trace file: " + name + "\n"),
                  std::string::npos);
        std::remove(name.c_str());
    }
}

TEST_F(TraceFile, PathThatLeavesNoRoomForTheNameGivesNone) {
    const std::string folder(250, 'x');
    test::ReportTempPath(folder, 250);
    std::int32_t session = 0;
    EXPECT_EQ(CreateTraceFile(&session), nullptr);
}

TEST_F(TraceFile, CleanEndIsLeftAlone) {
    EXPECT_EQ(Continued(""), "next\n");
    EXPECT_EQ(Continued("whole\n"), "whole\nnext\n");
}

TEST_F(TraceFile, UnfinishedLineIsCutOff) {
    EXPECT_EQ(Continued("whole\nunfin"), "whole\nnext\n");
    EXPECT_EQ(Continued("\nunfin"), "\nnext\n");
}

TEST_F(TraceFile, FileWithoutALineFeedIsEmptied) { EXPECT_EQ(Continued("unfinished"), "next\n"); }

TEST_F(TraceFile, LineFeedIsLookedForInTheLast65536BytesOnly) {
    EXPECT_EQ(Continued("whole\n" + std::string(65'535, 'x')), "whole\nnext\n");
    EXPECT_EQ(Continued("whole\n" + std::string(65'536, 'x')), "next\n");
}

}  // namespace
}  // namespace tarvik
