#pragma once

// The end of a process whose threads use the library while exit handlers run. For tests in a
// process of their own.

#include "conformance/framework/library.h"

namespace conformance {

// Call it before the library is loaded. Its exit handler, which runs after those of the library and
// of what the library is built on, waits for more requests and calls PDUDestruct.
void ExitWhileRequestsRun();

// From now on, a thread starts requests to the engine control unit, until the process has ended.
void KeepRequesting(UNUM32 hMod);

}  // namespace conformance
