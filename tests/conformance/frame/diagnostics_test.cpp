// Debug log, console, debugger output and trace, switched by configuration and environment.

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "conformance/frame/construct.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "conformance/framework/trace_file.h"
#include "conformance/framework/waiting.h"

#include "paused_console.h"

using namespace conformance;

namespace {

using Trace = LoadedLibrary;
using DebugLog = LoadedLibrary;

constexpr char kDisableTrace[] = "DPDU_COPTRACE_DISABLE";

void ConstructWith(const Settings& settings) {
    settings.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
}

std::vector<std::string> TextLines(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// "[2000-01-01 00:00:00] [Function] text"; each 0 in kTime stands for any digit.
bool IsLogLine(const std::string& line) {
    static const std::string kTime = "[0000-00-00 00:00:00] ";
    if (line.size() <= kTime.size()) return false;
    for (std::size_t i = 0; i < kTime.size(); ++i) {
        const bool fits = kTime[i] == '0' ? std::isdigit(static_cast<unsigned char>(line[i])) != 0
                                          : line[i] == kTime[i];
        if (!fits) return false;
    }
    return Matches(line.substr(kTime.size()), "[*] *");
}

// Constructs with the trace enabled and the variable set. True if a trace was written.
bool TraceRunsWith(const std::string& value) {
    const std::size_t before = TraceFiles().size();
    SetVariable(kDisableTrace, value);
    ConstructWith({.enableCopTrace = true});
    Destruct();
    SetVariable(kDisableTrace, "");
    return TraceFiles().size() > before;
}

}  // namespace

// ---- debug log ---------------------------------------------------------------------------------

FRESH_PROCESS_TEST(FreshDebugLog, PathGoesToTheDebuggerAndEveryMessageIsOneLine) {
    const DebugOutputCapture debugger;
    ConstructWith({});
    EXPECT_TRUE(debugger.Has("[DebugLog] Writing to " + LogPath() + "\n")) << debugger.Text();
    const std::string text = ReadFile(LogPath());
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    for (const std::string& one : TextLines(text)) {
        EXPECT_TRUE(IsLogLine(one)) << one;
    }
}

FRESH_PROCESS_TEST(FreshDebugLog, SwitchedOffWritesNoFileAndSendsANoticeToTheDebugger) {
    const DebugOutputCapture debugger;
    ConstructWith({.enableDebugLogFile = false});
    EXPECT_TRUE(debugger.Has("[DebugLog] Disabled via config enableDebugLogFile=false\n"));
    EXPECT_FALSE(debugger.Has("Writing to"));
    Pdu().PDUGetLastError(0, 0, nullptr, nullptr, nullptr, nullptr);
    Destruct();
    EXPECT_TRUE(FilesIn(TempFolder(), "dpdu_debug_", "").empty());
}

FRESH_PROCESS_TEST(FreshDebugLog, OpensAtTheFirstConstructThatAllowsItAndStaysOpen) {
    ConstructWith({.enableDebugLogFile = false});
    Destruct();
    EXPECT_FALSE(FileExists(LogPath()));
    ConstructWith({});
    Destruct();
    const std::size_t first = ReadFile(LogPath()).size();
    EXPECT_GT(first, 0u);
    ConstructWith({.enableDebugLogFile = false});  // writing to the open file continues
    Destruct();
    const std::string text = ReadFile(LogPath());
    EXPECT_GT(text.size(), first);
    EXPECT_EQ(FilesIn(TempFolder(), "dpdu_debug_", ".log").size(), 1u);
}

FRESH_PROCESS_TEST(FreshDebugLog, AppendsToAnExistingFile) {
    WriteFile(LogPath(), "what was there before\n");
    ConstructWith({});
    EXPECT_EQ(TextLines(ReadFile(LogPath())).front(), "what was there before");
    EXPECT_GT(TextLines(ReadFile(LogPath())).size(), 200u);
}

FRESH_PROCESS_TEST(FreshDebugLog, UnwritableTemporaryFolderIsOnlyReported) {
    MoveTempFolder(JoinPath(JoinPath(PrivateFolder(), "not"), "there"));
    const DebugOutputCapture debugger;
    ConstructWith({.enableCopTrace = true, .dummyDevice = true});
    EXPECT_TRUE(debugger.Has("[DebugLog] Failed to open debug log file\n")) << debugger.Text();
    UNUM32 id = 0;
    char name[] = "CP_P2Max";
    EXPECT_EQ(Pdu().PDUGetObjectId(PDU_OBJT_COMPARAM, name, &id), PDU_STATUS_NOERROR);
    Destruct();
    ConstructWith({.enableCopTrace = true});
    Destruct();
}

TEST_F(DebugLog, MemoryAccountingNeverAppears) {
    const LogCapture log;
    ConstructWith({.enableCopTrace = true, .dummyDevice = true});
    PDU_EVENT_ITEM* event = nullptr;
    Pdu().PDUGetEventItem(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &event);
    Pdu().PDUDestroyItem(nullptr);
    Destruct();
    EXPECT_FALSE(log.Text().empty());
    for (const char* tag :
         {"[AllocateMem]", "[FreeMem]", "[PDUGetEventItem]", "[PDUDestroyItem] Called"}) {
        EXPECT_EQ(log.Text().find(tag), std::string::npos) << tag;
    }
}

TEST(DebugLogOfTwoProcesses, HasTwoFiles) {
    const std::string test = "DebugLogOfTwoProcesses.HasTwoFiles";
    constexpr char kSharedFolder[] = "TARVIK_TEST_SHARED_FOLDER";
    if (IsProcessFor(test)) {
        const char* const shared = std::getenv(kSharedFolder);
        ASSERT_NE(shared, nullptr);
        MoveTempFolder(shared);
        ConstructWith({.enableCopTrace = true});
        Destruct();
        return;
    }
    const std::string folder = JoinPath(PrivateFolder(), "shared");
    WriteFile(JoinPath(folder, "marker"), "");
    for (int i = 0; i < 2; ++i) {
        const ProgramRun run = RunTestInFreshProcess(test, {{kSharedFolder, folder}});
        ASSERT_EQ(run.exit_code, 0) << run.output;
    }
    EXPECT_EQ(FilesIn(folder, "dpdu_debug_", ".log").size(), 2u);
    const std::vector<std::string> traces = FilesIn(folder, "dpdu_coptrace_", "_1.jsonl");
    ASSERT_EQ(traces.size(), 2u);
    EXPECT_NE(traces[0], traces[1]);
}

// ---- console -----------------------------------------------------------------------------------

TEST(FreshConsole, BannerIsPrintedOncePerProcess) {
    const std::string test = "FreshConsole.BannerIsPrintedOncePerProcess";
    if (IsProcessFor(test)) {
        for (int i = 0; i < 2; ++i) {
            ConstructWith({.showDebug = true});
            Destruct();
        }
        return;
    }
    const ProgramRun run = RunTestInFreshProcess(test);
    EXPECT_EQ(run.exit_code, 0) << run.output;
    if (!ConsoleIsStandardOutput()) return;  // the banner went to a window
    const std::string banner =
        "-----------------------\n Debug console enabled\n-----------------------\n";
    const std::size_t at = run.output.find(banner);
    ASSERT_NE(at, std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("Debug console enabled", at + banner.size()), std::string::npos);
}

FRESH_PROCESS_TEST(FreshConsole, SwitchedOffPrintsNoBanner) {
    StdoutCapture console;
    ConstructWith({});
    EXPECT_FALSE(console.Has("Debug console enabled"));
    EXPECT_TRUE(console.Has("Opened config file: " + UserConfigPath() + "\n"));
}

FRESH_PROCESS_TEST(FreshConsole, PauseHoldsUpNeitherScanNorDestruct) {
    ConstructWith(
        {.useSerial = true, .useCloud = true, .dummyDevice = true, .serverAddress = "127.0.0.1:1"});
    paused_console::PausedConsole console;
    ASSERT_TRUE(console.IsUsable());
    EXPECT_NE(GetModuleIds(), nullptr);
    Destruct();
    ConstructWith({.dummyDevice = true});
    Destruct();
}

// From construct to the end of the process, whose detach line nobody reads either.
FRESH_PROCESS_TEST(FreshConsole, ClosedReaderEndsNoProcess) {
    std::fflush(stdout);
    ASSERT_TRUE(paused_console::CloseReaderOfOutput());
    ConstructWith({.showDebug = true, .useSerial = true, .dummyDevice = true});
    EXPECT_NE(GetModuleIds(), nullptr);
    Destruct();
    std::exit(testing::Test::HasFailure() ? 1 : 0);  // the test program would print too
}

// ---- trace -------------------------------------------------------------------------------------

FRESH_PROCESS_TEST(FreshTrace, SwitchedOffByConfigurationSendsANoticeAndWritesNoFile) {
    const DebugOutputCapture debugger;
    ConstructWith({.enableCopTrace = false});
    Destruct();
    EXPECT_TRUE(debugger.Has("[CopLog] Logging is DISABLED via config enableCopTrace=false\n"));
    EXPECT_FALSE(debugger.Has("ENABLED"));
    EXPECT_TRUE(TraceFiles().empty());
}

FRESH_PROCESS_TEST(FreshTrace, SwitchedOffByEnvironmentSendsANoticeAndWritesNoFile) {
    SetVariable(kDisableTrace, "1");
    const DebugOutputCapture debugger;
    ConstructWith({.enableCopTrace = true});
    Destruct();
    EXPECT_TRUE(debugger.Has("[CopLog] Logging is DISABLED via DPDU_COPTRACE_DISABLE\n"));
    EXPECT_TRUE(TraceFiles().empty());
}

TEST_F(Trace, EnvironmentSwitchDependsOnItsValue) {
    for (const char* set : {"1", "1x", "123456789012345", "true", "TRUE", "yes", "Yes"}) {
        EXPECT_FALSE(TraceRunsWith(set)) << set;
    }
    for (const char* not_set : {"", "0", "no", "on", "truely", "1234567890123456"}) {
        EXPECT_TRUE(TraceRunsWith(not_set)) << not_set;
    }
}

FRESH_PROCESS_TEST(FreshTrace, HasTheStartAndEndOfItsSession) {
    const DebugOutputCapture debugger;
    ConstructWith({.enableCopTrace = true});
    const auto start = WaitForTrace("log_start", 1);
    Destruct();
    ASSERT_EQ(TraceFiles().size(), 1u);
    EXPECT_TRUE(debugger.Has("[CopLog] Logging is ENABLED\n"));
    EXPECT_TRUE(debugger.Has("[CopLog] Creating trace file: " + TraceFiles()[0] + "\n"))
        << debugger.Text();
    ASSERT_EQ(start.size(), 1u);
    const std::vector<nlohmann::json> trace = ReadTrace();
    ASSERT_GE(trace.size(), 2u);
    EXPECT_EQ(trace.front(), start[0]);
    EXPECT_EQ(trace.front()["seq"], 1);
    EXPECT_EQ(trace.front()["session"], 1);
    EXPECT_EQ(trace.front()["flush_ms"], 500);
    EXPECT_EQ(trace.front()["pid"], ProcessId());
    EXPECT_EQ(trace.front()["tid"], ThreadId());
    EXPECT_EQ(trace.back()["ev"], "log_stop");
    EXPECT_EQ(trace.back().size(), 5u);
    EXPECT_GE(trace.back()["ts_us"], trace.front()["ts_us"]);
}

FRESH_PROCESS_TEST(FreshTrace, SessionAfterDestructHasItsOwnFileAndSequence) {
    for (int session = 1; session <= 3; ++session) {
        ConstructWith({.enableCopTrace = true});
        Destruct();
        ASSERT_EQ(TraceFiles().size(), static_cast<std::size_t>(session));
        const std::vector<nlohmann::json> trace = ReadTrace();
        ASSERT_EQ(trace.size(), 2u);
        EXPECT_EQ(trace[0]["seq"], 1);
        EXPECT_EQ(trace[0]["session"], session);
        EXPECT_EQ(trace[1]["seq"], 2);
        EXPECT_EQ(trace[1]["ev"], "log_stop");
    }
}

FRESH_PROCESS_TEST(FreshTrace, LeftoverFileRaisesTheSessionNumber) {
    const std::string begin = JoinPath(TempFolder(), "dpdu_coptrace_");
    const std::string leftover = begin + std::to_string(ProcessId()) + "_1.jsonl";
    WriteFile(leftover, "an older trace\n");
    ConstructWith({.enableCopTrace = true});
    Destruct();
    EXPECT_EQ(ReadFile(leftover), "an older trace\n");
    const std::vector<nlohmann::json> trace =
        ReadTrace(begin + std::to_string(ProcessId()) + "_2.jsonl");
    ASSERT_FALSE(trace.empty());
    EXPECT_EQ(trace[0]["session"], 2);
}

FRESH_PROCESS_TEST(FreshTrace, UnwritableTemporaryFolderSwitchesItOff) {
    MoveTempFolder(JoinPath(JoinPath(PrivateFolder(), "not"), "there"));
    ConstructWith({.enableCopTrace = true, .enableDebugLogFile = false});
    EXPECT_EQ(Pdu().PDUDestroyItem(nullptr), PDU_STATUS_NOERROR);
    Destruct();
}
