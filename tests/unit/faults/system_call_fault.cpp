#include "unit/faults/system_call_fault.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <libudev.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/thread.h"

namespace tarvik::test {
namespace {

// Not thread_local: the first access of such a variable may call one of the functions.
std::atomic<std::uint32_t> failing_thread{0};
std::atomic<std::uint32_t> starving_thread{0};
std::atomic<std::uint32_t> deceived_thread{0};
std::atomic<std::uint32_t> watched_thread{0};
// Used by the failing thread only.
const char* failing_function = nullptr;
int failing_error = 0;
int failures_left = 0;
int allowed_left = 0;
// Used by the starving thread only.
int blocks_left = 0;
int calls = 0;
// Used by the watched thread only.
const char* culprit = nullptr;

int daemon_priority = -1;
char daemon_text[256];

bool IsCurrent(const std::atomic<std::uint32_t>& thread) {
    const std::uint32_t id = thread.load(std::memory_order_relaxed);
    return id != 0 && id == OsCurrentThreadId();
}

void NoteOpening(const char* function) {
    if (!IsCurrent(watched_thread) || culprit != nullptr) return;
    for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0) culprit = function;
    }
}

// False: the call is not to fail. Otherwise errno is set.
bool Fails(const char* function) {
    if (!IsCurrent(failing_thread)) return false;
    if (std::strcmp(function, failing_function) != 0) return false;
    ++calls;
    if (allowed_left > 0) {
        --allowed_left;
        return false;
    }
    if (failures_left == 0) return false;
    --failures_left;
    errno = failing_error;
    return true;
}

bool IsOneByte() { return failing_error == SystemCallFault::kOneByte; }

}  // namespace

SystemCallFault::SystemCallFault(const char* function, int error, int failures, int allowed) {
    failing_function = function;
    failing_error = error;
    failures_left = failures;
    allowed_left = allowed;
    calls = 0;
    failing_thread = OsCurrentThreadId();
}
SystemCallFault::~SystemCallFault() { failing_thread = 0; }
int SystemCallFault::Calls() const { return calls; }

NoMemory::NoMemory(int allowed) {
    blocks_left = allowed;
    starving_thread = OsCurrentThreadId();
}
NoMemory::~NoMemory() { starving_thread = 0; }

PollReportsAll::PollReportsAll() { deceived_thread = OsCurrentThreadId(); }
PollReportsAll::~PollReportsAll() { deceived_thread = 0; }

LowDescriptorWatch::LowDescriptorWatch() {
    culprit = nullptr;
    watched_thread = OsCurrentThreadId();
}
LowDescriptorWatch::~LowDescriptorWatch() { watched_thread = 0; }
std::string LowDescriptorWatch::Culprit() const { return culprit == nullptr ? "" : culprit; }

int NextDescriptor() {
    const int probe = ::dup(STDOUT_FILENO);
    ::close(probe);
    return probe;
}

FakeLogDaemon::FakeLogDaemon() {
    daemon_priority = -1;
    daemon_text[0] = '\0';
}
int FakeLogDaemon::Priority() const { return daemon_priority; }
std::string FakeLogDaemon::Text() const { return daemon_text; }

}  // namespace tarvik::test

using namespace tarvik::test;

