#include "torture/torture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <vector>

#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "torture/leaks.h"

namespace torture {
namespace {

constexpr std::uint64_t kWatchdogMs = 30'000;
constexpr long kMissesAtTheEnd = 3;  // the number of points is not the same in each run
constexpr int kTries = 4;            // at a point that a session did not reach
constexpr std::size_t kMostBad = 60;
constexpr long kSample = 17;     // every 17th point,
constexpr long kSampleSize = 6;  // of scenarios with many points fewer
constexpr long kMany = 50;       // allocations
constexpr std::size_t kNotes = 6;

// What a child leaves, whatever happens to it.
struct Shared {
    std::atomic<std::uint64_t> beat;
    std::atomic<long> point;    // that the child is at
    std::atomic<long> covered;  // points at which something failed
    std::atomic<long> stride;   // from one point to the next
    int failures;               // of GoogleTest, before the child was started
    char phase[32];
    FaultRecord fault;
    int signal;
    int crash_frames;
    FaultFrame crash[kFaultFrames];
    std::atomic<std::size_t> notes;  // what is bad about the point
    char note[kNotes][256];
};
Shared* shared = nullptr;
std::atomic<bool> is_armed{false};
const conformance::Functions* api = nullptr;

// Exit codes of a child.
enum { kAllDone = 40, kBadPoint = 41 };

long NumberFrom(const char* variable, long otherwise) {
    const char* value = std::getenv(variable);
    return value == nullptr || *value == '\0' ? otherwise : std::strtol(value, nullptr, 10);
}

int Failures() {
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

void SetPhase(const char* phase) {
    std::strncpy(shared->phase, phase, sizeof shared->phase - 1);
    StillRunning();
}

__attribute__((format(printf, 1, 2))) void Note(const char* format, ...) {
    const std::size_t index = shared->notes.fetch_add(1);
    if (index >= kNotes) return;
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(shared->note[index], sizeof shared->note[index], format, arguments);
    va_end(arguments);
}

// ---- what calls may return ---------------------------------------------------------------------

// The header's "Errors" of each function, as far as a fault may cause them. No other call fails.
struct MayReturn {
    const char* function;
    T_PDU_ERROR status;
};
constexpr MayReturn kMayReturn[] = {
    {"PDUConstruct", PDU_ERR_FCT_FAILED},      {"PDUGetModuleIds", PDU_ERR_FCT_FAILED},
    {"PDUGetResourceIds", PDU_ERR_FCT_FAILED}, {"PDUCreateComLogicalLink", PDU_ERR_FCT_FAILED},
    {"PDUSetComParam", PDU_ERR_FCT_FAILED},    {"PDUStartComPrimitive", PDU_ERR_FCT_FAILED},
};

bool IsAllowed(const char* function, T_PDU_ERROR status) {
    if (status == PDU_STATUS_NOERROR) return true;
    // These two depend on what the library has got to, not on the fault.
    if (status == PDU_ERR_EVENT_QUEUE_EMPTY) return std::strcmp(function, "PDUGetEventItem") == 0;
    if (std::strcmp(function, "PDUCancelComPrimitive") == 0) {
        return status == PDU_ERR_INVALID_HANDLE;
    }
    if (!IsArmed()) return false;
    for (const MayReturn& may : kMayReturn) {
        if (std::strcmp(function, may.function) == 0 && status == may.status) return true;
    }
    return false;
}

// ---- the child ---------------------------------------------------------------------------------

std::size_t OpenFiles() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

void OnCrash(int signal) {
    ++faults_exempt;
    shared->signal = signal;
    shared->crash_frames = FaultsStack(shared->crash, kFaultFrames, 2);
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

class Child {
public:
    Child(const ScenarioMaker& make, const Mode& mode) : mode_(mode) {
        Prepare();
        scenario_ = make();
        scenario_->Prepare();
        CountPoints();
        open_files_ = OpenFiles();
        if (shared->stride == 0) shared->stride = ChooseStride();
        stride_ = shared->stride;
    }

    // From the point at which a child before this one has ended.
    [[noreturn]] void Continue() {
        long missed = 0;
        for (long point = NextPoint(); !IsBehindTheLast(point, missed); point += stride_) {
            shared->point = point;
            const bool fired = TryPoint(point);
            missed = fired ? 0 : missed + 1;
            if (!scenario_->MayRunTwice() && !CleanSession())
                Note("the next session does not work");
            CheckFiles();
            CheckMemory();
            if (shared->notes != 0) End(kBadPoint);
            if (fired) ++shared->covered;
        }
        if (scenario_->MayRunTwice() && !CleanSession()) {
            Note("the session after the last fault does not work");
            End(kBadPoint);
        }
        End(kAllDone);
    }

private:
    static void Prepare() {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        faults_exempt = 1;
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(nowhere, 1);
        ::close(nowhere);
        SetPhase("loading");
        FaultsInit();
        // Where no configuration can be found, one is written beside the library.
        conformance::UseLibraryCopy();
        if (kHasLeakCheck) return;  // the sanitizer reports crashes itself
        for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL})
            ::signal(signal, OnCrash);
    }

    [[noreturn]] static void End(int code) {
        std::fflush(nullptr);
        ::_exit(code);
    }

    void CountPoints() {
        // The first session loads what those after it find loaded.
        if (IsWhole()) CountSession();
        CountSession();
    }

    // Counts in a session without a fault, which must work.
    void CountSession() {
        const FaultPlan none = {mode_.kind, std::numeric_limits<long>::max(), 1, mode_.variant};
        SetPhase("without fault");
        scenario_->SetUp();
        FaultsArm(&none, &shared->fault);
        const bool works = scenario_->Run();
        points_ = FaultsDisarm();
        if (mode_.kind == kPeerFault) points_ = scenario_->PeerBytes();
        scenario_->TearDown();
        if (Succeeds(works)) return;
        Note("does not work without a fault");
        End(kBadPoint);
    }

    long ChooseStride() const {
        if (IsWhole()) return NumberFrom("TORTURE_STRIDE", 1);
        return std::max(kSample, points_ / NumberFrom("TORTURE_SAMPLE", kSampleSize));
    }

    long NextPoint() const {
        if (shared->point != 0) return shared->point + stride_;
        // The two kinds of a sample begin at different points.
        return NumberFrom("TORTURE_FIRST", 1 + (mode_.kind == kIoFault ? 3 : 0) % stride_);
    }

    bool IsBehindTheLast(long point, long missed) const {
        const bool varies = IsWhole() && mode_.kind != kPeerFault;
        return point > points_ && (!varies || missed >= kMissesAtTheEnd);
    }

    long CountAt(long point) const {
        if (mode_.count != kInTurn) return mode_.count;
        return point / stride_ % 2 == 0 ? 1 : kMany;
    }

    // False: also if the framework's expectations failed.
    static bool Succeeds(bool result) {
        return result && Failures() == shared->failures && shared->notes == 0;
    }

    bool CleanSession() {
        SetPhase("clean session");
        scenario_->SetUp();
        const bool works = scenario_->Run();
        scenario_->TearDown();
        return Succeeds(works);
    }

    // A session that loses patience on a busy machine is shorter than the one that was counted.
    bool TryPoint(long point) {
        const int tries = IsWhole() && point <= points_ ? kTries : 1;
        for (int i = 0; i < tries && shared->notes == 0; ++i)
            if (RunPoint(point)) return true;
        return false;
    }

    // True: the fault happened.
    bool RunPoint(long point) {
        SetPhase("set-up");
        scenario_->SetUp();
        const bool works = !scenario_->MayRunTwice() || scenario_->Run();
        if (!Succeeds(works)) {
            Note("the session after the fault at point %ld does not work", point - stride_);
        }
        const FaultPlan plan = {mode_.kind, point, CountAt(point), mode_.variant};
        SetPhase("with fault");
        if (mode_.kind == kPeerFault) scenario_->ClosePeerAfter(point);
        FaultsArm(&plan, &shared->fault);
        is_armed = true;
        scenario_->Run();
        FaultsDisarm();
        SetPhase("tear-down");
        scenario_->TearDown();
        is_armed = false;
        return mode_.kind == kPeerFault || shared->fault.fired != 0;
    }

    // A thread may still be about to close one.
    void CheckFiles() {
        std::size_t now = OpenFiles();
        for (int i = 0; i < 200 && now > open_files_; ++i) {
            ::usleep(10'000);
            now = OpenFiles();
        }
        if (now > open_files_) Note("%zu descriptors instead of %zu", now, open_files_);
    }

    void CheckMemory() {
        if (!scenario_->MayLoseMemory() && LeaksMemory()) Note("memory is lost");
    }

    const Mode mode_;
    long points_ = 0;
    long stride_ = 0;
    std::unique_ptr<Scenario> scenario_;
    std::size_t open_files_ = 0;
};

// ---- the parent --------------------------------------------------------------------------------

std::string Symbol(const FaultFrame& frame) {
    char command[256];
    // A return address: the call is before it.
    std::string module = frame.module;  // may be the end of a path
    if (module.ends_with(conformance::kLibraryFileName)) module = conformance::LibraryPath();
    std::snprintf(command, sizeof command, "addr2line -sfCe '%s' %#lx 2>/dev/null", module.c_str(),
                  frame.offset - 1);
    std::string text;
    if (FILE* output = ::popen(command, "r"); output != nullptr) {
        char line[256];
        while (std::fgets(line, sizeof line, output) != nullptr)
            text += line;
        ::pclose(output);
    }
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    for (char& letter : text)
        if (letter == '\n') letter = ' ';
    return text;
}

// Up to the harness's own functions.
std::string StackText(const FaultFrame* frames, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        const std::string module = std::filesystem::path(frames[i].module).filename().string();
        if (i > 0 && module.starts_with("torture_")) break;
        char place[32];
        std::snprintf(place, sizeof place, "+%#lx", frames[i].offset);
        text += "      " + Symbol(frames[i]) + " " + module + place + "\n";
    }
    return text;
}

class Run {
public:
    Run(const std::string& name, const ScenarioMaker& make, const Mode& mode)
        : name_(name), make_(make), mode_(mode) {}

