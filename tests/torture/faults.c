#define _GNU_SOURCE
#include "torture/faults.h"

#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <termios.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

__thread int faults_exempt;

static atomic_int armed;
static atomic_int paused;
static atomic_long calls;
static struct FaultPlan plan;
static struct FaultRecord* record;

// ---- callers that are not the library ----------------------------------------------------------

// The mock of the USB bus is loaded into this process too.
enum { kMaxMocks = 8 };
static struct {
    const char* begin;
    const char* end;
} mocks[kMaxMocks];
static int mock_count;

static int AddMock(struct dl_phdr_info* module, size_t size, void* unused) {
    (void)size;
    (void)unused;
    if (strstr(module->dlpi_name, "umockdev") == NULL &&
        strstr(module->dlpi_name, "mocked_ports") == NULL) {
        return 0;
    }
    for (int i = 0; i < module->dlpi_phnum && mock_count < kMaxMocks; ++i) {
        const ElfW(Phdr)* part = &module->dlpi_phdr[i];
        if (part->p_type != PT_LOAD || (part->p_flags & PF_X) == 0) continue;
        mocks[mock_count].begin = (const char*)module->dlpi_addr + part->p_vaddr;
        mocks[mock_count].end = mocks[mock_count].begin + part->p_memsz;
        ++mock_count;
    }
    return 0;
}

static int IsMock(const void* caller) {
    for (int i = 0; i < mock_count; ++i) {
        if ((const char*)caller >= mocks[i].begin && (const char*)caller < mocks[i].end) return 1;
    }
    return 0;
}

#ifdef TORTURE_ADDRESS_SANITIZER
// With it the sanitizer looks up a new thread's stack, and ends the process if that fails.
EXPORT int pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes) {
    static int (*next)(pthread_t, pthread_attr_t*);
    ++faults_exempt;
    if (next == NULL) *(void**)&next = dlsym(RTLD_NEXT, "pthread_getattr_np");
    const int error = next(thread, attributes);
    --faults_exempt;
    return error;
}
#endif

// ---- the plan ----------------------------------------------------------------------------------

void FaultsInit(void) {
    void* frames[2];
    backtrace(frames, 2);  // allocates the first time
    dl_iterate_phdr(AddMock, NULL);
}

void FaultsArm(const struct FaultPlan* wanted, struct FaultRecord* wanted_record) {
    plan = *wanted;
    record = wanted_record;
    record->fired = 0;
    record->frame_count = 0;
    atomic_store(&calls, 0);
    atomic_store(&armed, 1);
}

void FaultsPause(int on) { atomic_store(&paused, on); }

long FaultsDisarm(void) {
    atomic_store(&armed, 0);
    return atomic_load(&calls);
}

static void Describe(void* address, struct FaultFrame* frame) {
    Dl_info info;
    if (dladdr(address, &info) == 0) memset(&info, 0, sizeof info);
    const char* name = info.dli_fname == NULL ? "?" : info.dli_fname;
    const size_t length = strlen(name);
    if (length >= kFaultModuleSize) name += length - kFaultModuleSize + 1;
    strcpy(frame->module, name);
    frame->offset = (unsigned long)((char*)address - (char*)info.dli_fbase);
}

int FaultsStack(struct FaultFrame* frames, int size, int skipped) {
    enum { kMost = 64 };
    void* addresses[kMost];
    const int count = backtrace(addresses, kMost);
    int written = 0;
    for (int i = skipped; i < count && written < size; ++i)
        Describe(addresses[i], &frames[written++]);
    return written;
}

static void Record(const char* what) {
    if (__atomic_fetch_add(&record->fired, 1, __ATOMIC_RELAXED) != 0) return;
    strncpy(record->what, what, kFaultNameSize - 1);
    record->frame_count = FaultsStack(record->frames, kFaultFrames, 3);
}

// True: this call is to fail.
static int Hits(const char* what) {
    const long number = atomic_fetch_add(&calls, 1) + 1;
    if (number < plan.first || number >= plan.first + plan.count) return 0;
    ++faults_exempt;
    Record(what);
    --faults_exempt;
    return 1;
}

static int IsCounted(enum FaultKind kind, const void* caller) {
    return atomic_load(&armed) && !atomic_load(&paused) && plan.kind == kind &&
           faults_exempt == 0 && !IsMock(caller);
}

// ---- allocations -------------------------------------------------------------------------------