// FAILING(RESULT, FUNCTION, (PARAMETERS), (ARGUMENTS), FAILURE): what a call returns that fails.
// cmake/TarvikTests.cmake lists the functions for the linker.
// NOLINTBEGIN(bugprone-macro-parentheses, bugprone-reserved-identifier)
#define FAILING(result, function, ...) REDIRECTED(, result, function, __VA_ARGS__)
// Of a function that opens a descriptor, or may do so.
#define OPENING(result, function, ...) \
    REDIRECTED(NoteOpening(#function);, result, function, __VA_ARGS__)
#define REDIRECTED(note, result, function, parameters, arguments, failure) \
    extern "C" result __real_##function parameters;                        \
    extern "C" result __wrap_##function parameters;                        \
    extern "C" result __wrap_##function parameters {                       \
        note if (Fails(#function)) return failure;                         \
        return __real_##function arguments;                                \
    }

FAILING(int, chown, (const char* path, uid_t user, gid_t group), (path, user, group), -1)
FAILING(int, clock_nanosleep, (clockid_t clock, int flags, const timespec* until, timespec* left),
        (clock, flags, until, left), errno)
FAILING(int, connect, (int descriptor, const sockaddr* address, socklen_t size),
        (descriptor, address, size), -1)
FAILING(int, dladdr, (const void* address, Dl_info* found), (address, found), 0)
OPENING(int, epoll_create1, (int flags), (flags), -1)
FAILING(int, epoll_ctl, (int poll, int operation, int descriptor, epoll_event* events),
        (poll, operation, descriptor, events), -1)
FAILING(int, epoll_wait, (int poll, epoll_event* events, int count, int timeout_ms),
        (poll, events, count, timeout_ms), -1)
OPENING(int, eventfd, (unsigned value, int flags), (value, flags), -1)
FAILING(FILE*, fdopen, (int descriptor, const char* mode), (descriptor, mode), nullptr)
OPENING(FILE*, fopen, (const char* path, const char* mode), (path, mode), nullptr)
OPENING(FILE*, fopen64, (const char* path, const char* mode), (path, mode), nullptr)
FAILING(int, fstat, (int descriptor, struct stat* found), (descriptor, found), -1)
OPENING(int, getaddrinfo,
        (const char* host, const char* port, const addrinfo* hints, addrinfo** first),
        (host, port, hints, first), EAI_SYSTEM)
OPENING(int, getgrgid_r, (gid_t id, group* entry, char* strings, std::size_t size, group** found),
        (id, entry, strings, size, found), errno)
FAILING(ssize_t, getrandom, (void* bytes, std::size_t size, unsigned flags), (bytes, size, flags),
        -1)
OPENING(int, pipe2, (int* ends, int flags), (ends, flags), -1)
FAILING(int, pthread_cond_timedwait,
        (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* until),
        (condition, mutex, until), errno)
FAILING(int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
        (condition, mutex), errno)
FAILING(int, pthread_create,
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*entry)(void*),
         void* argument),
        (thread, attributes, entry, argument), errno)
FAILING(int, pthread_key_create, (pthread_key_t * key, void (*destructor)(void*)),
        (key, destructor), errno)
FAILING(int, pthread_setspecific, (pthread_key_t key, const void* value), (key, value), errno)
FAILING(ssize_t, read, (int descriptor, void* bytes, std::size_t size), (descriptor, bytes, size),
        -1)
FAILING(ssize_t, send, (int descriptor, const void* bytes, std::size_t size, int flags),
        (descriptor, bytes, size, flags), -1)
OPENING(int, socket, (int family, int type, int protocol), (family, type, protocol), -1)
FAILING(int, stat, (const char* path, struct stat* found), (path, found), -1)

FAILING(int, tcgetattr, (int descriptor, termios* settings), (descriptor, settings), -1)
OPENING(udev*, udev_new, (), (), nullptr)

extern "C" {

// With 0 as error: there is no such user.
int __real_getpwuid_r(uid_t user, passwd* entry, char* strings, std::size_t size, passwd** found);
int __wrap_getpwuid_r(uid_t user, passwd* entry, char* strings, std::size_t size, passwd** found);
int __wrap_getpwuid_r(uid_t user, passwd* entry, char* strings, std::size_t size, passwd** found) {
    NoteOpening("getpwuid_r");
    if (!Fails("getpwuid_r")) return __real_getpwuid_r(user, entry, strings, size, found);
    *found = nullptr;
    return errno;
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    if ((flags & O_PATH) == 0) NoteOpening("open");
    if (Fails("open")) return -1;
    std::va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return __real_open(path, flags, mode);
}

// Without RTLD_NOLOAD.
void* __real_dlopen(const char* file, int mode);
void* __wrap_dlopen(const char* file, int mode);
void* __wrap_dlopen(const char* file, int mode) {
    if ((mode & RTLD_NOLOAD) == 0) NoteOpening("dlopen");
    return __real_dlopen(file, mode);
}

int __real_poll(pollfd* files, nfds_t count, int timeout_ms);
int __wrap_poll(pollfd* files, nfds_t count, int timeout_ms);
int __wrap_poll(pollfd* files, nfds_t count, int timeout_ms) {
    if (Fails("poll")) return -1;
    if (!IsCurrent(deceived_thread)) return __real_poll(files, count, timeout_ms);
    for (nfds_t i = 0; i < count; ++i)
        files[i].revents = files[i].events;
    return static_cast<int>(count);
}

ssize_t __real_pread(int descriptor, void* bytes, std::size_t size, off_t offset);
ssize_t __wrap_pread(int descriptor, void* bytes, std::size_t size, off_t offset);
ssize_t __wrap_pread(int descriptor, void* bytes, std::size_t size, off_t offset) {
    const bool fails = Fails("pread");
    if (fails && !IsOneByte()) return -1;
    return __real_pread(descriptor, bytes, fails && size > 1 ? 1 : size, offset);
}

ssize_t __real_write(int descriptor, const void* bytes, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t size) {
    const bool fails = Fails("write");
    if (fails && !IsOneByte()) return -1;
    return __real_write(descriptor, bytes, fails && size > 1 ? 1 : size);
}

__attribute__((format(printf, 2, 0))) void KeepForDaemon(int priority, const char* format,
                                                         std::va_list more) {
    std::vsnprintf(daemon_text, sizeof daemon_text, format, more);
    daemon_priority = priority;
}

__attribute__((format(printf, 2, 3))) void __wrap_syslog(int priority, const char* format, ...);
void __wrap_syslog(int priority, const char* format, ...) {
    std::va_list more;
    va_start(more, format);
    KeepForDaemon(priority, format, more);
    va_end(more);
}

// What these are called where the compiler adds checks of formats and sizes.
int __wrap___poll_chk(pollfd* files, nfds_t count, int timeout_ms, std::size_t size);
int __wrap___poll_chk(pollfd* files, nfds_t count, int timeout_ms, std::size_t) {
    return __wrap_poll(files, count, timeout_ms);
}
__attribute__((format(printf, 3, 4))) void __wrap___syslog_chk(int priority, int flag,
                                                               const char* format, ...);
void __wrap___syslog_chk(int priority, int, const char* format, ...) {
    std::va_list more;
    va_start(more, format);
    KeepForDaemon(priority, format, more);
    va_end(more);
}

// operator new(std::size_t, const std::nothrow_t&). It is redirected like the others: a sanitizer
// has operators of its own.
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
    if (IsCurrent(starving_thread)) {
        if (blocks_left == 0) return nullptr;
        --blocks_left;
    }
    return __real__ZnwmRKSt9nothrow_t(size, tag);
}

}  // extern "C"
// NOLINTEND(bugprone-macro-parentheses, bugprone-reserved-identifier)
