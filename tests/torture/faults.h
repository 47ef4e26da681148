#pragma once

// Makes the n-th allocation, or the n-th input or output, of the library fail. The program defines
// malloc, read and so on itself. Its symbols precede those of the C library, so that the library
// under test and all that it uses call these.
//
// Counted are the calls of every thread, except of those that set faults_exempt. Nothing here
// allocates.

#ifdef __cplusplus
extern "C" {
#endif

enum {
    kFaultFrames = 24,
    kFaultModuleSize = 80,
    kFaultNameSize = 32,
};

struct FaultFrame {
    char module[kFaultModuleSize];  // the file, or the end of its path
    unsigned long offset;           // from where the module was loaded
};

// In memory that outlives the process: it may crash.
struct FaultRecord {
    int fired;                  // how many calls failed
    char what[kFaultNameSize];  // the first of them
    int frame_count;
    struct FaultFrame frames[kFaultFrames];  // where it was called
};

enum FaultKind {
    kNoFault,          // counts only
    kAllocationFault,  // from the `first`-th allocation on, `count` fail
    kIoFault,          // the `first`-th input or output that has `variant` fails in this way
    kPeerFault,        // nothing fails here
};

struct FaultPlan {
    enum FaultKind kind;
    long first;  // from 1
    long count;
    int variant;  // of kIoFault; kInTurn: which one depends on `first`
};

enum { kIoVariants = 5, kInTurn = -1 };

// Above 0: calls of this thread are not counted.
extern __thread int faults_exempt;

// Once, before the rest.
void FaultsInit(void);
void FaultsArm(const struct FaultPlan* plan, struct FaultRecord* record);
void FaultsPause(int on);  // while on, nothing is counted
long FaultsDisarm(void);   // returns how many calls the plan concerned

// The calling thread's stack, without its first `skipped` frames.
int FaultsStack(struct FaultFrame* frames, int size, int skipped);

#ifdef __cplusplus
}  // extern "C"
#endif
