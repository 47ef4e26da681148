#include "unit/faults/thread_start_fault.h"

#include <atomic>
#include <cstring>

// The platform's source, with its OsThreadStart under another name. This object then defines all
// that the source does, so the linker takes nothing of it from the library.
#define OsThreadStart SystemThreadStart
#define OsThreadTerminate SystemThreadTerminate
#ifdef _WIN32
#include "platform/win32/thread.cpp"
#else
#include "platform/posix/thread.cpp"
#endif
#undef OsThreadStart
#undef OsThreadTerminate

namespace tarvik {
namespace {

std::atomic<const char*> refused{nullptr};
std::atomic<std::int32_t> refused_error{0};
std::atomic<bool> recording{false};
std::atomic<const OsThread*> terminated{nullptr};

}  // namespace

OsThread* OsThreadStart(OsThreadEntry entry, void* argument, const char* description) {
    const char* name = refused;
    if (name != nullptr && std::strcmp(name, description) == 0) {
        OsSetLastError(refused_error);
        return nullptr;
    }
    return SystemThreadStart(entry, argument, description);
}

bool OsThreadTerminate(OsThread* thread) {
    if (!recording) return SystemThreadTerminate(thread);
    terminated = thread;
    return true;
}

namespace test {

ThreadStartFault::ThreadStartFault(const char* description, std::int32_t error) {
    refused_error = error;
    refused = description;
}

ThreadStartFault::~ThreadStartFault() { refused = nullptr; }

RecordedTermination::RecordedTermination() {
    terminated = nullptr;
    recording = true;
}

RecordedTermination::~RecordedTermination() { recording = false; }

const OsThread* RecordedTermination::Last() { return terminated; }

}  // namespace test
}  // namespace tarvik
