#include "unit/faults/keep_loaded_fault.h"

#include <atomic>

// The platform's source, with the functions below under other names. This object then defines all
// that the source does, so the linker takes nothing of it from the library.
#define OsKeepLibraryLoaded SystemKeepLibraryLoaded
#define OsHoldLibrary SystemHoldLibrary
#define OsReleaseLibrary SystemReleaseLibrary
#ifdef _WIN32
#define ReleaseLibraryAfter SystemReleaseLibraryAfter
#include "platform/win32/process.cpp"
#undef ReleaseLibraryAfter
#else
#include "platform/posix/process.cpp"
#endif
#undef OsKeepLibraryLoaded
#undef OsHoldLibrary
#undef OsReleaseLibrary

namespace tarvik {
namespace {

std::atomic<int> keep_loaded_calls{0};
std::atomic<int> library_references{0};

}  // namespace

void OsKeepLibraryLoaded() { ++keep_loaded_calls; }

void* OsHoldLibrary() {
    ++library_references;
    return &library_references;
}

void OsReleaseLibrary(void* reference) {
    if (reference != nullptr) --library_references;
}

#ifdef _WIN32
void ReleaseLibraryAfter(PTP_CALLBACK_INSTANCE, void* reference) { OsReleaseLibrary(reference); }
#endif

namespace test {

int KeepLoadedCalls() { return keep_loaded_calls; }

int LibraryReferences() { return library_references; }

}  // namespace test
}  // namespace tarvik
