// Loading and unloading the library, and the process's resources after many rounds.

#include <string>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/steadiness.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"

using namespace conformance;

namespace {

constexpr char kDetachLine[] = "[DLL] Detaching the Tarvik D-PDU DLL\n";

// Growth that the library does not cause: a few threads and handles of the system, and some memory.
// A leak of a page or of a prepared ComParam table in each round would exceed it.
constexpr Allowance kSystemsOwn{.threads = 2, .handles = 4, .memory = 1'500'000};

void ExpectFlat(const char* what, int rounds, const ProcessFigures& before,
                const Allowance& allowance = kSystemsOwn) {
    ExpectSteady(std::string(what) + ", " + std::to_string(rounds) + " rounds", before,
                 MeasureSettled(before, allowance), allowance);
}

void ConstructAndDestruct(const Functions& pdu) {
    ASSERT_EQ(pdu.PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    ASSERT_EQ(pdu.PDUDestruct(), PDU_STATUS_NOERROR);
}

void LoadUseAndUnload() {
    LibraryInstance library(LibraryPath());
    ASSERT_TRUE(library.IsLoaded()) << library.Error();
    ConstructAndDestruct(*library);
    ASSERT_TRUE(library.Unload());
}

}  // namespace

FRESH_PROCESS_TEST(Loading, UnloadingPrintsTheDetachLine) {
    LibraryInstance library(LibraryPath());
    ASSERT_TRUE(library.IsLoaded()) << library.Error();
    StdoutCapture console;
    ASSERT_TRUE(library.Unload());
    EXPECT_EQ(console.Text(), kDetachLine);
}

TEST(Loading, ProcessExitPrintsTheDetachLine) {
    const std::string test = "Loading.ProcessExitPrintsTheDetachLine";
    if (IsProcessFor(test)) {
        Settings().Store();
        ConstructAndDestruct(Pdu());
        return;
    }
    const ProgramRun run = RunTestInFreshProcess(test);
    EXPECT_EQ(run.exit_code, 0) << run.output;
    std::size_t lines = 0;
    for (std::size_t at = run.output.find("[DLL] Detaching the Tarvik D-PDU DLL");
         at != std::string::npos; at = run.output.find("[DLL] Detaching", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(lines, 1u) << run.output;
}

TEST(Loading, ProcessExitsInTimeWithoutDestruct) {
    const std::string test = "Loading.ProcessExitsInTimeWithoutDestruct";
    if (IsProcessFor(test)) {
        Settings{.enableCopTrace = true, .useSerial = true, .dummyDevice = true}.Store();
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        return;
    }
    const ProgramRun run = RunTestInFreshProcess(test);
    EXPECT_EQ(run.exit_code, 0) << run.output;
}

FRESH_PROCESS_TEST(Loading, LibraryCanBeUsedAgainAfterUnloading) {
    Settings{.enableCopTrace = true, .dummyDevice = true}.Store();
    for (int i = 0; i < 3; ++i)
        LoadUseAndUnload();
}

FRESH_PROCESS_TEST(Loading, ThousandRoundsOfLoadingAndUnloadingDoNotLeak) {
    Settings().Store();
    constexpr int rounds = 1000;
    for (int i = 0; i < rounds / 10; ++i) {
        LibraryInstance library(LibraryPath());
        ASSERT_TRUE(library.IsLoaded()) << library.Error();
    }
    const ProcessFigures before = MeasureProcess();
    for (int i = 0; i < rounds; ++i) {
        LibraryInstance library(LibraryPath());
        ASSERT_TRUE(library.IsLoaded()) << library.Error();
    }
    ExpectFlat("load, unload", rounds, before);
}

FRESH_PROCESS_TEST(Loading, HundredRoundsWithConstructAndDestructDoNotLeak) {
    Settings{.enableCopTrace = true, .dummyDevice = true}.Store();
    for (int i = 0; i < 10; ++i)
        LoadUseAndUnload();
    const ProcessFigures before = MeasureProcess();
    for (int i = 0; i < 100; ++i)
        LoadUseAndUnload();
    // Wine creates a semaphore for a lock on which two threads have met, and keeps it as long as
    // the lock. The library's static locks, such as the log's, are never destroyed.
    Allowance allowance = kSystemsOwn;
    allowance.handles = 100;
    ExpectFlat("load, construct, destruct, unload", 100, before, allowance);
}

FRESH_PROCESS_TEST(Loading, ThousandRoundsOfConstructAndDestructDoNotLeak) {
    Settings{.useSerial = true, .dummyDevice = true}.Store();
    constexpr int rounds = 1000;
    for (int i = 0; i < rounds / 10; ++i)
        ConstructAndDestruct(Pdu());
    const ProcessFigures before = MeasureProcess();
    for (int i = 0; i < rounds; ++i)
        ConstructAndDestruct(Pdu());
    ExpectFlat("construct, destruct", rounds, before);
}
