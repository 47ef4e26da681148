// The linker's --wrap leads every call of OsThreadStart here first.
#include "unit/transport/thread_start_fault.h"

#include <atomic>
#include <cstring>

#include "platform/thread.h"

namespace tarvik {

OsThread* RealThreadStart(OsThreadEntry entry, void* argument, const char* description) __asm__(
    "__real__ZN6tarvik13OsThreadStartEPFvPvES0_PKc");
OsThread* WrappedThreadStart(OsThreadEntry entry, void* argument, const char* description) __asm__(
    "__wrap__ZN6tarvik13OsThreadStartEPFvPvES0_PKc");

static std::atomic<const char*> refused{nullptr};
static std::atomic<std::int32_t> refused_error{0};

OsThread* WrappedThreadStart(OsThreadEntry entry, void* argument, const char* description) {
    const char* name = refused;
    if (name != nullptr && std::strcmp(name, description) == 0) {
        OsSetLastError(refused_error);
        return nullptr;
    }
    return RealThreadStart(entry, argument, description);
}

namespace test {

ThreadStartFault::ThreadStartFault(const char* description, std::int32_t error) {
    refused_error = error;
    refused = description;
}

ThreadStartFault::~ThreadStartFault() { refused = nullptr; }

}  // namespace test
}  // namespace tarvik
