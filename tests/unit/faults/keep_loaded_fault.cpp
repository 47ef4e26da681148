#include "unit/faults/keep_loaded_fault.h"

#include <atomic>

// The platform's source, with its OsKeepLibraryLoaded under another name. This object then defines
// all that the source does, so the linker takes nothing of it from the library.
#define OsKeepLibraryLoaded SystemKeepLibraryLoaded
#ifdef _WIN32
#include "platform/win32/process.cpp"
#else
#include "platform/posix/process.cpp"
#endif
#undef OsKeepLibraryLoaded

namespace tarvik {
namespace {

std::atomic<int> keep_loaded_calls{0};

}  // namespace

void OsKeepLibraryLoaded() { ++keep_loaded_calls; }

namespace test {

int KeepLoadedCalls() { return keep_loaded_calls; }

}  // namespace test
}  // namespace tarvik
