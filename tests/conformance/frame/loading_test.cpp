// Loading and unloading the library, and the process's resources after many rounds.

#include <cstdio>
#include <string>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "conformance/framework/waiting.h"

using namespace conformance;

namespace {

constexpr char kDetachLine[] = "[DLL] Detaching the Tarvik D-PDU DLL\n";

// Growth that the library does not cause: a few threads and handles of the system, and some memory.
// A leak of a page or of a prepared ComParam table in each round would exceed it.
struct Allowance {
    std::uint64_t handles = 4;
    std::uint64_t memory = 1'500'000;
};

// A sanitizer keeps released memory, and data about every library ever loaded.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryTells = false;
#else
constexpr bool kMemoryTells = true;
#endif

constexpr std::uint64_t kMoreThreads = 2;

bool IsFlat(const ProcessFigures& before, const ProcessFigures& after, const Allowance& allowance) {
    return after.threads <= before.threads + kMoreThreads &&
           after.handles <= before.handles + allowance.handles &&
           (!kMemoryTells || after.memory <= before.memory + allowance.memory);
}

// An ended thread may remain on the system's list for a moment.
void ExpectFlat(const char* what, int rounds, const ProcessFigures& before,
                const Allowance& allowance = {}) {
    ProcessFigures after;
    Eventually([&] {
        after = MeasureProcess();
        return IsFlat(before, after, allowance);
    });
    const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf("%s, %d rounds: threads %llu -> %llu, handles %llu -> %llu, memory %llu -> %llu\n",
                what, rounds, number(before.threads), number(after.threads), number(before.handles),
                number(after.handles), number(before.memory), number(after.memory));
    EXPECT_LE(after.threads, before.threads + kMoreThreads);
    EXPECT_LE(after.handles, before.handles + allowance.handles);
    if (kMemoryTells) {
        EXPECT_LE(after.memory, before.memory + allowance.memory);
    }
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
    constexpr std::uint64_t kLocksMetAt = 100;
    ExpectFlat("load, construct, destruct, unload", 100, before, {.handles = kLocksMetAt});
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
