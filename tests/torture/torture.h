#pragma once

// Runs a scenario again and again; each time another allocation, input or output of the library
// fails.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "conformance/framework/library.h"
#include "torture/faults.h"

namespace torture {

class Scenario {
public:
    virtual ~Scenario() = default;

    // Once in each process. What stays open for good is open afterwards.
    virtual void Prepare() {}
    // Nothing fails here. Fails the test if it does not succeed.
    virtual void SetUp() {}
    // Here the fault happens. Calls the library by CALL only, and allocates nothing itself while a
    // fault may happen. True: everything is as it is without a fault.
    virtual bool Run() = 0;
    // Nothing fails here. Leaves nothing behind in the process, whatever Run came to.
    virtual void TearDown() {}
    // Run leaves the session of SetUp as it is, so that the run that shows that the session works
    // may be in the same one.
    virtual bool MayRunTwice() const { return false; }
    // How many bytes the peer sends during Run, and what makes it go after some of them.
    virtual long PeerBytes() const { return 0; }
    virtual void ClosePeerAfter(long /*bytes*/) {}
    // The library goes, and with it the pointers to what it keeps as long as the process lives.
    virtual bool MayLoseMemory() const { return false; }
};

struct Mode {
    const char* name;
    FaultKind kind;
    long count;  // kInTurn: 1 and 50
    int variant;
};

// Whether every TORTURE_STRIDE-th point is tried, or a sample.
bool IsWhole();

// A sample of the points of the scenario in this mode: every TORTURE_STRIDE-th if that is set.
// Fails the test for each point where the process ends or stands still, a call returns what the
// header does not allow, the next session does not work, or descriptors or memory are lost. Prints
// a line with the numbers.
using ScenarioMaker = std::function<std::unique_ptr<Scenario>()>;
void Torture(const std::string& name, const ScenarioMaker& make, const Mode& mode);

// ---- for scenarios -----------------------------------------------------------------------------

// Whether a fault may happen, in which case nobody waits long for what may never come.
bool IsArmed();
std::chrono::milliseconds Patience();

// Only these calls of the harness's thread count.
class InLibrary {
public:
    InLibrary() { --faults_exempt; }
    ~InLibrary() { ++faults_exempt; }
    InLibrary(const InLibrary&) = delete;
    InLibrary& operator=(const InLibrary&) = delete;
};

// The library runs the harness's code.
class InCallback {
public:
    InCallback() { ++faults_exempt; }
    ~InCallback() { --faults_exempt; }
    InCallback(const InCallback&) = delete;
    InCallback& operator=(const InCallback&) = delete;
};

// The library under test. A scenario that loads one of its own names its functions.
const conformance::Functions& Api();
void UseApi(const conformance::Functions* functions);

// The watchdog's clock starts again.
void StillRunning();
// Notes what the header does not allow. Allocates nothing.
void CheckStatus(const char* function, T_PDU_ERROR status);
void NoteBad(const char* what);

template <typename Function, typename... Arguments>
T_PDU_ERROR Call(const char* name, Function function, Arguments... arguments) {
    StillRunning();
    T_PDU_ERROR status;
    {
        const InLibrary counted;
        status = function(arguments...);
    }
    CheckStatus(name, status);
    return status;
}
#define CALL(name, ...) torture::Call(#name, torture::Api().name __VA_OPT__(, ) __VA_ARGS__)

// True as soon as `happened` returns true; false after the patience.
template <typename Predicate>
bool Eventually(Predicate happened) {
    const auto deadline = std::chrono::steady_clock::now() + Patience();
    while (!happened()) {
        StillRunning();
        if (std::chrono::steady_clock::now() >= deadline) return false;
        const timespec pause = {0, 2'000'000};
        ::nanosleep(&pause, nullptr);
    }
    return true;
}

}  // namespace torture
