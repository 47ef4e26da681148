#include "platform/process.h"

#include <dlfcn.h>
#include <signal.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/files.h"
#include "platform/posix/standard_descriptors.h"

namespace tarvik {

std::uint32_t OsProcessId() { return static_cast<std::uint32_t>(::getpid()); }

bool OsDebuggerPresent() {
    std::FILE* status = OsOpenStream("/proc/self/status", "r");
    if (status == nullptr) return false;
    char line[256];
    long tracer = 0;
    while (std::fgets(line, sizeof line, status) != nullptr) {
        if (std::strncmp(line, "TracerPid:", 10) == 0) tracer = std::strtol(line + 10, nullptr, 10);
    }
    std::fclose(status);
    return tracer != 0;
}

void OsDebugBreak() { ::raise(SIGTRAP); }

void OsExitProcess(int code) { ::_exit(code); }

namespace {

void* OpenThisLibrary(int mode) {
    Dl_info library{};
    if (::dladdr(reinterpret_cast<void*>(&OpenThisLibrary), &library) == 0) return nullptr;
    return ::dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | mode);
}

}  // namespace

void OsKeepLibraryLoaded() { OpenThisLibrary(RTLD_NODELETE); }

namespace {

std::atomic<pid_t> loaded_by{::getpid()};

}  // namespace

bool OsIsForked() { return ::getpid() != loaded_by; }

void OsAdoptProcess() { loaded_by = ::getpid(); }

void* OsHoldLibrary() { return OpenThisLibrary(0); }

void OsReleaseLibrary(void* reference) {
    if (reference != nullptr) ::dlclose(reference);
}

namespace {

// Two lines a request fill the system's journal, so only who asks for them gets them.
std::atomic<bool> writes_to_syslog{false};

}  // namespace

void OsChooseDebugOutput() {
    const char* chosen = std::getenv("DPDU_DEBUG_OUTPUT");
    writes_to_syslog = chosen != nullptr && std::strcmp(chosen, "syslog") == 0;
}

void OsDebugOutput(const char* text) {
    if (!writes_to_syslog.load(std::memory_order_relaxed)) return;
    const StandardDescriptorsTaken standard;  // it connects when it is first used
    ::syslog(LOG_USER | LOG_DEBUG, "%s", text);
}

bool OsEnvironment(const char* name, char* value, std::uint32_t capacity) {
    const char* found = std::getenv(name);
    if (found == nullptr) return false;
    const std::size_t length = std::strlen(found);
    if (length >= capacity) return false;
    std::memcpy(value, found, length + 1);
    return true;
}

CalendarTime OsLocalTime() {
    const time_t now = ::time(nullptr);
    tm local{};
    ::localtime_r(&now, &local);
    return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
            local.tm_hour,        local.tm_min,     local.tm_sec};
}

std::int64_t OsCalendarSecond() { return ::time(nullptr); }

}  // namespace tarvik
