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

namespace tarvik {

std::uint32_t OsProcessId() { return static_cast<std::uint32_t>(::getpid()); }

bool OsDebuggerPresent() {
    std::FILE* status = std::fopen("/proc/self/status", "re");
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

void* OsHoldLibrary() { return OpenThisLibrary(0); }

void OsReleaseLibrary(void* reference) {
    if (reference != nullptr) ::dlclose(reference);
}

namespace {

// Without a log daemon, syslog creates a socket for every line and fails to connect it. Looking for
// the daemon costs as much as a line of the trace, so it is done once a second.
bool LogDaemonRuns() {
    static std::atomic<std::int64_t> looked_at{-1};
    static std::atomic<bool> runs{false};
    const std::int64_t second = OsCalendarSecond();
    if (looked_at.load(std::memory_order_acquire) != second) {
        runs.store(::access(_PATH_LOG, F_OK) == 0, std::memory_order_relaxed);
        looked_at.store(second, std::memory_order_release);
    }
    return runs.load(std::memory_order_relaxed);
}

}  // namespace

void OsDebugOutput(const char* text) {
    if (LogDaemonRuns()) ::syslog(LOG_USER | LOG_DEBUG, "%s", text);
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