#ifdef TORTURE_ADDRESS_SANITIZER
#define REAL(name) __interceptor_##name
#else
#define REAL(name) __libc_##name
#endif

// The leak checker looks at the caller to know the dynamic linker's own blocks.
#ifdef __clang__
#define TAIL_CALL __attribute__((musttail)) return
#else
#define TAIL_CALL return
#endif

void* REAL(malloc)(size_t size);
void* REAL(calloc)(size_t count, size_t size);
void* REAL(realloc)(void* block, size_t size);
void* REAL(memalign)(size_t alignment, size_t size);

#define ALLOCATION_FAILS(name)                                                                    \
    (IsCounted(kAllocationFault, __builtin_return_address(0)) && Hits(name) ? (errno = ENOMEM, 1) \
                                                                            : 0)

EXPORT void* malloc(size_t size) {
    if (ALLOCATION_FAILS("malloc")) return NULL;
    TAIL_CALL REAL(malloc)(size);
}

EXPORT void* calloc(size_t count, size_t size) {
    if (ALLOCATION_FAILS("calloc")) return NULL;
    TAIL_CALL REAL(calloc)(count, size);
}

EXPORT void* realloc(void* block, size_t size) {
    if (ALLOCATION_FAILS("realloc")) return NULL;
    TAIL_CALL REAL(realloc)(block, size);
}

EXPORT void* memalign(size_t alignment, size_t size) {
    if (ALLOCATION_FAILS("memalign")) return NULL;
    TAIL_CALL REAL(memalign)(alignment, size);
}

EXPORT void* aligned_alloc(size_t alignment, size_t size) {
    return ALLOCATION_FAILS("aligned_alloc") ? NULL : REAL(memalign)(alignment, size);
}

EXPORT int posix_memalign(void** block, size_t alignment, size_t size) {
    if (ALLOCATION_FAILS("posix_memalign")) return ENOMEM;
    *block = REAL(memalign)(alignment, size);
    return *block == NULL ? ENOMEM : 0;
}

// ---- input and output --------------------------------------------------------------------------

// How a call fails: an error number, or one of these.
enum { kNoError = 0, kOneByte = -1 };

struct Errors {
    const char* name;
    int errors[kIoVariants];
};

static int ErrorInTurn(const struct Errors* function, long turn) {
    int count = 0;
    while (count < kIoVariants && function->errors[count] != kNoError)
        ++count;
    return function->errors[turn % count];
}

static int NextError(const struct Errors* function, const void* caller) {
    if (!IsCounted(kIoFault, caller)) return kNoError;
    const int error = plan.variant == kInTurn ? ErrorInTurn(function, plan.first)
                                              : function->errors[plan.variant];
    return error != kNoError && Hits(function->name) ? error : kNoError;
}

