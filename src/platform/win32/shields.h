#pragma once

namespace tarvik {

// While more of these have begun than have ended, the calling thread is not terminated. Both keep
// its last error.
void BeginTerminationShield();
void EndTerminationShield();

}  // namespace tarvik