    void All() {
        while (bad_.size() < kMostBad && !RunChild()) {
        }
        std::fprintf(stderr, "torture: %s: %s: %ld points, %zu bad\n", name_.c_str(), mode_.name,
                     shared->covered.load(), bad_.size());
        if (shared->covered == 0 && !IsWhole()) ADD_FAILURE() << "nothing has failed";
        // Not before, since the children would inherit them.
        for (const std::string& each : bad_)
            ADD_FAILURE() << each;
    }

private:
    // True: that was the last.
    bool RunChild() {
        const std::string folder = conformance::JoinPath(conformance::SystemTempFolder(),
                                                         "torture_" + std::to_string(::getpid()));
        std::filesystem::create_directory(folder);
        ResetShared();
        std::fflush(nullptr);
        const pid_t child = ::fork();
        if (child == 0) {
            conformance::UseTempFolder(folder);
            Child(make_, mode_).Continue();
        }
        const int status = Await(child);
        const bool all = WIFEXITED(status) && WEXITSTATUS(status) == kAllDone;
        if (!all) ReportBad(status);  // while the copy of the library is there
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
        return all || shared->point == 0;  // without a fault
    }

    static void ResetShared() {
        shared->failures = Failures();
        shared->fault = {};
        shared->signal = 0;
        shared->crash_frames = 0;
        shared->notes = 0;
        StillRunning();
    }