// Defines `next` as the next definition of this function: the mock's or the C library's.
#define NEXT(result, name, ...)                   \
    static result (*next)(__VA_ARGS__);           \
    if (next == NULL) {                           \
        ++faults_exempt;                          \
        *(void**)&next = dlsym(RTLD_NEXT, #name); \
        --faults_exempt;                          \
    }

// Defines `error`, and returns -1 with it unless it is kNoError or kOneByte.
#define FAIL(name, ...)                                                 \
    static const struct Errors kErrors = {name, {__VA_ARGS__}};         \
    const int error = NextError(&kErrors, __builtin_return_address(0)); \
    if (error > 0) {                                                    \
        errno = error;                                                  \
        return -1;                                                      \
    }

#define AT_MOST_ONE(size) (error == kOneByte && (size) > 1 ? 1 : (size))

// An event counter or timer: the kernel has no reason to refuse reading or writing it. Such a file
// is of no type.
static int IsEvent(int file) {
    struct stat status;
    return fstat(file, &status) == 0 && (status.st_mode & S_IFMT) == 0;
}

EXPORT ssize_t read(int file, void* bytes, size_t size) {
    NEXT(ssize_t, read, int, void*, size_t)
    if (IsEvent(file)) return next(file, bytes, size);
    FAIL("read", EINTR, EIO, kOneByte, EAGAIN, ECONNRESET)
    return next(file, bytes, AT_MOST_ONE(size));
}

EXPORT ssize_t write(int file, const void* bytes, size_t size) {
    NEXT(ssize_t, write, int, const void*, size_t)
    if (IsEvent(file)) return next(file, bytes, size);
    FAIL("write", EINTR, EIO, kOneByte, EAGAIN, ENOSPC)
    return next(file, bytes, AT_MOST_ONE(size));
}

EXPORT ssize_t recv(int socket, void* bytes, size_t size, int flags) {
    NEXT(ssize_t, recv, int, void*, size_t, int)
    FAIL("recv", EINTR, ECONNRESET, kOneByte, EAGAIN, ENOMEM)
    return next(socket, bytes, AT_MOST_ONE(size), flags);
}

EXPORT ssize_t send(int socket, const void* bytes, size_t size, int flags) {
    NEXT(ssize_t, send, int, const void*, size_t, int)
    FAIL("send", EINTR, ECONNRESET, kOneByte, EAGAIN, EPIPE)
    return next(socket, bytes, AT_MOST_ONE(size), flags);
}

EXPORT ssize_t recvmsg(int socket, struct msghdr* message, int flags) {
    NEXT(ssize_t, recvmsg, int, struct msghdr*, int)
    FAIL("recvmsg", EINTR, ECONNRESET, EAGAIN, ENOMEM)
    return next(socket, message, flags);
}

EXPORT ssize_t sendmsg(int socket, const struct msghdr* message, int flags) {
    NEXT(ssize_t, sendmsg, int, const struct msghdr*, int)
    FAIL("sendmsg", EINTR, ECONNRESET, EAGAIN, ENOBUFS)
    return next(socket, message, flags);
}

EXPORT int connect(int socket, __CONST_SOCKADDR_ARG address, socklen_t size) {
    NEXT(int, connect, int, __CONST_SOCKADDR_ARG, socklen_t)
    FAIL("connect", EINTR, ECONNREFUSED, ENETUNREACH, EAGAIN)
    return next(socket, address, size);
}

EXPORT int socket(int domain, int type, int protocol) {
    NEXT(int, socket, int, int, int)
    FAIL("socket", EMFILE, ENOBUFS)
    return next(domain, type, protocol);
}

EXPORT int eventfd(unsigned int value, int flags) {
    NEXT(int, eventfd, unsigned int, int)
    FAIL("eventfd", EMFILE)
    return next(value, flags);
}

EXPORT int timerfd_create(int clock, int flags) {
    NEXT(int, timerfd_create, int, int)
    FAIL("timerfd_create", EMFILE)
    return next(clock, flags);
}

EXPORT int epoll_create1(int flags) {
    NEXT(int, epoll_create1, int)
    FAIL("epoll_create1", EMFILE)
    return next(flags);
}

EXPORT int epoll_ctl(int set, int operation, int file, struct epoll_event* event) {
    NEXT(int, epoll_ctl, int, int, int, struct epoll_event*)
    FAIL("epoll_ctl", ENOSPC, ENOMEM)
    return next(set, operation, file, event);
}

EXPORT int epoll_wait(int set, struct epoll_event* events, int size, int timeout) {
    NEXT(int, epoll_wait, int, struct epoll_event*, int, int)
    FAIL("epoll_wait", EINTR)
    return next(set, events, size, timeout);
}

EXPORT int pipe(int files[2]) {
    NEXT(int, pipe, int*)
    FAIL("pipe", EMFILE)
    return next(files);
}

EXPORT int poll(struct pollfd* files, nfds_t count, int timeout) {
    NEXT(int, poll, struct pollfd*, nfds_t, int)
    FAIL("poll", EINTR, ENOMEM)
    return next(files, count, timeout);
}

EXPORT int ppoll(struct pollfd* files, nfds_t count, const struct timespec* timeout,
                 const sigset_t* signals) {
    NEXT(int, ppoll, struct pollfd*, nfds_t, const struct timespec*, const sigset_t*)
    FAIL("ppoll", EINTR, ENOMEM)
    return next(files, count, timeout, signals);
}

EXPORT int select(int count, fd_set* readable, fd_set* writable, fd_set* failed,
                  struct timeval* timeout) {
    NEXT(int, select, int, fd_set*, fd_set*, fd_set*, struct timeval*)
    FAIL("select", EINTR, ENOMEM)
    return next(count, readable, writable, failed, timeout);
}

static mode_t Mode(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t)
                                                                      : 0;
}

// The same function under each name that programs use.
#define DEFINE_OPEN(name)                                \
    EXPORT int name(const char* path, int flags, ...) {  \
        NEXT(int, name, const char*, int, ...)           \
        FAIL("open", EINTR, EIO, EMFILE, ENOSPC, EACCES) \
        va_list arguments;                               \
        va_start(arguments, flags);                      \
        const mode_t mode = Mode(flags, arguments);      \
        va_end(arguments);                               \
        return next(path, flags, mode);                  \
    }
