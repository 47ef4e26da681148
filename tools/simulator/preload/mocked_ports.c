/*
 * Loaded into programs that run under the mocked USB bus (LD_PRELOAD), before the mock's own
 * library: opens the pseudo-terminal behind a mocked serial port directly, and answers for the
 * mock, which does not know faccessat.
 *
 * For a device opened by its mocked name, the mock answers all ioctls and knows none of a
 * terminal's. The pseudo-terminal itself knows them all, and answers directly.
 */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

static int is_serial_port(const char* path) {
    return strncmp(path, "/dev/ttyACM", 11) == 0 || strncmp(path, "/dev/ttyUSB", 11) == 0;
}

/*
 * Calls the C library directly: the mock's functions, which would be next, take over the ioctls of
 * everything that they open below /dev.
 */
static int open_directly(const char* path, int flags) {
    static int (*libc_open)(const char*, int, ...);
    if (libc_open == NULL) {
        void* libc = dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD);
        if (libc != NULL) *(void**)&libc_open = dlsym(libc, "open");
    }
    if (libc_open == NULL) {
        errno = ENOSYS;
        return -1;
    }
    return libc_open(path, flags);
}

static int is_mocked_port(const char* path) {
    return getenv("UMOCKDEV_DIR") != NULL && is_serial_port(path);
}

/* The pseudo-terminal behind a mocked port. False: errno has the reason. */
static int find_terminal(const char* path, char* target, size_t capacity) {
    char link[PATH_MAX];
    /* NOLINTNEXTLINE(clang-analyzer-security.insecureAPI.*): the C library has no snprintf_s */
    if (snprintf(link, sizeof link, "%s%s", getenv("UMOCKDEV_DIR"), path) >= (int)sizeof link) {
        errno = ENAMETOOLONG;
        return 0;
    }
    const ssize_t size = readlink(link, target, capacity - 1);
    if (size < 0) {
        errno = ENOENT; /* unplugged; a real port of the same name is never opened */
        return 0;
    }
    target[size] = '\0';
    return 1;
}

/* True: `path` is a mocked port's, and `file` is what open returns for it. */
static int open_mocked_port(const char* path, int flags, int* file) {
    if (!is_mocked_port(path)) return 0;
    char target[PATH_MAX];
    *file = find_terminal(path, target, sizeof target) ? open_directly(target, flags) : -1;
    return 1;
}

static mode_t mode_argument(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t)
                                                                      : 0;
}

/* The same function under each name that programs use. */
#define DEFINE_OPEN(name)                                           \
    EXPORT int name(const char* path, int flags, ...) {             \
        static int (*next)(const char*, int, ...);                  \
        if (next == NULL) *(void**)&next = dlsym(RTLD_NEXT, #name); \
        va_list arguments;                                          \
        va_start(arguments, flags);                                 \
        const mode_t mode = mode_argument(flags, arguments);        \
        va_end(arguments);                                          \
        int file;                                                   \
        if (open_mocked_port(path, flags, &file)) return file;      \
        return next(path, flags, mode);                             \
    }

#define DEFINE_OPENAT(name)                                         \
    EXPORT int name(int folder, const char* path, int flags, ...) { \
        static int (*next)(int, const char*, int, ...);             \
        if (next == NULL) *(void**)&next = dlsym(RTLD_NEXT, #name); \
        va_list arguments;                                          \
        va_start(arguments, flags);                                 \
        const mode_t mode = mode_argument(flags, arguments);        \
        va_end(arguments);                                          \
        int file;                                                   \
        if (open_mocked_port(path, flags, &file)) return file;      \
        return next(folder, path, flags, mode);                     \
    }

#define DEFINE_CHECKED_OPEN(name)                                   \
    int name(const char* path, int flags);                          \
    EXPORT int name(const char* path, int flags) {                  \
        static int (*next)(const char*, int);                       \
        if (next == NULL) *(void**)&next = dlsym(RTLD_NEXT, #name); \
        int file;                                                   \
        if (open_mocked_port(path, flags, &file)) return file;      \
        return next(path, flags);                                   \
    }

#define FOR_EACH_NAME()           \
    DEFINE_OPEN(open)             \
    DEFINE_OPEN(open64)           \
    DEFINE_OPENAT(openat)         \
    DEFINE_OPENAT(openat64)       \
    DEFINE_CHECKED_OPEN(__open_2) \
    DEFINE_CHECKED_OPEN(__open64_2)

FOR_EACH_NAME()

/* The machine's udev daemon does not serve the mocked bus: it seems not to run. */
EXPORT int faccessat(int folder, const char* path, int mode, int flags) {
    static int (*next)(int, const char*, int, int);
    if (next == NULL) *(void**)&next = dlsym(RTLD_NEXT, "faccessat");
    if (getenv("UMOCKDEV_DIR") != NULL && strcmp(path, "/run/udev/control") == 0) {
        errno = ENOENT;
        return -1;
    }
    if (!is_mocked_port(path)) return next(folder, path, mode, flags);
    char target[PATH_MAX];
    if (!find_terminal(path, target, sizeof target)) return -1;
    return next(folder, target, mode, flags);
}