    // Where they stand still, if there is a debugger.
    static void ShowThreads(pid_t child) {
        const std::string command = "gdb -p " + std::to_string(child) +
                                    " -batch -ex 'thread apply all bt 16' 2>/dev/null"
                                    " | grep -E '^(Thread|#)' >&2";
        if (std::system(command.c_str()) != 0) std::fprintf(stderr, "no debugger\n");
    }

    int Await(pid_t child) {
        int status = 0;
        while (::waitpid(child, &status, WNOHANG) == 0) {
            ::usleep(20'000);
            if (conformance::TickMs() < shared->beat + kWatchdogMs) continue;
            Note("no progress for 30 s");
            ShowThreads(child);
            // Its handler leaves the stack of the thread that stands still.
            ::syscall(SYS_tgkill, child, child, SIGABRT);
            ::sleep(1);
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            break;
        }
        return status;
    }

    void ReportBad(int status) {
        ++shared->covered;
        std::string text = name_ + ", " + mode_.name + ", point " + std::to_string(shared->point) +
                           ", " + shared->phase + ": ";
        if (WIFSIGNALED(status)) {
            text += "ended by signal " + std::to_string(WTERMSIG(status));
        } else if (WEXITSTATUS(status) != kBadPoint) {
            text += "ended with " + std::to_string(WEXITSTATUS(status));
        }
        const std::size_t notes = std::min(shared->notes.load(), kNotes);
        for (std::size_t i = 0; i < notes; ++i)
            text += std::string("; ") + shared->note[i];
        text += "\n    " + std::string(shared->fault.what) + " failed (of " +
                std::to_string(shared->fault.fired) + "):\n" +
                StackText(shared->fault.frames, shared->fault.frame_count);
        if (shared->crash_frames != 0) {
            text += "    ended at:\n" + StackText(shared->crash, shared->crash_frames);
        }
        bad_.push_back(text);
    }

    const std::string name_;
    const ScenarioMaker& make_;
    const Mode mode_;
    std::vector<std::string> bad_;
};

}  // namespace

bool IsWhole() { return std::getenv("TORTURE_STRIDE") != nullptr; }

bool IsArmed() { return is_armed; }

std::chrono::milliseconds Patience() {
    return is_armed ? std::chrono::milliseconds(400) : std::chrono::milliseconds(20'000);
}

const conformance::Functions& Api() { return api != nullptr ? *api : conformance::Pdu(); }
void UseApi(const conformance::Functions* functions) { api = functions; }

void StillRunning() { shared->beat = conformance::TickMs(); }

void CheckStatus(const char* function, T_PDU_ERROR status) {
    if (!IsAllowed(function, status)) Note("%s returned %#x", function, status);
}

void NoteBad(const char* what) { Note("%s", what); }

void Torture(const std::string& name, const ScenarioMaker& make, const Mode& mode) {
    void* memory =
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    shared = new (memory) Shared{};
    Run(name, make, mode).All();
    ::munmap(memory, sizeof(Shared));
    shared = nullptr;
}

}  // namespace torture