#define DEFINE_OPENAT(name)                                         \
    EXPORT int name(int folder, const char* path, int flags, ...) { \
        NEXT(int, name, int, const char*, int, ...)                 \
        FAIL("openat", EINTR, EIO, EMFILE, ENOSPC, EACCES)          \
        va_list arguments;                                          \
        va_start(arguments, flags);                                 \
        const mode_t mode = Mode(flags, arguments);                 \
        va_end(arguments);                                          \
        return next(folder, path, flags, mode);                     \
    }
DEFINE_OPEN(open)
DEFINE_OPEN(open64)
DEFINE_OPENAT(openat)
DEFINE_OPENAT(openat64)

#define DEFINE_FOPEN(name)                                                                    \
    EXPORT FILE* name(const char* path, const char* mode) {                                   \
        NEXT(FILE*, name, const char*, const char*)                                           \
        static const struct Errors kErrors = {"fopen", {EINTR, EIO, EMFILE, ENOSPC, EACCES}}; \
        const int error = NextError(&kErrors, __builtin_return_address(0));                   \
        if (error > 0) {                                                                      \
            errno = error;                                                                    \
            return NULL;                                                                      \
        }                                                                                     \
        return next(path, mode);                                                              \
    }
DEFINE_FOPEN(fopen)
DEFINE_FOPEN(fopen64)

EXPORT size_t fwrite(const void* bytes, size_t size, size_t count, FILE* file) {
    NEXT(size_t, fwrite, const void*, size_t, size_t, FILE*)
    static const struct Errors kErrors = {"fwrite", {EINTR, EIO, kOneByte, ENOSPC}};
    const int error = NextError(&kErrors, __builtin_return_address(0));
    if (error > 0) {
        errno = error;
        return 0;
    }
    return next(bytes, size, AT_MOST_ONE(count), file);
}

EXPORT size_t fread(void* bytes, size_t size, size_t count, FILE* file) {
    NEXT(size_t, fread, void*, size_t, size_t, FILE*)
    static const struct Errors kErrors = {"fread", {EINTR, EIO, kOneByte}};
    const int error = NextError(&kErrors, __builtin_return_address(0));
    if (error > 0) {
        errno = error;
        return 0;
    }
    return next(bytes, size, AT_MOST_ONE(count), file);
}

EXPORT int fputs(const char* text, FILE* file) {
    NEXT(int, fputs, const char*, FILE*)
    FAIL("fputs", EINTR, EIO, ENOSPC)
    return next(text, file);
}

EXPORT int fflush(FILE* file) {
    NEXT(int, fflush, FILE*)
    FAIL("fflush", EINTR, EIO, ENOSPC)
    return next(file);
}

// What closes a file reports an error only after it has closed it.
EXPORT int fclose(FILE* file) {
    NEXT(int, fclose, FILE*)
    const int closed = next(file);
    FAIL("fclose", EINTR, EIO, ENOSPC)
    return closed;
}

EXPORT int close(int file) {
    NEXT(int, close, int)
    const int closed = next(file);
    FAIL("close", EINTR, EIO)
    return closed;
}

EXPORT int fdatasync(int file) {
    NEXT(int, fdatasync, int)
    FAIL("fdatasync", EINTR, EIO, ENOSPC)
    return next(file);
}

EXPORT int ftruncate(int file, off_t size) {
    NEXT(int, ftruncate, int, off_t)
    FAIL("ftruncate", EINTR, EIO)
    return next(file, size);
}

EXPORT int rename(const char* from, const char* to) {
    NEXT(int, rename, const char*, const char*)
    FAIL("rename", EIO, ENOSPC, EACCES)
    return next(from, to);
}

EXPORT int tcgetattr(int file, struct termios* attributes) {
    NEXT(int, tcgetattr, int, struct termios*)
    FAIL("tcgetattr", EIO)
    return next(file, attributes);
}

EXPORT int tcsetattr(int file, int when, const struct termios* attributes) {
    NEXT(int, tcsetattr, int, int, const struct termios*)
    FAIL("tcsetattr", EINTR, EIO)
    return next(file, when, attributes);
}

EXPORT int ioctl(int file, unsigned long request, ...) {
    NEXT(int, ioctl, int, unsigned long, ...)
    FAIL("ioctl", EINTR, EIO)
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return next(file, request, argument);
}
